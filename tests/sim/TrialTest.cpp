// Faults that are planted in random networks: each finding of each check is in the result of the trial.
#include "sim/trial/Trial.h"

#include <gmock/gmock.h>

#include <set>

#include "sim/trial/RandomScenario.h"
#include "sim/trial/TrialReport.h"
#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using namespace pimbsr;
using sim::Network;
using sim::Node;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

// The watches of a trial ------------------------------------------------------------------------------

/// r1 is the BSR and r2 forwards its messages; interface l2 of r2 is a border. The watches receive the events
/// that a test makes up.
class TrialReportTest : public testing::Test {
 protected:
  void SetUp() override { watch.networkIs(script.simulation.network()); }
  static Bsm messageOf(U16 tag) { return {.bsr = "10.1.0.1", .tag = tag}; }
  void sends(U32 router, U32 number, Bsm const& message) {
    std::vector<U8> pim;
    std::vector<U8> packet;
    EXPECT_TRUE(wire::encodeBootstrap(*make(message), pim));
    EXPECT_TRUE(wire::encodeIpv4({addr("10.1.0.1").v4Addr(), addr("224.0.0.13").v4Addr()}, pim, packet));
    watch.onSent(script.node(router), script.node(router).interfaces()[number], packet);
  }
  void receives(U32 number, Bsm const& message, std::string_view dropReason = {}) {
    host::Reception reception{.kind = host::MessageKind::bootstrap, .reason = dropReason};
    reception.message = make(message);
    watch.onReception(script.node(1), script.node(1).interfaces()[number], reception);
  }
  void waitFor(char const* seconds) { script.play(fmt::format("run {}\n", seconds)); }

  Script script{
      "link l1 prefix 10.1.0.0/24\nlink l2 prefix 10.2.0.0/24\nrouter r1\nrouter r2\n"
      "interface r1 l1 10.1.0.1\ninterface r2 l1 10.1.0.2\ninterface r2 l2 10.2.0.2\n"
      "candidate-bsr r1 global\nborder r2 l2 239.1.0.0/16\nrun 100\n"};
  Diary other;
  sim::TrialReport watch{&other};
  Bsm const scoped{.bsr = "10.1.0.1", .groups = {{"239.1.0.0/16", {}, scopedFlag}}};
};

TEST_F(TrialReportTest, AMessageSentOverABorderIsAFinding) {
  receives(0, scoped);
  sends(1, 0, scoped);
  EXPECT_THAT(watch.findings(), IsEmpty());
  sends(1, 1, scoped);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r2 sends a message of zone 239.1.0.0/16 over its")));
}

TEST_F(TrialReportTest, AMessageAcceptedAtABorderIsAFinding) {
  receives(1, scoped, "border");
  EXPECT_THAT(watch.findings(), IsEmpty());
  receives(1, scoped);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r2 accepts a message of zone 239.1.0.0/16 over its")));
}

TEST_F(TrialReportTest, APacketLongerThanTheMtuIsAFinding) {
  std::vector<U8> const packet(1501);
  watch.onLoss(script.simulation.network(), nullptr, &script.node(0), sim::Loss::tooBig, packet);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r1 sends 1501 bytes")));
}

TEST_F(TrialReportTest, ALinkThatIsDownHasNoMtu) {
  script.play("down l1\n");
  std::vector<U8> const packet(1501);
  Network const& network = script.simulation.network();
  watch.onLoss(network, &network.link(0), &script.node(0), sim::Loss::tooBig, packet);
  EXPECT_THAT(watch.findings(), IsEmpty());
}

TEST_F(TrialReportTest, AnOwnMessageThatIsSentAgainAtOnceIsAFinding) {
  sends(0, 0, messageOf(7));
  waitFor("0.5");
  sends(0, 0, messageOf(7));
  EXPECT_THAT(watch.findings(), Contains(HasSubstr("r1 sends its own message again")));
}

