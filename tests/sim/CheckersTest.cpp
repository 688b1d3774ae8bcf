// Each check of a network finds the error that is put in its way, and nothing in a sound network.
#include "sim/trial/Checkers.h"

#include <gmock/gmock.h>

#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using pimbsr::sim::Expectation;
using pimbsr::sim::Findings;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Two routers that have settled: r1 is the BSR, r2 the RP.
class CheckersTest : public testing::Test {
 protected:
  Findings check() const { return Expectation(script.simulation.network()).check(); }
  Zet::Ptr<Routing::Pim::Bsr::Status> status(Zet::U32 router) const {
    return script.node(router).router()->status();
  }
  Zet::Ptr<Routing::Pim::RpCandidateSet> heldSet(Zet::U32 router) const {
    auto zone = status(router)->crpStatus(prefix("224.0.0.0/4"));
    return zone->status()->crpSet(prefix("239.1.0.0/16"));
  }
  Zet::Ptr<Routing::Pim::RpCandidate> heldRp(Zet::U32 router) const {
    return heldSet(router)->rp(addr("10.1.0.2"));
  }
  Zet::Ptr<Routing::Pim::RpCandidateSet> readSet(Zet::U32 router) const {
    return script.node(router).router()->rpCandidateStatus()->crpSetIs(prefix("239.1.0.0/16"));
  }

  Script script{
      "link l1 prefix 10.1.0.0/24\nrouter r1\nrouter r2\ninterface r1 l1 10.1.0.1\n"
      "interface r2 l1 10.1.0.2\ncandidate-bsr r1 global\ncandidate-rp r2 239.1.0.0/16\nrun 100\n"};
};

TEST_F(CheckersTest, ASoundNetworkHasNoFindings) { EXPECT_THAT(check(), IsEmpty()); }

TEST_F(CheckersTest, TheBsrMustBeTheBestCandidate) {
  status(1)->bootstrapRouter(prefix("224.0.0.0/4"))->ipAddrIs(addr("10.1.0.77"));
  EXPECT_THAT(check(),
              Contains("r2 takes 10.1.0.77 for the BSR of zone 224.0.0.0/4, and must take 10.1.0.1"));
}

TEST_F(CheckersTest, EachRouterOfAPartWithACandidateMustHaveABsr) {
  status(1)->bootstrapRouterDel(prefix("224.0.0.0/4"));
  EXPECT_THAT(check(),
              Contains("r2 takes no router for the BSR of zone 224.0.0.0/4, and must take 10.1.0.1"));
}

TEST_F(CheckersTest, APartWithoutCandidatesMustHaveNoBsr) {
  script.play("crash r1\n");
  EXPECT_THAT(check(),
              Contains("r2 takes 10.1.0.1 for the BSR of zone 224.0.0.0/4, and must take no router"));
}

TEST_F(CheckersTest, OneRouterOfAPartIsElected) {
  script.play("candidate-bsr r2 global priority 10\nrun 200\n");
  EXPECT_THAT(check(), IsEmpty());
  status(1)->cbsr(prefix("224.0.0.0/4"))->electedIs(true);
  EXPECT_THAT(check(), Contains("2 are all elected in one part of zone 224.0.0.0/4: r1, r2"));
  script.play("down l1\n");
  EXPECT_THAT(check(), testing::Not(Contains(HasSubstr("are all elected")))) << "in two parts";
}

TEST_F(CheckersTest, AnRpThatIsGoneMustNotBeHeld) {
  heldSet(1)->rpIs(addr("10.1.0.77"));
  EXPECT_THAT(check(), Contains(HasSubstr("r2 still holds RP 10.1.0.77 for 239.1.0.0/16 with priority")));
}

TEST_F(CheckersTest, EachRpThatTheBsrMustAnnounceIsHeld) {
  heldSet(1)->rpDel(addr("10.1.0.2"));
  EXPECT_THAT(check(), Contains("r2 misses RP 10.1.0.2 for 239.1.0.0/16 with priority 192 and holdtime "
                                "180 s in zone 224.0.0.0/4"));
}

TEST_F(CheckersTest, NoRpStaysForLongerThanItsHoldtime) {
  heldRp(1)->expiresIs(script.node(1).localTime(100 + 180));
  EXPECT_THAT(check(), IsEmpty());
  heldRp(1)->expiresIs(script.node(1).localTime(100 + 181));
  EXPECT_THAT(check(),
              ElementsAre("r2 has RP 10.1.0.2 for 239.1.0.0/16 for 181.000 s, and its holdtime is 180 s"));
  heldRp(1)->expiresIs(script.node(1).localTime(100 - 1));
  EXPECT_THAT(check(), Contains(HasSubstr("r2 has RP 10.1.0.2 for 239.1.0.0/16 for -1.000 s")));
}

