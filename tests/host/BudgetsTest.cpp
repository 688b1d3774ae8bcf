#include "host/Budgets.h"

#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::AddressBuckets;
using pimbsr::host::Advertisers;
using pimbsr::host::IngressSettings;
using pimbsr::host::MessageKind;
using pimbsr::host::TokenBucket;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IngressSettings rates = {
    .packetsPerSecond = 1000, .hellosPerSecond = 200, .advertisementsPerSecond = 1000};
constexpr IngressSettings few = {.packetsPerSecond = 3, .hellosPerSecond = 2, .advertisementsPerSecond = 4};

/// An advertisement of an RP, sent from its own address to the elected BSR 192.0.2.9.
struct Renewal {
  Adv message;
  PacketPath path;
};

Renewal renewalOf(std::string const& rp, U16 holdtime = 150) {
  return {Adv{.groups = {{"239.0.0.0/8"}}, .rp = rp, .holdtime = holdtime},
          {.source = rp, .destination = "192.0.2.9", .ttl = 60}};
}

class BudgetsTest : public FilteredRouterTest {
 protected:
  /// Offers packets, so many a second for some seconds, beside one honest packet each 10 ms; each forged one
  /// has the next source address. Returns the reasons of the forged ones, and expects the honest ones taken.
  template <class Forged, class Honest>
  std::map<std::string, int> flood(int perSecond, int seconds, Forged const& forged, Honest const& honest) {
    std::map<std::string, int> reasons;
    for (int i = 0; i < perSecond * seconds; ++i) {
      context.nowIs(context.now() + 1.0 / perSecond);
      ++reasons[forged(i)];
      if (i % (perSecond / 100) != 0) continue;
      EXPECT_EQ(honest(), "") << "after " << i << " forged packets";
    }
    return reasons;
  }
  std::string renew(std::string const& rp, U16 holdtime = 150) {
    Renewal renewal = renewalOf(rp, holdtime);
    return reasonFor(renewal.message, renewal.path);
  }
};

// Owner of a budget -------------------------------------------------------------------------------------

TEST_F(BudgetsTest, EachClassOfSendersHasABudgetAndADropReasonOfItsOwn) {
  struct Case {
    char const* rule;
    std::vector<U8> pim;
    PacketPath path;
    int granted;
    char const* reason;
  };
  router.ingressSettingsIs(few);
  receiveHello("192.0.2.1", {addr("192.0.2.50")});
  context.nowIs(context.now() + 10);
  std::vector<U8> const bsm = bytesOf(ordinary);
  for (Case const& c :
       {Case{"a neighbor", bsm, {}, 3, "neighbor-rate-limit"},
        {"a Hello of an unknown address",
         bytesOf(HelloMessage{.holdtime = 0}),
         {"192.0.2.7"},
         2,
         "hello-rate-limit"},
        {"any other packet of an unknown address", bsm, {"192.0.2.7"}, 3, "rate-limit"},
        {"a unicast packet", bytesOf(Adv{}), {"203.0.113.1", "192.0.2.9"}, 4, "advertisement-rate-limit"}}) {
    SCOPED_TRACE(c.rule);
    for (int i = 0; i < c.granted; ++i) {
      Reception taken = router.receive(intf("eth0"), packetOf(c.pim, c.path));
      EXPECT_FALSE(taken.overBudget()) << i;
    }
    Reception dropped = router.receive(intf("eth0"), packetOf(c.pim, c.path));
    EXPECT_TRUE(dropped.overBudget());
    EXPECT_EQ(dropped.reason, c.reason);
    EXPECT_EQ(dropped.kind, MessageKind::unread);
    EXPECT_EQ(dropped.source, addr(c.path.source));
    EXPECT_EQ(dropped.destination, addr(c.path.destination));
  }
}

