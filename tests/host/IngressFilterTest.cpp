#include "host/IngressFilter.h"

#include <set>
#include <string>
#include <vector>

#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::MessageKind;

class IngressFilterTest : public FilteredRouterTest {};

// Source of a packet ------------------------------------------------------------------------------------

TEST_F(IngressFilterTest, NothingIsCheckedUnlessAskedFor) {
  PacketPath far{.source = "172.16.0.1", .ttl = 64};
  rpf->neighbors[addr("10.0.0.1")] = addr("172.16.0.1");
  EXPECT_EQ(reasonFor(ordinary, far), "");
  EXPECT_EQ(reasonFor(HelloMessage{}, far), "");
  EXPECT_EQ(reasonFor(HelloMessage{}, {.destination = "192.0.2.9"}), "");
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(reasonFor(ordinary, far), "");
}

TEST_F(IngressFilterTest, PacketForAllPimRoutersHasATtlOf1) {
  router.ingressSettingsIs({.linkLocalTtl = true});
  for (int ttl : {0, 2, 64, 255}) {
    Reception reception = offer(ordinary, {.ttl = static_cast<U8>(ttl)});
    EXPECT_EQ(reception.reason, "ttl") << ttl;
    EXPECT_EQ(reception.kind, MessageKind::bootstrap);
    EXPECT_EQ(reception.source, addr("192.0.2.1"));
    EXPECT_FALSE(reception.message);
  }
  EXPECT_EQ(reasonFor(HelloMessage{}, {.ttl = 2}), "ttl");
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(Adv{}, {.source = "172.16.0.1", .destination = "192.0.2.9", .ttl = 60}),
            "not-elected-bsr");
}

TEST_F(IngressFilterTest, PacketDroppedBeforeDecodingIsOfTheKindOfItsHeader) {
  router.ingressSettingsIs({.linkLocalTtl = true});
  struct Case {
    std::vector<U8> pim;
    MessageKind kind;
  };
  for (Case const& c : {Case{bytesOf(HelloMessage{}), MessageKind::hello},
                        {bytesOf(Adv{}), MessageKind::crpAdv},
                        {{0x23, 0, 0, 0}, MessageKind::other},
                        {{0x14, 0, 0, 0}, MessageKind::malformed},
                        {{}, MessageKind::malformed}}) {
    Reception reception = router.receive(intf("eth0"), packetOf(c.pim, {.ttl = 9}));
    EXPECT_EQ(reception.reason, "ttl");
    EXPECT_EQ(reception.kind, c.kind);
  }
}

TEST_F(IngressFilterTest, BootstrapMessageIsNoLongerThanTheBound) {
  Bsm const message{.groups = {{"225.0.0.0/8", someRps(1, 20)}}};
  U32 const length = static_cast<U32>(bytesOf(message).size());
  router.ingressSettingsIs({.bsmBytes = length});
  EXPECT_EQ(reasonFor(message), "");
  router.ingressSettingsIs({.bsmBytes = length - 1});
  Reception reception = offer(message);
  EXPECT_EQ(reception.reason, "bsm-too-long");
  EXPECT_EQ(reception.kind, MessageKind::bootstrap);
  EXPECT_FALSE(reception.message) << "it was not decoded";
  router.ingressSettingsIs({.bsmBytes = 4});
  EXPECT_EQ(reasonFor(HelloMessage{}), "");
  EXPECT_EQ(reasonFor(Adv{}, {.destination = "192.0.2.9"}), "not-elected-bsr");
}

TEST_F(IngressFilterTest, HelloIsSentToAllPimRouters) {
  router.ingressSettingsIs({.linkLocalTtl = true});
  EXPECT_EQ(reasonFor(HelloMessage{}, {.destination = "192.0.2.9"}), "hello-destination");
  EXPECT_EQ(reasonFor(HelloMessage{}, {.destination = "224.0.0.1"}), "hello-destination");
  EXPECT_EQ(neighbors(), 0u);
  EXPECT_EQ(reasonFor(HelloMessage{}), "");
  EXPECT_EQ(neighbors(), 1u);
}

