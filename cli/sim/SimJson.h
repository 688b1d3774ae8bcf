#pragma once

#include <functional>
#include <iosfwd>
#include <memory>

#include "sim/Load.h"
#include "sim/Simulation.h"
#include "sim/Spans.h"
#include "view/Simulation.h"

namespace pimbsr::cli {

/// Makes a simulation one JSON document at its end: the events, and the learned state of each router. It
/// leaves out the tables that a scenario asks for on the way.
class SimJson final : public sim::Report {
 public:
  /// Gets the document at the end.
  using Take = std::function<void(view::Json const&)>;

  /// Lines of trace and log go to `traceOut`. `linkBins`: the load of each link is counted by bins of time
  /// too.
  SimJson(Take take, std::ostream& traceOut, bool linkBins = false);
  /// The same; the document is written to `out`.
  SimJson(std::ostream& out, std::ostream& traceOut, bool linkBins = false);
  ~SimJson() override;

  void onStart(sim::Simulation& simulation) override;
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
  void onEnd(sim::Network const& network) override;

 private:
  struct Document;

  template <class Kind>
  view::SimulationEvent& add(sim::Network const& network, sim::Node const* node, Kind kind);
  template <class Kind>
  view::SimulationEvent& add(sim::Node const& node, Kind kind);

  Take take_;
  std::ostream& traceOut_;
  std::unique_ptr<Document> document_;
  sim::SpanRecorder spans_;
  sim::LoadMeter load_;
};

}  // namespace pimbsr::cli
