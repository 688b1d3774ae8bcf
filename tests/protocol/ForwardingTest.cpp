#include <gmock/gmock.h>

#include "tests/protocol/ForwardingSupport.h"
#include "tests/protocol/NonCandidateSupport.h"
#include "tests/support/Watch.h"

namespace test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Zet::Ptr;

class Forwarding : public EngineTest {
 protected:
  Ptr<Routing::Pim::Packet::BootstrapMessage> forward(Bsm const& given, std::string const& zone = global) {
    auto message = make(given);
    engine.root->forwardBsm(prefix(zone), message);
    return message;
  }
  /// What the root machine has traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }
};

// The size of a message -------------------------------------------------------------------------------

TEST_F(Forwarding, TheSizeCountsHeaderRecordsAndTheRpsThatTheRecordsAnnounce) {
  struct Case {
    std::vector<Group> groups;
    Zet::U32 size;
    std::string trace;
  };
  for (Case const& given : {
           Case{{}, 36, "Number of Groups: 0, Total number of RPs: 0"},
           Case{{{"239.1.0.0/16"}}, 48, "Number of Groups: 1, Total number of RPs: 0"},
           Case{{someGroup(1, 3), someGroup(2, 4)}, 144, "Number of Groups: 2, Total number of RPs: 7"},
           Case{{{"239.1.0.0/16", someRps(2), 0, 9}}, 156, "Number of Groups: 1, Total number of RPs: 9"},
           Case{{{"239.1.0.0/16", {}, 0, 4, 1}}, 96, "Number of Groups: 1, Total number of RPs: 4"},
           Case{{{"239.1.0.0/16", someRps(300), 0, 44, 44}},
                576,
                "Number of Groups: 1, Total number of RPs: 44"},
           Case{
               {someGroup(1, 255), someGroup(2, 255)}, 6180, "Number of Groups: 2, Total number of RPs: 510"},
       }) {
    texts();
    EXPECT_EQ(engine.root->doComputeBsmLength(make({.groups = given.groups})), given.size);
    EXPECT_THAT(texts(), ElementsAre(given.trace));
  }
}

TEST_F(Forwarding, AMessageOfExactlyTheMtuGoesWhole) {
  engine.addIntf("eth0", 1, 96);
  forward({.groups = {someGroup(1, 4)}});
  EXPECT_THAT(sentRecords(engine), ElementsAre("239.1.0.0/16 4/4(4)"));
  EXPECT_EQ(context.tracedPrefix(" Forwarding BSM fragment"), 0);
  engine.outbox->sent.clear();
  engine.interfaces->intfStatus(intf("eth0"))->mtuIs(95);
  forward({.groups = {someGroup(1, 4)}});
  EXPECT_EQ(engine.outbox->sent.size(), 2u);
  EXPECT_EQ(context.traced(" Forwarding BSM fragment to oif=eth0 for zone 224.0.0.0/4"), 2);
}

TEST_F(Forwarding, TheMtuIsReadForEachMessageAndTakenAsTheUsualOneWhereItIsUnknown) {
  engine.pimStatus->pimIntfIs(intf("eth7"))->neighborIs(addr("192.0.2.1"));
  forward({.groups = {someGroup(1, 121)}});
  EXPECT_EQ(context.traced("MTU of interface eth7 is 1500"), 1);
  EXPECT_THAT(sentIntfs(engine), ElementsAre("eth7"));
}

TEST_F(Forwarding, EachStepIsTraced) {
  engine.addIntf("eth0");
  forward({.groups = {someGroup(1, 1)}}, scoped);
  EXPECT_THAT(texts(), testing::IsSupersetOf({"Number of Groups: 1, Total number of RPs: 1",
                                              "BSM length is 60", "MTU of interface eth0 is 1500",
                                              " Forwarding BSM to oif=eth0 for zone 239.0.0.0/8"}));
}

// Interfaces of a message -----------------------------------------------------------------------------

