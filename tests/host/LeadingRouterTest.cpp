#include <algorithm>
#include <vector>

#include "host/Router.h"
#include "host/RpSweep.h"
#include "tests/support/CrpEngine.h"
#include "tests/support/RecordingPort.h"
#include "wire/Wire.h"

namespace test {
namespace {

using pimbsr::host::MessageKind;
using pimbsr::host::Reception;
using pimbsr::host::Router;
using pimbsr::wire::DecodedMessage;
using Slosh::Fib::RouteType;
using Zet::Ptr;
using Zet::U8;

std::vector<U8> ipPacket(std::string const& source, std::string const& destination,
                         std::vector<U8> const& pim) {
  std::vector<U8> packet;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({addr(source).v4Addr(), addr(destination).v4Addr()}, pim, packet));
  return packet;
}

std::vector<U8> packetOf(Adv const& message) {
  std::vector<U8> pim;
  EXPECT_TRUE(pimbsr::wire::encodeCrpAdv(*make(message), pim));
  return ipPacket(message.source, message.bsr, pim);
}

std::vector<U8> helloFrom(std::string const& source, Zet::U32 generation, Zet::U16 holdtime = 105) {
  std::vector<U8> pim;
  pimbsr::wire::encodeHello({.holdtime = holdtime, .drPriority = 1, .generationId = generation}, pim);
  return ipPacket(source, "224.0.0.13", pim);
}

/// Keeps the drops of a router's own advertisements.
struct OwnDrops : pimbsr::host::OwnDropSink {
  void onOwnDrop(Reception const& reception) override { all.push_back(reception); }
  std::vector<Reception> all;
};

/// A router with two interfaces that speak Hello, 192.0.2.9 on eth0 and 198.51.100.9 on eth1, driven by hand.
class LeadingRouter : public testing::Test {
 protected:
  LeadingRouter() {
    for (char const* name : {"eth0", "eth1"}) router->interfaceIs(intf(name), 1500, {});
    router->routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = RouteType::local});
    router->routeIs(prefix("192.0.2.0/24").v4Prefix(), {RouteType::connected, intf("eth0"), {}, 0});
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  void run(double seconds) {
    double end = context.now() + seconds;
    for (double next = router->nextExpiry(); next <= end; next = router->nextExpiry()) {
      context.nowIs(next);
      router->advance();
    }
    context.nowIs(end);
  }
  Reception receive(std::vector<U8> const& packet) { return router->receive(intf("eth0"), packet); }
  void lead(std::string const& zone = "224.0.0.0/4") {
    router->candidateBsrIs(prefix(zone), {.address = addr("192.0.2.9"), .intfId = intf("eth0")});
    run(200);
    ASSERT_TRUE(router->status()->cbsr(prefix(zone))->elected());
  }
  void offerRp(std::string const& range, Zet::U32 priority = 10) {
    router->candidateRpIs(prefix(range),
                          {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = priority});
  }
  Ptr<Routing::Pim::RpCandidate> rp(std::string const& range, std::string const& address) const {
    auto set = router->rpCandidateStatus()->crpSet(prefix(range));
    return set ? set->rp(addr(address)) : nullptr;
  }
  /// The messages that left, decoded, and none of them later seen again.
  std::vector<DecodedMessage> takeSent() {
    std::vector<DecodedMessage> messages;
    for (RecordingPort::Packet const& packet : port.sent) {
      auto ip = pimbsr::wire::parseIpv4(packet.bytes);
      messages.push_back(*pimbsr::wire::decodeMessage(ip->payload, ip->source, ip->destination));
    }
    port.sent.clear();
    return messages;
  }
  template <class T>
  std::vector<T> takeSent() {
    std::vector<T> found;
    for (DecodedMessage const& message : takeSent()) {
      if (auto const* wanted = std::get_if<T>(&message)) found.push_back(*wanted);
    }
    return found;
  }

  TestContext context;
  RecordingPort port;
  OwnDrops ownDrops;
  std::unique_ptr<Router> router =
      std::make_unique<Router>(context, port, pimbsr::host::RouterOptions{.ownDrops = &ownDrops});
};

using BsmPtr = Ptr<Routing::Pim::Packet::BootstrapMessage>;
using AdvPtr = Ptr<Routing::Pim::Packet::CrpAdvMessage>;
using pimbsr::wire::HelloMessage;

// Hello and RPF ---------------------------------------------------------------------------------------

TEST_F(LeadingRouter, EveryInterfaceSpeaksHelloSoonAfterTheStart) {
  run(5);
  EXPECT_EQ(takeSent<HelloMessage>().size(), 2u);
}