TEST_F(BudgetsTest, BudgetOf0IsNoBound) {
  receiveHello("192.0.2.1");
  router.ingressSettingsIs({.hellosPerSecond = 1});
  for (int i = 0; i < 5000; ++i) ASSERT_FALSE(offer(ordinary).overBudget());
  router.ingressSettingsIs({.packetsPerSecond = 1});
  for (int i = 0; i < 5000; ++i) {
    ASSERT_FALSE(offer(HelloMessage{.holdtime = 0}, {"192.0.2.7"}).overBudget());
    ASSERT_FALSE(offer(Adv{}, {"203.0.113.1", "192.0.2.9"}).overBudget());
  }
}

TEST_F(BudgetsTest, LargePacketCostsAsManyAsItNeedsOnEthernet) {
  router.ingressSettingsIs({.packetsPerSecond = 10});
  receiveHello("192.0.2.1");
  context.nowIs(context.now() + 10);
  std::vector<U8> large = bytesOf(ordinary);
  large.resize(60000);
  EXPECT_NE(router.receive(intf("eth0"), packetOf(large, {})).reason, "neighbor-rate-limit");
  context.nowIs(context.now() + 3);
  EXPECT_EQ(router.receive(intf("eth0"), packetOf(large, {})).reason, "neighbor-rate-limit")
      << "41 packets are paid for after 3.2 s";
  context.nowIs(context.now() + 0.3);
  EXPECT_NE(router.receive(intf("eth0"), packetOf(large, {})).reason, "neighbor-rate-limit");
}

TEST_F(BudgetsTest, AllAddressesOfANeighborShareItsBudget) {
  router.ingressSettingsIs(few);
  receiveHello("192.0.2.1", {addr("192.0.2.50"), addr("192.0.2.51")});
  EXPECT_FALSE(offer(ordinary).overBudget());
  EXPECT_FALSE(offer(ordinary, {"192.0.2.50"}).overBudget());
  EXPECT_FALSE(offer(ordinary, {"192.0.2.51"}).overBudget());
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.50"}), "neighbor-rate-limit");
}

TEST_F(BudgetsTest, NeighborOfAnotherInterfaceIsAnUnknownSenderHere) {
  router.ingressSettingsIs(few);
  router.receive(intf("eth1"), packetOf(bytesOf(HelloMessage{}), {}));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(ordinary), "rate-limit");
}

TEST_F(BudgetsTest, PacketThatFailsTheChecksOfItsHeaderCostsTheNeighborThatItNamesNothing) {
  IngressSettings settings = few;
  settings.linkLocalTtl = true;
  router.ingressSettingsIs(settings);
  receiveHello("192.0.2.1");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(ordinary, {.ttl = 64}), "ttl");
  EXPECT_EQ(reasonFor(ordinary, {.ttl = 64}), "rate-limit");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(ordinary), "");
}

TEST_F(BudgetsTest, UnicastPacketFromTheAddressOfANeighborCostsTheNeighborNothing) {
  router.ingressSettingsIs(few);
  receiveHello("192.0.2.1");
  for (int i = 0; i < 100; ++i) offer(Adv{}, {.destination = "192.0.2.9", .ttl = 60});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(ordinary), "");
}

TEST_F(BudgetsTest, NeighborThatGoesAndComesBackGainsNothing) {
  IngressSettings settings = few;
  settings.hellosPerSecond = 1000;
  router.ingressSettingsIs(settings);
  receiveHello("192.0.2.1");
  int taken = 0;
  for (int i = 0; i < 100; ++i) {
    context.nowIs(context.now() + 0.001);
    if (!offer(HelloMessage{.holdtime = 0}).overBudget()) ++taken;
    offer(HelloMessage{});
  }
  EXPECT_EQ(taken, 3);
}

// Floods beside honest senders --------------------------------------------------------------------------

TEST_F(BudgetsTest, NoneOfANeighborsMessagesIsLostToTwoThousandForgedOnesASecond) {
  router.ingressSettingsIs(rates);
  receiveHello("192.0.2.1");
  auto reasons = flood(
      2000, 10, [&](int i) { return reasonFor(ordinary, {numbered("192.0.2.", 10 + i % 200)}); },
      [&] { return reasonFor(ordinary); });
  EXPECT_NEAR(reasons["rate-limit"], 9000, 5);
  EXPECT_NEAR(reasons["not-rpf-neighbor"], 11000, 5);
}

