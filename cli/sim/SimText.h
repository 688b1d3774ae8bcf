#pragma once

#include <iosfwd>
#include <string>

#include "cli/base/Columns.h"
#include "sim/Simulation.h"

namespace pimbsr::cli {

/// Writes a simulation as human-readable text: a line for each event as it comes, tables where the scenario
/// asks for them, and at the end the learned state of each router.
class SimText final : public sim::Report {
 public:
  /// Lines of trace and log go to `traceOut`.
  SimText(std::ostream& out, std::ostream& traceOut) : out_(out), traceOut_(traceOut) {}

  void onChanges(sim::Node const& node, std::span<host::Change const> changes) override;
  void onReception(sim::Node const& node, sim::NodeInterface const& intf,
                   host::Reception const& reception) override;
  void onSent(sim::Node const& node, sim::NodeInterface const& intf, sim::Bytes packet) override;
  void onNeighbor(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& neighbor,
                  bool up) override;
  void onDr(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& dr) override;
  void onState(sim::Node const& node, Lanet::IpGenPrefix const& zone,
               Routing::Pim::Bsr::BsrCandidateState state) override;
  void onLoss(sim::Network const& network, sim::Link const* link, sim::Node const* node, sim::Loss loss,
              sim::Bytes packet) override;
  void onTrace(sim::Node const& node, Zet::TraceLine const& line) override;
  void onLog(sim::Node const& node, Zet::LogHandle const& handle, std::string const& text) override;
  void onCommand(sim::Network const& network, sim::Statement const& statement) override;
  void onShow(sim::Network const& network, sim::Show const& show) override;
  void onShowRp(sim::Network const& network, sim::ShowRp const& show) override;
  void onEnd(sim::Network const& network) override;

 private:
  void write(sim::Network const& network, sim::Node const* node, TimelineRow const& row);
  void startTable();
  std::size_t nameWidth(sim::Network const& network);

  std::ostream& out_;
  std::ostream& traceOut_;
  enum class Last { nothing, line, table };
  Last last_ = Last::nothing;  ///< what was written last
  std::size_t nameWidth_ = 2;  ///< of the column of routers
  Zet::U32 measured_ = 0;      ///< routers whose names nameWidth_ counts in
};

}  // namespace pimbsr::cli
