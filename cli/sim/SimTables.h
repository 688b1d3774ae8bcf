#pragma once

#include <iosfwd>
#include <span>
#include <vector>

#include "sim/Network.h"
#include "sim/Scenario.h"

namespace pimbsr::cli {

/// The routers named, or all.
std::vector<sim::Node const*> nodesOf(sim::Network const& network, std::span<Zet::U32 const> numbers);

/// Writes one view of routers as a table.
void writeView(std::ostream& out, sim::Network const& network, sim::Show const& show);
/// Writes which RP serves a group at a router, and why.
void writeRpAnswer(std::ostream& out, sim::Node const& node, Lanet::IpAddr group);
/// Writes how often messages were dropped in the whole network, and why.
void writeDrops(std::ostream& out, sim::Network const& network);

}  // namespace pimbsr::cli
