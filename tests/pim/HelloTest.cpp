#include "pim/HelloSm.h"

#include "tests/support/RecordingPort.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using pimbsr::pim::HelloSm;
using pimbsr::pim::LinkNeighbors;
using pimbsr::wire::HelloMessage;

class HelloTest : public ModelTest {
 protected:
  HelloMessage from(std::string const& address, Zet::U32 generation = 1) {
    return {.srcAddr = addr(address), .drPriority = 1, .generationId = generation};
  }
  void runTo(double seconds) {
    double end = start + seconds;
    for (double next = wheel->nextExpiry(); next <= end; next = wheel->nextExpiry()) {
      context.nowIs(next);
      wheel->advance(Zet::now());
    }
    context.nowIs(end);
  }
  /// The Hellos sent so far, decoded.
  std::vector<HelloMessage> hellos() {
    std::vector<HelloMessage> all;
    for (auto const& packet : port.sent) {
      auto ip = pimbsr::wire::parseIpv4(packet.bytes);
      auto one = pimbsr::wire::decodeHello(ip->payload, ip->source, ip->destination);
      EXPECT_TRUE(one);
      if (one) all.push_back(*one);
    }
    return all;
  }

  double start = Zet::now();
  RecordingPort port;
  Zet::Ptr<Kiv::TimerWheel> wheel = Zet::make<Kiv::TimerWheel>();
  Zet::Ptr<Routing::Pim::Status> pim = Routing::Pim::statusFactory("pim");
  Zet::Ptr<Routing::Pim::Intf> eth0 = pim->pimIntfIs(intf("eth0"));
  Zet::Ptr<LinkNeighbors> neighbors = Zet::make<LinkNeighbors>(eth0);
  /// Random numbers for the machine below: the halves of its generation, then no delay.
  bool prepared = (context.randoms = {7, 7, 0}, true);
  HelloSm hello{neighbors, wheel, port, {}};
};

TEST_F(HelloTest, FirstHelloLeavesWithinTheTriggeredDelayAndThenEveryPeriod) {
  context.randoms = {0, 0, RAND_MAX};
  HelloSm late(neighbors, wheel, port, {});
  EXPECT_GT(late.nextHello(), start + 4.9);
  EXPECT_LE(late.nextHello(), start + 5.0);
  EXPECT_EQ(hello.nextHello(), start);
  runTo(0);
  EXPECT_EQ(hello.nextHello(), start + 30);
}

TEST_F(HelloTest, HelloCarriesHoldtimePriorityAndGenerationFromThePrimaryAddress) {
  runTo(0);
  ASSERT_EQ(hellos().size(), 1u);
  EXPECT_EQ(hellos()[0].srcAddr, addr("192.0.2.9"));
  EXPECT_EQ(hellos()[0].dstAddr, addr("224.0.0.13"));
  EXPECT_EQ(hellos()[0].holdtime, 105);
  EXPECT_EQ(hellos()[0].drPriority, 1u);
  EXPECT_EQ(hellos()[0].generationId, hello.generationId());
}

TEST_F(HelloTest, NewNeighborTriggersAHelloWhichRaisesTheCount) {
  runTo(10);
  EXPECT_EQ(eth0->triggeredHelloCount(), 0u);
  context.randoms = {RAND_MAX / 5};
  hello.receive(from("192.0.2.1"));
  EXPECT_NEAR(hello.nextHello(), start + 11, 0.01);
  runTo(12);
  EXPECT_EQ(hellos().size(), 2u);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
  runTo(120);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
}

TEST_F(HelloTest, KnownNeighborTriggersNothingButANewGenerationDoes) {
  hello.receive(from("192.0.2.1", 1));
  runTo(6);
  hello.receive(from("192.0.2.1", 1));
  runTo(12);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
  hello.receive(from("192.0.2.1", 2));
  runTo(18);
  EXPECT_EQ(eth0->triggeredHelloCount(), 2u);
}

TEST_F(HelloTest, OneTriggeredHelloAnswersAllNewGenerationsBeforeIt) {
  runTo(10);
  context.randoms.assign(1000, RAND_MAX / 5);
  for (Zet::U32 generation = 1; generation <= 1000; ++generation) {
    hello.receive(from("192.0.2.1", generation));
    context.nowIs(context.now() + 0.0001);
  }
  runTo(20);
  EXPECT_EQ(hellos().size(), 2u);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
}

