#pragma once

#include <span>
#include <string_view>

#include "sim/Scenario.h"
#include "sim/ScenarioLine.h"

namespace pimbsr::sim {

/// The kinds of events by name, in the order of their bits.
struct KindName {
  Kind kind;
  std::string_view name;
  std::string_view sentence;
  std::string_view former = {};  ///< a former name, which is rejected with the present one; may be empty
};
std::span<KindName const> kindNames();

/// Reads what follows `show`: `rp` with a router and a group; or the routers, if not all, and a view.
Action readShow(ScenarioLine& line);
/// Read what follows `report` and `quiet`: kinds of events, or `all`.
Action readReport(ScenarioLine& line);
Action readQuiet(ScenarioLine& line);

}  // namespace pimbsr::sim