TEST_F(TrialReportTest, ABsrMaySendTheTagOfItsLastMessageAgain) {
  sends(0, 0, messageOf(7));
  waitFor("5");
  sends(0, 0, messageOf(7));
  EXPECT_THAT(watch.findings(), testing::Not(Contains(HasSubstr("its own message again"))));
}

TEST_F(TrialReportTest, AMessageForwardedTwiceIsAFinding) {
  receives(0, messageOf(7));
  sends(1, 1, messageOf(7));
  EXPECT_THAT(watch.findings(), IsEmpty());
  sends(1, 1, messageOf(7));
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r2 sends 2 packets for 1")));
}

TEST_F(TrialReportTest, AMessageThatWasDroppedIsNotForwarded) {
  receives(0, messageOf(7), "checksum");
  sends(1, 1, messageOf(7));
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r2 sends 1 packets for 0")));
}

TEST_F(TrialReportTest, AMessageOfBeforeARestartIsNotForwarded) {
  receives(0, messageOf(7));
  watch.onRunning(script.node(1), true);
  sends(1, 1, messageOf(7));
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r2 sends 1 packets for 0")));
}

TEST_F(TrialReportTest, ABsrThatHasLostItsAddressForwardsNothing) {
  sends(0, 0, messageOf(7));
  script.play("address r1 l1 none\n");
  sends(0, 0, messageOf(8));
  EXPECT_THAT(watch.findings(), IsEmpty()) << "its last message is its own";
}

TEST_F(TrialReportTest, TwoMessagesWithinTheMinimumIntervalAreAFinding) {
  sends(0, 0, messageOf(1));
  waitFor("10");
  sends(0, 0, messageOf(2));
  EXPECT_THAT(watch.findings(), IsEmpty());
  waitFor("9.5");
  sends(0, 0, messageOf(3));
  EXPECT_THAT(watch.findings(),
              ElementsAre(HasSubstr("r1 sends messages of zone 224.0.0.0/4 9.500 s apart")));
}

TEST_F(TrialReportTest, ARestartOrAnOperatorMayCauseAMessageAtOnce) {
  sends(0, 0, messageOf(1));
  waitFor("1");
  watch.onRunning(script.node(0), true);
  sends(0, 0, messageOf(2));
  waitFor("1");
  watch.onCommand(script.simulation.network(), {});
  sends(0, 0, messageOf(3));
  EXPECT_THAT(watch.findings(), IsEmpty());
}

TEST_F(TrialReportTest, TwoSetsForNewNeighborsWithinTheTriggeredDelayAreAFinding) {
  script.play("corrections all\n");
  Bsm answer = messageOf(7);
  answer.forward = false;
  sends(0, 0, answer);
  for (int restart : {0, 1, 2}) {
    waitFor("1");
    if (restart == 0) watch.onRunning(script.node(0), true);
    if (restart == 1) watch.onLink(script.simulation.network(), 0, true);
    EXPECT_THAT(watch.findings(), testing::Not(Contains(HasSubstr("sends new neighbors"))));
    sends(0, 0, answer);
  }
  EXPECT_THAT(watch.findings(), Contains(HasSubstr("r1 sends new neighbors what it knows 1.000 s apart")));
}

TEST_F(TrialReportTest, ReportsReceiveCommandsDropsChangesAndTheEnd) {
  watch.onCommand(script.simulation.network(), {.text = "crash r1"});
  receives(0, messageOf(7));
  receives(0, messageOf(7), "checksum");
  host::Change const change{.kind = host::ChangeKind::bsrElected, .bsr = {.address = addr("10.1.0.1")}};
  watch.onChanges(script.node(1), {&change, 1});
  watch.onEnd(script.simulation.network());
  EXPECT_THAT(other.lines, ElementsAre("100.000 - crash r1", HasSubstr("r2 bsm from "),
                                       "100.000 r2 elected 10.1.0.1", "end"));
}

// Whole trials ----------------------------------------------------------------------------------------

/// Whether the network of a trial has settled, so that its checks compare it.
bool isSettled(Network const& network) {
  return network.now() >= sim::RandomScenario::healedAt + sim::settling;
}

