#include "host/RpBounds.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/host/RpBoundsSupport.h"
#include "tests/support/Allocations.h"

namespace test {
namespace {

// A full range --------------------------------------------------------------------------------------------

TEST_F(RpBoundsTest, RangeHoldsAtMost255RpsAndItsRpCountIsSent) {
  fill(1, 255);
  EXPECT_EQ(reasonFor({"203.0.2.1"}), "range-full");
  EXPECT_EQ(count(), 255u);
  runToMessage();
  EXPECT_EQ(sent.back().rpCounts.at(range), 255);
  EXPECT_EQ(sent.back().holdtimes.at(range).size(), 255u);
  EXPECT_EQ(setOf(follower, range)->rpCount(), 255u);
}

TEST_F(RpBoundsTest, ZeroIsNoBound) {
  bsr.ingressSettingsIs({});
  fill(1, 255);
  EXPECT_EQ(reasonFor({"203.0.2.1"}), "");
  EXPECT_EQ(count(), 256u);
}

TEST_F(RpBoundsTest, RenewalsAndWithdrawalsOfKnownRpsPassAtTheBound) {
  bsr.ingressSettingsIs({.rpsPerRange = 3});
  fill(1, 3);
  EXPECT_EQ(reasonFor({"203.0.2.1"}), "range-full");
  fill(1, 3, 120);
  EXPECT_EQ(reasonFor({.rp = "203.0.1.2", .holdtime = 0}), "");
  EXPECT_EQ(holdtime("203.0.1.2"), 0);
  runToMessage();
  run(1);
  EXPECT_EQ(reasonFor({"203.0.2.1"}), "");
}

TEST_F(RpBoundsTest, FullRangeIsLoggedOnce) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1);
  for (int i = 1; i <= 5; ++i) EXPECT_EQ(reasonFor({rpNamed(2, i)}), "range-full");
  auto isFull = [](std::string const& line) { return line.find("239.1.0.0/16 has reached") != line.npos; };
  EXPECT_EQ(std::count_if(context.logs.begin(), context.logs.end(), isFull), 1);
}

TEST_F(RpBoundsTest, LoweredBoundKeepsTheRpsAndDisplacesNone) {
  fill(1, 5);
  bsr.ingressSettingsIs({.rpsPerRange = 3});
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  run(70);
  fill(1, 5);
  EXPECT_EQ(count(), 5u);
}

TEST_F(RpBoundsTest, RenewalAllocatesNoMoreThanWithoutBounds) {
  Adv adv{.groups = {{"239.1.0.0/16"}, {"239.2.0.0/16"}, {"239.3.0.0/16"}}, .rp = "203.0.1.1"};
  std::vector<U8> const packet = packetOf(bytesOf(adv), {"203.0.1.1", "192.0.2.9", 60});
  Lanet::IntfId const eth0 = intf("eth0");
  auto renewal = [&] {
    context.nowIs(context.now() + 1);
    context.traces.clear();
    return allocationsOf([&] { EXPECT_TRUE(bsr.receive(eth0, packet).accepted()); });
  };
  for (int i = 0; i < 3; ++i) renewal();
  int const bounded = renewal();
  bsr.ingressSettingsIs({});
  for (int i = 0; i < 3; ++i) renewal();
  EXPECT_EQ(bounded, renewal());
}

// Displacement --------------------------------------------------------------------------------------------

