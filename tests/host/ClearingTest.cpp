#include <memory>

#include "host/LastMessages.h"
#include "host/RouterParts.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::BsrCandidateState;
using pimbsr::host::allCorrections;
using Zet::Ptr;

/// Keeps the Bootstrap Messages that leave.
class BootstrapPort : public SubnetPort {
 public:
  bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) override {
    auto ip = pimbsr::wire::parseIpv4(packet);
    if (ip && (ip->payload[0] & 0x0f) == 4) bootstraps += 1;
    return SubnetPort::send(intfId, packet);
  }
  int bootstraps = 0;
};

/// A router that follows 10.0.0.1 by way of the neighbor 192.0.2.1 on eth0, with all corrections and without.
class ClearingTest : public testing::TestWithParam<bool> {
 protected:
  ClearingTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    start();
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  /// Makes the router, in place of the one before, over the same status tree.
  void start() {
    router = nullptr;
    router = std::make_unique<Router>(
        context, port,
        pimbsr::host::RouterOptions{.status = status, .rpCandidateStatus = pimSet, .rpf = rpf});
    if (GetParam()) router->correctionsAre(allCorrections);
    for (char const* name : {"eth0", "eth1"}) router->interfaceIs(intf(name), 1500, {});
  }
  std::string reasonFor(std::vector<U8> const& pim, PacketPath const& path = {}) {
    return std::string(router->receive(intf("eth0"), packetOf(pim, path)).reason);
  }
  void offer(Bsm const& message) { EXPECT_EQ(reasonFor(bytesOf(message)), ""); }
  void receiveHello(std::string const& source, U16 holdtime = 105) {
    EXPECT_EQ(reasonFor(bytesOf(HelloMessage{.holdtime = holdtime, .generationId = 1}), {source}), "");
  }
  void run(double seconds) {
    double end = context.now() + seconds;
    for (double next = router->nextExpiry(); next <= end; next = router->nextExpiry()) {
      context.nowIs(next);
      router->advance();
    }
    context.nowIs(end);
  }
  void beCandidate(std::string const& zone, U16 priority) {
    router->candidateBsrIs(prefix(zone),
                           {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = priority});
  }
  Ptr<Bsr::ElectedBsrStatus> entry(std::string const& zone) const {
    return status->bootstrapRouter(prefix(zone));
  }
  Ptr<Routing::Pim::RpCandidateSet> range(std::string const& text) const {
    return pimSet->crpSet(prefix(text));
  }
  bool isFollowed(std::string const& zone) const {
    return pimbsr::host::partsOf(*router).root->nonCandidateSm(prefix(zone)) != nullptr;
  }
  BsrCandidateState candidateState(std::string const& zone) const {
    return pimbsr::host::partsOf(*router).root->candidateSm(prefix(zone))->state();
  }
  /// Bootstrap Messages that a new neighbor on eth1, where this router is the DR, makes the router send.
  int sentToNewNeighbor() {
    int before = port.bootstraps;
    std::string source = numbered("198.51.100.", ++lastNeighbor);
    auto hello = bytesOf(HelloMessage{.holdtime = 105, .drPriority = 0, .generationId = 1});
    router->receive(intf("eth1"), packetOf(hello, {source}));
    run(6);
    return port.bootstraps - before;
  }

  TestContext context;
  BootstrapPort port;
  Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Ptr<Bsr::Status> status = Bsr::statusFactory("bsr");
  Ptr<Routing::Pim::RpCandidateStatus> pimSet = Routing::Pim::rpCandidateStatusFactory("bsr");
  std::unique_ptr<Router> router;
  int lastNeighbor = 0;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutCorrections, ClearingTest, testing::Bool(),
                         [](auto const& tested) { return tested.param ? "Corrected" : "Plain"; });

Bsm ofZone(std::string const& zone, U16 tag = 1) {
  bool isGlobal = zone == "224.0.0.0/4";
  return {.groups = {{zone, {{"10.1.0.1"}, {"10.1.0.2"}}, isGlobal ? U8{0} : scopedFlag}}, .tag = tag};
}