TEST_F(HelloTest, TriggeredHelloPostponesNoneThatIsDueBefore) {
  runTo(29);
  context.randoms = {RAND_MAX};
  hello.receive(from("192.0.2.1"));
  EXPECT_EQ(hello.nextHello(), start + 30);
  runTo(30);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
  EXPECT_EQ(hello.nextHello(), start + 60);
}

TEST_F(HelloTest, NeighborWithoutAGenerationTriggersOnceAndAgainAfterItExpired) {
  HelloMessage plain{.srcAddr = addr("192.0.2.1")};
  hello.receive(plain);
  hello.receive(plain);
  runTo(10);
  hello.receive(plain);
  runTo(100);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
  runTo(115);
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.1")));
  hello.receive(plain);
  runTo(120);
  EXPECT_EQ(eth0->triggeredHelloCount(), 2u);
}

TEST_F(HelloTest, HelloThatCannotBeSentRaisesNoCount) {
  port.fails = true;
  hello.receive(from("192.0.2.1"));
  runTo(6);
  EXPECT_EQ(eth0->triggeredHelloCount(), 0u);
  port.fails = false;
  runTo(40);
  EXPECT_EQ(eth0->triggeredHelloCount(), 1u);
}

TEST_F(HelloTest, NeighborExpiresAfterItsHoldtimeUnlessRenewed) {
  HelloMessage brief = from("192.0.2.1");
  brief.holdtime = 20;
  hello.receive(brief);
  EXPECT_EQ(eth0->neighbor(addr("192.0.2.1"))->expiryTime(), start + 20);
  runTo(19);
  hello.receive(brief);
  runTo(38.9);
  EXPECT_TRUE(eth0->neighbor(addr("192.0.2.1")));
  runTo(39);
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.1")));
}

TEST_F(HelloTest, HoldtimeForEverNeverExpiresAndHoldtimeZeroIsAGoodbye) {
  HelloMessage lasting = from("192.0.2.1");
  lasting.holdtime = 0xffff;
  hello.receive(lasting);
  runTo(100000);
  EXPECT_TRUE(eth0->neighbor(addr("192.0.2.1")));
  HelloMessage goodbye = from("192.0.2.1");
  goodbye.holdtime = 0;
  hello.receive(goodbye);
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.1")));
  hello.receive(goodbye);
  EXPECT_EQ(eth0->neighborCount(), 0u);
}

TEST_F(HelloTest, NeighborThatIsDisplacedFromAFullTableEndsLikeAnExpiredOne) {
  neighbors->maxAddressesIs(1);
  HelloMessage displaced = from("192.0.2.10");
  displaced.holdtime = 300;
  hello.receive(displaced);
  EXPECT_EQ(eth0->drAddress(), addr("192.0.2.10"));
  runTo(106);
  hello.receive(from("192.0.2.1"));
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.10")));
  EXPECT_TRUE(eth0->iAmDr());

  HelloMessage goodbye = from("192.0.2.1");
  goodbye.holdtime = 0;
  hello.receive(goodbye);
  displaced.holdtime = 0xffff;
  hello.receive(displaced);
  runTo(1000);
  EXPECT_TRUE(eth0->neighbor(addr("192.0.2.10"))) << "its first holdtime is over";
}

TEST_F(HelloTest, NeighborThatTheHostAddedIsNeverDisplaced) {
  eth0->neighborIs(addr("192.0.2.10"));
  neighbors->maxAddressesIs(1);
  runTo(1000);
  EXPECT_FALSE(neighbors->displacedBy(from("192.0.2.1")));
  EXPECT_TRUE(neighbors->displacedBy(from("192.0.2.10")));
}

TEST_F(HelloTest, OwnHelloIsIgnored) {
  hello.receive(from("192.0.2.9"));
  hello.receive(from("198.51.100.9"));
  hello.receive({});
  EXPECT_EQ(eth0->neighborCount(), 0u);
}

TEST_F(HelloTest, AddressListIsKeptAsItWasReceivedLast) {
  HelloMessage given = from("192.0.2.1");
  given.addressList = {addr("192.0.2.2"), addr("192.0.2.3")};
  hello.receive(given);
  given.addressList = {addr("192.0.2.3"), addr("192.0.2.4")};
  hello.receive(given);
  auto neighbor = eth0->neighbor(addr("192.0.2.1"));
  EXPECT_FALSE(neighbor->secondary(addr("192.0.2.2")));
  EXPECT_TRUE(neighbor->secondary(addr("192.0.2.3")));
  EXPECT_TRUE(neighbor->secondary(addr("192.0.2.4")));
  given.addressList.clear();
  hello.receive(given);
  EXPECT_EQ(neighbor->secondaryCount(), 0u);
}