TEST_F(BudgetsTest, FloodForgedFromANeighborsAddressExhaustsThatNeighborsBudgetAlone) {
  router.ingressSettingsIs(rates);
  receiveHello("192.0.2.1");
  receiveHello("192.0.2.2", {addr("192.0.2.60")});
  auto reasons = flood(
      4000, 10, [&](int i) { return reasonFor(ordinary, {i % 2 == 0 ? "192.0.2.2" : "192.0.2.60"}); },
      [&] { return reasonFor(ordinary); });
  EXPECT_NEAR(reasons["neighbor-rate-limit"], 29000, 5);
  EXPECT_EQ(reasons.count("rate-limit"), 0u);
}

TEST_F(BudgetsTest, FloodOfHellosDisplacesNeitherHellosNorMessagesOfNeighbors) {
  IngressSettings settings = rates;
  settings.neighborsPerInterface = 50;
  router.ingressSettingsIs(settings);
  receiveHello("192.0.2.1");
  bool isHello = false;
  auto reasons = flood(
      2000, 10, [&](int i) { return reasonFor(HelloMessage{}, {numbered("192.0.2.", 10 + i % 200)}); },
      [&] { return (isHello = !isHello) ? reasonFor(HelloMessage{}) : reasonFor(ordinary); });
  EXPECT_GT(reasons["hello-rate-limit"], 10000);
  EXPECT_GT(reasons["neighbor-quota"], 1000);
  EXPECT_EQ(neighbors(), 50u);
}

TEST_F(BudgetsTest, NewNeighborIsHeardDuringAFloodOfOtherPackets) {
  router.ingressSettingsIs(rates);
  int next = 10;
  flood(
      2000, 2, [&](int) { return reasonFor(ordinary, {"192.0.2.5"}); },
      [&] { return reasonFor(HelloMessage{}, {numbered("192.0.2.", next++)}); });
  EXPECT_EQ(neighbors(), 200u);
}

TEST_F(BudgetsTest, DamagedHellosLeaveTheBudgetOfHellosAloneAsLongAsTheRestPays) {
  router.ingressSettingsIs(few);
  std::vector<U8> damaged = packetOf(bytesOf(HelloMessage{}), {"192.0.2.7"});
  damaged.back() ^= 1;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(router.receive(intf("eth0"), damaged).reason, "checksum") << i;
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.7"}), "rate-limit");
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}, {"192.0.2.7"}), "");
  EXPECT_EQ(router.receive(intf("eth0"), damaged).reason, "checksum");
  EXPECT_EQ(router.receive(intf("eth0"), damaged).reason, "hello-rate-limit");
}

// Advertisements ----------------------------------------------------------------------------------------

TEST_F(BudgetsTest, NoRenewalIsLostToAFloodOfAdvertisementsOfUnknownSenders) {
  router.ingressSettingsIs({.packetsPerSecond = 1000, .advertisementsPerSecond = 1000, .rps = 100});
  lead();
  std::vector<std::string> const senders = {"203.0.113.1", "203.0.113.2", "203.0.113.3"};
  for (auto const& sender : senders) EXPECT_EQ(renew(sender), "");
  std::size_t next = 0;
  auto forged = [&](int i) {
    std::string source = numbered("10.", i / 256) + numbered(".", i % 256) + ".1";
    return reasonFor(Adv{.rp = "10.9.9.9"}, {source, "192.0.2.9"});
  };
  auto reasons =
      flood(2000, 5, forged, [&] { return ++next % 50 == 0 ? renew(senders[next / 50 % 3]) : ""; });
  EXPECT_NEAR(reasons["advertisement-rate-limit"], 4000, 50);
}

TEST_F(BudgetsTest, FloodForgedFromACandidateRpsAddressDisplacesNoOthersRenewals) {
  router.ingressSettingsIs({.advertisementsPerSecond = 1000});
  lead();
  for (char const* sender : {"203.0.113.1", "203.0.113.2"}) EXPECT_EQ(renew(sender), "");
  int next = 0;
  auto reasons = flood(
      2000, 5, [&](int) { return renew("203.0.113.2"); },
      [&] { return ++next % 100 == 0 ? renew("203.0.113.1") : ""; });
  EXPECT_NEAR(reasons["advertisement-rate-limit"], 4000, 50);
}