template <class Act>
void eachRouter(Network const& network, Act const& act) {
  for (U32 number = 0; number < network.nodeCount(); ++number) {
    if (network.node(number).isRunning()) act(*network.node(number).router());
  }
}

/// The findings of the first of some seeds that has one with a text; empty if none has. The effect of an
/// error depends on the network that is drawn. `Planted` is the report that plants it.
template <class Planted>
sim::Findings findingsWith(std::string_view text, sim::TrialSettings const& settings = {}) {
  constexpr U64 seeds = 10;
  for (U64 seed = 1; seed <= seeds; ++seed) {
    Planted planted;
    sim::Findings findings = sim::runTrial(seed, 5, settings, &planted).findings;
    for (std::string const& finding : findings) {
      if (finding.find(text) != finding.npos) return findings;
    }
  }
  return {};
}

TEST(PlantedTrialTest, ANetworkWithoutAPlantedFaultHasNoFindings) {
  for (U64 seed : {1, 2, 3, 4}) EXPECT_THAT(sim::runTrial(seed, 5).findings, IsEmpty()) << "seed " << seed;
}

TEST(PlantedTrialTest, RpsThatABoundDropsAreMissedBeforeTheFaultsAndOnceHealed) {
  sim::TrialSettings settings;
  settings.ingress.rps = 1;
  sim::Findings findings = findingsWith<Diary>("before the faults: ", settings);
  EXPECT_THAT(findings, Contains(testing::ContainsRegex("^before the faults: r[0-4] uses ")));
  EXPECT_THAT(findings, Contains(testing::ContainsRegex("^healed: r[0-4] misses RP ")));
  EXPECT_THAT(findings, Contains(testing::ContainsRegex("^healed: r[0-4] uses ")));
}

/// Takes the permitted senders out of the status trees at each statement.
class PermitRemoval final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    eachRouter(network, [](host::Router const& router) { router.status()->crpPermitDelAll(); });
  }
};

TEST(PlantedTrialTest, RoutersAreComparedWithTheirConfigurationAmongTheFaultsToo) {
  EXPECT_THAT(findingsWith<PermitRemoval>("among the faults: "),
              Contains(testing::ContainsRegex("^among the faults: r[0-4] has not its permit of ")));
}

/// Removes all RPs from what PIM reads when an operator changes the settled network.
class RpRemoval final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    if (!isSettled(network)) return;
    eachRouter(network, [](host::Router const& router) { router.rpCandidateStatus()->crpSetDelAll(); });
  }
};

TEST(PlantedTrialTest, AnOutageThatLastsIsAFindingOfTheChange) {
  EXPECT_THAT(findingsWith<RpRemoval>("during one change: "),
              Contains(testing::ContainsRegex("^during one change: r[0-4] has no RP for group ")));
}

/// Removes one of several RPs of each range from what PIM reads at one router, when an operator changes the
/// settled network.
class RpRemovalAtOne final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    if (!isSettled(network) || !network.node(0).isRunning()) return;
    for (auto set = network.node(0).router()->rpCandidateStatus()->crpSetIterator(); set; ++set)
      if (set->rpCount() > 1) set->rpDel(Lanet::IpGenAddr(set->rpIterator()->address()));
  }
};

TEST(PlantedTrialTest, RoutersThatUseDifferentRpsDuringTheChangeAreAFinding) {
  EXPECT_THAT(findingsWith<RpRemovalAtOne>(" for group "),
              Contains(testing::ContainsRegex("^during one change: r[0-4] uses [^ ]+ and r[0-4] uses ")));
}

/// Adds a range without RPs when an operator changes the settled network.
class EmptyRange final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    if (!isSettled(network)) return;
    eachRouter(network, [](host::Router const& router) {
      router.rpCandidateStatus()->crpSetIs(prefix("226.9.0.0/16"));
    });
  }
};

