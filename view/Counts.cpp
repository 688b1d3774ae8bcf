#include "view/Counts.h"

#include <fmt/format.h>
#include <pwd.h>

namespace pimbsr::view {

/// One has a name that only its parts explain.
std::string counterNameOf(Counter const& view) {
  return view.name == "errCounters" ? "Refused, by cause" : view.name;
}

std::string lastDropOf(LastDrop const& view) { return spanOf(view.ago) + " ago"; }

/// A user by name, if this system has one for the user ID.
std::string userNameOf(User const& view) {
  passwd const* entry = getpwuid(view.uid);
  return entry == nullptr ? fmt::format("uid {}", view.uid) : entry->pw_name;
}

std::string servesOf(Socket const& view) { return view.readOnly ? "reading" : "all"; }

}  // namespace pimbsr::view