TEST_F(HelloTest, RouterAloneOnTheLinkIsDr) {
  EXPECT_TRUE(eth0->iAmDr());
  EXPECT_EQ(eth0->drAddress(), addr("192.0.2.9"));
}

/// Other routers of the link, and who of them or us (192.0.2.9, priority 1) is the DR.
struct Election {
  char const* rule;
  std::vector<std::pair<char const*, int>> neighbors;  ///< address and priority, -1 for none
  char const* dr;
};

TEST_F(HelloTest, DrIsElectedByPriorityThenAddressOrByAddressAloneWhereOneSendsNoPriority) {
  Election const elections[] = {
      {"lower address loses", {{"192.0.2.1", 1}}, "192.0.2.9"},
      {"higher address wins", {{"192.0.2.10", 1}}, "192.0.2.10"},
      {"higher priority wins", {{"192.0.2.1", 2}, {"192.0.2.10", 1}}, "192.0.2.1"},
      {"priority 0 loses", {{"192.0.2.10", 0}}, "192.0.2.9"},
      {"no priority sent: address decides", {{"192.0.2.1", 200}, {"192.0.2.2", -1}}, "192.0.2.9"},
  };
  for (Election const& election : elections) {
    SCOPED_TRACE(election.rule);
    HelloSm one(neighbors, wheel, port, {});
    for (auto const& [address, priority] : election.neighbors) {
      HelloMessage given{.srcAddr = addr(address), .generationId = 1};
      if (priority >= 0) given.drPriority = static_cast<Zet::U32>(priority);
      one.receive(given);
    }
    EXPECT_EQ(eth0->drAddress(), addr(election.dr));
    EXPECT_EQ(eth0->iAmDr(), addr(election.dr) == addr("192.0.2.9"));
    eth0->neighborDelAll();
  }
}

TEST_F(HelloTest, DrIsElectedAnewWhenItExpires) {
  hello.receive(from("192.0.2.10"));
  EXPECT_FALSE(eth0->iAmDr());
  runTo(105);
  EXPECT_TRUE(eth0->iAmDr());
}

TEST_F(HelloTest, EachHelloMayTurnTheElection) {
  HelloMessage given = from("192.0.2.10");
  hello.receive(given);
  EXPECT_FALSE(eth0->iAmDr());
  given.drPriority = 0;
  hello.receive(given);
  EXPECT_TRUE(eth0->iAmDr());
  given.drPriority.reset();
  hello.receive(given);
  EXPECT_FALSE(eth0->iAmDr());
  given.holdtime = 0;
  hello.receive(given);
  EXPECT_TRUE(eth0->iAmDr());
}

TEST_F(HelloTest, InterfaceWithoutAnAddressSendsNothingAndIsNoDr) {
  port.addresses.clear();
  hello.handleAddressChange();
  EXPECT_FALSE(eth0->iAmDr());
  runTo(100);
  EXPECT_TRUE(port.sent.empty());
}

TEST_F(HelloTest, NewAddressIsANewGeneration) {
  runTo(1);
  Zet::U32 before = hello.generationId();
  port.addresses["eth0"] = "192.0.2.8";
  hello.handleAddressChange();
  EXPECT_NE(hello.generationId(), before);
  EXPECT_EQ(eth0->drAddress(), addr("192.0.2.8"));
  runTo(7);
  EXPECT_EQ(hellos().back().srcAddr, addr("192.0.2.8"));
}

TEST_F(HelloTest, GoodbyeIsTheLastHello) {
  runTo(1);
  hello.sendGoodbye();
  EXPECT_EQ(hellos().back().holdtime, 0);
  size_t sent = port.sent.size();
  runTo(1000);
  EXPECT_EQ(port.sent.size(), sent);
}

TEST_F(HelloTest, NothingFollowsAGoodbye) {
  runTo(0);
  hello.sendGoodbye();
  hello.receive(from("192.0.2.1"));
  port.addresses["eth0"] = "192.0.2.19";
  runTo(100);
  ASSERT_EQ(hellos().size(), 2u);
  EXPECT_EQ(hellos().back().holdtime, 0);
}