TEST_P(ClearingTest, ABsrIsForgottenWithItsMachineAndLearnedAgain) {
  for (std::string const zone : {"224.0.0.0/4", "239.1.0.0/16"}) {
    offer(ofZone(zone));
    ASSERT_TRUE(entry(zone) && isFollowed(zone) && range(zone)) << zone;
    EXPECT_TRUE(router->clearBsr(prefix(zone)));
    EXPECT_FALSE(entry(zone)) << zone;
    EXPECT_FALSE(isFollowed(zone)) << zone;
    EXPECT_FALSE(status->crpStatus(prefix(zone))) << zone;
    EXPECT_FALSE(range(zone)) << zone;
    EXPECT_FALSE(router->lastMessages().find(prefix(zone)));
    offer(ofZone(zone, 2));
    ASSERT_TRUE(entry(zone) && isFollowed(zone)) << zone;
    EXPECT_EQ(pimbsr::host::partsOf(*router).root->nonCandidateSm(prefix(zone))->state(),
              Bsr::BsrNonCandidateState::acceptPreferred);
    EXPECT_EQ(range(zone)->rpCount(), 2u) << zone;
    run(3000);
    EXPECT_FALSE(entry(zone)) << zone;
    EXPECT_FALSE(range(zone)) << zone;
  }
}

TEST_P(ClearingTest, NoTimerOfAForgottenZoneRuns) {
  offer(ofZone("239.1.0.0/16"));
  run(60);
  router->clearBsr(prefix("239.1.0.0/16"));
  run(3000);
  EXPECT_FALSE(isFollowed("239.1.0.0/16"));
  offer(ofZone("239.1.0.0/16", 2));
  EXPECT_NEAR(entry("239.1.0.0/16")->expiryTime(), context.now() + 130, 0.001);
}

TEST_P(ClearingTest, AnotherZoneStays) {
  offer(ofZone("224.0.0.0/4"));
  offer(ofZone("239.1.0.0/16", 2));
  EXPECT_TRUE(router->clearBsr(prefix("239.1.0.0/16")));
  EXPECT_TRUE(router->clearBsr(prefix("239.2.0.0/16"))) << "an unknown one";
  EXPECT_TRUE(entry("224.0.0.0/4") && isFollowed("224.0.0.0/4") && range("224.0.0.0/4"));
}

TEST_P(ClearingTest, NothingClearedReachesANewNeighbor) {
  offer(ofZone("239.1.0.0/16"));
  ASSERT_EQ(sentToNewNeighbor(), 1);
  router->clearRpSet(prefix("239.1.0.0/16"));
  EXPECT_EQ(sentToNewNeighbor(), 0);
  offer(ofZone("239.1.0.0/16", 2));
  ASSERT_EQ(sentToNewNeighbor(), 1);
  router->clearBsr(prefix("239.1.0.0/16"));
  EXPECT_EQ(sentToNewNeighbor(), 0);
  offer(ofZone("239.1.0.0/16", 2));
  EXPECT_EQ(sentToNewNeighbor(), 1) << "and no fragment of the same tag that came before";
}

TEST_P(ClearingTest, FragmentsOfAForgottenMessageAreNotJoinedWithLaterOnes) {
  auto half = [&](char const* rp) {
    return Bsm{.groups = {{"239.1.0.0/16", {{rp}}, scopedFlag, 2, 1}}, .tag = 7};
  };
  offer(half("10.1.0.1"));
  router->clearRpSet(prefix("239.1.0.0/16"));
  offer(half("10.1.0.2"));
  EXPECT_FALSE(range("239.1.0.0/16"));
  offer(half("10.1.0.1"));
  ASSERT_TRUE(range("239.1.0.0/16"));
  router->clearBsr(prefix("239.1.0.0/16"));
  offer(half("10.1.0.1"));
  router->clearBsr(prefix("239.1.0.0/16"));
  offer(half("10.1.0.2"));
  EXPECT_FALSE(range("239.1.0.0/16"));
}

