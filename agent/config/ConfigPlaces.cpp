#include "agent/config/ConfigPlaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace pimbsr::agent {

TextPlace ConfigPlaces::find(std::string_view place) const {
  for (;;) {
    if (auto found = places_.find(place); found != places_.end()) return found->second;
    std::size_t comma = place.rfind(", ");
    if (comma == place.npos) return {};
    place = place.substr(0, comma);
  }
}

namespace {

/// What stands before a separator, which is taken off with it; all, and nothing is left, where there is none.
std::string_view takeUpTo(std::string_view separator, std::string_view& text) {
  std::size_t at = text.find(separator);
  std::string_view taken = text.substr(0, at);
  text = at == text.npos ? std::string_view() : text.substr(at + separator.size());
  return taken;
}

/// How a part of the settings is written.
struct Written {
  std::string_view kind;    ///< the first word of its place
  std::string_view table;   ///< of the file
  bool isNamed;             ///< whether each has a table of its own, of its name
  std::string_view groups;  ///< the keys of its ranges
  std::string_view lists;
};

constexpr Written writtens[] = {{"interface", "interface", true, "", ""},
                                {"border", "interface", true, "border", "border-lists"},
                                {"candidate-bsr", "candidate-bsr", false, "groups", "lists"},
                                {"candidate-rp", "candidate-rp", false, "groups", "lists"},
                                {"senders", "filter", false, "", "sender-lists"},
                                {"preferred-rps", "filter", false, "", "rp-lists"},
                                {"access-list", "access-list", true, "", ""},
                                {"checks", "checks", false, "", ""},
                                {"limits", "limits", false, "", ""}};

}  // namespace

std::string keyOf(std::string_view place) {
  std::string_view name = takeUpTo(", ", place);
  std::string_view kind = takeUpTo(" ", name);
  auto isIt = [&](Written const& one) { return one.kind == kind; };
  auto written = std::find_if(std::begin(writtens), std::end(writtens), isIt);
  if (written == std::end(writtens)) return fmt::format("timers.{}", kind);
  std::string key(written->table);
  if (written->isNamed) key += '.' + tomlKey(name);
  std::string what;
  std::pair<std::string_view, std::string_view> const parts[] = {
      {"group ", written->groups}, {"access list ", written->lists}, {"rule ", "rules"}};
  while (!place.empty()) {
    std::string_view part = takeUpTo(", ", place);
    auto begins = [&](auto const& one) { return part.starts_with(one.first); };
    auto named = std::find_if(std::begin(parts), std::end(parts), begins);
    if (named == std::end(parts)) {
      what.clear();  // a key beside the ranges holds for all of them
    } else {
      what = fmt::format(": {}{}", named->second == "rules" ? "seq " : "", part.substr(named->first.size()));
      part = named->second;
    }
    if (place.empty() || kind == "access-list") key += fmt::format(".{}", part);
  }
  return key + what;
}

}  // namespace pimbsr::agent
