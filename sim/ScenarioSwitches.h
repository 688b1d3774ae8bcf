#pragma once

#include "sim/Scenario.h"
#include "sim/ScenarioLine.h"

namespace pimbsr::sim {

/// Reads what follows `corrections` or `checks`: all, none, or the names of those that are on; then the
/// routers after `on`, if not all.
Action readCorrections(ScenarioLine& line);
Action readChecks(ScenarioLine& line);

/// Reads what follows `limits`: none, or the names of bounds with their values; then the routers after `on`,
/// if not all.
Action readLimits(ScenarioLine& line);

}  // namespace pimbsr::sim