TEST(PlantedTrialTest, TheNetworkIsComparedAfterTheChangeToo) {
  EXPECT_THAT(findingsWith<EmptyRange>("after the change: "),
              Contains(testing::MatchesRegex(
                  "after the change: r[0-4] lets PIM read range 226.9.0.0/16 without an RP")));
}

/// Clears what a router that is restarted in the settled network learns of RPs.
class RpsNotLearned final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const& statement) override {
    auto const* life = std::get_if<sim::SetLife>(&statement.action);
    if (life != nullptr && life->life == sim::Life::start && isSettled(network))
      restarted_.insert(life->router);
  }
  void onChanges(Node const& node, std::span<host::Change const>) override {
    if (!restarted_.contains(node.id())) return;
    for (auto zone = node.router()->status()->crpStatusIterator(); zone; ++zone)
      if (zone->status()) zone->status()->crpSetDelAll();
  }

 private:
  std::set<U32> restarted_;
};

TEST(PlantedTrialTest, ARestartedRouterThatLearnsNoRpsIsAFinding) {
  EXPECT_THAT(findingsWith<RpsNotLearned>("after the restart: "),
              Contains(testing::ContainsRegex("^after the restart: r[0-4] misses RP ")));
}

/// Removes the BSR that a router learns in the settled network.
class BsrRemoval final : public sim::Report {
 public:
  void onChanges(Node const& node, std::span<host::Change const>) override {
    if (isSettled(node.network())) node.router()->status()->bootstrapRouterDelAll();
  }
};

TEST(PlantedTrialTest, ARestartedRouterThatDoesNotLearnIsAFinding) {
  sim::TrialSettings settings;
  settings.corrections = {};
  sim::Findings findings = findingsWith<BsrRemoval>("after its restart", settings);
  EXPECT_THAT(findings,
              Contains(testing::MatchesRegex("r[0-4] knows no BSR of zone [^ ]+ 12 s after its restart")));
}

/// Removes the borders that routers observe, not those of their configuration.
class BorderRemoval final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    eachRouter(network, [](host::Router const& router) { router.status()->bsBorderDelAll(); });
  }
};

TEST(PlantedTrialTest, FindingsOfTheWatchesAreThoseOfTheTrial) {
  EXPECT_THAT(findingsWith<BorderRemoval>(" sends a message of zone "),
              Contains(testing::ContainsRegex("^r[0-4] sends a message of zone [^ ]+ over its border ")));
}

/// Fails where the engine calls it for a change of the RPs that PIM reads.
class FailingWatch final : public Routing::Pim::RpCandidateStatus::NotifieeConst {
 public:
  void onCrpSet(Lanet::IpGenPrefix const&) override { throw std::runtime_error("planted"); }
};

/// Attaches such a watch to each router when the faults start.
class Failure final : public sim::Report {
 public:
  void onCommand(Network const& network, sim::Statement const&) override {
    if (!watches_.empty()) return;
    for (U32 number = 0; number < network.nodeCount(); ++number) {
      watches_.push_back(Zet::make<FailingWatch>());
      watches_.back()->notifierIs(network.node(number).router()->rpCandidateStatus());
    }
  }
  void onEnd(Network const&) override { watches_.clear(); }

 private:
  std::vector<Zet::Ptr<FailingWatch>> watches_;
};

TEST(PlantedTrialTest, ExceptionsInTheEngineAreAFinding) {
  EXPECT_THAT(findingsWith<Failure>("exceptions"),
              Contains(testing::MatchesRegex("[1-9][0-9]* exceptions were caught in the engine")));
}

/// Ends a trial as a scenario does in which a storm occurs.
class Storm final : public sim::Report {
 public:
  void onCommand(Network const&, sim::Statement const&) override {
    throw sim::ScenarioError("random: planted");
  }
};

TEST(PlantedTrialTest, AStormIsAFinding) {
  Storm storm;
  EXPECT_THAT(sim::runTrial(1, 5, {}, &storm).findings, ElementsAre("random: planted"));
}

}  // namespace
}  // namespace test