TEST_F(BudgetsTest, SenderIsKnownAsLongAsTheHoldtimeOfItsLastAcceptedAdvertisement) {
  struct Case {
    char const* rule;
    double wait;
    U16 last;  ///< holdtime of the second advertisement
    bool known;
  };
  for (Case const& c : {Case{"within the holdtime", 100, 150, true},
                        {"after it", 151, 150, false},
                        {"after a withdrawal", 1, 0, false}}) {
    SCOPED_TRACE(c.rule);
    TestContext own;
    Advertisers advertisers;
    double now = 1000;
    advertisers.note(addr("203.0.113.1"), 150, now);
    advertisers.note(addr("203.0.113.1"), c.last, now);
    EXPECT_EQ(advertisers.take(addr("203.0.113.1"), now + c.wait), c.known);
    EXPECT_FALSE(advertisers.take(addr("203.0.113.2"), now));
  }
}

TEST_F(BudgetsTest, DroppedAdvertisementMakesNoSenderKnown) {
  router.ingressSettingsIs({.advertisementsPerSecond = 2});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(renew("203.0.113.1"), "not-elected-bsr");
  EXPECT_EQ(renew("203.0.113.1"), "advertisement-rate-limit");
}

// Bounds ------------------------------------------------------------------------------------------------

TEST(AdvertisersTest, FloodOfSendersIsKeptUpToTheBoundUntilSomeExpire) {
  Advertisers advertisers;
  auto sender = [](U32 i) { return Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0x0a000000 + i)); };
  constexpr U32 max = 4096;
  for (U32 i = 0; i < 20000; ++i) advertisers.note(sender(i), 100 + i % 2, 0, max);
  EXPECT_EQ(advertisers.size(), max);
  EXPECT_TRUE(advertisers.take(sender(0), 50));
  EXPECT_FALSE(advertisers.take(sender(max), 50));
  advertisers.note(sender(max), 100, 100.5, max);
  EXPECT_TRUE(advertisers.take(sender(max), 101));
  EXPECT_EQ(advertisers.size(), max / 2 + 1);
}

TEST(AdvertisersTest, ZeroIsNoBound) {
  Advertisers advertisers;
  auto sender = [](U32 i) { return Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0x0a000000 + i)); };
  for (U32 i = 0; i < 5000; ++i) advertisers.note(sender(i), 100, 0, 0);
  EXPECT_EQ(advertisers.size(), 5000u);
}

TEST_F(BudgetsTest, SendersBeyondTheirBoundShareTheBudgetOfAll) {
  lead();
  router.ingressSettingsIs({.advertisementsPerSecond = 3, .advertisementSenders = 1});
  EXPECT_EQ(renew("203.0.113.1"), "");
  EXPECT_EQ(renew("203.0.113.2"), "");
  EXPECT_EQ(renew("203.0.113.2"), "");
  EXPECT_EQ(renew("203.0.113.2"), "advertisement-rate-limit");
  EXPECT_EQ(renew("203.0.113.1"), "") << "it has a grant of its own";
}

/// Advertises each second from `start` on, so many times at once.
void advertise(Advertisers& advertisers, char const* sender, double start, int seconds, int atOnce = 1) {
  for (int i = 0; i < seconds * atOnce; ++i) {
    double const now = start + i / atOnce;
    advertisers.take(addr(sender), now);
    advertisers.note(addr(sender), 150, now);
  }
}

TEST(AdvertisersTest, SenderIsSteadyOnceItKeptWithinItsGrantForTheProbation) {
  Advertisers advertisers;
  advertisers.note(addr("203.0.113.1"), 150, 0);
  advertisers.note(addr("203.0.113.1"), 150, Advertisers::probation - 1);
  EXPECT_THAT(advertisers.steady(10), IsEmpty());
  EXPECT_FALSE(advertisers.takeSteadyChanged(Advertisers::probation));
  advertisers.note(addr("203.0.113.1"), 150, Advertisers::probation);
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.1")));
  EXPECT_TRUE(advertisers.takeSteadyChanged(Advertisers::probation));
  EXPECT_FALSE(advertisers.takeSteadyChanged(Advertisers::probation));
}

