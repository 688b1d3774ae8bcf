#pragma once

#include <nlohmann/json.hpp>

#include "view/View.h"

namespace pimbsr::view {

/// The JSON object of a view.
template <class View>
auto jsonOf(View const& view) -> decltype(writeJson(view, std::declval<Json&>()), Json()) {
  Json json;
  writeJson(view, json);
  return json;
}

}  // namespace pimbsr::view
