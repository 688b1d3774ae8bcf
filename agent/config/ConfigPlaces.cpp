#include "agent/config/ConfigPlaces.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "agent/config/Settings.keys.h"
#include "host/ConfigKey.h"
#include "host/Configuration.keys.h"
#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"

namespace pimbsr::agent {

using host::ConfigItem;
using host::ConfigPart;
using host::ConfigPlace;

TextPlace ConfigPlaces::find(ConfigPlace place) const {
  auto found = places_.find(place);
  if (found == places_.end()) {
    place.key.clear();
    found = places_.find(place);
  }
  if (found == places_.end()) {
    place.entry = {};
    found = places_.find(place);
  }
  return found == places_.end() ? TextPlace() : found->second;
}

namespace {

/// The keys of a part of the settings.
struct PartForm {
  ConfigPart part;
  std::string_view section;
  std::string_view groups = {};  ///< the keys of its ranges
  std::string_view lists = {};
};

using namespace file;  // the declared tables
constexpr PartForm partForms[] = {
    {ConfigPart::timers, TimersKeys::sectionRow.name},
    {ConfigPart::interface, InterfaceKeys::sectionRow.name},
    {ConfigPart::border, InterfaceKeys::sectionRow.name, InterfaceKeys::border.name,
     InterfaceKeys::borderLists.name},
    {ConfigPart::candidateBsr, CandidateBsrKeys::sectionRow.name, CandidateBsrKeys::groups.name,
     CandidateBsrKeys::lists.name},
    {ConfigPart::candidateRp, CandidateRpKeys::sectionRow.name, CandidateRpKeys::groups.name,
     CandidateRpKeys::lists.name},
    {ConfigPart::filter, host::FilterListsKeys::sectionRow.name},
    {ConfigPart::accessList, AccessListKeys::sectionRow.name},
    {ConfigPart::checks, host::ChecksKeys::sectionRow.name},
    {ConfigPart::limits, host::LimitsKeys::sectionRow.name},
    {ConfigPart::corrections, host::CorrectionsKeys::sectionRow.name},
};

PartForm const& formOf(ConfigPart part) {
  auto matches = [&](PartForm const& form) { return form.part == part; };
  return *std::find_if(std::begin(partForms), std::end(partForms), matches);
}

/// The key of an item, and the text of the item.
std::pair<std::string_view, std::string> keyOfItem(PartForm const& form, ConfigPlace const& place) {
  ConfigItem const& item = place.entry;
  if (item.kind == ConfigItem::Kind::rule) return {AccessListKeys::rules.name, ": seq " + item.name};
  std::string_view lists = place.part == ConfigPart::filter ? std::string_view(place.name) : form.lists;
  return {item.kind == ConfigItem::Kind::group ? form.groups : lists, ": " + item.name};
}

}  // namespace

/// A key that isn't of a rule applies to all ranges of its table.
std::string keyOf(ConfigPlace const& place) {
  PartForm const& form = formOf(place.part);
  bool isRule = place.entry.kind == ConfigItem::Kind::rule;
  std::size_t dot = form.section.find('.');
  std::string text(form.section.substr(0, dot));
  if (dot != form.section.npos) text += '.' + tomlKey(place.name);
  auto [itemKey, name] = keyOfItem(form, place);
  bool namesItem = place.entry.kind != ConfigItem::Kind::none && place.key.empty();
  if (namesItem || isRule) text += fmt::format(".{}", itemKey);
  if (namesItem) return text + name;
  return place.key.empty() ? text : fmt::format("{}.{}", text, place.key);
}

}  // namespace pimbsr::agent