TEST(AdvertisersTest, SenderBeyondItsGrantIsNotSteadyBeforeAnotherProbation) {
  Advertisers advertisers;
  advertise(advertisers, "203.0.113.1", 0, 12);
  advertise(advertisers, "203.0.113.2", 0, 12);
  EXPECT_TRUE(advertisers.takeSteadyChanged(20));
  advertise(advertisers, "203.0.113.1", 20, 15, 5);
  EXPECT_TRUE(advertisers.takeSteadyChanged(35));
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.2")));
  advertise(advertisers, "203.0.113.1", 40, 1);
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.2")));
  advertise(advertisers, "203.0.113.1", 46, 1);
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.2"), addr("203.0.113.1")));
}

TEST(AdvertisersTest, SteadySenderGoesWithItsHoldtimeOrItsWithdrawal) {
  Advertisers advertisers;
  advertise(advertisers, "203.0.113.1", 0, 12);
  advertise(advertisers, "203.0.113.2", 0, 12);
  advertise(advertisers, "203.0.113.3", 0, 13);
  EXPECT_TRUE(advertisers.takeSteadyChanged(13));
  advertisers.note(addr("203.0.113.2"), 0, 14);
  EXPECT_TRUE(advertisers.takeSteadyChanged(14));
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.1"), addr("203.0.113.3")));
  EXPECT_FALSE(advertisers.takeSteadyChanged(160.5));
  EXPECT_TRUE(advertisers.takeSteadyChanged(161));
  EXPECT_THAT(advertisers.steady(10), ElementsAre(addr("203.0.113.3")));
}

TEST(AdvertisersTest, ForgedSendersDisplaceNoSteadyOne) {
  Advertisers advertisers;
  advertise(advertisers, "203.0.113.1", 0, 12);
  for (double now : {20, 40}) {
    for (U32 i = 0; i < 1000; ++i)
      advertisers.note(Lanet::IpGenAddr(Lanet::IpAddr::fromHost(0x0a000000 + i)), 150, now);
  }
  EXPECT_EQ(advertisers.steady(2000).size(), 1001u);
  EXPECT_EQ(advertisers.steady(256).size(), 256u);
  EXPECT_EQ(advertisers.steady(256).front(), addr("203.0.113.1"));
}

TEST_F(BudgetsTest, RouterNamesTheSendersThatAreSteady) {
  router.ingressSettingsIs({.advertisementsPerSecond = 1000});
  lead();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(renew("203.0.113.1"), "");
    run(60);
  }
  EXPECT_THAT(router.advertisers(256), ElementsAre(addr("203.0.113.1").v4Addr()));
  EXPECT_TRUE(router.takeAdvertisersChanged());
  EXPECT_FALSE(router.takeAdvertisersChanged());
  run(150);
  EXPECT_TRUE(router.takeAdvertisersChanged());
  EXPECT_THAT(router.advertisers(256), IsEmpty());
}

/// Takes two packets a second of each address.
std::string take(AddressBuckets& buckets, std::string const& address, double now) {
  return buckets.bucket(addr(address), now).take(2, now) ? "taken" : "used up";
}

TEST(AddressBucketsTest, BucketOfAFormerNeighborStaysUntilMaxFormerOthersHaveLeft) {
  for (int others : {1, 255, 256}) {
    AddressBuckets buckets;
    for (char const* expected : {"taken", "taken", "used up"})
      EXPECT_EQ(take(buckets, "10.0.0.1", 0), expected);
    buckets.isPresentIs(addr("10.0.0.1"), false);
    for (int i = 0; i < others; ++i) {
      take(buckets, numbered("10.1.0.", i), 0);
      buckets.isPresentIs(addr(numbered("10.1.0.", i)), false);
    }
    buckets.isPresentIs(addr("10.0.0.1"), true);
    EXPECT_EQ(take(buckets, "10.0.0.1", 0), others < 256 ? "used up" : "taken") << others;
  }
}