TEST_F(RpBoundsTest, BetterRpDisplacesTheLastOfTheWorstAndEntersAfterIt) {
  bsr.ingressSettingsIs({.rpsPerRange = 3});
  EXPECT_EQ(reasonFor({"203.0.1.1", 100}), "");
  run(1);
  EXPECT_EQ(reasonFor({"203.0.1.2", 100}), "");
  run(1);
  EXPECT_EQ(reasonFor({"203.0.1.3", 50}), "");
  runToMessage();
  EXPECT_EQ(reasonFor({"203.0.2.1", 60}), "range-full");
  EXPECT_EQ(holdtime("203.0.1.2"), 0);
  EXPECT_EQ(reasonFor({"203.0.1.2", 0}), "displaced-rp");
  EXPECT_EQ(reasonFor({"203.0.2.1", 60}), "range-full");
  runToMessage();
  EXPECT_EQ(sent.back().holdtimes.at(range).at("203.0.1.2"), 0);
  run(1);
  EXPECT_FALSE(has("203.0.1.2"));
  EXPECT_FALSE(setOf(follower, range)->rp(addr("203.0.1.2")));
  EXPECT_EQ(reasonFor({"203.0.2.2", 0}), "range-full") << "the place is reserved";
  EXPECT_EQ(reasonFor({"203.0.1.2", 0}), "range-full") << "a displaced RP is a newcomer";
  EXPECT_EQ(reasonFor({"203.0.2.1", 60}), "");
  EXPECT_EQ(count(), 3u);
}

TEST_F(RpBoundsTest, DisplacementSendsNoMessageEarlier) {
  fill(1, 255);
  runToMessage();
  runToMessage();
  double last = sent.back().time;
  run(5);
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  runToMessage();
  EXPECT_DOUBLE_EQ(sent.back().time, last + 60);
  EXPECT_EQ(sent.back().rpCounts.at(range), 255);
}

TEST_F(RpBoundsTest, RpOfEqualPriorityDisplacesNone) {
  bsr.ingressSettingsIs({.rpsPerRange = 3});
  fill(1, 3);
  for (int second = 0; second < 200; ++second) {
    run(1);
    if (second % 50 == 0) fill(1, 3);
    ASSERT_EQ(reasonFor({"203.0.2.1", 100}), "range-full");
  }
  for (SentMessage const& message : sent) {
    for (auto const& [name, rps] : message.holdtimes)
      for (auto const& [rp, seconds] : rps) EXPECT_NE(seconds, 0) << rp;
  }
}

TEST_F(RpBoundsTest, DroppedNewRpDoesNotHideAWorseRpFromABetterOne) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1, 100);
  EXPECT_EQ(reasonFor({"203.0.2.1", 100}), "range-full");
  EXPECT_NE(holdtime("203.0.1.1"), 0);
  EXPECT_EQ(reasonFor({"203.0.2.2", 99}), "range-full");
  EXPECT_EQ(holdtime("203.0.1.1"), 0);
}

TEST_F(RpBoundsTest, ReservedPlaceIsFreeAgainAfterThreePeriods) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  EXPECT_EQ(reasonFor({.rp = "203.0.1.1", .priority = 100, .holdtime = 1000}), "");
  EXPECT_EQ(reasonFor({"203.0.2.1", 50}), "range-full");
  run(179);
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(reasonFor({"203.0.3.1", 0}), "range-full");
  run(1);
  EXPECT_EQ(reasonFor({"203.0.3.1", 200}), "");
}

TEST_F(RpBoundsTest, PreferredRpsStayAndDisplaceOthersAtAnyPriority) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rpsPerRange = 2});
  EXPECT_EQ(reasonFor({"10.0.0.1", 255}), "");
  EXPECT_EQ(reasonFor({"203.0.1.1", 0}), "");
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  EXPECT_NE(holdtime("203.0.1.1"), 0);
  EXPECT_EQ(reasonFor({"10.0.0.2", 255}), "range-full");
  EXPECT_EQ(holdtime("203.0.1.1"), 0);
  run(70);
  EXPECT_EQ(reasonFor({"10.0.0.1", 255}), "");
  EXPECT_EQ(reasonFor({"10.0.0.2", 255}), "");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
    EXPECT_EQ(reasonFor({"10.0.0.3", 0}), "range-full");
    run(65);
    EXPECT_EQ(reasonFor({"10.0.0.1", 255}), "");
    EXPECT_EQ(reasonFor({"10.0.0.2", 255}), "");
  }
}

