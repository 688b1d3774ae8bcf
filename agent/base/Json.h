#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "model/Lanet.h"

/// How values are told in JSON, for the sources of this room alone.
namespace pimbsr::agent {

/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

/// A network value as text; null for the unset one.
template <Lanet::NetworkValue Value>
Json jsonOf(Value const& value) {
  Zet::String8 text = value.stringValue();
  return text.empty() ? Json() : Json(std::string(text.view()));
}

/// Seconds to the millisecond; null for infinity, which stands for never.
inline Json jsonOfTime(double seconds) {
  return std::isfinite(seconds) ? Json(std::round(seconds * 1000) / 1000) : Json();
}
inline Json jsonOfTime(std::optional<double> const& seconds) {
  return seconds ? jsonOfTime(*seconds) : Json();
}

/// The name of a machine's state; null for "-", which stands for none.
inline Json jsonOfState(std::string_view state) { return state == "-" ? Json() : Json(state); }

/// Text for a key of an object.
template <Lanet::NetworkValue Value>
std::string textOf(Value const& value) {
  return std::string(value.stringValue().view());
}

}  // namespace pimbsr::agent
