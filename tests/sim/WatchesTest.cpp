// What is watched while random networks run: each finds the fault that is planted, and nothing else.
#include <gmock/gmock.h>

#include <optional>

#include "sim/trial/ChangeWatches.h"
#include "sim/trial/MessageWatches.h"
#include "sim/trial/RandomScenario.h"
#include "sim/trial/Trial.h"
#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using Lanet::IpAddr;
using pimbsr::sim::AgreementWatch;
using pimbsr::sim::AnswerWatch;
using pimbsr::sim::BorderWatch;
using pimbsr::sim::Expectation;
using pimbsr::sim::Findings;
using pimbsr::sim::FloodWatch;
using pimbsr::sim::OutageWatch;
using pimbsr::sim::PaceWatch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Three routers in a row: r1 is the BSR, r3 the RP, r2 between them. Link l2 has an MTU of 600 bytes.
class WatchesTest : public testing::Test {
 protected:
  pimbsr::sim::Network const& network() const { return script.simulation.network(); }
  pimbsr::sim::NodeInterface const& intf(Zet::U32 router, Zet::U32 number) const {
    return script.node(router).interfaces()[number];
  }
  static Bsm messageOf(char const* bsr, Zet::U16 tag) { return {.bsr = bsr, .tag = tag}; }

  Script script{
      "link l1 prefix 10.1.0.0/24\nlink l2 prefix 10.2.0.0/24 mtu 600\n"
      "router r1\nrouter r2\nrouter r3\ninterface r1 l1 10.1.0.1\ninterface r2 l1 10.1.0.2\n"
      "interface r2 l2 10.2.0.2\ninterface r3 l2 10.2.0.3\n"
      "candidate-bsr r1 global\ncandidate-rp r3 239.1.0.0/16\nrun 100\n"};
  std::vector<IpAddr> const groups{IpAddr::parse("239.1.2.3"), IpAddr::parse("225.1.1.1")};
};

// Flooding --------------------------------------------------------------------------------------------

class FloodWatchTest : public WatchesTest {
 protected:
  void accept(Bsm const& message, std::size_t size = 500) {
    watch.onAccepted(network(), script.node(1), {*make(message), size});
  }
  void send(Bsm const& message, Zet::U32 router = 1, Zet::U32 number = 1, Zet::U8 byte = 0) {
    std::vector<Zet::U8> bytes(500, byte);
    watch.onSent(network(), script.node(router), intf(router, number), {*make(message), bytes.size(), bytes});
  }
  FloodWatch watch;
  Bsm const bsm = messageOf("10.1.0.1", 7);
};

TEST_F(FloodWatchTest, EachPacketThatCameMayLeaveOnceOnALink) {
  accept(bsm);
  send(bsm);
  send(bsm, 1, 0);
  EXPECT_THAT(watch.findings(), IsEmpty());
  send(bsm);
  EXPECT_THAT(
      watch.findings(),
      ElementsAre("r2 sends 2 packets for 1 of a message of zone 224.0.0.0/4 on link l2 at 100.000 s"));
}

TEST_F(FloodWatchTest, OnALinkOfASmallerMtuItMayBeCut) {
  accept(bsm, 1200);
  for (int i = 0; i < 4; ++i) send(bsm);
  EXPECT_THAT(watch.findings(), IsEmpty());
  send(bsm);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("5 packets for 1")));
}

TEST_F(FloodWatchTest, WhatDidNotComeIsNotPassedOn) {
  accept(bsm);
  send(messageOf("10.1.0.1", 8));
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("1 packets for 0")));
}

TEST_F(FloodWatchTest, TheBsrSendsItsMessageAtOneTime) {
  send(bsm, 0, 0, 'a');
  send(bsm, 0, 0, 'b');
  EXPECT_THAT(watch.findings(), IsEmpty()) << "fragments";
  script.play("run 0.5\n");
  send(bsm, 0, 0, 'c');
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r1 sends its own message again")));
}

TEST_F(FloodWatchTest, TheBsrSendsEachPacketOfItsMessageOnce) {
  send(bsm, 0, 0, 'a');
  send(bsm, 0, 0, 'b');
  script.play("run 5\n");
  send(bsm, 0, 0, 'a');
  EXPECT_THAT(watch.findings(), IsEmpty()) << "a tag that is drawn again";
  send(bsm, 0, 0, 'a');
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("r1 sends a packet of its own message twice")));
}

TEST_F(FloodWatchTest, ARouterThatStartsAgainKnowsNoMessage) {
  accept(bsm);
  watch.onRunning(script.node(1));
  send(bsm);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("1 packets for 0")));
}