TEST_F(LeadingRouter, HelloMakesANeighborAndGoodbyeEndsIt) {
  EXPECT_EQ(receive(helloFrom("192.0.2.1", 7)).kind, MessageKind::hello);
  auto eth0 = router->pimStatus()->pimIntf(intf("eth0"));
  EXPECT_TRUE(eth0->neighbor(addr("192.0.2.1")));
  receive(helloFrom("192.0.2.1", 7, 0));
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.1")));
}

TEST_F(LeadingRouter, InterfaceWithoutHelloTakesNone) {
  router->interfaceIs(intf("eth2"), 1500);
  router->receive(intf("eth2"), helloFrom("203.0.113.1", 7));
  EXPECT_FALSE(router->helloState(intf("eth2")));
  EXPECT_EQ(router->pimStatus()->pimIntf(intf("eth2"))->neighborCount(), 0u);
}

TEST_F(LeadingRouter, NeighborTowardsTheBsrComesFromRoutesAndHellos) {
  Bsm message{.bsr = "192.0.2.1", .groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}};
  std::vector<U8> pim;
  ASSERT_TRUE(pimbsr::wire::encodeBootstrap(*make(message), pim));
  std::vector<U8> packet = ipPacket(message.source, "224.0.0.13", pim);
  EXPECT_EQ(receive(packet).reason, "no-rpf-neighbor");
  receive(helloFrom("192.0.2.1", 7));
  EXPECT_EQ(receive(packet).reason, "");
  receive(helloFrom("192.0.2.2", 7));
  EXPECT_EQ(receive(ipPacket("192.0.2.2", "224.0.0.13", pim)).reason, "not-rpf-neighbor");
  router->routeDel(prefix("192.0.2.0/24").v4Prefix());
  EXPECT_EQ(receive(packet).reason, "no-rpf-neighbor");
}

TEST_F(LeadingRouter, ChangedAddressTriggersAHelloWithANewGeneration) {
  run(10);
  Zet::U32 before = router->helloState(intf("eth0"))->generationId;
  takeSent();
  port.addresses["eth0"] = "192.0.2.19";
  router->handleAddressChange(intf("eth0"));
  router->handleAddressChange(intf("eth9"));
  EXPECT_NE(router->helloState(intf("eth0"))->generationId, before);
  run(5);
  EXPECT_EQ(takeSent<HelloMessage>().size(), 2u);
}

TEST_F(LeadingRouter, RemovedInterfaceSpeaksNoMore) {
  run(6);
  takeSent();
  router->interfaceDel(intf("eth1"));
  EXPECT_FALSE(router->helloState(intf("eth1")));
  run(30);
  EXPECT_EQ(takeSent<HelloMessage>().size(), 1u);
}

// Candidacies -----------------------------------------------------------------------------------------

TEST_F(LeadingRouter, CandidateBsrElectsItselfAndFloods) {
  receive(helloFrom("192.0.2.1", 7));
  lead();
  auto elected = router->status()->bootstrapRouter(prefix("224.0.0.0/4"));
  EXPECT_EQ(elected->ipAddr(), addr("192.0.2.9"));
  EXPECT_EQ(elected->priority(), 64u);
  EXPECT_FALSE(takeSent<BsmPtr>().empty());
}

TEST_F(LeadingRouter, OwnCandidateRpReachesTheOwnRpSetWithoutAPacket) {
  lead();
  takeSent();
  offerRp("239.1.0.0/16");
  run(5);
  ASSERT_TRUE(rp("239.1.0.0/16", "192.0.2.9"));
  EXPECT_EQ(rp("239.1.0.0/16", "192.0.2.9")->priority().value(), 10u);
  EXPECT_TRUE(takeSent<AdvPtr>().empty());
}

TEST_F(LeadingRouter, OwnAdvertisementThatItsFilterDropsIsReported) {
  lead();
  router->permitIs(prefix("10.0.0.0/8"));
  offerRp("239.1.0.0/16");
  run(5);
  EXPECT_FALSE(rp("239.1.0.0/16", "192.0.2.9"));
  ASSERT_FALSE(ownDrops.all.empty());
  Reception const& dropped = ownDrops.all.front();
  EXPECT_EQ(dropped.kind, MessageKind::crpAdv);
  EXPECT_EQ(dropped.reason, "sender-filter");
  EXPECT_EQ(dropped.source, addr("192.0.2.9"));
  ASSERT_TRUE(dropped.message);
}

TEST_F(LeadingRouter, DropOfAPacketIsNoOwnDrop) {
  EXPECT_EQ(receive(packetOf(Adv{.bsr = "192.0.2.9"})).reason, "not-elected-bsr");
  EXPECT_TRUE(ownDrops.all.empty());
}