TEST_F(IngressFilterTest, WhatStaysOnTheLinkComesFromItsSubnet) {
  router.ingressSettingsIs({.onSubnet = true});
  PacketPath foreign{.source = "198.51.100.1"};
  EXPECT_EQ(reasonFor(ordinary, foreign), "foreign-subnet");
  EXPECT_EQ(reasonFor(HelloMessage{}, foreign), "foreign-subnet");
  EXPECT_EQ(reasonFor(Adv{}, foreign), "foreign-subnet");
  for (char const* destination : {"192.0.2.9", "224.0.0.1"}) {
    EXPECT_EQ(reasonFor(ordinary, {foreign.source, destination}), "foreign-subnet");
    EXPECT_EQ(reasonFor(HelloMessage{}, {foreign.source, destination}), "foreign-subnet");
  }
  EXPECT_EQ(neighbors(), 0u);
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(HelloMessage{}), "");
}

TEST_F(IngressFilterTest, AdvertisementForThisRouterMayComeFromAfar) {
  router.ingressSettingsIs({.linkLocalTtl = true, .onSubnet = true, .fromNeighbors = true});
  lead();
  EXPECT_EQ(reasonFor(Adv{}, {.source = "203.0.113.1", .destination = "192.0.2.9", .ttl = 60}), "");
  EXPECT_TRUE(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"))->rp(addr("203.0.113.1")));
}

TEST_F(IngressFilterTest, AdvertisementToAMulticastAddressIsDroppedWithoutBeingAsked) {
  lead();
  for (char const* destination : {"224.0.0.13", "239.1.2.3"}) {
    Reception reception = offer(Adv{}, {.source = "203.0.113.1", .destination = destination});
    EXPECT_EQ(reception.reason, "multicast-advertisement");
    EXPECT_EQ(reception.kind, MessageKind::crpAdv);
  }
  EXPECT_EQ(reasonFor(Adv{}, {.source = "203.0.113.1", .destination = "192.0.2.77"}), "");
}

TEST_F(IngressFilterTest, BootstrapMessageComesFromANeighbor) {
  router.ingressSettingsIs({.fromNeighbors = true});
  EXPECT_EQ(reasonFor(ordinary), "not-neighbor");
  EXPECT_EQ(router.status()->counters()->rx(), 0u);
  receiveHello("192.0.2.1");
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.2"}), "not-neighbor");
}

TEST_F(IngressFilterTest, NeighborOfAnotherInterfaceIsNoneHere) {
  router.ingressSettingsIs({.fromNeighbors = true});
  router.receive(intf("eth1"), packetOf(bytesOf(HelloMessage{}), {}));
  ASSERT_EQ(router.pimStatus()->pimIntf(intf("eth1"))->neighborCount(), 1u);
  EXPECT_EQ(reasonFor(ordinary), "not-neighbor");
  EXPECT_EQ(router.receive(intf("unknown"), packetOf(bytesOf(ordinary), {})).reason, "not-neighbor");
}

TEST_F(IngressFilterTest, FurtherAddressOfANeighborIsTheNeighbor) {
  router.ingressSettingsIs({.fromNeighbors = true});
  receiveHello("192.0.2.1", {addr("192.0.2.50")});
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.50"}), "not-rpf-neighbor");
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.51"}), "not-neighbor");
}

TEST_F(IngressFilterTest, NeighborThatSentAGoodbyeIsNoneAnyMore) {
  router.ingressSettingsIs({.fromNeighbors = true});
  receiveHello("192.0.2.1");
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}), "");
  EXPECT_EQ(reasonFor(ordinary), "not-neighbor");
}

