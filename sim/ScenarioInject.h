#pragma once

#include "sim/Scenario.h"
#include "sim/ScenarioLine.h"

namespace pimbsr::sim {

/// Reads what follows `inject`: a message made by hand.
Action readInject(ScenarioLine& line);

}  // namespace pimbsr::sim
