#pragma once

#include "sim/trial/Configured.h"
#include "sim/trial/Findings.h"

/// Checks of one running router's status tree.
namespace pimbsr::sim {

/// Compares the candidates, permitted senders, borders and timeouts that the configuration machines have
/// written with what is configured; both ways, so that nothing is left over.
Findings checkConfigured(Node const& node, Configured const& configured);

/// Each message counts as accepted or dropped, as one kind, and each drop has one reason.
Findings checkCounters(Node const& node);

}  // namespace pimbsr::sim