TEST_F(RpBoundsTest, PreferredRpTakesOverAReservedPlace) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1);
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  EXPECT_EQ(reasonFor({"10.0.0.1", 255}), "range-full");
  run(70);
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  EXPECT_EQ(reasonFor({"10.0.0.1", 255}), "");
}

TEST_F(RpBoundsTest, SenderThatIsNotPermittedDisplacesNone) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1);
  bsr.permitIs(prefix("203.0.1.0/24"));
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "sender-filter");
  EXPECT_NE(holdtime("203.0.1.1"), 0);
}

TEST_F(RpBoundsTest, NewcomerBeyondTheQuotaDisplacesNoneAndKeepsItsReservation) {
  bsr.ingressSettingsIs({.rps = 2, .rpsPerRange = 2});
  fill(1, 2);
  EXPECT_EQ(reasonFor({"203.0.2.1", 50}), "rp-quota");
  EXPECT_NE(holdtime("203.0.1.2"), 0);
  bsr.ingressSettingsIs({.rps = 3, .rpsPerRange = 2});
  EXPECT_EQ(reasonFor({"203.0.2.1", 50}), "range-full");
  EXPECT_EQ(holdtime("203.0.1.2"), 0);
  run(70);
  fill(1, 1);
  bsr.ingressSettingsIs({.rps = 1, .rpsPerRange = 2});
  EXPECT_EQ(reasonFor({"203.0.2.1", 50}), "rp-quota");
  bsr.ingressSettingsIs({.rps = 3, .rpsPerRange = 2});
  EXPECT_EQ(reasonFor({"203.0.3.1", 0}), "range-full");
  EXPECT_EQ(reasonFor({"203.0.2.1", 50}), "");
}

// This router's own candidate RPs -------------------------------------------------------------------------

TEST_F(RpBoundsTest, PlaceIsKeptForAnOwnCandidateRpThatHasNotAdvertisedYet) {
  bsr.ingressSettingsIs({.rpsPerRange = 2});
  offerOwn(range);
  fill(1, 1);
  EXPECT_EQ(reasonFor({"203.0.1.2", 100}), "range-full");
  run(5);
  EXPECT_TRUE(has("192.0.2.9"));
  EXPECT_EQ(count(), 2u);
}

TEST_F(RpBoundsTest, OwnCandidateRpIsNeverDisplaced) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  offerOwn(range);
  run(5);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(reasonFor({"203.0.1.1", 0}), "range-full");
    run(61);
  }
  EXPECT_TRUE(has("192.0.2.9"));
  EXPECT_NE(holdtime("192.0.2.9"), 0);
}

TEST_F(RpBoundsTest, OwnCandidateRpThatIsAddedToAFullRangeEntersAfterAWithdrawal) {
  fill(1, 254, 10);
  EXPECT_EQ(reasonFor({"203.0.2.1", 11}), "");
  runToMessage();
  offerOwn(range);
  run(5);
  EXPECT_FALSE(has("192.0.2.9"));
  EXPECT_EQ(holdtime("203.0.2.1"), 0);
  EXPECT_EQ(reasonFor({"203.0.2.1", 11}), "displaced-rp");
  runToMessage();
  EXPECT_EQ(sent.back().rpCounts.at(range), 255);
  EXPECT_EQ(sent.back().holdtimes.at(range).at("203.0.2.1"), 0);
  run(1);
  EXPECT_FALSE(setOf(follower, range)->rp(addr("203.0.2.1")));
  EXPECT_EQ(reasonFor({"203.0.3.1", 0}), "range-full") << "the place is this router's own";
  fill(1, 254, 10);
  run(65);
  EXPECT_TRUE(has("192.0.2.9"));
  EXPECT_EQ(count(), 255u);
  runToMessage();
  EXPECT_EQ(sent.back().rpCounts.at(range), 255);
  EXPECT_TRUE(setOf(follower, range)->rp(addr("192.0.2.9")));
}