TEST_P(ClearingTest, ACandidateThatFollowsABsrTakesPartInANewElection) {
  for (std::string const zone : {"224.0.0.0/4", "239.1.0.0/16"}) {
    beCandidate(zone, 5);
    offer(ofZone(zone));
    ASSERT_EQ(candidateState(zone), BsrCandidateState::cBsr);
    EXPECT_TRUE(router->clearBsr(prefix(zone)));
    EXPECT_EQ(candidateState(zone), BsrCandidateState::pBsr);
    EXPECT_FALSE(entry(zone));
    EXPECT_FALSE(range(zone));
    EXPECT_FALSE(pimbsr::host::partsOf(*router).root->candidateSm(prefix(zone))->lastBsm());
    offer(ofZone(zone, 2));
    EXPECT_EQ(candidateState(zone), BsrCandidateState::cBsr);
    EXPECT_EQ(entry(zone)->ipAddr(), addr("10.0.0.1"));
    router->clearBsr(prefix(zone));
    run(60);
    EXPECT_EQ(candidateState(zone), BsrCandidateState::eBsr) << "no better one was heard";
    EXPECT_EQ(entry(zone)->ipAddr(), addr("192.0.2.9"));
    offer(ofZone(zone, 3));
    EXPECT_EQ(candidateState(zone), BsrCandidateState::cBsr);
    router->candidateBsrDel(prefix(zone));
    run(60);
  }
}

TEST_P(ClearingTest, ACandidateThatWaitsForTheElectionIsClearedToo) {
  beCandidate("224.0.0.0/4", 5);
  EXPECT_TRUE(router->clearBsr(prefix("224.0.0.0/4")));
  EXPECT_EQ(candidateState("224.0.0.0/4"), BsrCandidateState::pBsr);
  Bsm weaker = ofZone("224.0.0.0/4");
  weaker.priority = 1;
  offer(weaker);
  EXPECT_TRUE(pimbsr::host::partsOf(*router).root->candidateSm(prefix("224.0.0.0/4"))->lastBsm());
  EXPECT_TRUE(router->clearBsr(prefix("224.0.0.0/4")));
  EXPECT_FALSE(pimbsr::host::partsOf(*router).root->candidateSm(prefix("224.0.0.0/4"))->lastBsm());
  run(60);
  EXPECT_EQ(candidateState("224.0.0.0/4"), BsrCandidateState::eBsr);
}

TEST_P(ClearingTest, AnElectedBsrStaysAndItsRpSetCanBeCleared) {
  router->routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = Slosh::Fib::RouteType::local});
  beCandidate("224.0.0.0/4", 5);
  run(200);
  auto advertise = [&] {
    EXPECT_EQ(reasonFor(bytesOf(Adv{.bsr = "192.0.2.9"}),
                        {.source = "203.0.113.1", .destination = "192.0.2.9", .ttl = 9}),
              "");
  };
  advertise();
  ASSERT_TRUE(range("224.0.0.0/4"));
  EXPECT_FALSE(router->clearBsr(prefix("224.0.0.0/4")));
  EXPECT_EQ(candidateState("224.0.0.0/4"), BsrCandidateState::eBsr);
  EXPECT_TRUE(entry("224.0.0.0/4") && range("224.0.0.0/4"));
  router->clearRpSet(prefix("224.0.0.0/4"));
  EXPECT_FALSE(range("224.0.0.0/4"));
  EXPECT_FALSE(pimbsr::host::partsOf(*router).root->candidateSm(prefix("224.0.0.0/4"))->lastBsm());
  advertise();
  EXPECT_TRUE(range("224.0.0.0/4"));
  run(60);
  EXPECT_GE(sentToNewNeighbor(), 1);
}

TEST_P(ClearingTest, AnRpSetIsClearedAndTheBsrStays) {
  offer(ofZone("239.1.0.0/16"));
  router->clearRpSet(prefix("239.1.0.0/16"));
  EXPECT_FALSE(status->crpStatus(prefix("239.1.0.0/16")));
  EXPECT_FALSE(range("239.1.0.0/16"));
  EXPECT_TRUE(entry("239.1.0.0/16"));
  EXPECT_TRUE(router->lastMessages().find(prefix("239.1.0.0/16")));
  offer(ofZone("239.1.0.0/16", 2));
  EXPECT_EQ(range("239.1.0.0/16")->rpCount(), 2u);
  router->clearRpSet(prefix("239.1.0.0/16"));
  run(200);
  EXPECT_FALSE(range("239.1.0.0/16")) << "nothing that was kept brings it back when the BSR is lost";
}

