#pragma once

#include "sim/Load.h"
#include "sim/Spans.h"
#include "view/Load.h"
#include "view/Spans.h"
#include "view/Topology.h"

namespace pimbsr::cli {

// Members of `pimbsr sim --json` about a whole run.

/// The network as it is configured now.
view::Topology topologyOf(sim::Network const& network);
/// Routers and links in the course of a run that has ended.
view::Spans spansOf(sim::Network const& network, sim::SpanRecorder const& recorder);
/// The packets on the links in a run that has ended.
view::Load loadOf(sim::Network const& network, sim::LoadMeter const& meter);

}  // namespace pimbsr::cli