TEST_F(RpBoundsTest, OwnCandidateRpDisplacesNoSecondRpInAPeriod) {
  bsr.ingressSettingsIs({.rpsPerRange = 2});
  for (int i = 1; i <= 2; ++i)
    EXPECT_EQ(reasonFor({.rp = rpNamed(1, i), .priority = 100, .holdtime = 1000}), "");
  run(61);
  EXPECT_EQ(reasonFor({"203.0.2.1", 0}), "range-full");
  double const displaced = context.now();
  runToMessage();
  run(1);
  EXPECT_EQ(reasonFor({.rp = "203.0.2.1", .priority = 0, .holdtime = 1000}), "");
  ASSERT_LT(context.now(), displaced + 50) << "the period lasts";
  offerOwn(range);
  run(5);
  EXPECT_EQ(count(), 2u);
  EXPECT_NE(holdtime("203.0.1.1"), 0);
  EXPECT_NE(holdtime("203.0.2.1"), 0);
  run(140);
  EXPECT_FALSE(has("203.0.1.1")) << "the worst one leaves in a later period";
  EXPECT_TRUE(has("203.0.2.1"));
  EXPECT_TRUE(has("192.0.2.9"));
}

TEST_F(RpBoundsTest, OwnCandidateRpDisplacesNoPreferredOne) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rpsPerRange = 2});
  EXPECT_EQ(reasonFor({.rp = "203.0.1.1", .priority = 0, .holdtime = 1000}), "");
  EXPECT_EQ(reasonFor({.rp = "10.0.0.1", .priority = 255, .holdtime = 1000}), "");
  runToMessage();
  offerOwn(range);
  run(5);
  EXPECT_NE(holdtime("10.0.0.1"), 0);
  EXPECT_EQ(holdtime("203.0.1.1"), 0);
  EXPECT_EQ(reasonFor({"10.0.0.2", 255}), "range-full");
  run(130);
  EXPECT_TRUE(has("192.0.2.9"));
  runToMessage();
  bsr.candidateRpIs(prefix(range), {.address = addr("192.0.2.10"), .intfId = intf("eth0")});
  run(5);
  EXPECT_NE(holdtime("10.0.0.1"), 0) << "a preferred RP stays, and RP Count has room for the own one";
  EXPECT_TRUE(has("192.0.2.9"));
  EXPECT_TRUE(has("192.0.2.10"));
  EXPECT_EQ(count(), 3u);
}

TEST_F(RpBoundsTest, OwnCandidateRpThatWaitsInOneRangeEntersTheOthers) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1);
  offerOwn(range);
  offerOwn("239.2.0.0/16");
  run(5);
  EXPECT_TRUE(has("192.0.2.9", "239.2.0.0/16"));
  EXPECT_FALSE(has("192.0.2.9"));
  EXPECT_EQ(count(all), 0u);
}

// Several ranges in one advertisement ---------------------------------------------------------------------

TEST_F(RpBoundsTest, RangesThatFitPassAndTheOthersAreReported) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  fill(1, 1);
  Reception reception = receive({.rp = "203.0.2.1", .ranges = {"239.0.0.0/16", range, "239.2.0.0/16"}});
  EXPECT_EQ(reception.reason, "range-full");
  EXPECT_EQ(reception.droppedRanges, 1u);
  EXPECT_FALSE(reception.dropped());
  EXPECT_TRUE(has("203.0.2.1", "239.0.0.0/16"));
  EXPECT_TRUE(has("203.0.2.1", "239.2.0.0/16"));
  EXPECT_FALSE(has("203.0.2.1"));
  U32 before = bsr.status()->counters()->rxCrpAdv();
  Reception none = receive({.rp = "203.0.3.1", .ranges = {"239.0.0.0/16", range}});
  EXPECT_TRUE(none.dropped());
  EXPECT_EQ(none.droppedRanges, 0u);
  EXPECT_EQ(bsr.status()->counters()->rxCrpAdv(), before);
}