TEST_F(CheckersTest, TheBootstrapTimerRunsForBsTimeoutAtMostAndAtTheBsrForBsPeriod) {
  auto timerIs = [&](Zet::U32 router, double left) {
    auto bsr = status(router)->bootstrapRouter(prefix("224.0.0.0/4"));
    bsr->expiryTimeIs(script.node(router).localTime(100 + left));
  };
  timerIs(0, 60);
  timerIs(1, 130);
  EXPECT_THAT(check(), IsEmpty());
  timerIs(0, 61);
  timerIs(1, 131);
  EXPECT_THAT(check(),
              ElementsAre("r1 has 61.000 s left on the Bootstrap Timer of zone 224.0.0.0/4, of 60 s",
                          "r2 has 131.000 s left on the Bootstrap Timer of zone 224.0.0.0/4, of 130 s"));
  timerIs(0, 1);
  timerIs(1, -1);
  EXPECT_THAT(check(), ElementsAre(HasSubstr("r2 has -1.000 s left on the Bootstrap Timer")));
}

TEST_F(CheckersTest, TheTermsOfTheBsrAreThoseOfItsCandidacy) {
  status(1)->bootstrapRouter(prefix("224.0.0.0/4"))->hashMaskLenIs(Zet::U32{7});
  EXPECT_THAT(check(),
              ElementsAre("r2 has priority 64 and hash mask length 7 of the BSR of zone 224.0.0.0/4, "
                          "which has 64 and 30"));
}

TEST_F(CheckersTest, ABsrIsKnownSinceATimeOfTheRun) {
  status(1)->bootstrapRouter(prefix("224.0.0.0/4"))->setupTimeIs(0);
  EXPECT_THAT(check(), ElementsAre(HasSubstr("r2 has the BSR of zone 224.0.0.0/4 for ")));
}

TEST_F(CheckersTest, WhatIsConfiguredAndCountedIsCheckedToo) {
  status(1)->crpPermitDelAll();
  EXPECT_THAT(check(), ElementsAre("r2 has not its permit of 0.0.0.0/0"));
  status(0)->counters()->rxBsmInc(1);
  EXPECT_THAT(check(),
              Contains(HasSubstr("r1 counts 4 Bootstrap Messages received, and by their outcome 3 to 3")));
}

TEST_F(CheckersTest, ARestartedRouterMustHaveLearnedTheBsrAndItsRps) {
  std::vector const zones = {prefix("224.0.0.0/4")};
  auto learned = [&] { return Expectation(script.simulation.network()).checkLearned(0, zones); };
  EXPECT_THAT(learned(), IsEmpty());
  heldSet(0)->rpIs(addr("10.1.0.77"));
  EXPECT_THAT(learned(), IsEmpty()) << "one more is no error";
  heldSet(0)->rpDel(addr("10.1.0.2"));
  EXPECT_THAT(learned(), ElementsAre(HasSubstr("r1 misses RP 10.1.0.2 for 239.1.0.0/16")));
  status(0)->bootstrapRouterDel(zones.front());
  EXPECT_THAT(learned(), ElementsAre(HasSubstr("r1 takes no router for the BSR")));
}

TEST_F(CheckersTest, NoRangeStaysWithoutAnRp) {
  auto ranges = [&] { return Expectation(script.simulation.network()).checkRanges(); };
  EXPECT_THAT(ranges(), IsEmpty());
  readSet(0)->rpDelAll();
  EXPECT_THAT(ranges(), ElementsAre("r1 lets PIM read range 239.1.0.0/16 without an RP"));
  status(1)->crpStatus(prefix("224.0.0.0/4"))->status()->crpSetIs(prefix("239.9.0.0/16"));
  EXPECT_THAT(ranges(), Contains("r2 holds range 239.9.0.0/16 without an RP in zone 224.0.0.0/4"));
}

// The RPs that PIM reads ------------------------------------------------------------------------------

TEST_F(CheckersTest, AnRpThatNoZoneHasMustNotBeRead) {
  auto rp = readSet(1)->rpIs(addr("10.1.0.77"));
  rp->expiresIs(script.node(1).localTime(200));
  EXPECT_THAT(check(), ElementsAre("r2 lets PIM read RP 10.1.0.77 for 239.1.0.0/16"));
  rp->expiresIs(script.node(1).localTime(99));
  EXPECT_THAT(check(), IsEmpty()) << "one whose time is over is not used";
}

TEST_F(CheckersTest, AnRpOfTheZoneMustBeRead) {
  readSet(0)->rpDel(addr("10.1.0.2"));
  EXPECT_THAT(check(), ElementsAre("r1 hides from PIM RP 10.1.0.2 for 239.1.0.0/16"));
}

TEST_F(CheckersTest, WhatIsReadMustHaveTheTermsOfTheZonesRp) {
  readSet(1)->rp(addr("10.1.0.2"))->holdTimeIs(7);
  EXPECT_THAT(check(), ElementsAre("r2 lets PIM read RP 10.1.0.2 for 239.1.0.0/16"));
}

