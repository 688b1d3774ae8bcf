#include "view/Counts.h"

#include <fmt/format.h>
#include <pwd.h>

namespace pimbsr::view {

std::string lastDropOf(LastDrop const& view) { return spanOf(view.ago) + " ago"; }

std::string dropSendersOf(Drop const& view) {
  std::string text;
  for (DropSender const& one : view.senders)
    text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", cellOf(one.sender, "-"), one.count);
  return text;
}

/// A user by name, if this system has one for the user ID.
std::string userNameOf(User const& view) {
  passwd const* entry = getpwuid(view.uid);
  return entry == nullptr ? fmt::format("uid {}", view.uid) : entry->pw_name;
}

}  // namespace pimbsr::view
