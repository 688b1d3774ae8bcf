#include "cli/show/SubjectErrors.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "agent/control/ControlProtocol.h"

namespace pimbsr::cli {

using Names = std::vector<std::string>;

template <class Views>
static Names namesOf(Views const& views) {
  return Names(views.begin(), views.end());
}

static bool isOneOf(Names const& names, std::string const& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

static std::string takesNothing(char const* command, std::string const& what, std::string const& subject) {
  return fmt::format("'{} {}' takes nothing more; '{}' is too much", command, what, subject);
}

std::string showErrorOf(std::string const& what, std::string const& subject) {
  Names views = namesOf(agent::viewNames());
  views.emplace_back("all");
  if (!isOneOf(views, what))
    return fmt::format("there is nothing '{}' to show; valid are {}", what, fmt::join(views, ", "));
  if (what == "rp-set") {
    return fmt::format(
        "'{}' is no zone, group range or group; valid is one such as 239.1.0.0/16 or 239.1.1.1", subject);
  }
  if (what != "rp") return subject.empty() ? std::string() : takesNothing("show", what, subject);
  if (subject.empty()) return "'show rp' needs a multicast group such as 239.1.1.1";
  return fmt::format("'{}' is no multicast group; valid is one such as 239.1.1.1", subject);
}

std::string clearErrorOf(std::string const& what, std::string const& subject) {
  Names const names = namesOf(agent::clearNames());
  if (!isOneOf(names, what))
    return fmt::format("there is nothing '{}' to clear; valid are {}", what, fmt::join(names, ", "));
  if (what == "bsr" || what == "rp-set")
    return fmt::format("'{}' is no zone; valid is one such as 239.1.0.0/16, or none for all", subject);
  if (what == "neighbors") return fmt::format("'{}' is no name of an interface", subject);
  return subject.empty() ? std::string() : takesNothing("clear", what, subject);
}

}  // namespace pimbsr::cli
