#include "sim/Simulation.h"

namespace pimbsr::sim {

using host::Reception;
using Lanet::IpGenAddr;

Simulation::Simulation(U64 seed, Report& report, Kinds kinds) : report_(report), network_(seed) {
  kindsIs(kinds);
  report_.onStart(*this);
}

Simulation::~Simulation() { network_.listenerIs(nullptr, 0); }

void Simulation::kindsIs(Kinds kinds) {
  kinds_ = kinds;
  listen();
}

void Simulation::recorderIs(Listener* recorder, Kinds kinds) {
  recorder_ = recorder;
  recorded_ = recorder == nullptr ? 0 : kinds;
  listen();
}

void Simulation::listen() { network_.listenerIs(this, kinds_ | recorded_); }

// Statements ------------------------------------------------------------------------------------------

/// Executes one statement of each kind.
class Simulation::Executor {
 public:
  explicit Executor(Simulation& simulation) : simulation_(simulation), network_(simulation.network_) {}

  void operator()(AddLink const& add) { network_.addLink(add.options); }
  void operator()(AddRouter const& add) { network_.addNode(add.options, !add.stopped); }
  void operator()(AddInterface const& add) { network_.attach(add.router, add.link, add.options); }
  void operator()(SetCandidateBsr const& set) {
    network_.node(set.router).candidateBsrIs(set.zone, set.candidacy);
  }
  void operator()(EndCandidateBsr const& end) {
    Node& node = network_.node(end.router);
    auto at = node.config().candidateBsrs.find(end.zone);
    bool isOther = at == node.config().candidateBsrs.end() ||
                   (!end.address.isEmpty() && at->second.address != end.address);
    if (!isOther) node.candidateBsrDel(end.zone);
  }
  void operator()(SetCandidateRp const& set) {
    for (auto const& range : set.ranges) network_.node(set.router).candidateRpIs(range, set.candidacy);
  }
  void operator()(EndCandidateRp const& end) {
    for (auto const& range : end.ranges) network_.node(end.router).candidateRpDel(range, end.address);
  }
  void operator()(SetBorder const& set) {
    network_.node(set.router).borderIs(set.zone, set.intf, set.border);
  }
  void operator()(SetPermit const& set) {
    Node& node = network_.node(set.router);
    set.permit ? node.permitIs(set.senders) : node.permitDel(set.senders);
  }
  void operator()(SetAccessList const& set) {
    change(set.router, [&](NodeConfig& config) {
      if (set.list) {
        config.accessLists[set.name] = *set.list;
      } else {
        config.accessLists.erase(set.name);
      }
    });
  }
  void operator()(SetListUse const& set) {
    change(set.router, [&](NodeConfig& config) { useList(config, set); });
  }
  void operator()(SetAddress const& set) {
    IpGenAddr address = set.address ? IpGenAddr(*set.address) : IpGenAddr();
    network_.node(set.router).addressIs(set.intf, address);
  }
  void operator()(SetTimers const& set) {
    change(set.router, [&](NodeConfig& config) {
      config.bsTimeout = set.bsTimeout.value_or(config.bsTimeout);
      config.szTimeout = set.szTimeout.value_or(config.szTimeout);
    });
  }
  void operator()(SetRoute const& set) {
    Node& node = network_.node(set.router);
    set.via ? node.routeIs(set.prefix, *set.via) : node.routeDel(set.prefix);
  }
  void operator()(SetLink const& set) { network_.linkUpIs(set.link, set.up); }
  void operator()(SetLife const& set) {
    Node& node = network_.node(set.router);
    if (set.life == Life::start) node.start();
    if (set.life == Life::stop) node.stop();
    if (set.life == Life::crash) node.crash();
    if (set.life == Life::restart) node.restart(Kept::nothing);
    if (set.life == Life::restartKeeping) node.restart(Kept::state);
    if (set.life == Life::restartKeepingZones) node.restart(Kept::zones);
  }
  void operator()(Partition const& partition) { network_.partition(partition.routers); }
  void operator()(Heal const&) { network_.heal(); }
  void operator()(SetFaults const& set) {
    if (set.link) return network_.faultsIs(*set.link, set.faults);
    for (U32 link = 0; link < network_.linkCount(); ++link) network_.faultsIs(link, set.faults);
  }
  void operator()(SetStormLimit const& set) { network_.stormLimitIs(set.packets); }
  void operator()(SetConvergence const& set) { network_.convergenceIs(set.seconds); }
  void operator()(Inject const& inject) { network_.inject(inject.link, inject.packet); }
  void operator()(LetRun const& run) { simulation_.runTo(run.until); }
  void operator()(Show const& show) {
    simulation_.report_.onShow(network_, show);
    if (show.view == View::packets) network_.packetCountsClear(show.routers);
  }
  void operator()(ShowRp const& show) { simulation_.report_.onShowRp(network_, show); }
  void operator()(SetCorrections const& set) {
    if (set.routers.empty()) network_.correctionsAre(set.settings);
    for (U32 router : set.routers) network_.node(router).correctionsAre(set.settings);
  }
  void operator()(SetChecks const& set) {
    if (set.routers.empty()) network_.checksAre(set.checks);
    for (U32 router : set.routers) network_.node(router).checksAre(set.checks);
  }
  void operator()(SetLimits const& set) {
    for (auto const& [limit, value] : set.values) {
      if (set.routers.empty()) network_.limitIs(limit, value);
      for (U32 router : set.routers) network_.node(router).limitIs(limit, value);
    }
  }
  void operator()(SetReport const& set) {
    simulation_.kindsIs(set.on ? simulation_.kinds_ | set.kinds : simulation_.kinds_ & ~set.kinds);
  }

