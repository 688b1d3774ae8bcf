#pragma once

#include <string>

#include "agent/views/Observed.h"

namespace pimbsr::agent {

/// The counters of an agent in the text format of Prometheus, at most 2,000 series whatever
/// peers send (SeriesLimits). Counters start at 0 with the agent; those of messages and drops also where an
/// operator clears them.
std::string metricsText(Observed const& observed);

}  // namespace pimbsr::agent
