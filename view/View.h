#pragma once

#include <array>
#include <concepts>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/Lanet.h"
#include "runtime/Types.h"

/// What can be shown, as plain structs. Each is declared once, in a .zet file of this module; its JSON, both
/// ways, and its table follow from that.
namespace pimbsr::view {

/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

/// Values by name, in the order in which they are shown.
template <class Value>
using Map = std::vector<std::pair<std::string, Value>>;

/// The cells of one line of a table.
using Cells = std::vector<std::string>;

/// A member is of the right JSON type, and has no value of its field.
class ReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The heads of the columns in which a view is shown.
template <class View>
Cells headOf();

/// A view from its JSON object. Throws nlohmann::json::exception for a member that is missing or of another
/// type, and ReadError for one that has no value of its field. Members that the view hasn't are left alone.
template <class View>
View readView(Json const& json) {
  View view;
  readJson(json, view);
  return view;
}

/// A span of time: tenths of a second up to 100 seconds, then minutes, hours and days.
std::string spanOf(double seconds);

// Cells: a value as a table shows it, `otherwise` for null, and `unit` with its space after a number.

std::string cellOf(std::string const& text, std::string_view otherwise);
std::string cellOf(bool value, std::string_view otherwise);
std::string cellOf(double seconds, std::string_view otherwise);

template <std::unsigned_integral Number>
std::string cellOf(Number number, std::string_view, std::string_view unit = "") {
  return std::to_string(number).append(unit);
}

template <Lanet::NetworkValue Value>
std::string cellOf(Value const& value, std::string_view otherwise) {
  Zet::String8 const& text = value.stringValue();
  return std::string(text.empty() ? otherwise : text.view());
}

template <class Value, class... Unit>
std::string cellOf(std::optional<Value> const& value, std::string_view otherwise, Unit... unit) {
  return value ? cellOf(*value, otherwise, unit...) : std::string(otherwise);
}

/// The items with commas between them.
template <class Value>
std::string cellOf(std::vector<Value> const& items, std::string_view otherwise) {
  std::string text;
  for (Value const& item : items) text += (text.empty() ? "" : ", ") + cellOf(item, "-");
  return text.empty() ? std::string(otherwise) : text;
}

}  // namespace pimbsr::view
