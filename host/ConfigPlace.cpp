#include "host/ConfigPlace.h"

#include <array>

namespace pimbsr::host {

using Kind = ConfigItem::Kind;

static ConfigPlace inside(ConfigPlace place, ConfigItem const& entry) {
  place.entry = entry;
  return place;
}

ConfigPlace ConfigPlace::group(Lanet::IpGenPrefix const& range) const {
  return inside(*this, {Kind::group, std::string(range.stringValue().view())});
}

ConfigPlace ConfigPlace::list(std::string const& list) const { return inside(*this, {Kind::list, list}); }

ConfigPlace ConfigPlace::rule(U32 sequence) const {
  return inside(*this, {Kind::rule, std::to_string(sequence)});
}

ConfigPlace ConfigPlace::at(std::string_view keyOfIt) const {
  ConfigPlace place = *this;
  place.key = keyOfIt;
  return place;
}

/// "" for the timers, which are called by their keys alone.
static constexpr std::array partNames = {"",       "interface",   "border", "candidate-bsr", "candidate-rp",
                                         "filter", "access-list", "checks", "limits",        "corrections"};
static constexpr std::array kindNames = {"", "group ", "access list ", "rule "};

std::string textOf(ConfigPlace const& place) {
  std::string text = partNames[static_cast<std::size_t>(place.part)];
  if (!place.name.empty()) text += " " + place.name;
  if (place.entry.kind != Kind::none)
    text += ", " + std::string(kindNames[static_cast<std::size_t>(place.entry.kind)]) + place.entry.name;
  if (place.key.empty()) return text;
  return text + (text.empty() ? "" : ", ") + place.key;
}

}  // namespace pimbsr::host
