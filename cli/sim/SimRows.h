#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "cli/base/Columns.h"
#include "model/Values.h"
#include "sim/Network.h"

namespace pimbsr::cli {

/// The row of one event of a simulation. The columns mean what they mean in a TimelineRow, whose time is
/// left empty.

TimelineRow rowOf(sim::Node const& node, host::Change const& change);
TimelineRow rowOf(sim::NodeInterface const& intf, host::Reception const& reception);
TimelineRow rowOfSent(sim::Link const& link, sim::Bytes packet);
TimelineRow rowOfNeighbor(sim::Link const& link, Lanet::IpGenAddr const& neighbor, bool up);
TimelineRow rowOfDr(sim::Node const& node, sim::Link const& link, Lanet::IpGenAddr const& dr);
TimelineRow rowOfState(Lanet::IpGenPrefix const& zone, Routing::Pim::Bsr::BsrCandidateState state);
TimelineRow rowOfLoss(sim::Link const* link, sim::Loss loss, sim::Bytes packet);

/// "BSM", "C-RP-Adv", "Hello" or "packet".
std::string_view nameOf(sim::PacketKind kind);

/// Lines of a router's trace and log.
void writeTrace(std::ostream& out, sim::Node const& node, Zet::TraceLine const& line);
void writeLog(std::ostream& out, sim::Node const& node, Zet::LogHandle const& handle,
              std::string const& text);

}  // namespace pimbsr::cli