TEST_F(IngressFilterTest, UnicastMessageOfANeighborIsTheGatesToCount) {
  router.ingressSettingsIs({.fromNeighbors = true});
  PacketPath unicast{.destination = "192.0.2.9"};
  EXPECT_EQ(reasonFor(ordinary, unicast), "not-neighbor");
  receiveHello("192.0.2.1");
  EXPECT_EQ(reasonFor(ordinary, unicast), "unicast-bootstrap");
}

TEST_F(IngressFilterTest, OwnMessageIsCalledOwnAndAnOwnHelloIsIgnored) {
  router.ingressSettingsIs({.onSubnet = true, .fromNeighbors = true, .neighborsPerInterface = 1});
  for (char const* own : {"192.0.2.9", "198.51.100.9"}) {
    EXPECT_EQ(reasonFor(ordinary, {own}), "own-address");
    EXPECT_EQ(reasonFor(HelloMessage{}, {own}), "");
  }
  EXPECT_EQ(neighbors(), 0u);
}

TEST_F(IngressFilterTest, OwnMessageThatIsSentBackDeposesNoBsrInTheFilter) {
  Bsm own = ordinary;
  own.bsr = "192.0.2.9";
  own.forward = false;
  router.ingressSettingsIs({.notOwnBsr = true});
  EXPECT_EQ(reasonFor(own), "own-bsr");
  EXPECT_EQ(router.status()->counters()->rx(), 0u);
  EXPECT_EQ(reasonFor(ordinary), "");
  router.ingressSettingsIs({});
  EXPECT_NE(reasonFor(own), "own-bsr");
}

// Rate of packets ---------------------------------------------------------------------------------------

TEST_F(IngressFilterTest, RateLimitGrantsASecondsWorthAtOnceAndThenTheRate) {
  router.ingressSettingsIs({.packetsPerSecond = 10});
  for (int i = 0; i < 10; ++i) EXPECT_EQ(reasonFor(ordinary), "") << i;
  Reception reception = offer(ordinary);
  EXPECT_EQ(reception.reason, "rate-limit");
  EXPECT_EQ(reception.kind, MessageKind::unread);
  context.nowIs(context.now() + 0.25);
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
  context.nowIs(context.now() + 1000);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(reasonFor(ordinary), "") << i;
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
}

TEST_F(IngressFilterTest, RateLimitIsCheckedFirstAndCountsWhateverComes) {
  router.ingressSettingsIs({.linkLocalTtl = true, .packetsPerSecond = 2});
  std::vector<U8> noise = {1, 2, 3};
  EXPECT_EQ(router.receive(intf("eth0"), noise).reason, "truncated");
  EXPECT_EQ(reasonFor(ordinary, {.ttl = 7}), "ttl");
  EXPECT_EQ(reasonFor(ordinary, {.ttl = 7}), "rate-limit");
  EXPECT_EQ(router.receive(intf("eth0"), noise).reason, "rate-limit");
}

TEST_F(IngressFilterTest, RateLimitIsOfOneInterface) {
  router.ingressSettingsIs({.packetsPerSecond = 1});
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
  EXPECT_EQ(router.receive(intf("eth1"), packetOf(bytesOf(ordinary), {})).reason, "");
}

TEST_F(IngressFilterTest, RateLimitCanBeChangedAndLifted) {
  router.ingressSettingsIs({.packetsPerSecond = 100});
  EXPECT_EQ(reasonFor(ordinary), "");
  router.ingressSettingsIs({.packetsPerSecond = 1});
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
  router.ingressSettingsIs({});
  EXPECT_EQ(reasonFor(ordinary), "");
}

TEST_F(IngressFilterTest, InterfaceThatComesBackHasItsFullGrant) {
  router.ingressSettingsIs({.packetsPerSecond = 1});
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
  router.interfaceDel(intf("eth0"));
  router.interfaceIs(intf("eth0"), 1500, {});
  EXPECT_EQ(reasonFor(ordinary), "");
}

}  // namespace
}  // namespace test
