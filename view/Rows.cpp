#include "view/Rows.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace pimbsr::view {

// To JSON -----------------------------------------------------------------------------------------------

void startObject(Json& json) { json = Json::object(); }
void startArray(Json& json) { json = Json::array(); }
void writeNull(Json& json) { json = nullptr; }
Json& newMember(Json& object, std::string_view name) { return object[std::string(name)]; }
Json& newItem(Json& array) { return array.emplace_back(); }

void writeJson(std::string const& value, Json& json) { json = value; }
void writeJson(bool value, Json& json) { json = value; }
void writeJson(Zet::U64 value, Json& json) { json = value; }
void writeJson(Json const& value, Json& json) { json = value; }
void writeJson(double seconds, Json& json) {
  json = std::isfinite(seconds) ? Json(std::round(seconds * 1000) / 1000) : Json();
}

template <Lanet::NetworkValue Value>
static void writeText(Value const& value, Json& json) {
  Zet::String8 text = value.stringValue();
  json = text.empty() ? Json() : Json(std::string(text.view()));
}

void writeJson(Lanet::IpGenAddr const& value, Json& json) { writeText(value, json); }
void writeJson(Lanet::IpGenPrefix const& value, Json& json) { writeText(value, json); }

// From JSON ---------------------------------------------------------------------------------------------

bool isNull(Json const& json) { return json.is_null(); }

Json const* findMember(Json const& json, std::string_view name, Presence presence) {
  if (presence == Presence::always) return &json.at(std::string(name));
  auto at = json.find(std::string(name));
  return at == json.end() ? nullptr : &*at;
}

void eachItem(Json const& json, std::function<void(Json const&)> const& read) {
  if (!json.is_array()) throw ReadError("no array");
  for (Json const& item : json) read(item);
}

void eachMember(Json const& json, std::function<void(std::string const&, Json const&)> const& read) {
  if (!json.is_object()) throw ReadError("no object");
  for (auto const& [name, member] : json.items()) read(name, member);
}

Zet::U64 numberOf(Json const& json, Zet::U64 max) {
  if (!json.is_number_unsigned()) throw ReadError("no whole number from 0 on");
  auto number = json.get<Zet::U64>();
  return number > max ? throw ReadError("too large a number") : number;
}

void readJson(Json const& json, std::string& value) { json.get_to(value); }
void readJson(Json const& json, bool& value) { json.get_to(value); }
void readJson(Json const& json, double& value) { json.get_to(value); }
void readJson(Json const& json, Json& value) { value = json; }

template <Lanet::NetworkValue Value>
static Value parsed(Json const& json) {
  Zet::String8 text(json.get_ref<std::string const&>().c_str());
  try {
    return Value::parse(text);
  } catch (std::exception const& error) {
    throw ReadError(error.what());
  }
}

void readJson(Json const& json, Lanet::IpGenAddr& value) { value = parsed<Lanet::IpGenAddr>(json); }
void readJson(Json const& json, Lanet::IpGenPrefix& value) { value = parsed<Lanet::IpGenPrefix>(json); }

}  // namespace pimbsr::view