TEST_F(FloodWatchTest, AnswersToNewNeighborsAreNotFlooded) {
  Bsm answer = bsm;
  answer.forward = false;
  send(answer);
  EXPECT_THAT(watch.findings(), IsEmpty());
}

TEST_F(FloodWatchTest, OldMessagesAreForgotten) {
  for (Zet::U16 tag = 1; tag <= 5000; ++tag) {
    if (tag % 1000 == 0) script.play("run 20\n");
    accept(messageOf("10.1.0.1", tag));
    send(messageOf("10.1.0.1", tag));
  }
  EXPECT_THAT(watch.findings(), IsEmpty());
  EXPECT_LE(watch.count(), 2048u);
}

// Intervals -------------------------------------------------------------------------------------------

TEST_F(WatchesTest, ABsrWaitsBetweenItsMessages) {
  PaceWatch watch;
  auto send = [&](Zet::U16 tag) {
    watch.onSent(network(), script.node(0), *make(messageOf("10.1.0.1", tag)));
  };
  send(1);
  send(1);
  script.play("run 10\n");
  send(2);
  EXPECT_THAT(watch.findings(), IsEmpty());
  script.play("run 9.5\n");
  send(3);
  EXPECT_THAT(watch.findings(),
              ElementsAre("r1 sends messages of zone 224.0.0.0/4 9.500 s apart, at 119.500 s"));
}

TEST_F(WatchesTest, AnswersAndChangesOfAnOperatorHaveNoPace) {
  PaceWatch watch;
  auto send = [&](Zet::U16 tag) {
    watch.onSent(network(), script.node(0), *make(messageOf("10.1.0.1", tag)));
  };
  send(1);
  watch.onReceived(network(), script.node(0), *make(messageOf("10.1.0.2", 9)));
  send(2);
  script.play("run 1\n");
  watch.onCommand(network());
  send(3);
  EXPECT_THAT(watch.findings(), IsEmpty());
  script.play("run 1\n");
  watch.onReceived(network(), script.node(0), *make({.bsr = "10.1.0.1", .priority = 64, .tag = 3}));
  send(4);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("1.000 s apart"))) << "its own message is no cause";
  script.play("run 1\n");
  watch.onReceived(network(), script.node(0), *make({.bsr = "10.1.0.1", .priority = 10, .tag = 4}));
  send(5);
  EXPECT_EQ(watch.findings().size(), 1u) << "but one of before its priority was raised is";
}

TEST_F(WatchesTest, ACandidacyThatBeginsAfterAnotherEndedHasAPaceOfItsOwn) {
  PaceWatch watch;
  auto send = [&](Zet::U16 tag) {
    watch.onSent(network(), script.node(0), *make(messageOf("10.1.0.1", tag)));
  };
  send(1);
  script.play("no candidate-bsr r1 global\n");
  send(2);
  script.play("run 4\ncandidate-bsr r1 global\nrun 5\n");
  send(3);
  EXPECT_THAT(watch.findings(), IsEmpty());
  script.play("run 5\n");
  send(4);
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("5.000 s apart")));
}

TEST_F(WatchesTest, MessagesOfOthersHaveNoPace) {
  PaceWatch watch;
  for (Zet::U16 tag = 1; tag < 4; ++tag)
    watch.onSent(network(), script.node(1), *make(messageOf("10.1.0.1", tag)));
  EXPECT_THAT(watch.findings(), IsEmpty());
}

// New neighbors ---------------------------------------------------------------------------------------

class AnswerWatchTest : public WatchesTest {
 protected:
  void SetUp() override { script.play("corrections all\n"); }
  void answer(Zet::U32 number = 1, char const* zone = nullptr) {
    Bsm message{.bsr = "10.1.0.1", .forward = false};
    if (zone != nullptr) message.groups = {{zone, {}, scopedFlag}};
    watch.onSent(network(), script.node(1), intf(1, number), *make(message));
  }
  AnswerWatch watch;
};

TEST_F(AnswerWatchTest, NewNeighborsWaitForTheNextAnswer) {
  answer();
  answer(1, "239.1.0.0/16");
  answer(0);
  script.play("run 5\n");
  answer();
  watch.onSent(network(), script.node(1), intf(1, 1), *make(messageOf("10.1.0.1", 7)));
  EXPECT_THAT(watch.findings(), IsEmpty());
  script.play("run 4.9\n");
  answer();
  EXPECT_THAT(watch.findings(),
              ElementsAre("r2 sends new neighbors what it knows 4.900 s apart on link l2, at 109.900 s"));
}