TEST_F(HelloTest, FormerAddressSendsAGoodbyeBeforeTheNewOneSendsAHello) {
  runTo(0);
  port.addresses["eth0"] = "192.0.2.19";
  hello.handleAddressChange();
  runTo(10);
  ASSERT_EQ(hellos().size(), 3u);
  EXPECT_EQ(hellos()[1].srcAddr, addr("192.0.2.9"));
  EXPECT_EQ(hellos()[1].holdtime, 0);
  EXPECT_EQ(hellos()[2].srcAddr, addr("192.0.2.19"));
  EXPECT_EQ(hellos()[2].holdtime, 105);
  port.addresses.erase("eth0");
  hello.handleAddressChange();
  ASSERT_EQ(hellos().size(), 4u);
  EXPECT_EQ(hellos()[3].srcAddr, addr("192.0.2.19"));
}

TEST_F(HelloTest, AddressThatSentNoHelloSendsNoGoodbye) {
  port.addresses["eth0"] = "192.0.2.19";
  hello.handleAddressChange();
  EXPECT_TRUE(hellos().empty());
}

TEST_F(HelloTest, FurtherAddressesOfTheInterfaceAreListed) {
  port.secondaries = {addr("198.51.100.9"), addr("198.51.100.10")};
  runTo(0);
  EXPECT_EQ(hellos()[0].addressList, port.secondaries);
}

TEST_F(HelloTest, AddressBelongsToTheNeighborThatListedItLast) {
  HelloMessage first = from("192.0.2.1");
  HelloMessage second = from("192.0.2.2");
  first.addressList = second.addressList = {addr("198.51.100.1")};
  hello.receive(first);
  hello.receive(second);
  EXPECT_FALSE(eth0->neighbor(addr("192.0.2.1"))->secondary(addr("198.51.100.1")));
  EXPECT_TRUE(eth0->neighbor(addr("192.0.2.2"))->secondary(addr("198.51.100.1")));
}

TEST_F(HelloTest, PrimaryAddressIsNoSecondary) {
  HelloMessage given = from("192.0.2.1");
  given.addressList = {addr("192.0.2.1"), addr("198.51.100.1")};
  hello.receive(given);
  EXPECT_EQ(eth0->neighbor(addr("192.0.2.1"))->secondaryCount(), 1u);
}

TEST_F(HelloTest, RouterWithoutAnAddressIsNotElectedDr) {
  port.addresses.erase("eth0");
  hello.handleAddressChange();
  EXPECT_TRUE(eth0->drAddress().isEmpty());
  HelloMessage weak = from("192.0.2.1");
  weak.drPriority = 0;
  hello.receive(weak);
  EXPECT_EQ(eth0->drAddress(), addr("192.0.2.1"));
  EXPECT_FALSE(eth0->iAmDr());
}

TEST_F(HelloTest, ChangedOptionsChangeTheElectionAndTriggerAHelloWhileTheSameDoNothing) {
  runTo(0);
  hello.receive(from("192.0.2.200"));
  runTo(10);
  double next = hello.nextHello();
  hello.optionsIs({});
  EXPECT_EQ(hello.nextHello(), next);
  EXPECT_FALSE(eth0->iAmDr());

  hello.optionsIs({.drPriority = 7});
  EXPECT_TRUE(eth0->iAmDr());
  EXPECT_LE(hello.nextHello(), Zet::now() + 5);
  auto triggered = eth0->triggeredHelloCount();
  runTo(15);
  EXPECT_EQ(hellos().back().drPriority, 7u);
  EXPECT_EQ(eth0->neighborCount(), 1u);
  EXPECT_EQ(eth0->triggeredHelloCount(), triggered) << "no neighbor is new";
}

TEST_F(HelloTest, SilentInterfaceLearnsNeighborsAndSendsNothing) {
  hello.optionsIs({.silent = true});
  auto triggered = eth0->triggeredHelloCount();
  hello.receive(from("192.0.2.1"));
  runTo(40);
  hello.handleAddressChange();
  hello.sendGoodbye();
  EXPECT_EQ(eth0->neighborCount(), 1u);
  EXPECT_EQ(eth0->triggeredHelloCount(), triggered + 1);
  EXPECT_TRUE(port.sent.empty());
}