TEST_F(LeadingRouter, WithdrawnRangeLeavesTheRpSetWithTheNextMessage) {
  lead();
  offerRp("239.1.0.0/16", 10);
  offerRp("239.2.0.0/16", 20);
  run(15);
  auto withdraw = [this](char const* range) {
    router->candidateRpDel(prefix(range), addr("192.0.2.9"));
    EXPECT_EQ(rp(range, "192.0.2.9")->holdTime().value(), 0u);
    run(10);
    EXPECT_FALSE(rp(range, "192.0.2.9"));
  };
  withdraw("239.1.0.0/16");
  EXPECT_TRUE(rp("239.2.0.0/16", "192.0.2.9"));
  EXPECT_TRUE(router->status()->crp(addr("192.0.2.9")));
  withdraw("239.2.0.0/16");
  EXPECT_FALSE(router->status()->crp(addr("192.0.2.9")));
  router->candidateRpDel(prefix("239.2.0.0/16"), addr("192.0.2.9"));
}

TEST_F(LeadingRouter, AdvertisementOfAnotherRouterIsTakenOnlyIfItIsForThisOne) {
  lead();
  EXPECT_TRUE(receive(packetOf(Adv{.bsr = "192.0.2.8"})).accepted());
  EXPECT_EQ(router->status()->counters()->rxCrpAdv(), 0u);
  EXPECT_TRUE(receive(packetOf(Adv{.bsr = "192.0.2.9"})).accepted());
  EXPECT_EQ(router->status()->counters()->rxCrpAdv(), 1u);
  EXPECT_TRUE(rp("224.0.0.0/4", "203.0.113.1"));
}

TEST_F(LeadingRouter, AdvertisementWithoutRangesStandsForAllGroups) {
  lead();
  EXPECT_TRUE(receive(packetOf(Adv{.groups = {}, .bsr = "192.0.2.9"})).accepted());
  EXPECT_TRUE(rp("224.0.0.0/4", "203.0.113.1"));
}

TEST_F(LeadingRouter, InadmissibleAdvertisementDoesNotReachTheGate) {
  lead();
  EXPECT_EQ(receive(packetOf(Adv{.holdtime = 40959, .bsr = "192.0.2.9"})).reason, "holdtime");
  EXPECT_EQ(router->status()->counters()->rxCrpAdv(), 0u);
}

TEST_F(LeadingRouter, AdvertisementToARouterThatIsNotElectedIsDropped) {
  Reception reception = receive(packetOf(Adv{.bsr = "192.0.2.9"}));
  EXPECT_EQ(reception.reason, "not-elected-bsr");
  EXPECT_EQ(reception.sentence, "This router is not the elected BSR for a range of the advertisement.");
  lead("239.1.0.0/16");
  Adv halfOfIt{.groups = {{"239.1.2.0/24"}, {"239.2.0.0/16"}}, .bsr = "192.0.2.9"};
  EXPECT_EQ(receive(packetOf(halfOfIt)).reason, "not-elected-bsr");
  EXPECT_TRUE(rp("239.1.2.0/24", "203.0.113.1"));
}

TEST_F(LeadingRouter, EverySenderIsPermittedUntilOneIsNamed) {
  lead();
  Adv adv{.bsr = "192.0.2.9"};
  EXPECT_TRUE(receive(packetOf(adv)).accepted());
  router->permitIs(prefix("10.0.0.0/8"));
  Reception dropped = receive(packetOf(adv));
  EXPECT_EQ(dropped.reason, "sender-filter");
  EXPECT_EQ(dropped.sentence, "The sender of the advertisement is not among the permitted ones.");
  router->permitIs(prefix("203.0.113.0/24"));
  EXPECT_TRUE(receive(packetOf(adv)).accepted());
  router->permitDel(prefix("203.0.113.0/24"));
  EXPECT_EQ(receive(packetOf(adv)).reason, "sender-filter");
  router->permitDel(prefix("10.0.0.0/8"));
  EXPECT_TRUE(receive(packetOf(adv)).accepted());
}

TEST_F(LeadingRouter, EverySenderMayBeNamedToo) {
  lead();
  for (char const* named : {"0.0.0.0/0", "10.0.0.0/8"}) router->permitIs(prefix(named));
  EXPECT_TRUE(receive(packetOf(Adv{.bsr = "192.0.2.9"})).accepted());
  router->permitDel(prefix("0.0.0.0/0"));
  EXPECT_EQ(receive(packetOf(Adv{.bsr = "192.0.2.9"})).reason, "sender-filter");
  router->permitDel(prefix("10.0.0.0/8"));
  router->permitIs(prefix("0.0.0.0/0"));
  router->permitDel(prefix("0.0.0.0/0"));
  EXPECT_TRUE(receive(packetOf(Adv{.bsr = "192.0.2.9"})).accepted());
}

