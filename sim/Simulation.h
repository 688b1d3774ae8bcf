#pragma once

#include <set>
#include <string>
#include <string_view>
#include <tuple>

#include "sim/Network.h"
#include "sim/Scenario.h"
#include "sim/ScenarioParser.h"

namespace pimbsr::sim {

class Simulation;

/// Receives the events of a simulation, as far as the scenario lets them be reported, and what it is to
/// show.
class Report : public Listener {
 public:
  /// The simulation before its first statement, for the report to add recorders and taps to it.
  virtual void onStart(Simulation&) {}
  /// A statement that changes the network once it runs.
  virtual void onCommand(Network const&, Statement const&) {}
  virtual void onShow(Network const&, Show const&) {}
  virtual void onShowRp(Network const&, ShowRp const&) {}
  virtual void onEnd(Network const&) {}
};

/// Plays a scenario: carries out statements one after the other, and those for a later time when the clock
/// gets there. Such a statement is executed after everything else that is due at its time, as if it
/// followed a `run until` of that time.
class Simulation final : private Listener {
 public:
  /// The report outlives the simulation. `kinds` is what is reported at first.
  Simulation(U64 seed, Report& report, Kinds kinds = usualKinds);
  ~Simulation() override;

  /// Sets a listener to all events of the kinds given, whatever the scenario reports; null for none. It
  /// outlives the simulation.
  void recorderIs(Listener* recorder, Kinds kinds);

  /// Reads and carries out statements; may be called again and again. All are read before the first is
  /// carried out. Throws ScenarioError for what can't be read, and then nothing is carried out; and for an
  /// invalid configuration, when its statement is carried out.
  void execute(std::string_view text, std::string const& file = "scenario");
  void execute(Statement const& statement);
  /// Ends the scenario; to be called once. Statements for a time that was not reached are left.
  void end();

  Network& network() { return network_; }
  Network const& network() const { return network_; }
  /// Number of statements that wait for their time.
  std::size_t pending() const { return scheduled_.size(); }

 private:
  class Executor;

  void carryOut(Statement const& statement);
  void runTo(double time);
  void runNetworkTo(double time);
  void kindsIs(Kinds kinds);
  void listen();
  template <class Call>
  void forward(Kinds kinds, Call const& call);
  void onChanges(Node const& node, std::span<host::Change const> changes) override;
  void onReception(Node const& node, NodeInterface const& intf, host::Reception const& reception) override;
  void onSent(Node const& node, NodeInterface const& intf, Bytes packet) override;
  void onNeighbor(Node const& node, NodeInterface const& intf, Lanet::IpGenAddr const& neighbor,
                  bool up) override;
  void onDr(Node const& node, NodeInterface const& intf, Lanet::IpGenAddr const& dr) override;
  void onState(Node const& node, Lanet::IpGenPrefix const& zone,
               Routing::Pim::Bsr::BsrCandidateState state) override;
  void onStateEnd(Node const& node, Lanet::IpGenPrefix const& zone) override;
  void onRunning(Node const& node, bool running) override;
  void onLink(Network const& network, U32 link, bool up) override;
  void onLoss(Network const& network, Link const* link, Node const* node, Loss loss, Bytes packet) override;
  void onTrace(Node const& node, Zet::TraceLine const& line) override;
  void onLog(Node const& node, Zet::LogHandle const& handle, std::string const& text) override;

  /// A drop that was reported: router, reason, source.
  using Drop = std::tuple<U32, std::string_view, Lanet::IpGenAddr>;

  Report& report_;
  Kinds kinds_;
  Listener* recorder_ = nullptr;
  Kinds recorded_ = 0;
  std::set<Drop> reported_;
  ScenarioParser parser_;
  std::string file_;  ///< of the text read last
  Network network_;
  EventQueue<Statement> scheduled_;
};

}  // namespace pimbsr::sim