TEST_F(AnswerWatchTest, InterfacesThatBeginAnewAnswerAtAnyTime) {
  answer();
  script.play("run 1\n");
  watch.onRunning(script.node(1));
  answer();
  script.play("run 1\n");
  watch.onLink(intf(1, 1).link);
  answer();
  EXPECT_THAT(watch.findings(), IsEmpty());
  watch.onRunning(script.node(0));
  watch.onLink(intf(1, 0).link);
  script.play("run 1\ncorrections none on r2\n");
  answer();
  EXPECT_THAT(watch.findings(), IsEmpty()) << "without quick-relearn";
  script.play("run 1\ncorrections all on r2\n");
  answer();
  EXPECT_THAT(watch.findings(), ElementsAre(HasSubstr("2.000 s apart")))
      << "others that begin anew are no excuse";
}

// Borders ---------------------------------------------------------------------------------------------

TEST_F(WatchesTest, AMessageOfAZoneMustNotCrossItsBorder) {
  script.play("border r2 l2 239.1.0.0/16\n");
  BorderWatch watch;
  auto zone = make({.bsr = "10.1.0.1", .groups = {{"239.1.0.0/16", {}, scopedFlag}}});
  watch.onSent(network(), script.node(1), intf(1, 0), *zone);
  EXPECT_THAT(watch.findings(), IsEmpty());
  watch.onSent(network(), script.node(1), intf(1, 1), *zone);
  EXPECT_THAT(watch.findings(),
              ElementsAre(HasSubstr("r2 sends a message of zone 239.1.0.0/16 over its border")));
}

TEST_F(WatchesTest, ABorderClosesTheZonesWithinWhereThatIsCorrected) {
  script.play("corrections all\nborder r2 l2 239.0.0.0/8\nborder r3 l2 global\n");
  auto found = [&](Zet::U32 router, Zet::U32 number, Bsm const& message) {
    BorderWatch watch;
    watch.onSent(network(), script.node(router), intf(router, number), *make(message));
    pimbsr::host::Reception reception{.kind = pimbsr::host::MessageKind::bootstrap};
    reception.message = make(message);
    watch.onReception(network(), script.node(router), intf(router, number), reception);
    return watch.findings().size();
  };
  Bsm const unscoped = messageOf("10.1.0.1", 7);
  Bsm within = unscoped, around = unscoped;
  within.groups = {{"239.1.0.0/16", {}, scopedFlag}};
  around.groups = {{"238.0.0.0/7", {}, scopedFlag}};
  EXPECT_EQ(found(1, 1, within), 2u) << "sent and accepted";
  EXPECT_EQ(found(1, 0, within), 0u) << "at another interface";
  EXPECT_EQ(found(1, 1, around), 0u);
  EXPECT_EQ(found(1, 1, unscoped), 0u);
  EXPECT_EQ(found(2, 0, around), 2u);
  EXPECT_EQ(found(2, 0, unscoped), 2u) << "that is of the zone of all groups";
  script.play("corrections none on r2 r3\n");
  EXPECT_EQ(found(1, 1, within), 0u);
  EXPECT_EQ(found(2, 0, around), 0u);
  EXPECT_EQ(found(2, 0, unscoped), 2u);
}

TEST_F(WatchesTest, AMessageOfAZoneMustNotBeAcceptedAtItsBorder) {
  script.play("border r2 l2 239.1.0.0/16\n");
  BorderWatch watch;
  auto receive = [&](Zet::U32 number, pimbsr::host::Reception const& reception) {
    watch.onReception(network(), script.node(1), intf(1, number), reception);
  };
  pimbsr::host::Reception reception{.kind = pimbsr::host::MessageKind::bootstrap};
  reception.message = make({.bsr = "10.1.0.1", .groups = {{"239.2.0.0/16", {}, scopedFlag}}});
  receive(1, reception);
  EXPECT_THAT(watch.findings(), IsEmpty()) << "of another zone";
  reception.message = make({.bsr = "10.1.0.1", .groups = {{"239.1.0.0/16", {}, scopedFlag}}});
  receive(0, reception);
  EXPECT_THAT(watch.findings(), IsEmpty()) << "at another interface";
  reception.reason = "border";
  receive(1, reception);
  EXPECT_THAT(watch.findings(), IsEmpty()) << "dropped";
  reception.reason = {};
  receive(1, reception);
  EXPECT_THAT(watch.findings(),
              ElementsAre(HasSubstr("r2 accepts a message of zone 239.1.0.0/16 over its border")));
}

// Outages ---------------------------------------------------------------------------------------------

