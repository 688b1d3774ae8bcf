#pragma once

#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/Views.h"
#include "sim/Network.h"
#include "sim/Scenario.h"

namespace pimbsr::cli {

/// What a router's machine of one zone says.
struct MachineView {
  std::string_view state = "-";  ///< as RFC 5059 names it; "-" where the zone has no machine
  bool candidate = false;
  std::optional<double> bootstrapTimer;  ///< seconds left; nothing if it doesn't run
  std::optional<double> scopeZoneTimer;
};

MachineView machineOf(sim::Node const& node, Lanet::IpGenPrefix const& zone);

/// The routers named, or all.
std::vector<sim::Node const*> nodesOf(sim::Network const& network, std::span<Zet::U32 const> numbers);

/// Writes one view of routers as a table.
void writeView(std::ostream& out, sim::Network const& network, sim::Show const& show);
/// Tells which RP serves a group at a router, and why.
void writeRpAnswer(std::ostream& out, sim::Node const& node, Lanet::IpAddr group);
/// Writes how often messages were refused in the whole network, and why.
void writeRefusals(std::ostream& out, sim::Network const& network);

}  // namespace pimbsr::cli