TEST_F(RpBoundsTest, AdvertisementWithoutRangesIsBoundedToo) {
  bsr.ingressSettingsIs({.rpsPerRange = 1});
  EXPECT_EQ(reasonFor({.rp = "203.0.1.1", .ranges = {}}), "");
  EXPECT_EQ(reasonFor({.rp = "203.0.1.2", .ranges = {}}), "range-full");
  EXPECT_EQ(count(all), 1u);
}

// Ranges of a zone ----------------------------------------------------------------------------------------

TEST_F(RpBoundsTest, ZoneHoldsSoManyRangesAndKnownOnesTakeMoreRps) {
  bsr.ingressSettingsIs({.rangesPerZone = 2});
  Offer three{.rp = "203.0.1.1", .ranges = {"239.1.0.0/16", "239.2.0.0/16", "239.3.0.0/16"}};
  Reception reception = receive(three);
  EXPECT_EQ(reception.reason, "zone-ranges");
  EXPECT_EQ(reception.droppedRanges, 1u);
  EXPECT_EQ(reasonFor({.rp = "203.0.1.1", .ranges = {"239.4.0.0/16"}}), "zone-ranges");
  EXPECT_EQ(reasonFor({.rp = "203.0.1.2", .ranges = {"239.1.0.0/16", "239.2.0.0/16"}}), "");
}

TEST_F(RpBoundsTest, HalfOfTheRangesOfAZoneIsKeptForPreferredRps) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rangesPerZone = 4});
  auto ask = [this](std::string const& rp, int number) {
    return reasonFor({.rp = rp, .ranges = {numbered("239.", number) + ".0.0/16"}});
  };
  for (int i = 1; i <= 2; ++i) EXPECT_EQ(ask("203.0.1.1", i), "");
  EXPECT_EQ(ask("203.0.1.1", 3), "zone-ranges");
  for (int i = 3; i <= 4; ++i) EXPECT_EQ(ask("10.0.0.1", i), "");
  EXPECT_EQ(ask("10.0.0.1", 5), "zone-ranges");
  EXPECT_EQ(ask("203.0.1.1", 4), "") << "a known range";
}

// RPs of all zones ----------------------------------------------------------------------------------------

TEST_F(RpBoundsTest, HalfOfAllRpsIsKeptForPreferredRps) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rps = 5});
  fill(1, 3);
  EXPECT_EQ(reasonFor({"203.0.1.4"}), "rp-quota");
  for (int i = 1; i <= 2; ++i) EXPECT_EQ(reasonFor({numbered("10.0.0.", i)}), "");
  EXPECT_EQ(reasonFor({"10.0.0.3"}), "rp-quota") << "a preferred RP doesn't pass the whole bound";
  fill(1, 3);
  EXPECT_EQ(reasonFor({"203.0.1.1", 100, {"239.2.0.0/16"}}), "rp-quota") << "a known RP in another range";
}

TEST_F(RpBoundsTest, WithoutPreferredRpsAllShareTheBoundOfRps) {
  bsr.ingressSettingsIs({.rps = 5});
  fill(1, 5);
  EXPECT_EQ(reasonFor({"10.0.0.1"}), "rp-quota");
}

TEST_F(RpBoundsTest, FloodOfRpsInManyRangesKeepsNoPreferredRpOut) {
  bsr.preferredRpsIs(listed());
  bsr.ingressSettingsIs({.rps = 100});
  for (int i = 0; i < 1000; ++i) {
    std::string const one = numbered("239.", i % 50) + ".0.0/16";
    std::string const reason = reasonFor({rpNamed(1 + i / 250, 1 + i % 250), 0, {one}});
    EXPECT_EQ(reason, i < 50 ? "" : "rp-quota") << i;
  }
  for (int i = 1; i <= 50; ++i) EXPECT_EQ(reasonFor({numbered("10.0.0.", i), 255}), "") << i;
  EXPECT_EQ(count(), 51u) << "the preferred RPs, and one of the flood";
}

// Floods --------------------------------------------------------------------------------------------------