TEST_F(WatchesTest, RoutersWithoutBsrAndRpAreCountedBySecond) {
  OutageWatch watch(network(), groups);
  script.play("crash r1\nstart r1\n");
  watch.leaveOut(0);
  watch.expect(Expectation(network()));
  for (int second = 0; second < 3; ++second) {
    script.play("run 1\n");
    watch.sample();
  }
  EXPECT_THAT(watch.longerThan({}), IsEmpty()) << "followers notice nothing";
  script.play("crash r1\nrun 128\n");
  for (int second = 0; second < 60; ++second) {
    script.play("run 1\n");
    watch.sample();
  }
  EXPECT_THAT(watch.longerThan({.bsr = 200, .rp = 200}), IsEmpty());
  EXPECT_THAT(watch.longerThan({.bsr = 5, .rp = 200}),
              testing::Contains(HasSubstr("r2 has no BSR of zone 224.0.0.0/4 for ")));
  script.node(1).router()->rpCandidateStatus()->crpSetDelAll();
  watch.sample();
  EXPECT_THAT(watch.longerThan({.bsr = 200, .rp = 0}),
              testing::Contains(HasSubstr("r2 has no RP for group 239.1.2.3 for ")));
}

TEST_F(WatchesTest, WhatIsNotToComeBackIsNotMissed) {
  OutageWatch watch(network(), groups);
  script.play("no candidate-bsr r1 global\ncrash r3\n");
  watch.expect(Expectation(network()));
  for (int second = 0; second < 30; ++second) {
    script.play("run 1\n");
    watch.sample();
  }
  EXPECT_THAT(watch.longerThan({}), IsEmpty());
}

TEST_F(WatchesTest, AnRpThatWasNotKnownBeforeIsNotMissed) {
  script.play("permit r1 10.2.0.0/16\ncandidate-rp r1 239.1.2.0/24\nrun 60\n");
  OutageWatch watch(network(), groups);
  script.play("crash r3\npermit r1 10.1.0.0/16\n");
  watch.expect(Expectation(network()));
  watch.sample();
  script.node(1).router()->rpCandidateStatus()->crpSetDelAll();
  watch.sample();
  EXPECT_THAT(watch.longerThan({}), IsEmpty()) << "r1's RP is permitted now";
}

// Agreement -------------------------------------------------------------------------------------------

class AgreementWatchTest : public WatchesTest {
 protected:
  void SetUp() override {
    script.play("candidate-rp r1 239.1.0.0/16\nrun 130\n");
    watch.emplace(network(), Expectation(network()), groups);
  }
  /// Takes an RP from what PIM reads at a router, for two seconds.
  void differ(Zet::U32 router, char const* rp) {
    auto read = script.node(router).router()->rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
    read->rpDel(addr(rp));
    watch->sample();
    watch->sample();
  }
  std::string usedBy(Zet::U32 router) const {
    return std::string(servingRp(network(), script.node(router), groups[0]).stringValue().view());
  }
  std::optional<AgreementWatch> watch;
};

TEST_F(AgreementWatchTest, RoutersThatUseDifferentRpsAreCountedBySecond) {
  watch->sample();
  EXPECT_THAT(watch->longerThan({}), IsEmpty());
  std::string const used = usedBy(1);
  differ(1, used.c_str());
  EXPECT_THAT(watch->longerThan({.lasting = 2, .ending = 2}), IsEmpty());
  EXPECT_THAT(watch->longerThan({.lasting = 1, .ending = 2}),
              ElementsAre("r1 uses " + used + " and r2 uses " + usedBy(1) + " for group 239.1.2.3, for 2 s"));
}

TEST_F(AgreementWatchTest, ARouterThatUsesNoneDoesNotDiffer) {
  script.node(1).router()->rpCandidateStatus()->crpSetDelAll();
  watch->sample();
  EXPECT_THAT(watch->longerThan({}), IsEmpty());
}

TEST_F(AgreementWatchTest, ARouterThatDoesNotKeepRunningIsLeftOut) {
  watch->leaveOut(1);
  differ(1, usedBy(1).c_str());
  EXPECT_THAT(watch->longerThan({}), IsEmpty());
}

TEST_F(AgreementWatchTest, AnRpThatIsNotToStayMayBeUsedForLonger) {
  std::string const used = usedBy(1);
  script.play("crash " + std::string(used == "10.1.0.1" ? "r1" : "r3") + "\n");
  AgreementWatch ending(network(), Expectation(network()), groups);
  auto read = script.node(1).router()->rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
  read->rpDel(addr(used.c_str()));
  ending.sample();
  EXPECT_THAT(ending.longerThan({.lasting = 0, .ending = 1}), IsEmpty());
  EXPECT_THAT(ending.longerThan({.lasting = 9, .ending = 0}), testing::SizeIs(1));
}

