#include <gmock/gmock.h>

#include "tests/protocol/ForwardingSupport.h"
#include "tests/protocol/NonCandidateSupport.h"

namespace test {
namespace {

using Routing::Pim::Packet::BootstrapMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using Zet::Ptr;

std::string const asDr = "Send No Forward BSM since we are DR  on interface eth0";
std::string const asFormerDr = "Send No Forward BSM since we were DR  on interface eth0";

/// A router whose interface eth0 gets a neighbor only when a test has received what is to be kept.
class Triggered : public EngineTest {
 protected:
  Triggered() : eth0(engine.addIntf("eth0", 0)) {}

  void addNeighbor() { eth0->neighborIs(addr("192.0.2.9")); }
  void loseDr() {
    eth0->iAmDrIs(true);
    eth0->iAmDrIs(false);
  }
  /// PIM sends a triggered Hello there; returns how many messages follow it.
  std::size_t hello() {
    std::size_t before = engine.outbox->sent.size();
    eth0->triggeredHelloCountInc(1);
    return engine.outbox->sent.size() - before;
  }
  Ptr<Bsr::PimBsrSm::ZetPimIntf> reactor() const { return engine.root->pimIntf(intf("eth0")); }
  /// What the root machine has traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }

  Ptr<Routing::Pim::Intf> eth0;
};

// When ------------------------------------------------------------------------------------------------

TEST_F(Triggered, ANewNeighborOfTheDrGetsTheKeptMessageWithTheNoForwardBit) {
  auto kept = engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  texts();
  EXPECT_EQ(hello(), 1u);
  EXPECT_THAT(
      texts(),
      ElementsAre(asDr, "Number of Groups: 1, Total number of RPs: 1", "MTU of interface eth0 is 1500",
                  "Sending BSM along oif=eth0 for zone 224.0.0.0/4 with forward bit set to False"));
  EXPECT_EQ(engine.outbox->sent.back().message, kept);
  EXPECT_EQ(engine.outbox->sent.back().intf, "eth0");
  EXPECT_THAT(engine.outbox->sent.back().text, StartsWith("no-forward tag 1 bsr 10.0.0.1 "));
}

TEST_F(Triggered, EachTriggeredHelloOfTheDrSendsAgain) {
  engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  EXPECT_EQ(hello(), 1u);
  EXPECT_EQ(hello(), 1u);
}

TEST_F(Triggered, TheDrOfALinkWithoutNeighborsSendsNothingAndForgetsItsPast) {
  engine.receive(globalBsm());
  loseDr();
  eth0->iAmDrIs(true);
  EXPECT_TRUE(reactor()->wasDr());
  EXPECT_EQ(hello(), 0u);
  EXPECT_FALSE(reactor()->wasDr());
}

TEST_F(Triggered, AFormerDrWithoutNeighborsForgetsItsPastToo) {
  engine.receive(globalBsm());
  loseDr();
  EXPECT_EQ(hello(), 0u);
  addNeighbor();
  EXPECT_EQ(hello(), 0u);
}

TEST_F(Triggered, ARouterThatNeverWasTheDrSendsNothing) {
  engine.receive(globalBsm());
  addNeighbor();
  texts();
  EXPECT_EQ(hello(), 0u);
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(Triggered, GainingTheDrRoleSendsNothingByItself) {
  engine.receive(globalBsm());
  addNeighbor();
  texts();
  eth0->iAmDrIs(true);
  EXPECT_THAT(engine.outbox->sent, IsEmpty());
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_FALSE(reactor()->wasDr());
}

TEST_F(Triggered, AfterTheLossOfTheDrRoleOneHelloSendsAndTheSecondDoesNot) {
  engine.receive(globalBsm());
  addNeighbor();
  texts();
  loseDr();
  EXPECT_THAT(texts(), ElementsAre("We are no longer DR on interface eth0"));
  EXPECT_EQ(hello(), 1u);
  EXPECT_EQ(context.traced(asFormerDr), 1);
  EXPECT_FALSE(reactor()->wasDr());
  EXPECT_EQ(hello(), 0u);
}

TEST_F(Triggered, AForwardBetweenTheLossAndTheHelloTakesItsPlace) {
  engine.receive(globalBsm());
  addNeighbor();
  loseDr();
  engine.receive(globalBsm());
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(hello(), 0u);
}

TEST_F(Triggered, AForwardThatPassesTheInterfaceByDoesNotTakeItsPlace) {
  engine.receive(globalBsm());
  loseDr();
  engine.receive(globalBsm());  // no neighbor yet
  engine.addBorder(scoped, "eth0");
  addNeighbor();
  engine.receive(scopedBsm());  // a border of this zone
  EXPECT_THAT(engine.outbox->sent, IsEmpty());
  EXPECT_EQ(hello(), 1u);
}

TEST_F(Triggered, EachInterfaceHasAPastOfItsOwn) {
  engine.receive(globalBsm());
  auto eth1 = engine.addIntf("eth1");
  addNeighbor();
  loseDr();
  eth1->triggeredHelloCountInc(1);
  EXPECT_THAT(engine.outbox->sent, IsEmpty());
  EXPECT_EQ(hello(), 1u);
  EXPECT_THAT(sentIntfs(engine), ElementsAre("eth0"));
}

TEST_F(Triggered, AnInterfaceThatComesAnewHasNoPast) {
  engine.receive(globalBsm());
  loseDr();
  engine.pimStatus->pimIntfDel(intf("eth0"));
  EXPECT_FALSE(reactor());
  eth0->triggeredHelloCountInc(1);
  eth0 = engine.addIntf("eth0");
  EXPECT_EQ(hello(), 0u);
}

// Content ---------------------------------------------------------------------------------------------

TEST_F(Triggered, TheFlagIsWrittenOnTheKeptMessageItselfUntilItIsRefreshed) {
  auto kept = engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  hello();
  EXPECT_EQ(engine.follower(global)->lastBsm(), kept);
  EXPECT_FALSE(kept->forward());
  engine.runTo(130);
  EXPECT_TRUE(kept->forward());
}

TEST_F(Triggered, ANewMessageReplacesTheOneWhoseFlagWasWritten) {
  auto kept = engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  hello();
  auto next = engine.receive(globalBsm());
  EXPECT_TRUE(next->forward());
  EXPECT_FALSE(kept->forward());
  EXPECT_EQ(engine.follower(global)->lastBsm(), next);
}

TEST_F(Triggered, ZonesWithoutAKeptMessageDoNotStopTheWalk) {
  std::vector<std::string> const zones{"239.0.0.0/8", "238.0.0.0/8", "237.0.0.0/8", "236.0.0.0/8"};
  for (std::string const& zone : zones) engine.makeFollower(zone);
  engine.receive({.groups = {{"237.0.0.0/8", {}, scopedFlag}}});
  engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  texts();
  EXPECT_EQ(hello(), 2u);
  EXPECT_EQ(context.traced("No last BSM available to send triggered BSM"), 3);
  EXPECT_THAT(sentRecords(engine), UnorderedElementsAre("224.0.0.0/4 1/1(1)", "237.0.0.0/8 0/0(0)"));
}

TEST_F(Triggered, ZonesFollowInTheOrderOfTheMachines) {
  for (char const* zone : {"239.0.0.0/8", "238.0.0.0/8", "237.0.0.0/8"}) {
    engine.receive({.groups = {{zone, {}, scopedFlag}}});
  }
  eth0->iAmDrIs(true);
  addNeighbor();
  hello();
  Texts order;
  for (auto at = engine.root->nonCandidateSmIterator(); at; ++at) {
    order.push_back(std::string(at->zone().stringValue().view()) + " 0/0(0)");
  }
  EXPECT_EQ(sentRecords(engine), order);
}

TEST_F(Triggered, ABorderOfAZoneKeepsThatZoneAloneFromTheInterface) {
  engine.receive(globalBsm());
  auto kept = engine.receive(scopedBsm());
  engine.addBorder(scoped, "eth0");
  eth0->iAmDrIs(true);
  addNeighbor();
  texts();
  EXPECT_EQ(hello(), 1u);
  EXPECT_THAT(sentRecords(engine), ElementsAre("224.0.0.0/4 1/1(1)"));
  EXPECT_TRUE(kept->forward());
  EXPECT_EQ(context.tracedPrefix("MTU of interface"), 1);
}

TEST_F(Triggered, AFalseBorderAndOneOfAnotherInterfaceOrZoneCountAsNone) {
  engine.receive(scopedBsm());
  engine.addBorder(scoped, "eth0", false);
  engine.addBorder(scoped, "eth1");
  engine.addBorder(global, "eth0");
  eth0->iAmDrIs(true);
  addNeighbor();
  EXPECT_EQ(hello(), 1u);
}

TEST_F(Triggered, TheSourceOfTheKeptMessageStaysAsItIs) {
  engine.receive(globalBsm());
  eth0->iAmDrIs(true);
  addNeighbor();
  hello();
  EXPECT_EQ(engine.outbox->sent.back().source, addr("192.0.2.1"));
}

TEST_F(Triggered, NothingIsSentUntilTheFamilyIsKnown) {
  auto kept = engine.receive(globalBsm());
  addNeighbor();
  engine.status->afIs(Lanet::AddressFamily::unset);
  engine.root->doSendTriggeredBsm(prefix(global), false, intf("eth0"), kept);
  EXPECT_THAT(engine.outbox->sent, IsEmpty());
  EXPECT_TRUE(kept->forward());
}

TEST_F(Triggered, TheForwardFlagOfOneSendIsForTheCallerToSay) {
  auto message = make(globalBsm({.forward = false}));
  reactor()->wasDrIs(true);
  texts();
  engine.root->doSendTriggeredBsm(prefix(global), true, intf("eth0"), message);
  EXPECT_TRUE(message->forward());
  EXPECT_EQ(engine.outbox->sent.size(), 1u);  // neighbors are for the caller to look at too
  EXPECT_EQ(texts().back(), "Sending BSM along oif=eth0 for zone 224.0.0.0/4 with forward bit set to True");
  EXPECT_TRUE(reactor()->wasDr());
}

// In fragments ----------------------------------------------------------------------------------------

/// A message of the global zone that leaves in two fragments where the MTU is 132.
Bsm longBsm(int number, Zet::U16 tag = 1) {
  return {.groups = {someGroup(number, 4), someGroup(number + 1, 5)}, .tag = tag};
}

class TriggeredFragments : public Triggered {
 protected:
  TriggeredFragments() {
    engine.interfaces->intfStatus(intf("eth0"))->mtuIs(132);
    eth0->iAmDrIs(true);
  }
};

TEST_F(TriggeredFragments, AMessageAboveTheMtuGoesInFragmentsWithTheNoForwardBit) {
  engine.receive(longBsm(1));
  addNeighbor();
  EXPECT_EQ(hello(), 2u);
  EXPECT_THAT(sentRecords(engine), ElementsAre("239.1.0.0/16 4/4(4)", "239.2.0.0/16 5/5(5)"));
  for (Sent const& sent : engine.outbox->sent) EXPECT_THAT(sent.text, StartsWith("no-forward "));
  EXPECT_EQ(context.traced(" Forwarding BSM fragment to oif=eth0 for zone 224.0.0.0/4"), 2);
  EXPECT_EQ(context.tracedPrefix("Sending BSM along oif="), 0);
}

TEST_F(TriggeredFragments, AMessageOfExactlyTheMtuGoesWhole) {
  auto kept = engine.receive({.groups = {someGroup(1, 7)}});
  addNeighbor();
  EXPECT_EQ(hello(), 1u);
  EXPECT_EQ(engine.outbox->sent.back().message, kept);
}

TEST_F(TriggeredFragments, TheFragmentsStayAndTheNextHelloSendsThemAgain) {
  engine.receive(longBsm(1));
  addNeighbor();
  hello();
  EXPECT_EQ(engine.root->bsmFragmentsCount(), 1u);
  EXPECT_TRUE(engine.root->bsmFragments(132));
  hello();
  ASSERT_EQ(engine.outbox->sent.size(), 4u);
  EXPECT_EQ(engine.outbox->sent[0].message, engine.outbox->sent[2].message);
  EXPECT_EQ(engine.outbox->sent[1].message, engine.outbox->sent[3].message);
  EXPECT_EQ(context.tracedPrefix("2 fragments to be generated"), 1);
}

TEST_F(TriggeredFragments, AnotherZonesMessageOfThatMtuLeavesAsTheFragmentsOfTheFirst) {
  engine.receive({.groups = {{"239.0.0.0/8", {}, scopedFlag}, someGroup(1, 6), someGroup(2, 6)}});
  engine.receive(
      {.groups = {
           {"238.0.0.0/8", {}, scopedFlag}, {"238.1.0.0/16", someRps(6)}, {"238.2.0.0/16", someRps(6)}}});
  addNeighbor();
  EXPECT_EQ(hello(), 4u);
  auto const& sent = engine.outbox->sent;
  EXPECT_EQ(sent[0].message, sent[2].message);
  EXPECT_EQ(sent[1].message, sent[3].message);
}

TEST_F(TriggeredFragments, TheNextForwardedMessageLeavesAsTheOldFragmentsAndEndsThem) {
  engine.receive(longBsm(1, 1));
  addNeighbor();
  hello();
  engine.outbox->sent.clear();
  engine.receive(longBsm(3, 2));
  EXPECT_THAT(sentRecords(engine), ElementsAre("239.1.0.0/16 4/4(4)", "239.2.0.0/16 5/5(5)"));
  for (Sent const& sent : engine.outbox->sent) EXPECT_THAT(sent.text, StartsWith("no-forward tag 1 "));
  EXPECT_EQ(engine.root->bsmFragmentsCount(), 0u);
  engine.outbox->sent.clear();
  engine.receive(longBsm(5, 3));
  EXPECT_THAT(sentRecords(engine), ElementsAre("239.5.0.0/16 4/4(4)", "239.6.0.0/16 5/5(5)"));
  for (Sent const& sent : engine.outbox->sent) EXPECT_THAT(sent.text, StartsWith("forward tag 3 "));
}

TEST_F(TriggeredFragments, AnyForwardEndsTheFragmentsThoughItSendsNone) {
  engine.receive(longBsm(1));
  addNeighbor();
  hello();
  engine.receive(globalBsm());
  EXPECT_EQ(engine.root->bsmFragmentsCount(), 0u);
}

TEST_F(TriggeredFragments, FragmentsThatStayedKeepTheFlagTheyWereBuiltWith) {
  auto kept = engine.receive(longBsm(1));
  engine.root->doSendTriggeredBsm(prefix(global), true, intf("eth0"), kept);
  addNeighbor();
  hello();
  ASSERT_EQ(engine.outbox->sent.size(), 4u);
  for (Sent const& sent : engine.outbox->sent) EXPECT_THAT(sent.text, StartsWith("forward "));
  EXPECT_FALSE(kept->forward());
}

TEST_F(TriggeredFragments, AnotherMtuIsCutAnewBesideThem) {
  engine.receive(longBsm(1));
  addNeighbor();
  hello();
  engine.interfaces->intfStatus(intf("eth0"))->mtuIs(140);
  hello();
  EXPECT_EQ(engine.root->bsmFragmentsCount(), 2u);
  EXPECT_NE(engine.outbox->sent[0].message, engine.outbox->sent[2].message);
}

}  // namespace
}  // namespace test