TEST_F(Forwarding, AMessageGoesOutOfEveryInterfaceTheOneItCameInOnIncluded) {
  for (char const* name : {"eth0", "eth1", "eth2"}) engine.addIntf(name);
  engine.receive(globalBsm(), "eth1");
  EXPECT_THAT(sentIntfs(engine), UnorderedElementsAre("eth0", "eth1", "eth2"));
  Texts order;
  for (auto at = engine.pimStatus->pimIntfIterator(); at; ++at) {
    order.emplace_back(at->intfId().stringValue().view());
  }
  EXPECT_EQ(sentIntfs(engine), order);
}

TEST_F(Forwarding, AnInterfaceWithoutNeighborsGetsNothingAndKeepsItsPast) {
  engine.addIntf("eth0", 0);
  engine.addIntf("eth1", 2);
  for (char const* name : {"eth0", "eth1"}) engine.root->pimIntf(intf(name))->wasDrIs(true);
  forward(globalBsm());
  EXPECT_THAT(sentIntfs(engine), ElementsAre("eth1"));
  EXPECT_TRUE(engine.root->pimIntf(intf("eth0"))->wasDr());
  EXPECT_FALSE(engine.root->pimIntf(intf("eth1"))->wasDr());
}

TEST_F(Forwarding, OnlyATrueBorderOfExactlyTheZoneExcludesAnInterface) {
  struct Case {
    std::string border;
    std::string intfName;
    bool value;
    bool sent;
  };
  for (Case const& given : {
           Case{scoped, "eth0", true, false},
           Case{scoped, "eth0", false, true},
           Case{scoped, "eth1", true, true},
           Case{global, "eth0", true, true},
           Case{"239.0.0.0/7", "eth0", true, true},
           Case{"239.0.0.0/9", "eth0", true, true},
       }) {
    SCOPED_TRACE(given.border);
    Engine router;
    router.addIntf("eth0");
    router.root->pimIntf(intf("eth0"))->wasDrIs(true);
    router.addBorder(given.border, given.intfName, given.value);
    router.root->forwardBsm(prefix(scoped), make(scopedBsm()));
    EXPECT_EQ(router.outbox->sent.size(), given.sent ? 1u : 0u);
    EXPECT_EQ(router.root->pimIntf(intf("eth0"))->wasDr(), !given.sent);
  }
}