TEST_P(ClearingTest, RpsOfAZoneWithoutABsrAreRemovedFromWhatPimReads) {
  Bsm message = ofZone("239.1.0.0/16");
  for (Rp& rp : message.groups[0].rps) rp.holdtime = 30000;
  for (bool isForgotten : {false, true}) {
    offer(message);
    run(isForgotten ? 2000 : 200);
    ASSERT_FALSE(entry("239.1.0.0/16"));
    ASSERT_EQ(isFollowed("239.1.0.0/16"), !isForgotten);
    ASSERT_TRUE(range("239.1.0.0/16"));
    router->clearRpSet(prefix("239.1.0.0/16"));
    EXPECT_FALSE(range("239.1.0.0/16"));
    EXPECT_FALSE(status->crpStatus(prefix("239.1.0.0/16")));
  }
}

TEST_P(ClearingTest, RpsThatNoZoneHoldsAreRemovedWithThoseOfAllZones) {
  offer(ofZone("224.0.0.0/4"));
  auto rp = pimSet->crpSetIs(prefix("239.7.0.0/16"))->rpIs(addr("10.1.0.7"));
  rp->expiresIs(context.now() + 30000);
  router->clearLeftoverRps();
  EXPECT_FALSE(range("239.7.0.0/16"));
  EXPECT_TRUE(range("224.0.0.0/4"));
}

TEST_P(ClearingTest, WhatWasClearedDoesNotComeBackAtARestart) {
  offer(ofZone("224.0.0.0/4"));
  offer(ofZone("239.1.0.0/16", 2));
  router->clearBsr(prefix("239.1.0.0/16"));
  router->clearRpSet(prefix("224.0.0.0/4"));
  start();
  EXPECT_FALSE(entry("239.1.0.0/16"));
  EXPECT_FALSE(isFollowed("239.1.0.0/16"));
  EXPECT_TRUE(isFollowed("224.0.0.0/4"));
  EXPECT_EQ(pimSet->crpSetCount(), 0u);
  offer(ofZone("239.1.0.0/16", 3));
  EXPECT_TRUE(entry("239.1.0.0/16"));
}

TEST_P(ClearingTest, NeighborsAreForgottenAlsoThoseThatNeverExpire) {
  receiveHello("192.0.2.1", 0xffff);
  receiveHello("192.0.2.2");
  auto link = [&] { return router->pimStatus()->pimIntf(intf("eth0")); };
  run(100000);
  ASSERT_EQ(link()->neighborCount(), 1u);
  U32 generation = router->helloState(intf("eth0"))->generationId;
  router->clearNeighbors(intf("eth0"));
  EXPECT_EQ(link()->neighborCount(), 0u);
  EXPECT_NE(router->helloState(intf("eth0"))->generationId, generation);
  EXPECT_LE(router->helloState(intf("eth0"))->next, context.now() + 5);
  receiveHello("192.0.2.1", 50);
  EXPECT_EQ(link()->neighborCount(), 1u);
  run(60);
  EXPECT_EQ(link()->neighborCount(), 0u) << "its new holdtime counts";
  router->clearNeighbors(intf("eth7"));
}

TEST_P(ClearingTest, NeighborsThatNeverExpireAreBounded) {
  pimbsr::host::IngressSettings settings;
  settings.neighborsPerInterface = 3;
  router->ingressSettingsIs(settings);
  for (int i = 1; i <= 3; ++i) receiveHello(numbered("192.0.2.", i), 0xffff);
  auto hello = bytesOf(HelloMessage{.generationId = 1});
  EXPECT_EQ(reasonFor(hello, {"192.0.2.4"}), "neighbor-quota");
  run(106);
  EXPECT_EQ(reasonFor(hello, {"192.0.2.4"}), "");
  EXPECT_EQ(router->pimStatus()->pimIntf(intf("eth0"))->neighborCount(), 3u);
}

}  // namespace
}  // namespace test