TEST_F(LeadingRouter, BorderComesAndGoes) {
  Lanet::IpGenPrefix zone = prefix("239.255.0.0/16");
  for (char const* name : {"eth0", "eth1"}) router->borderIs(zone, intf(name), true);
  router->borderIs(zone, intf("eth0"), false);
  EXPECT_FALSE(router->status()->bsBorder(zone)->intfId(intf("eth0")));
  EXPECT_TRUE(router->status()->bsBorder(zone)->intfId(intf("eth1")));
  router->borderIs(zone, intf("eth1"), false);
  EXPECT_FALSE(router->status()->bsBorder(zone));
  router->borderIs(zone, intf("eth1"), false);
}

// The end ---------------------------------------------------------------------------------------------

TEST_F(LeadingRouter, GoodbyeEndsCandidaciesBeforeTheHellos) {
  receive(helloFrom("192.0.2.1", 7));
  lead();
  offerRp("239.1.0.0/16");
  run(10);
  receive(helloFrom("192.0.2.1", 7));
  takeSent();
  router->sendGoodbyes();
  std::vector<DecodedMessage> messages = takeSent();
  ASSERT_GE(messages.size(), 3u);
  auto isHello = [](DecodedMessage const& m) { return std::holds_alternative<HelloMessage>(m); };
  EXPECT_TRUE(std::is_partitioned(messages.begin(), messages.end(), [&](auto& m) { return !isHello(m); }));
  ASSERT_TRUE(std::holds_alternative<BsmPtr>(messages[messages.size() - 3]));
  EXPECT_EQ(std::get<BsmPtr>(messages[messages.size() - 3])->bsrPriority(), 0u);
  EXPECT_EQ(std::get<HelloMessage>(messages.back()).holdtime, 0u);
}

TEST_F(LeadingRouter, LossOfPowerSaysNothing) {
  receive(helloFrom("192.0.2.1", 7));
  lead();
  offerRp("239.1.0.0/16");
  run(10);
  takeSent();
  router = nullptr;
  EXPECT_TRUE(port.sent.empty());
}

// The sweep -------------------------------------------------------------------------------------------

TEST_F(LeadingRouter, ExpiredRpThatNoZoneHoldsIsSweptWithinAMinute) {
  auto set = router->rpCandidateStatus()->crpSetIs(prefix("239.1.0.0/16"));
  set->rpIs(addr("203.0.113.1"))->expiresIs(context.now() + 90);
  set->rpIs(addr("203.0.113.2"))->expiresIs(context.now() + 900);
  run(89);
  EXPECT_TRUE(rp("239.1.0.0/16", "203.0.113.1"));
  run(61);
  EXPECT_FALSE(rp("239.1.0.0/16", "203.0.113.1"));
  EXPECT_TRUE(rp("239.1.0.0/16", "203.0.113.2"));
  run(900);
  EXPECT_EQ(router->rpCandidateStatus()->crpSetCount(), 0u);
}

TEST_F(LeadingRouter, RpThatAZoneStillHoldsIsLeftAlone) {
  Lanet::IpGenPrefix range = prefix("239.1.0.0/16");
  auto zone = router->status()->crpStatusIs(prefix("224.0.0.0/4"))->statusIs("");
  auto set = zone->crpSetIs(range);
  set->rpIs(addr("203.0.113.1"));
  router->rpCandidateStatus()->crpSetIs(range)->rpIs(addr("203.0.113.1"))->expiresIs(context.now() + 1);
  run(600);
  EXPECT_TRUE(rp("239.1.0.0/16", "203.0.113.1"));
  set->rpDel(addr("203.0.113.1"));
  run(61);
  EXPECT_FALSE(rp("239.1.0.0/16", "203.0.113.1"));
}

TEST_F(LeadingRouter, EmptyRangeStaysForAsLongAsAZoneHoldsIt) {
  Lanet::IpGenPrefix range = prefix("239.1.0.0/16");
  auto zone = router->status()->crpStatusIs(prefix("224.0.0.0/4"))->statusIs("");
  zone->crpSetIs(range);
  router->rpCandidateStatus()->crpSetIs(range);
  run(61);
  EXPECT_TRUE(router->rpCandidateStatus()->crpSet(range));
  zone->crpSetDel(range);
  run(61);
  EXPECT_FALSE(router->rpCandidateStatus()->crpSet(range));
}

TEST(RpSweepTest, RestsWhileThereIsNothingToSweep) {
  TestContext context;
  RecordingPort port;
  Router router(context, port);
  EXPECT_EQ(router.nextExpiry(), Kiv::never);
  auto set = router.rpCandidateStatus()->crpSetIs(prefix("239.1.0.0/16"));
  EXPECT_EQ(router.nextExpiry(), context.now() + pimbsr::host::RpSweep::period);
  set->rpIs(addr("203.0.113.1"))->expiresIs(context.now() + 1);
  context.nowIs(router.nextExpiry());
  router.advance();
  EXPECT_EQ(router.rpCandidateStatus()->crpSetCount(), 0u);
  EXPECT_EQ(router.nextExpiry(), Kiv::never);
}

}  // namespace
}  // namespace test