TEST_F(AgreementWatchTest, RoutersThatAreToHaveDifferentBsrsMayDiffer) {
  script.play("candidate-bsr r3 global\ncandidate-bsr r2 global priority 0\ndown l2\n");
  AgreementWatch parted(network(), Expectation(network()), groups);
  std::string const used = usedBy(2);
  auto read = script.node(2).router()->rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
  read->rpDel(addr(used.c_str()));
  parted.sample();
  EXPECT_THAT(parted.longerThan({}), IsEmpty());
}

/// Parts of a network that are joined have different BSRs at first.
TEST_F(AgreementWatchTest, RoutersThatKnowDifferentBsrsMayDiffer) {
  script.play("down l2\ncandidate-bsr r3 global\nrun 400\nup l2\n");
  AgreementWatch joined(network(), Expectation(network()), groups);
  ASSERT_NE(usedBy(1), usedBy(2));
  joined.sample();
  EXPECT_THAT(joined.longerThan({}), IsEmpty());
}

// Which RP serves a group -----------------------------------------------------------------------------

TEST_F(WatchesTest, EachRouterUsesTheRpOfTheHash) {
  script.play("candidate-rp r1 239.1.0.0/16\ncandidate-rp r2 239.1.0.0/16\nrun 130\n");
  std::vector<IpAddr> many;
  for (Zet::U32 i = 0; i < 64; ++i) many.push_back(IpAddr::fromHost(0xef010000 + 256 * i));
  Expectation expected(network());
  EXPECT_THAT(expected.checkServed(many), IsEmpty());
  std::set<Lanet::IpGenAddr> used;
  for (IpAddr group : many) used.insert(expected.rpOf(1, group));
  EXPECT_EQ(used.size(), 3u) << "the groups are spread";
  auto read = script.node(1).router()->rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
  read->rp(addr("10.1.0.1"))->hashMaskLenIs(Zet::U32{8});
  EXPECT_THAT(expected.checkServed(many), testing::Contains(HasSubstr("r2 uses ")));
}

TEST_F(WatchesTest, AGroupWithoutRpIsFound) {
  Expectation expected(network());
  EXPECT_THAT(expected.checkServed(groups), IsEmpty()) << "225.1.1.1 must have none";
  script.node(2).router()->rpCandidateStatus()->crpSetDelAll();
  EXPECT_THAT(expected.checkServed(groups),
              ElementsAre("r3 uses no RP for group 239.1.2.3, and must use 10.2.0.3"));
}

TEST_F(WatchesTest, AGroupThatMustHaveNoRpIsFound) {
  script.play(
      "border r2 l2 239.1.0.0/16\nborder r3 l2 239.1.0.0/16\n"
      "candidate-bsr r1 239.1.0.0/16\nrun 30\n");
  Expectation expected(network());
  EXPECT_THAT(expected.checkServed(groups),
              testing::Contains("r3 uses 10.2.0.3 for group 239.1.2.3, and must use no RP"))
      << "it was advertised before the zone was known";
}

// Random networks -------------------------------------------------------------------------------------

TEST(TrialTest, WithoutElectedOnlyManyCandidatesAreNotDrawn) {
  pimbsr::sim::RandomScenario exact(3, 20, pimbsr::sim::Domain::exact);
  for (char const* no : {"keeping state", "corrupt", " bsm from", "mtu 576", "drift"})
    EXPECT_EQ((exact.network() + exact.faults()).find(no), std::string::npos) << no;
}

TEST(TrialTest, CorrectedNetworksHaveAllFaults) {
  std::string all;
  for (Zet::U64 seed = 1; seed <= 200; ++seed) {
    pimbsr::sim::RandomScenario random(seed, 20);
    all += random.network() + random.faults() + random.healing();
  }
  for (char const* fault : {" list zones address ",
                            " list ranges address ",
                            " list senders",
                            " list border",
                            " no access-list r",
                            " no candidate-rp r",
                            " address r",
                            " timers r",
                            " bs-period ",
                            " keeping zones",
                            " down l",
                            " crash r",
                            " stop r",
                            " partition r",
                            " keeping state",
                            " no candidate-rp r",
                            " no candidate-bsr r",
                            " border r",
                            " no border r",
                            " route r",
                            "no route r",
                            " bsm from ",
                            " rp-count 3",
                            " crp-adv from ",
                            " raw from ",
                            " permit r",
                            " corrupt ",
                            " mtu 576",
                            " mtu 9000",
                            " drift -",
                            " skew "})
    EXPECT_NE(all.find(fault), std::string::npos) << fault;
}

}  // namespace
}  // namespace test
