#include "sim/Trial.h"

#include <fmt/format.h>

#include "sim/RandomScenario.h"
#include "sim/TrialReport.h"

namespace pimbsr::sim {

using Lanet::IpGenPrefix;

/// Seconds within which a restarted router has sent its Hellos, and has got the No-Forward BSM of the DR (RFC
/// 5059 section 3.5).
static constexpr U32 learningTime = 12;
/// Packets on one link within a second that no random network needs.
static constexpr U32 maxPackets = 500;

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
  Simulation simulation(seed, watch, usualKinds | repeats | sent | received | losses | availability);
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