/// What an attacker with forged sources sends in each period of 60 seconds.
struct Flood {
  std::string name;
  std::vector<U8> priorities;  ///< of its RPs, in turn
  bool isFirst = false;        ///< whether it comes before the honest RPs
  U32 mtu = 9000;
};

class RpFlood : public RpBoundsTest, public testing::WithParamInterface<Flood> {
 protected:
  RpFlood() : RpBoundsTest(GetParam().mtu) { bsr.preferredRpsIs(listed()); }

  void attack(int period) {
    std::vector<U8> const& priorities = GetParam().priorities;
    for (int i = 0; i < 255; ++i) {
      U8 priority = priorities[static_cast<std::size_t>(i + period) % priorities.size()];
      receive({numbered(numbered("198.18.", i % 2 == 0 ? 0 : period % 256) + ".", i + 1), priority});
    }
  }
  /// 20 honest RPs that no list names, and 10 that one does.
  void honest() {
    for (int i = 1; i <= 20; ++i) receive({rpNamed(1, i), 100});
    for (int i = 1; i <= 10; ++i) {
      Reception reception = receive({numbered("10.0.0.", i), 255});
      EXPECT_TRUE(!isSettled || reception.reason.empty()) << i << ' ' << reception.reason;
    }
  }
  void period(int number) {
    if (GetParam().isFirst) attack(number);
    honest();
    attack(number);
    for (int i = 0; i < 6; ++i) {
      run(10);
      ASSERT_LE(count(), 255u);
    }
    ASSERT_TRUE(setOf(follower, range));
    EXPECT_GT(setOf(follower, range)->rpCount(), 0u);
  }

  bool isSettled = false;
};

TEST_P(RpFlood, TakesNoRangeAndNoListedRp) {
  bool isFirst = GetParam().isFirst;
  int const settling = isFirst ? 16 : 0;
  for (int number = 0; number < settling; ++number) period(number);
  isSettled = true;
  std::size_t firstSettled = sent.size();
  for (int number = settling; number < settling + 30; ++number) period(number);
  for (std::size_t i = firstSettled + 2; i < sent.size(); ++i) {
    auto const& rps = sent[i].holdtimes.at(range);
    for (int rp = 1; rp <= 10; ++rp) {
      auto at = rps.find(numbered("10.0.0.", rp));
      ASSERT_TRUE(at != rps.end()) << i << ' ' << rp;
      EXPECT_NE(at->second, 0);
    }
  }
}

TEST_P(RpFlood, ChangesOneRpInAPeriodAndSaysSoOnce) {
  for (int number = 0; number < 30; ++number) period(number);
  std::size_t withdrawals = 0;
  std::set<std::string> lastGone;
  for (SentMessage const& message : sent) {
    auto found = message.rpCounts.find(range);
    if (found == message.rpCounts.end()) continue;
    EXPECT_EQ(found->second, static_cast<int>(message.holdtimes.at(range).size()));
    EXPECT_GT(found->second, 0);
    std::set<std::string> gone;
    for (auto const& [rp, seconds] : message.holdtimes.at(range)) {
      if (seconds == 0) gone.insert(rp);
    }
    for (std::string const& rp : gone) EXPECT_FALSE(lastGone.contains(rp)) << rp << " was withdrawn twice";
    EXPECT_LE(gone.size(), 1u);
    withdrawals += gone.size();
    lastGone = gone;
  }
  EXPECT_LE(withdrawals, 31u);
}

Flood const floods[] = {
    {"ofTheWorstPriority", {255}},
    {"ofTheBestPriority", {0}},
    {"ofAlternatingPriorities", {0, 255, 100}},
    {"ofTheBestPriorityBeforeHonestRps", {0}, true},
    {"ofTheBestPriorityInFragments", {0}, false, 1500},
};
INSTANTIATE_TEST_SUITE_P(Attacker, RpFlood, testing::ValuesIn(floods),
                         [](auto const& flood) { return flood.param.name; });

}  // namespace
}  // namespace test