TEST(AddressBucketsTest, BucketOfAPresentNeighborStaysHoweverManyLeave) {
  AddressBuckets buckets;
  std::vector<std::string> const present = {"10.0.0.1", "10.0.0.2"};
  for (auto const& address : present)
    for (char const* expected : {"taken", "taken", "used up"}) EXPECT_EQ(take(buckets, address, 0), expected);
  buckets.isPresentIs(addr("10.0.0.2"), false);
  buckets.isPresentIs(addr("10.0.0.2"), true);
  for (int i = 0; i < 2000; ++i) {
    std::string other = numbered("10.1.", i / 200) + numbered(".", i % 200);
    take(buckets, other, 0);
    buckets.isPresentIs(addr(other), false);
    ASSERT_LE(buckets.size(), present.size() + AddressBuckets::maxFormer);
  }
  for (auto const& address : present) EXPECT_EQ(take(buckets, address, 0), "used up");
}

TEST(AddressBucketsTest, AddressThatLeavesTwiceOrWasNeverSeenHasAtMostOneBucket) {
  AddressBuckets buckets;
  buckets.isPresentIs(addr("10.0.0.9"), false);
  buckets.isPresentIs(addr("10.0.0.9"), true);
  EXPECT_EQ(buckets.size(), 0u);
  take(buckets, "10.0.0.1", 0);
  for (std::size_t i = 0; i < 2 * AddressBuckets::maxFormer; ++i)
    buckets.isPresentIs(addr("10.0.0.1"), false);
  EXPECT_EQ(buckets.size(), 1u);
}

TEST_F(BudgetsTest, NewNeighborHasABudgetOfItsOwnThoughBucketsOfFormerOnesAreKept) {
  router.ingressSettingsIs({.packetsPerSecond = 3});
  receiveHello("192.0.2.1");
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(reasonFor(HelloMessage{.holdtime = 0}), "");
  for (int i = 0; i < 4; ++i) offer(ordinary, {"192.0.2.99"});
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.99"}), "rate-limit");
  receiveHello("192.0.2.2");
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(offer(ordinary, {"192.0.2.2"}).overBudget());
  EXPECT_EQ(reasonFor(ordinary, {"192.0.2.2"}), "neighbor-rate-limit");
}

TEST_F(BudgetsTest, QuietNeighborKeepsItsBudgetThroughTenThousandNeighborsThatComeAndGo) {
  router.ingressSettingsIs({.packetsPerSecond = 3});
  receiveHello("192.0.2.1");
  EXPECT_EQ(reasonFor(ordinary), "");
  for (int i = 0; i < 10000; ++i) {
    context.nowIs(context.now() + 0.001);
    PacketPath path{numbered("10.0.", i / 250) + numbered(".", 1 + i % 250)};
    ASSERT_EQ(reasonFor(HelloMessage{.generationId = 1}, path), "");
    ASSERT_EQ(reasonFor(HelloMessage{.holdtime = 0}, path), "");
    offer(ordinary, path);
  }
  ASSERT_EQ(neighbors(), 1u);
  EXPECT_EQ(reasonFor(ordinary, {"10.0.0.1"}), "rate-limit");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reasonFor(ordinary), "") << i;
  EXPECT_EQ(reasonFor(ordinary), "neighbor-rate-limit");
}

TEST_F(BudgetsTest, NeighborOfAnInterfaceThatWasMadeAgainHasANewBudget) {
  router.ingressSettingsIs({.packetsPerSecond = 3});
  for (int round = 0; round < 2; ++round) {
    router.pimStatus()->pimIntfDel(intf("eth0"));
    router.pimStatus()->pimIntfIs(intf("eth0"))->neighborIs(addr("192.0.2.1"));
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(offer(ordinary).overBudget());
    EXPECT_EQ(reasonFor(ordinary), "neighbor-rate-limit");
  }
}

}  // namespace
}  // namespace test