TEST_F(CheckersTest, TheHashMaskLengthMustBeThatOfTheBsr) {
  heldRp(1)->hashMaskLenIs(Zet::U32{24});
  EXPECT_THAT(check(), ElementsAre(HasSubstr("r2 has hash mask length 24 for RP 10.1.0.2")));
}

TEST_F(CheckersTest, ThePriorityMustBeThatOfTheCandidateRp) {
  heldRp(1)->priorityIs(Zet::U32{3});
  EXPECT_THAT(check(), Contains(HasSubstr("r2 misses RP 10.1.0.2")));
}

// Learning at a restart -------------------------------------------------------------------------------

TEST_F(CheckersTest, ARestartedRouterLearnsTheZonesOfANeighborThatIsDr) {
  script.play("router r3\ninterface r3 l1 10.1.0.3 dr-priority 0\nrun 70\n");
  auto toLearn = [&](Zet::U32 router) {
    pimbsr::sim::Network const& network = script.simulation.network();
    return zonesToLearn(Expectation(network), network, router);
  };
  EXPECT_THAT(toLearn(0), IsEmpty()) << "r1 is a candidate";
  EXPECT_THAT(toLearn(1), IsEmpty()) << "r2 is DR itself";
  EXPECT_THAT(toLearn(2), ElementsAre(prefix("224.0.0.0/4")));
  script.play("border r2 l1 global\n");
  EXPECT_THAT(toLearn(2), IsEmpty()) << "over a border";
  script.play("no border r2 l1 global\n");
  EXPECT_THAT(toLearn(2), ElementsAre(prefix("224.0.0.0/4")));
  status(1)->bootstrapRouterDel(prefix("224.0.0.0/4"));
  EXPECT_THAT(toLearn(2), IsEmpty()) << "of which the DR knows no BSR";
}

// Packets ---------------------------------------------------------------------------------------------

TEST_F(CheckersTest, APacketLongerThanTheMtuIsFound) {
  pimbsr::sim::SizeWatch watch;
  std::vector<Zet::U8> packet(1501);
  watch.onLoss(script.simulation.network(), &script.node(0), pimbsr::sim::Loss::fault, packet);
  EXPECT_THAT(watch.findings(), IsEmpty());
  watch.onLoss(script.simulation.network(), &script.node(0), pimbsr::sim::Loss::tooBig, packet);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r1 sends 1501 bytes")));
}

// Statements ------------------------------------------------------------------------------------------

TEST_F(CheckersTest, AStormEndsTheRun) {
  script.play("storm-limit 40\n");
  EXPECT_NO_THROW(script.play("run 60\n"));
  std::string flood;
  for (int i = 0; i < 41; ++i) flood += "inject l1 hello from 10.1.0.9\n";
  EXPECT_THROW(script.play(flood + "run 1\n"), pimbsr::sim::ScenarioError);
}

TEST_F(CheckersTest, ARestartMayKeepWhatWasLearned) {
  script.play("restart r2 keeping state\n");
  EXPECT_EQ(script.bsr(1), "10.1.0.1");
  EXPECT_NE(script.rpSet(1), "");
  script.play("restart r2\n");
  EXPECT_EQ(script.bsr(1), "");
}

TEST_F(CheckersTest, ACorruptPacketIsDropped) {
  script.play("faults corrupt 100%\nrun 130\n");
  EXPECT_EQ(script.bsr(1), "");
  EXPECT_GT(script.node(1).drops().size(), 0u);
}

TEST_F(CheckersTest, RawBytesAreAMessageWithTheirChecksumOrOneThatIsFilledIn) {
  auto drops = [&](char const* reason) {
    auto at = script.node(0).drops().find(reason);
    return at == script.node(0).drops().end() ? 0u : at->second.count;
  };
  script.play("inject l1 raw from 10.1.0.2 24000000 ffff 1e40 0100 0a010001\nrun 1\n");
  EXPECT_EQ(drops("checksum"), 1u);
  script.play("inject l1 raw from 10.1.0.2 checksum 24000000 ffff 1e40 0100\nrun 1\n");
  EXPECT_EQ(drops("truncated"), 1u);
}

TEST_F(CheckersTest, ACandidacyEndsByItsAddressAndByNoOther) {
  script.play(
      "router r3 loopback 172.16.0.3\ninterface r3 l1 10.1.0.3\n"
      "candidate-bsr r3 239.2.0.0/16 address 172.16.0.3\n"
      "no candidate-bsr r3 239.2.0.0/16 address 10.1.0.3\n");
  EXPECT_EQ(script.node(2).config().candidateBsrs.size(), 1u);
  script.play("no candidate-bsr r3 239.2.0.0/16 address 172.16.0.3\n");
  EXPECT_EQ(script.node(2).config().candidateBsrs.size(), 0u);
}

}  // namespace
}  // namespace test