 private:
  template <class Change>
  void change(U32 router, Change const& change) {
    Node& node = network_.node(router);
    NodeConfig wanted = node.config();
    change(wanted);
    node.configIs(wanted);
  }
  static void useList(NodeConfig& config, SetListUse const& set) {
    ListUse use(set.intf, set.list);
    host::BsrTerms terms{set.bsr.priority, set.bsr.hashMaskLen, set.bsr.bsPeriod};
    if (set.role == ListRole::bsr) put(config.bsrLists, use, terms, set.on);
    if (set.role == ListRole::rp) put(config.rpLists, use, set.rp, set.on);
    if (set.role == ListRole::border) put(config.borderLists, use, set.on);
    if (set.role == ListRole::senders) put(config.senderLists, set.list, set.on);
  }
  template <class Map, class Value>
  static void put(Map& map, ListUse const& use, Value const& value, bool on) {
    if (on) {
      map[use] = value;
    } else {
      map.erase(use);
    }
  }
  template <class Set, class Key>
  static void put(Set& set, Key const& key, bool on) {
    if (on) {
      set.insert(key);
    } else {
      set.erase(key);
    }
  }

  Simulation& simulation_;
  Network& network_;
};

void Simulation::execute(std::string_view text, std::string const& file) {
  file_ = file;
  for (Statement const& statement : parser_.parse(text, file)) execute(statement);
}

void Simulation::execute(Statement const& statement) {
  if (statement.at) {
    scheduled_.push(*statement.at, statement);
  } else {
    carryOut(statement);
  }
}

/// Whether a statement changes the network, rather than to show it or let it run.
static bool isCommand(Action const& action) {
  return !std::holds_alternative<LetRun>(action) && !std::holds_alternative<Show>(action) &&
         !std::holds_alternative<ShowRp>(action) && !std::holds_alternative<SetReport>(action);
}

void Simulation::carryOut(Statement const& statement) {
  bool isReported = (kinds_ & commands) != 0 && network_.now() > 0 && isCommand(statement.action);
  if (isReported) report_.onCommand(network_, statement);
  try {
    std::visit(Executor(*this), statement.action);
  } catch (InvalidConfig const& invalid) {
    throw ScenarioError(file_ + ":" + std::to_string(statement.line) + ": " + invalid.what());
  }
}

void Simulation::runTo(double time) {
  while (scheduled_.nextTime() <= time) {
    runNetworkTo(scheduled_.nextTime());
    carryOut(scheduled_.pop());
  }
  runNetworkTo(time);
}

void Simulation::runNetworkTo(double time) {
  network_.runTo(time);
  if (!network_.storm().empty()) throw ScenarioError(file_ + ": " + network_.storm());
}

void Simulation::end() { report_.onEnd(network_); }

// Events ----------------------------------------------------------------------------------------------

/// Calls the recorder and the report, each if it wants one of these kinds.
template <class Call>
void Simulation::forward(Kinds kinds, Call const& call) {
  if ((recorded_ & kinds) != 0) call(*recorder_);
  if ((kinds_ & kinds) != 0) call(report_);
}

void Simulation::onChanges(Node const& node, std::span<host::Change const> changes) {
  if ((recorded_ & (elections | rps)) != 0) recorder_->onChanges(node, changes);
  auto isElection = [](host::Change const& change) { return change.rp.address.isEmpty(); };
  bool all = (kinds_ & elections) != 0 && (kinds_ & rps) != 0;
  if (all) return report_.onChanges(node, changes);
  std::vector<host::Change> wanted;
  for (host::Change const& change : changes) {
    if ((kinds_ & (isElection(change) ? elections : rps)) != 0) wanted.push_back(change);
  }
  if (!wanted.empty()) report_.onChanges(node, wanted);
}

void Simulation::onReception(Node const& node, NodeInterface const& intf, Reception const& reception) {
  Kinds kinds = reception.accepted() ? received : drops | repeats;
  if ((recorded_ & kinds) != 0) recorder_->onReception(node, intf, reception);
  if ((kinds_ & kinds) == 0) return;
  if (!reception.accepted()) {
    Drop drop(node.id(), reception.reason, reception.source);
    bool isNew = !reported_.contains(drop);
    if ((kinds_ & (isNew ? drops : repeats)) == 0) return;
    if (isNew) reported_.insert(drop);
  }
  report_.onReception(node, intf, reception);
}

void Simulation::onSent(Node const& node, NodeInterface const& intf, Bytes packet) {
  forward(sent, [&](Listener& to) { to.onSent(node, intf, packet); });
}

void Simulation::onNeighbor(Node const& node, NodeInterface const& intf, IpGenAddr const& neighbor, bool up) {
  forward(neighbors, [&](Listener& to) { to.onNeighbor(node, intf, neighbor, up); });
}

void Simulation::onDr(Node const& node, NodeInterface const& intf, IpGenAddr const& dr) {
  forward(neighbors, [&](Listener& to) { to.onDr(node, intf, dr); });
}

void Simulation::onState(Node const& node, Lanet::IpGenPrefix const& zone,
                         Routing::Pim::Bsr::BsrCandidateState state) {
  forward(states, [&](Listener& to) { to.onState(node, zone, state); });
}

void Simulation::onStateEnd(Node const& node, Lanet::IpGenPrefix const& zone) {
  forward(states, [&](Listener& to) { to.onStateEnd(node, zone); });
}

void Simulation::onRunning(Node const& node, bool running) {
  forward(availability, [&](Listener& to) { to.onRunning(node, running); });
}

void Simulation::onLink(Network const& network, U32 link, bool up) {
  forward(availability, [&](Listener& to) { to.onLink(network, link, up); });
}

void Simulation::onLoss(Network const& network, Link const* link, Node const* node, Loss loss, Bytes packet) {
  forward(losses, [&](Listener& to) { to.onLoss(network, link, node, loss, packet); });
}

void Simulation::onTrace(Node const& node, Zet::TraceLine const& line) { report_.onTrace(node, line); }

void Simulation::onLog(Node const& node, Zet::LogHandle const& handle, std::string const& text) {
  report_.onLog(node, handle, text);
}

}  // namespace pimbsr::sim
