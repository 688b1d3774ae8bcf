#include "agent/config/ConfigChanges.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "agent/config/ConfigWriter.h"

namespace pimbsr::agent {

namespace {

using Values = std::map<std::string, std::string>;
using Sections = std::vector<WrittenTable>;

/// Changes that are named; the others are counted.
constexpr std::size_t maxNamed = 10;

/// The names that several tables have, as where an interface is candidate for two ranges with other terms.
void addRepeated(Sections const& sections, std::set<std::string>& repeated) {
  std::set<std::string> seen;
  for (WrittenTable const& section : sections) {
    if (!seen.insert(section.name).second) repeated.insert(section.name);
  }
}

std::map<std::string, Values> byName(Sections const& sections, std::set<std::string> const& repeated) {
  std::map<std::string, Values> named;
  for (WrittenTable const& section : sections) {
    std::string item = repeated.contains(section.name) ? ' ' + section.item : std::string();
    named[section.name + item] = section.values;
  }
  return named;
}

template <class Map>
std::set<std::string> keysOf(Map const& a, Map const& b) {
  std::set<std::string> keys;
  for (auto const& [key, value] : a) keys.insert(key);
  for (auto const& [key, value] : b) keys.insert(key);
  return keys;
}

void addChanges(std::string const& section, Values const& before, Values const& after,
                std::vector<std::string>& changes) {
  for (std::string const& key : keysOf(before, after)) {
    auto former = before.find(key);
    auto present = after.find(key);
    if (present == after.end()) {
      changes.push_back(fmt::format("{}: {} is removed", section, key));
    } else if (former == before.end()) {
      changes.push_back(fmt::format("{}: {} is new: {}", section, key, present->second));
    } else if (former->second != present->second) {
      changes.push_back(fmt::format("{}: {} is {}, was {}", section, key, present->second, former->second));
    }
  }
}

}  // namespace

std::string changesOf(Settings const& before, Settings const& after) {
  Sections const from = sectionsOf(before);
  Sections const to = sectionsOf(after);
  std::set<std::string> repeated;
  addRepeated(from, repeated);
  addRepeated(to, repeated);
  std::map<std::string, Values> const former = byName(from, repeated);
  std::map<std::string, Values> const present = byName(to, repeated);
  std::vector<std::string> changes;
  for (std::string const& name : keysOf(former, present)) {
    bool isBoth = former.contains(name) && present.contains(name);
    if (isBoth) addChanges(name, former.at(name), present.at(name), changes);
    if (!isBoth) changes.push_back(name + (present.contains(name) ? " is new" : " is removed"));
  }
  std::size_t count = std::min(changes.size(), maxNamed);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : "; ") + changes[i];
  return changes.size() == count ? text : fmt::format("{}; {} more", text, changes.size() - count);
}

}  // namespace pimbsr::agent
