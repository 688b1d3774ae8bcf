#include "host/BsmPolicy.h"

#include <set>

#include "host/LastMessages.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::AddressLists;
using pimbsr::host::allCorrections;
using pimbsr::host::BsmPolicy;

constexpr char const* zone = "239.1.0.0/16";

/// Keeps the interfaces along which Bootstrap Messages leave.
class IntfPort : public SubnetPort {
 public:
  bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) override {
    auto ip = pimbsr::wire::parseIpv4(packet);
    if (ip && (ip->payload[0] & 0x0f) == 4) sentOn.insert(intfId);
    return SubnetPort::send(intfId, packet);
  }
  std::set<Lanet::IntfId> sentOn;
};

/// A router with a neighbor on eth0 and on eth1, with all corrections and without.
class BsmPolicyTest : public testing::TestWithParam<bool> {
 protected:
  BsmPolicyTest() {
    rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
    rpf->neighbors[addr("10.0.0.2")] = addr("192.0.2.1");
    if (GetParam()) router.correctionsAre(allCorrections);
    for (char const* name : {"eth0", "eth1"}) {
      router.interfaceIs(intf(name), 1500, {});
      receiveHello(name);
    }
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  void receiveHello(std::string const& name) {
    std::string source = name == "eth0" ? "192.0.2.1" : "198.51.100.1";
    router.receive(intf(name), packetOf(bytesOf(HelloMessage{.generationId = 1}), {source}));
  }
  std::string reasonFor(Bsm const& message, std::string const& intfName = "eth0") {
    port.sentOn.clear();
    return std::string(router.receive(intf(intfName), packetOf(bytesOf(message), {message.source})).reason);
  }
  /// A list that permits one prefix.
  AddressLists permitting(std::string const& senders) const {
    pimbsr::host::Configuration configuration;
    Acl::IpRuleConfig rule{Acl::Action::permit, {}};
    rule.filter.source = prefix(senders).address().v4Addr();
    rule.filter.sourceMask = Lanet::IpAddr::fromHost(~0u << (32 - prefix(senders).length()));
    configuration.accessLists["bsrs"][10] = rule;
    return AddressLists(configuration, {"bsrs"});
  }
  bool isKnown() const { return router.status()->bootstrapRouter(prefix(zone)) != nullptr; }
  void run(double seconds) {
    double end = context.now() + seconds;
    for (double next = router.nextExpiry(); next <= end; next = router.nextExpiry()) {
      context.nowIs(next);
      router.advance();
    }
    context.nowIs(end);
  }

  TestContext context;
  IntfPort port;
  Zet::Ptr<RpfTable> rpf = Zet::make<RpfTable>();
  Router router{context, port, {.rpf = rpf}};
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutCorrections, BsmPolicyTest, testing::Bool(),
                         [](auto const& tested) { return tested.param ? "Corrected" : "Plain"; });

Bsm from(std::string const& bsr) { return {.bsr = bsr, .groups = {{zone, {{"10.1.0.1"}}, scopedFlag}}}; }

TEST_P(BsmPolicyTest, MessagesOfABsrThatIsNotPermittedAreDropped) {
  router.bsmPolicyIs({.bsrs = permitting("10.0.0.2/32")});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "bsr-filter");
  Bsm noForward = from("10.0.0.1");
  noForward.forward = false;
  EXPECT_EQ(reasonFor(noForward), "bsr-filter") << "at the start too, when No-Forward messages are taken";
  EXPECT_FALSE(isKnown());
  EXPECT_EQ(reasonFor(from("10.0.0.2")), "");
  EXPECT_TRUE(isKnown());
  router.bsmPolicyIs({});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
}

TEST_P(BsmPolicyTest, ABsrThatWasFilteredAndClearedDoesNotComeBack) {
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  router.bsmPolicyIs({.bsrs = permitting("10.0.0.2/32")});
  EXPECT_TRUE(isKnown()) << "a filter forgets nothing";
  router.clearBsr(prefix(zone));
  for (bool forward : {true, false}) {
    Bsm message = from("10.0.0.1");
    message.forward = forward;
    EXPECT_EQ(reasonFor(message), "bsr-filter");
    EXPECT_FALSE(isKnown());
  }
}

TEST_P(BsmPolicyTest, AnEmptyListPermitsAll) {
  router.bsmPolicyIs({.bsrs = AddressLists(pimbsr::host::Configuration(), {"absent"})});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
}

TEST_P(BsmPolicyTest, AClosedInterfaceTakesAndSendsNoBootstrapMessages) {
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  EXPECT_EQ(port.sentOn, (std::set{intf("eth0"), intf("eth1")}));
  router.bsmPolicyIs({.closed = {intf("eth1")}});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  EXPECT_EQ(port.sentOn, std::set{intf("eth0")});
  Bsm other = from("10.0.0.1");
  other.source = "198.51.100.1";
  EXPECT_EQ(reasonFor(other, "eth1"), "bsm-off");
  EXPECT_TRUE(router.pimStatus()->pimIntf(intf("eth1"))->neighbor(addr("198.51.100.1"))) << "Hellos stay";
}

TEST_P(BsmPolicyTest, ANewNeighborOnAClosedInterfaceGetsNothing) {
  router.bsmPolicyIs({.closed = {intf("eth1")}});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  run(6);
  port.sentOn.clear();
  auto hello = bytesOf(HelloMessage{.drPriority = 0, .generationId = 1});
  router.receive(intf("eth1"), packetOf(hello, {"198.51.100.2"}));
  run(6);
  EXPECT_EQ(port.sentOn, std::set<Lanet::IntfId>());
}

TEST_P(BsmPolicyTest, AnElectedBsrSendsNothingAlongAClosedInterface) {
  router.bsmPolicyIs({.closed = {intf("eth1")}});
  router.candidateBsrIs(prefix(zone), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
  run(60);
  EXPECT_EQ(port.sentOn, std::set{intf("eth0")});
}

TEST_P(BsmPolicyTest, WhatWasLearnedOverAnInterfaceIsForgottenWhenItIsClosed) {
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  router.bsmPolicyIs({.closed = {intf("eth1")}});
  EXPECT_TRUE(isKnown());
  router.bsmPolicyIs({.closed = {intf("eth0"), intf("eth1")}});
  EXPECT_FALSE(isKnown());
  EXPECT_FALSE(router.status()->crpStatus(prefix(zone)));
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "bsm-off");
  router.bsmPolicyIs({});
  EXPECT_EQ(reasonFor(from("10.0.0.1")), "");
  EXPECT_TRUE(isKnown());
}

TEST_P(BsmPolicyTest, TheLastMessageOfAZoneIsNotedWithItsNeighbor) {
  EXPECT_FALSE(router.lastMessages().find(prefix(zone)));
  Bsm message = from("10.0.0.1");
  message.tag = 77;
  EXPECT_EQ(reasonFor(message), "");
  auto const* last = router.lastMessages().find(prefix(zone));
  ASSERT_TRUE(last);
  EXPECT_EQ(last->intfId, intf("eth0"));
  EXPECT_EQ(last->sender, addr("192.0.2.1"));
  EXPECT_EQ(last->fragmentTag, 77);
  EXPECT_EQ(last->time, context.now());
}

}  // namespace
}  // namespace test