TEST_F(Forwarding, NothingIsSentUntilTheFamilyIsKnown) {
  engine.addIntf("eth0");
  engine.status->afIs(Lanet::AddressFamily::unset);
  texts();
  forward(globalBsm());
  EXPECT_THAT(engine.outbox->sent, IsEmpty());
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(Forwarding, ASendThatFailsDoesNotStopTheWalk) {
  engine.addIntf("eth0");
  engine.addIntf("eth1");
  engine.outbox->fails = true;
  forward(globalBsm());
  EXPECT_EQ(engine.outbox->sent.size(), 2u);
  EXPECT_EQ(engine.status->counters()->txError(), 2u);
}

// One transmission ------------------------------------------------------------------------------------

TEST_F(Forwarding, TheInterfaceIsWrittenThenTheMessageThenTheCount) {
  engine.addIntf("eth0");
  Texts writes;
  auto watch = Zet::make<BsmStatusWatch>([&](std::string const& what) { writes.push_back(what); });
  watch->notifierIs(engine.bsmStatus);
  forward({.groups = {someGroup(1, 2)}});
  EXPECT_THAT(writes, ElementsAre("oifIntfId", "txBsm", "writeCount"));
  writes.clear();
  engine.bsmStatus->oifIntfIdIs(intf("another"));
  engine.interfaces->intfStatus(intf("eth0"))->mtuIs(60);
  forward({.groups = {someGroup(1, 2)}});
  EXPECT_THAT(writes, ElementsAre("oifIntfId", "oifIntfId", "txBsm", "writeCount", "txBsm", "writeCount"));
}

TEST_F(Forwarding, ThePastOfTheInterfaceIsClearedBetweenItsChoiceAndTheSend) {
  engine.addIntf("eth0");
  auto reactor = engine.root->pimIntf(intf("eth0"));
  reactor->wasDrIs(true);
  Texts seen;
  auto watch = Zet::make<BsmStatusWatch>(
      [&](std::string const& what) { seen.push_back(what + (reactor->wasDr() ? " was DR" : " clear")); });
  watch->notifierIs(engine.bsmStatus);
  forward(globalBsm());
  EXPECT_THAT(seen, ElementsAre("oifIntfId was DR", "txBsm clear", "writeCount clear"));
}

TEST_F(Forwarding, TheSourceOfTheHopBeforeIsTakenOutOfAWholeMessage) {
  engine.addIntf("eth0");
  auto message = engine.receive(globalBsm());
  EXPECT_TRUE(message->srcAddr().isEmpty());
  EXPECT_TRUE(engine.outbox->sent.front().source.isEmpty());
  EXPECT_EQ(engine.outbox->sent.front().message, message);
}

TEST_F(Forwarding, AMessageThatLeavesInFragmentsOnlyKeepsItsSourceAndTheFragmentsHaveNone) {
  engine.addIntf("eth0", 1, 60);
  auto message = engine.receive({.groups = {someGroup(1, 2)}});
  EXPECT_EQ(message->srcAddr(), addr("192.0.2.1"));
  ASSERT_EQ(engine.outbox->sent.size(), 2u);
  for (Sent const& sent : engine.outbox->sent) EXPECT_TRUE(sent.source.isEmpty());
}

TEST_F(Forwarding, AFragmentCarriesTheHeaderOfItsMessage) {
  engine.addIntf("eth0", 1, 132);
  Bsm given{.bsr = "10.0.0.7",
            .priority = 77,
            .groups = {someGroup(1, 4), someGroup(2, 5)},
            .tag = 4711,
            .hashMaskLen = 12};
  forward(given);
  ASSERT_EQ(engine.outbox->sent.size(), 2u);
  for (int i : {0, 1}) {
    Bsm part = given;
    part.groups = {given.groups[static_cast<std::size_t>(i)]};
    EXPECT_EQ(engine.outbox->sent[static_cast<std::size_t>(i)].text, show(*make(part)));
  }
}

TEST_F(Forwarding, FragmentsAreBuiltOncePerMtuAndAreTheSameObjectsOnEachInterface) {
  engine.addIntf("eth0", 1, 132);
  engine.addIntf("eth1", 1, 132);
  engine.addIntf("eth2", 1, 140);
  forward({.groups = {someGroup(1, 4), someGroup(2, 5)}});
  std::map<std::string, std::vector<Ptr<Routing::Pim::Packet::Message>>> by;
  for (Sent const& sent : engine.outbox->sent) by[sent.intf].push_back(sent.message);
  ASSERT_EQ(by["eth0"].size(), 2u);
  EXPECT_EQ(by["eth0"], by["eth1"]);
  ASSERT_EQ(by["eth2"].size(), 2u);
  EXPECT_NE(by["eth2"].front(), by["eth0"].front());
  EXPECT_EQ(context.traced("2 fragments to be generated"), 2);
  EXPECT_EQ(context.tracedPrefix("Number of Groups"), 1);
  EXPECT_EQ(engine.root->bsmFragmentsCount(), 0u);
}

TEST_F(Forwarding, TheNextMessageIsCutAnew) {
  engine.addIntf("eth0", 1, 132);
  forward({.groups = {someGroup(1, 4), someGroup(2, 5)}, .tag = 1});
  engine.outbox->sent.clear();
  forward({.groups = {someGroup(3, 4), someGroup(4, 5)}, .tag = 2});
  EXPECT_THAT(sentRecords(engine), ElementsAre("239.3.0.0/16 4/4(4)", "239.4.0.0/16 5/5(5)"));
}

}  // namespace
}  // namespace test
