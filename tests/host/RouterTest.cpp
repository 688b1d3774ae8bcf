#include "host/Router.h"

#include <algorithm>
#include <vector>

#include "tests/support/Engine.h"
#include "tests/support/Messages.h"
#include "tests/support/RecordingPort.h"
#include "wire/Wire.h"

namespace test {
namespace {

using pimbsr::host::MessageKind;
using pimbsr::host::Reception;
using pimbsr::host::Router;
using Zet::U8;

class RouterTest : public testing::Test {
 protected:
  RouterTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    router.interfaceIs(intf("eth0"), 1500);
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  Reception receive(std::vector<U8> const& packet) { return router.receive(intf("eth0"), packet); }
  void addNeighbor(std::string const& name) {
    router.interfaceIs(intf(name), 1500);
    router.pimStatus()->pimIntf(intf(name))->neighborIs(addr("192.0.2.1"));
  }
  void runTo(double time) {
    for (double next = router.nextExpiry(); next <= time; next = router.nextExpiry()) {
      context.nowIs(next);
      router.advance();
    }
    context.nowIs(time);
  }
  Zet::Ptr<Bsr::PimBsrCounters> counters() const { return router.status()->counters(); }

  TestContext context;
  RecordingPort port;
  Zet::Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Router router{context, port, {.rpf = rpf}};
};

std::vector<U8> packetOf(Bsm const& bsm) {
  auto message = make(bsm);
  std::vector<U8> pim;
  std::vector<U8> packet;
  EXPECT_TRUE(pimbsr::wire::encodeBootstrap(*message, pim));
  EXPECT_TRUE(
      pimbsr::wire::encodeIpv4({message->srcAddr().v4Addr(), message->dstAddr().v4Addr()}, pim, packet));
  return packet;
}

Bsm const ordinary{.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}};

TEST_F(RouterTest, AcceptedMessageReachesTheRpSetThatPimReads) {
  Reception reception = receive(packetOf(ordinary));
  EXPECT_EQ(reception.kind, MessageKind::bootstrap);
  EXPECT_TRUE(reception.accepted());
  EXPECT_EQ(reception.source, addr("192.0.2.1"));
  EXPECT_EQ(reception.destination, addr("224.0.0.13"));
  ASSERT_TRUE(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4")));
  EXPECT_EQ(router.rpCandidateStatus()->crpSet(prefix("224.0.0.0/4"))->rpCount(), 1u);
}

TEST_F(RouterTest, DropReasonOfTheEngineIsNamedByItsCounter) {
  struct Case {
    Bsm message;
    char const* reason;
  };
  Bsm wrongSource = ordinary, unicast = ordinary, strange = ordinary, late = ordinary;
  wrongSource.source = "192.0.2.2";
  unicast.destination = "192.0.2.9";
  strange.destination = "224.0.0.1";
  late.forward = false;
  context.nowIs(context.now() + 61);
  for (Case const& c : {Case{wrongSource, "not-rpf-neighbor"},
                        {unicast, "unicast-bootstrap"},
                        {strange, "bootstrap-destination"},
                        {late, "no-forward"}}) {
    Reception reception = receive(packetOf(c.message));
    EXPECT_EQ(reception.reason, c.reason);
    EXPECT_TRUE(reception.sentence.ends_with('.'));
  }
  EXPECT_EQ(counters()->rxError(), 4u);
}

TEST_F(RouterTest, BorderOfTheZoneIsNamedAsFilter) {
  router.status()->bsBorderIs(prefix("224.0.0.0/4"))->intfIdIs(intf("eth0"), true);
  EXPECT_EQ(receive(packetOf(ordinary)).reason, "border");
}

TEST_F(RouterTest, InadmissibleMessageDoesNotReachTheGate) {
  Bsm message = ordinary;
  message.hashMaskLen = 33;
  Reception reception = receive(packetOf(message));
  EXPECT_EQ(reception.reason, "hash-mask-length");
  EXPECT_EQ(reception.kind, MessageKind::bootstrap);
  EXPECT_EQ(counters()->rx(), 0u);
}

TEST_F(RouterTest, MalformedPacketIsNamedAndCountsNowhereInTheEngine) {
  std::vector<U8> packet = packetOf(ordinary);
  packet.back() ^= 1;
  Reception reception = receive(packet);
  EXPECT_EQ(reception.kind, MessageKind::malformed);
  EXPECT_EQ(reception.reason, "checksum");
  EXPECT_EQ(counters()->rx(), 0u);
}

TEST_F(RouterTest, PacketThatIsNotPimIsLeftAlone) {
  std::vector<U8> packet = packetOf(ordinary);
  packet[9] = 17;
  Reception reception = receive(packet);
  EXPECT_EQ(reception.kind, MessageKind::notPim);
  EXPECT_TRUE(reception.accepted());
}

TEST_F(RouterTest, HelloAndJoinAreDistinguished) {
  std::vector<U8> pim;
  std::vector<U8> packet;
  pimbsr::wire::encodeHello({}, pim);
  ASSERT_TRUE(
      pimbsr::wire::encodeIpv4({addr("192.0.2.1").v4Addr(), addr("224.0.0.13").v4Addr()}, pim, packet));
  EXPECT_EQ(receive(packet).kind, MessageKind::hello);
  packet[20] = 0x23;
  EXPECT_EQ(receive(packet).kind, MessageKind::other);
}

TEST_F(RouterTest, MessageIsForwardedFromThePrimaryAddressToAllPimRouters) {
  addNeighbor("eth1");
  receive(packetOf(ordinary));
  ASSERT_EQ(port.sent.size(), 1u);
  EXPECT_EQ(port.sent[0].intf, "eth1");
  auto ip = pimbsr::wire::parseIpv4(port.sent[0].bytes);
  ASSERT_TRUE(ip);
  EXPECT_EQ(ip->source, addr("198.51.100.9").v4Addr());
  EXPECT_EQ(ip->destination, addr("224.0.0.13").v4Addr());
  EXPECT_EQ(ip->ttl, 1);
  EXPECT_EQ(ip->tos, 0xc0);
  EXPECT_EQ(counters()->txSuccess(), 1u);
}

TEST_F(RouterTest, SendThatFailsIsCounted) {
  addNeighbor("eth1");
  addNeighbor("unnumbered");
  port.fails = true;
  receive(packetOf(ordinary));
  EXPECT_EQ(counters()->tx(), 2u);
  EXPECT_EQ(counters()->txError(), 2u);
  EXPECT_EQ(counters()->txSuccess(), 0u);
}

TEST_F(RouterTest, TimersRunAtTheContextsTime) {
  receive(packetOf(ordinary));
  double expiry = context.now() + 130;
  runTo(expiry - 1);
  EXPECT_TRUE(router.status()->bootstrapRouter(prefix("224.0.0.0/4")));
  EXPECT_EQ(router.nextExpiry(), expiry);
  runTo(expiry);
  EXPECT_FALSE(router.status()->bootstrapRouter(prefix("224.0.0.0/4")));
}

TEST_F(RouterTest, TimeoutsWithoutConfigurationComeFromTheOptions) {
  Router slow(context, port, {.bsTimeout = 500, .szTimeout = 5000, .rpf = rpf});
  EXPECT_EQ(slow.status()->bsTimeout(), 500u);
  EXPECT_EQ(slow.status()->szTimeout(), 5000u);
  EXPECT_EQ(router.status()->bsTimeout(), 130u);
  EXPECT_EQ(router.status()->szTimeout(), 1300u);
}

TEST_F(RouterTest, RemovedInterfaceIsForgotten) {
  addNeighbor("eth1");
  router.interfaceDel(intf("eth1"));
  receive(packetOf(ordinary));
  EXPECT_TRUE(port.sent.empty());
}

TEST_F(RouterTest, TakingDownSendsNothing) {
  {
    Router brief(context, port, {.rpf = rpf});
    brief.interfaceIs(intf("eth1"), 1500);
    brief.pimStatus()->pimIntf(intf("eth1"))->neighborIs(addr("192.0.2.1"));
    brief.receive(intf("eth1"), packetOf(ordinary));
    EXPECT_EQ(port.sent.size(), 1u);
  }
  EXPECT_EQ(port.sent.size(), 1u);
}

TEST_F(RouterTest, ClearedCountersCountFromZeroForBothGates) {
  receive(packetOf(ordinary));
  EXPECT_EQ(counters()->rxBsmSuccess(), 1u);
  router.clearCounters();
  EXPECT_EQ(counters()->rxBsmSuccess(), 0u);
  receive(packetOf(ordinary));
  EXPECT_EQ(counters()->rxBsmSuccess(), 1u);
  EXPECT_EQ(counters()->rx(), 1u);
}

}  // namespace
}  // namespace test
