#pragma once

#include <algorithm>
#include <functional>

#include "runtime/Assert.h"
#include "view/View.h"

/// How members of views become JSON and are read from it, for the sources that are made from declarations.
/// These functions hide the JSON library, so that these sources compile fast.
namespace pimbsr::view {

/// When a member is in the JSON object.
enum class Presence : Zet::U8 {
  always,
  ifAny,     ///< left out where there is nothing
  defaulted  ///< always, but an answer of an earlier version lacks it: it is read as empty
};

// To JSON -----------------------------------------------------------------------------------------------

void startObject(Json& json);
void startArray(Json& json);
void writeNull(Json& json);
/// A new member of an object, or a new item of an array, until the next one is asked for.
Json& newMember(Json& object, std::string_view name);
Json& newItem(Json& array);

void writeJson(std::string const& value, Json& json);
void writeJson(bool value, Json& json);
void writeJson(Zet::U64 value, Json& json);
void writeJson(Json const& value, Json& json);
/// Seconds to the millisecond; null for infinity, which stands for never.
void writeJson(double seconds, Json& json);
/// The unset value is null.
void writeJson(Lanet::IpGenAddr const& value, Json& json);
void writeJson(Lanet::IpGenPrefix const& value, Json& json);

template <std::unsigned_integral Number>
void writeJson(Number value, Json& json) {
  writeJson(Zet::U64{value}, json);
}

template <class Value>
void writeJson(std::optional<Value> const& value, Json& json);
template <class Value>
void writeJson(std::vector<Value> const& values, Json& json);
template <class Value>
void writeJson(Map<Value> const& values, Json& json);

template <class Value>
void writeJson(std::optional<Value> const& value, Json& json) {
  value ? writeJson(*value, json) : writeNull(json);
}
template <class Value>
void writeJson(std::vector<Value> const& values, Json& json) {
  startArray(json);
  for (Value const& value : values) writeJson(value, newItem(json));
}
template <class Value>
void writeJson(Map<Value> const& values, Json& json) {
  startObject(json);
  for (auto const& [name, value] : values) writeJson(value, newMember(json, name));
}

template <class Value>
bool isNone(std::optional<Value> const& value) {
  return !value;
}
template <class Value>
bool isNone(std::vector<Value> const& values) {
  return values.empty();
}

template <class Value>
void writeMember(Json& json, std::string_view name, Value const& value, Presence presence) {
  if constexpr (requires { isNone(value); }) {
    if (presence == Presence::ifAny && isNone(value)) return;
  }
  writeJson(value, newMember(json, name));
}

// From JSON ---------------------------------------------------------------------------------------------

bool isNull(Json const& json);
/// The member of an object; null if it is missing, which throws nlohmann::json::exception for one that has
/// to be there.
Json const* findMember(Json const& json, std::string_view name, Presence presence);
/// Throw ReadError for what is no array, and no object.
void eachItem(Json const& json, std::function<void(Json const&)> const& read);
void eachMember(Json const& json, std::function<void(std::string const&, Json const&)> const& read);
/// Throws ReadError for what is no whole number from 0 to `max`.
Zet::U64 numberOf(Json const& json, Zet::U64 max);

void readJson(Json const& json, std::string& value);
void readJson(Json const& json, bool& value);
void readJson(Json const& json, double& value);
void readJson(Json const& json, Json& value);
void readJson(Json const& json, Lanet::IpGenAddr& value);
void readJson(Json const& json, Lanet::IpGenPrefix& value);

template <std::unsigned_integral Number>
void readJson(Json const& json, Number& value) {
  value = static_cast<Number>(numberOf(json, static_cast<Number>(-1)));
}

template <class Value>
void readJson(Json const& json, std::optional<Value>& value);
template <class Value>
void readJson(Json const& json, std::vector<Value>& values);
template <class Value>
void readJson(Json const& json, Map<Value>& values);

template <class Value>
void readJson(Json const& json, std::optional<Value>& value) {
  value.reset();
  if (!isNull(json)) readJson(json, value.emplace());
}
template <class Value>
void readJson(Json const& json, std::vector<Value>& values) {
  eachItem(json, [&](Json const& item) { readJson(item, values.emplace_back()); });
}
template <class Value>
void readJson(Json const& json, Map<Value>& values) {
  eachMember(json, [&](std::string const& name, Json const& member) {
    readJson(member, values.emplace_back(name, Value()).second);
  });
}

/// `mayBeNull` of a network value: null is the unset one.
template <class Value>
void readMember(Json const& json, std::string_view name, Value& value, Presence presence, bool mayBeNull) {
  Json const* member = findMember(json, name, presence);
  if (member == nullptr) return;
  if constexpr (Lanet::NetworkValue<Value>) {
    if (mayBeNull && isNull(*member)) return;
  }
  // Of a member that may be left out and may be null, null is a value.
  if constexpr (requires { value->has_value(); }) {
    readJson(*member, value.emplace());
  } else {
    readJson(*member, value);
  }
}

// Choices -----------------------------------------------------------------------------------------------

/// One item of a choice: its name in JSON, and how tables show it.
template <class Value>
struct ChoiceRow {
  Value value;
  std::string_view key;
  std::string_view shown;
};

template <class Value, std::size_t n>
std::string_view keyIn(ChoiceRow<Value> const (&rows)[n], Value value) {
  auto row = std::find_if(rows, rows + n, [&](auto const& one) { return one.value == value; });
  ZET_ASSERT(row != rows + n, "each value has a row");
  return row->key;
}

template <class Value, std::size_t n>
Value valueIn(ChoiceRow<Value> const (&rows)[n], std::string_view key) {
  auto row = std::find_if(rows, rows + n, [&](auto const& one) { return one.key == key; });
  return row == rows + n ? throw ReadError("no such name") : row->value;
}

template <class Value, std::size_t n>
std::string shownIn(ChoiceRow<Value> const (&rows)[n], std::string_view key) {
  auto row = std::find_if(rows, rows + n, [&](auto const& one) { return one.key == key; });
  return std::string(row == rows + n ? key : row->shown);
}

}  // namespace pimbsr::view
