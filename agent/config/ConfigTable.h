#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/config/ConfigBlock.h"
#include "agent/config/ConfigText.h"
#include "agent/config/KeyTypes.h"
#include "host/ConfigKey.h"

/// Operations on any table of the configuration file. `Keys` is the struct of rows generated from its
/// declaration, `Struct` has its members.
namespace pimbsr::agent {

// Reading ---------------------------------------------------------------------------------------------

/// Reads the keys of a block that are there and valid; the other members stay as they are.
template <class Keys, class Struct>
void readKeys(ConfigBlock& block, Struct& into) {
  Keys::forEach([&](ConfigKey const& key, auto member) { block.take(key, into.*member); });
}

// Values as TOML and JSON -----------------------------------------------------------------------------

using OrderedJson = nlohmann::ordered_json;

inline OrderedJson jsonOfValue(std::string const& text) { return text; }
inline OrderedJson jsonOfValue(Lanet::IpGenPrefix const& range) {
  return std::string(range.stringValue().view());
}
inline OrderedJson jsonOfValue(Lanet::IpAddr address) { return std::string(address.stringValue().view()); }
inline OrderedJson jsonOfValue(Acl::Action action) {
  return action == Acl::Action::permit ? "permit" : "deny";
}

template <class Value>
requires std::is_arithmetic_v<Value> OrderedJson jsonOfValue(Value value) { return value; }

template <class Value>
OrderedJson jsonOfValue(std::vector<Placed<Value>> const& list) {
  OrderedJson json = OrderedJson::array();
  for (Placed<Value> const& item : list) json.push_back(jsonOfValue(item.value));
  return json;
}

inline OrderedJson jsonOfValue(std::set<std::string> const& names) { return names; }

/// null where a key is absent.
template <class Value>
OrderedJson jsonOfValue(std::optional<Value> const& value) {
  return value ? jsonOfValue(*value) : OrderedJson();
}

/// A value of a key as TOML writes it. A long list is broken into lines of at most maxDotsOfLine dots.
inline std::string tomlOfValue(OrderedJson const& json) {
  static constexpr std::size_t itemsOfALine = 8;
  if (json.is_string()) return tomlText(json.get_ref<std::string const&>());
  if (!json.is_array()) return json.dump();
  std::string list = "[";
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (i != 0) list += i % itemsOfALine == 0 ? ",\n  " : ", ";
    list += tomlOfValue(json[i]);
  }
  return list + "]";
}

// Writing ---------------------------------------------------------------------------------------------

inline bool isAnyKey(ConfigKey const&) { return true; }

/// Whether a row is of a key of `Keys`, also where a table includes them.
template <class Keys>
bool isKeyOf(ConfigKey const& key) {
  bool found = false;
  Keys::forEach([&](ConfigKey const& one, auto) { found = found || one.name == key.name; });
  return found;
}

/// Calls each(row, value as JSON) for each key that is wanted and not absent.
template <class Keys, class Struct, class Wanted, class Each>
void forEachValue(Struct const& from, Wanted const& isWanted, Each const& each) {
  Keys::forEach([&](ConfigKey const& key, auto member) {
    if constexpr (!std::is_same_v<std::decay_t<decltype(from.*member)>, file::Rules>) {
      if (OrderedJson json = jsonOfValue(from.*member); isWanted(key) && !json.is_null()) each(key, json);
    }
  });
}

/// The keys as "name = value", in the order of the reference page.
template <class Keys, class Struct, class Wanted = bool (*)(ConfigKey const&)>
std::vector<std::string> tomlOf(Struct const& from, Wanted const& isWanted = isAnyKey) {
  std::vector<std::string> lines;
  forEachValue<Keys>(from, isWanted, [&](ConfigKey const& key, OrderedJson const& json) {
    lines.push_back(fmt::format("{} = {}", key.name, tomlOfValue(json)));
  });
  return lines;
}

/// The keys as members of a JSON object.
template <class Keys, class Struct, class Wanted = bool (*)(ConfigKey const&)>
OrderedJson jsonOf(Struct const& from, Wanted const& isWanted = isAnyKey) {
  OrderedJson object = OrderedJson::object();
  forEachValue<Keys>(from, isWanted, [&](ConfigKey const& key, OrderedJson const& json) {
    object[std::string(key.member)] = json;
  });
  return object;
}

// Declared properties of values -----------------------------------------------------------------------

/// Calls report(row, reason) for each key whose value is declared unwise.
template <class Keys, class Struct, class Report>
void forEachUnwise(Struct const& from, Report const& report) {
  Keys::forEach([&](ConfigKey const& key, auto member) {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(from.*member)>>) {
      if (!key.unwise.reason.empty() && from.*member == key.unwise.value) report(key, key.unwise.reason);
    }
  });
}

/// Adds the keys that differ and that only a restart applies, such as "control.socket".
template <class Keys, class Struct>
void addChangedAtRestart(Struct const& from, Struct const& to, std::vector<std::string>& keys) {
  Keys::forEach([&](ConfigKey const& key, auto member) {
    if (key.needsRestart && from.*member != to.*member)
      keys.push_back(fmt::format("{}.{}", key.section, key.name));
  });
}

}  // namespace pimbsr::agent
