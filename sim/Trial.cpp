#include "sim/Trial.h"

#include <fmt/format.h>

#include "sim/RandomScenario.h"

namespace pimbsr::sim {

using Lanet::IpGenPrefix;

/// Seconds within which a restarted router has sent its Hellos, and has got the No-Forward BSM of the DR (RFC
/// 5059 section 3.5).
static constexpr U32 learningTime = 12;
/// Packets on one link within a second that no random network needs.
static constexpr U32 maxPackets = 500;

namespace {

/// Watches the borders and passes events on to another report, if there is one.
class TrialReport final : public Report {
 public:
  explicit TrialReport(Report* other) : other_(other) {}
  void networkIs(Network const& network) { network_ = &network; }
  Findings findings() const {
    Findings all = borders_.findings();
    all.insert(all.end(), sizes_.findings().begin(), sizes_.findings().end());
    return all;
  }

  void onSent(Node const& node, NodeInterface const& intf, Bytes packet) override {
    borders_.onSent(*network_, node, intf, packet);
  }
  void onReception(Node const& node, NodeInterface const& intf, host::Reception const& reception) override {
    borders_.onReception(*network_, node, intf, reception);
    if (other_ != nullptr && !reception.accepted()) other_->onReception(node, intf, reception);
  }
  void onLoss(Network const& network, Link const*, Node const* node, Loss loss, Bytes packet) override {
    sizes_.onLoss(network, node, loss, packet);
  }
  void onChanges(Node const& node, std::span<host::Change const> changes) override {
    if (other_ != nullptr) other_->onChanges(node, changes);
  }
  void onCommand(Network const& network, Statement const& statement) override {
    if (other_ != nullptr) other_->onCommand(network, statement);
  }
  void onEnd(Network const& network) override {
    if (other_ != nullptr) other_->onEnd(network);
  }

 private:
  Network const* network_ = nullptr;
  Report* other_;
  BorderWatch borders_;
  SizeWatch sizes_;
};

}  // namespace

static void append(Findings& findings, Findings const& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

/// What a restarted router does not know that its neighbors do.
static Findings missed(Network const& network, U32 router, std::vector<IpGenPrefix> const& zones) {
  Findings findings;
  Node const& node = network.node(router);
  for (IpGenPrefix const& zone : zones) {
    if (node.router()->status()->bootstrapRouter(zone)) continue;
    findings.push_back(fmt::format("{} knows no BSR of zone {} {} s after its restart", node.name(),
                                   std::string(zone.stringValue().view()), learningTime));
  }
  return findings;
}

/// Plays the scenario; throws ScenarioError where a storm ends it.
static void play(RandomScenario const& random, Simulation& simulation, TrialReport const& watch,
                 TrialResult& result) {
  Network const& network = simulation.network();
  auto play = [&](std::string const& text) {
    result.scenario += text;
    simulation.execute(text, "random");
  };
  play(fmt::format("storm-limit {}\n", maxPackets) + random.network() + random.faults() + random.healing());
  play(fmt::format("run until {}\n", RandomScenario::healedAt + settling));
  Expectation settled(network);
  append(result.findings, settled.check());

  std::vector<IpGenPrefix> zones = zonesToLearn(settled, network, random.restarted());
  play(fmt::format("crash r{0}\nstart r{0}\nrun {1}\n", random.restarted(), learningTime));
  append(result.findings, missed(network, random.restarted(), zones));
  append(result.findings, watch.findings());
}

TrialResult runTrial(U64 seed, U32 routers, TrialSettings const& settings, Report* report) {
  RandomScenario random(seed, routers);
  TrialReport watch(report);
  Simulation simulation(seed, watch, usualKinds | repeats | sent | received | losses);
  simulation.network().ingressIs(settings.ingress);
  simulation.network().correctionsAre(settings.corrections);
  Network const& network = simulation.network();
  watch.networkIs(network);
  TrialResult result;
  try {
    play(random, simulation, watch, result);
  } catch (ScenarioError const& storm) {
    result.findings.emplace_back(storm.what());
  }
  if (network.exceptions() != 0) {
    result.findings.push_back(fmt::format("{} exceptions were caught in the engine", network.exceptions()));
  }
  simulation.end();
  result.events = network.events();
  return result;
}

}  // namespace pimbsr::sim