TEST_F(HelloTest, NeighborThatTheHostHadAddedIsRemovedByItsGoodbye) {
  eth0->neighborIs(addr("192.0.2.1"));
  HelloMessage goodbye = from("192.0.2.1");
  goodbye.holdtime = 0;
  hello.receive(goodbye);
  EXPECT_EQ(eth0->neighborCount(), 0u);
}

TEST_F(HelloTest, SourceThatCanBeNoRoutersIsIgnored) {
  for (char const* source : {"0.0.0.0", "224.0.0.13", "255.255.255.255", "240.0.0.1"})
    hello.receive(from(source));
  EXPECT_EQ(eth0->neighborCount(), 0u);
}

// A neighbor that restarts ------------------------------------------------------------------------------

TEST_F(HelloTest, ARestartedDrLosesItsRoleForAMoment) {
  pimbsr::CorrectionSwitch relearn;
  relearn.isOnIs(true);
  hello.relearnIs(&relearn);
  hello.receive(from("192.0.2.200"));
  EXPECT_FALSE(eth0->iAmDr());
  struct Roles : Routing::Pim::Intf::NotifieeConst {
    void onIAmDr() override { seen.push_back(notifier()->iAmDr()); }
    std::vector<bool> seen;
  };
  auto roles = Zet::make<Roles>();
  roles->notifierIs(eth0);
  hello.receive(from("192.0.2.200"));
  EXPECT_TRUE(roles->seen.empty());
  hello.receive(from("192.0.2.200", 2));
  EXPECT_EQ(roles->seen, (std::vector<bool>{true, false}));
  EXPECT_EQ(eth0->neighborCount(), 1u);
  EXPECT_EQ(relearn.acts(), 1u);
  roles->seen.clear();
  runTo(6);
  EXPECT_EQ(roles->seen, (std::vector<bool>{true, false})) << "with the triggered Hello";
  runTo(60);
  EXPECT_EQ(roles->seen.size(), 2u);
  roles->notifierIs(nullptr);
}

TEST_F(HelloTest, AThousandRestartsASecondCostOneTriggeredHelloInTheTriggeredDelay) {
  pimbsr::CorrectionSwitch relearn;
  relearn.isOnIs(true);
  hello.relearnIs(&relearn);
  runTo(0);
  Zet::U32 before = eth0->triggeredHelloCount();
  for (Zet::U32 i = 1; i <= 20000; ++i) {
    context.nowIs(start + i / 1000.0);
    hello.receive(from("192.0.2.1", i));
    wheel->advance(Zet::now());
  }
  EXPECT_LE(eth0->triggeredHelloCount() - before, 5u);
  EXPECT_GE(eth0->triggeredHelloCount() - before, 3u);
}

TEST_F(HelloTest, WhoWasTheDrWithoutANewNeighborAnswersItAtOnceAndOthersAfterADelay) {
  pimbsr::CorrectionSwitch relearn;
  relearn.isOnIs(true);
  hello.relearnIs(&relearn);
  runTo(6);
  hello.receive(from("192.0.2.200"));
  EXPECT_EQ(hello.nextHello(), Zet::now()) << "the first neighbor takes the role from this router";
  runTo(12);
  context.randoms.assign(10, RAND_MAX / 5);
  hello.receive(from("192.0.2.201"));
  EXPECT_NEAR(hello.nextHello(), Zet::now() + 1, 1e-6) << "192.0.2.200 is the DR without it";
  runTo(18);
  hello.receive(from("192.0.2.200", 2));
  EXPECT_GT(hello.nextHello(), Zet::now()) << "192.0.2.201 is the DR";
  runTo(24);
  hello.receive(from("192.0.2.201", 2));
  EXPECT_GT(hello.nextHello(), Zet::now()) << "192.0.2.200 was the DR without it";
}

TEST_F(HelloTest, ANewNeighborIsAnsweredWithinTheTriggeredDelayAlsoAfterARestart) {
  pimbsr::CorrectionSwitch relearn;
  relearn.isOnIs(true);
  hello.relearnIs(&relearn);
  hello.receive(from("192.0.2.1"));
  runTo(6);
  Zet::U32 before = eth0->triggeredHelloCount();
  hello.receive(from("192.0.2.1", 2));
  hello.receive(from("192.0.2.2"));
  runTo(11);
  EXPECT_EQ(eth0->triggeredHelloCount(), before + 1);
}

}  // namespace
}  // namespace test
