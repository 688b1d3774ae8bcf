#include <string>
#include <vector>

#include "tests/support/CrpEngine.h"

namespace test {
namespace {

using Zet::Ptr;
using Texts = std::vector<std::string>;

char const* const globalZone = "224.0.0.0/4";
char const* const us = "203.0.113.1";
std::string const skipping =
    "Skipping sending C-RP Advertisement Message since crpAdvSet is empty or number of prefixes is 0";

class RpCandidate : public CrpTest {
 protected:
  /// Draws these delays next, then 0 for ever.
  void delays(std::vector<int> const& randoms) {
    context.randoms.assign(randoms.begin(), randoms.end());
    context.randoms.resize(1000);
  }
  /// Makes us a candidate RP for these ranges at priority 10; the first advertisement leaves at once.
  void addUs(std::vector<std::string> const& ranges, Zet::U32 interval = 60) {
    engine.addCrp(us, interval);
    for (std::string const& range : ranges) engine.addRange(us, range);
  }
  double nextAdv(Zet::U32 priority = 10) const {
    return engine.since(engine.advertiser(us, priority)->zetCrpAdvTimer()->timeMin());
  }
  std::string sets(Zet::U32 priority = 10) const { return engine.advSets(us, priority); }
  int backoff() const { return engine.advertiser(us)->crpAdvBackoffCount(); }
};

// Rhythm ----------------------------------------------------------------------------------------------

TEST_F(RpCandidate, StartsWithinTwoSecondsByARandomNumberModulo3) {
  int const randoms[] = {0, 1, 2, 3, 32767, 32768};
  for (int i = 0; i < 6; ++i) {
    context.randoms = {randoms[i]};
    std::string address = "203.0.113." + std::to_string(10 + i);
    engine.addCrp(address);
    engine.addRange(address, globalZone, 7);
    auto machine = engine.advertiser(address, 7);
    ASSERT_TRUE(machine);
    EXPECT_EQ(machine->remainingCrpAdvTime(), randoms[i] % 3);
    EXPECT_EQ(machine->crpAdvBackoffCount(), 0);
    EXPECT_TRUE(machine->initialized());
    EXPECT_EQ(context.tracedAs("Instantiated CRP SM " + address + " with priority 7"),
              "Pim::Bsr::RpCandidateSm 8 RpCandidateSm");
  }
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 2 seconds from now"), 2);
}

TEST_F(RpCandidate, ACandidateBesideAnElectedBsrAdvertisesOnceAtItsStartAndThenEachInterval) {
  engine.electOther(globalZone, "10.0.0.9");
  delays({2});
  addUs({globalZone});
  EXPECT_EQ(engine.advTimes(200), (std::vector<int>{2, 62, 122, 182}));
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 60 seconds from now"), 4);
}

TEST_F(RpCandidate, WithoutAnElectedBsrItSendsNothingAndItsTimerRunsOn) {
  delays({1});
  addUs({globalZone});
  EXPECT_EQ(sets(), "");
  EXPECT_TRUE(engine.advTimes(100).empty());
  EXPECT_EQ(nextAdv(), 121);
}

TEST_F(RpCandidate, AFirstElectedBsrIsSentThreeAdvertisementsAndThenOneEachInterval) {
  delays({0});
  addUs({globalZone});
  engine.runTo(10);
  delays({0, 2, 1, 2});  // the entry and its address are two changes; the latter counts
  engine.electOther(globalZone, "10.0.0.9");
  EXPECT_EQ(sets(), "224.0.0.0/4: 224.0.0.0/4");
  EXPECT_EQ(backoff(), 2);
  EXPECT_EQ(nextAdv(), 12);
  EXPECT_EQ(engine.advTimes(140), (std::vector<int>{12, 13, 15, 75, 135}));
  EXPECT_EQ(backoff(), 0);
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 0 seconds from now. backoffCount=2"), 1);
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 2 seconds from now. backoffCount=2"), 1);
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 1 seconds from now. BackoffCount=1"), 1);
  EXPECT_EQ(context.traced("Setting up CRP Adv timer to fire in 2 seconds from now. BackoffCount=0"), 1);
}

TEST_F(RpCandidate, ADelayOf0SendsTwiceAtTheSameTime) {
  delays({});
  addUs({globalZone});
  engine.runTo(10);
  engine.electOther(globalZone, "10.0.0.9");
  EXPECT_EQ(engine.advTimes(100), (std::vector<int>{10, 10, 10, 70}));
}

TEST_F(RpCandidate, AnotherBsrOfTheZoneIsSentThreeAdvertisementsOverridingAPendingTime) {
  engine.electOther(globalZone, "10.0.0.9");
  delays({0});
  addUs({globalZone});
  engine.runTo(30);
  delays({1, 0, 2});
  engine.takeAdvs();
  engine.electOther(globalZone, "10.0.0.8");
  EXPECT_EQ(nextAdv(), 31);
  engine.runTo(31);
  EXPECT_EQ(
      engine.takeAdvs(),
      (Texts(2, "203.0.113.1 > 10.0.0.8 rp 203.0.113.1 priority 10 holdtime 180 count 1: 224.0.0.0/4")));
  EXPECT_EQ(engine.advTimes(100), (std::vector<int>{33, 93}));
}

TEST_F(RpCandidate, AChangeDuringTheQuickRepetitionsStartsThemAnew) {
  engine.electOther(globalZone, "10.0.0.9");
  delays({0});
  addUs({globalZone});
  engine.runTo(30);
  delays({1, 1});
  engine.electOther(globalZone, "10.0.0.8");
  engine.runTo(31);
  EXPECT_EQ(backoff(), 1);
  engine.electOther(globalZone, "10.0.0.7");
  EXPECT_EQ(backoff(), 2);
}

TEST_F(RpCandidate, ALostZoneLeavesTimerAndCountUnchanged) {
  delays({0});
  addUs({globalZone});
  engine.runTo(10);
  delays({2, 2, 1});
  engine.electOther(globalZone, "10.0.0.9");
  engine.runTo(12);
  engine.status->bootstrapRouterDel(prefix(globalZone));
  EXPECT_EQ(backoff(), 1);
  EXPECT_EQ(nextAdv(), 13);
  EXPECT_EQ(sets(), "");
  EXPECT_EQ(context.traced("Deleting crpAdvSet for zone 224.0.0.0/4"), 1);
  EXPECT_TRUE(engine.advTimes(100).empty());
}

// The interval ----------------------------------------------------------------------------------------

struct IntervalChange {
  double at;  ///< the timer is at 60 seconds
  Zet::U32 interval;
  double next;
};

class RpCandidateInterval : public RpCandidate, public testing::WithParamInterface<IntervalChange> {};

TEST_P(RpCandidateInterval, AChangeAppliesAtOnceIfAtLeastTheNewIntervalRemains) {
  auto [at, interval, next] = GetParam();
  delays({});
  addUs({globalZone});
  engine.runTo(at);
  engine.status->crp(addr(us))->intervalIs(interval);
  EXPECT_EQ(nextAdv(), next);
  EXPECT_EQ(context.tracedPrefix("CRP Interval timer expiry was in"), 60 - at >= interval ? 1 : 0);
  engine.runTo(next);
  EXPECT_EQ(nextAdv(), next + interval);
}

INSTANTIATE_TEST_SUITE_P(Cases, RpCandidateInterval,
                         testing::Values(IntervalChange{10, 30, 40}, IntervalChange{40, 30, 60},
                                         IntervalChange{30, 30, 60}, IntervalChange{31, 30, 60},
                                         IntervalChange{10, 120, 60}));

TEST_F(RpCandidate, AShortenedIntervalIsTracedWithTheTimeThatRemained) {
  delays({});
  addUs({globalZone});
  engine.runTo(10);
  engine.status->crp(addr(us))->intervalIs(30);
  EXPECT_EQ(context.traced("CRP Interval timer expiry was in 50 seconds from now. Resetting it to 30 seconds "
                           "from now."),
            1);
}

TEST_F(RpCandidate, AStoppedTimerIsLeftByAChangeOfInterval) {
  addUs({globalZone});
  auto* timer = engine.advertiser(us)->zetCrpAdvTimer();
  for (double unset : {0.0, Kiv::never}) {
    timer->timeMinIs(unset);
    engine.status->crp(addr(us))->intervalIs(unset == 0.0 ? 30 : 20);
    EXPECT_EQ(timer->timeMin(), unset);
  }
  EXPECT_EQ(context.traced("Interval timer not set. Nothing to be done. "), 2);
}

// Sorting into zones ----------------------------------------------------------------------------------

TEST_F(RpCandidate, SortsEachRangeIntoTheZoneThatCoversItBestAndLeavesOutWhatNoneCovers) {
  engine.electOther("239.1.0.0/16", "10.0.0.1");
  engine.electOther("239.0.0.0/8", "10.0.0.2");
  addUs({"239.1.2.0/24", "239.2.0.0/16", "239.0.0.0/8", "238.0.0.0/8"});
  EXPECT_EQ(sets(), "239.0.0.0/8: 239.0.0.0/8 239.2.0.0/16; 239.1.0.0/16: 239.1.2.0/24");
  EXPECT_EQ(context.traced("Created crpAdvSet for zone 239.0.0.0/8"), 1);
  EXPECT_EQ(context.traced("Added prefix 239.1.2.0/24 to crpAdvSet for zone 239.1.0.0/16"), 1);
}

TEST_F(RpCandidate, AScopedZoneTakesItsRangesOutOfTheCoveringOne) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.2.0/24", "239.1.0.0/16", "239.2.0.0/16"});
  context.traces.clear();
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.2.0.0/16; 239.1.0.0/16: 239.1.0.0/16 239.1.2.0/24");
  EXPECT_EQ(context.traced("Deleting prefix 239.1.2.0/24 from 224.0.0.0/4 crpAdvSet"), 1);
  EXPECT_EQ(context.tracedPrefix("Deleting prefix 239.2.0.0/16"), 0);
  EXPECT_EQ(context.tracedPrefix("Added prefix 239.2.0.0/16"), 0);  // untouched
}

TEST_F(RpCandidate, AZoneBetweenTwoTakesOnlyWhatIsItsOwn) {
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  addUs({"239.1.2.0/24", "239.2.0.0/16", "238.0.0.0/8"});
  engine.electOther("239.0.0.0/8", "10.0.0.3");
  EXPECT_EQ(sets(), "224.0.0.0/4: 238.0.0.0/8; 239.0.0.0/8: 239.2.0.0/16; 239.1.0.0/16: 239.1.2.0/24");
}

TEST_F(RpCandidate, TheRangesOfALostZoneMoveToTheZoneThatCoversThemNow) {
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  addUs({"239.1.2.0/24", "239.2.0.0/16"});
  engine.status->bootstrapRouterDel(prefix("239.1.0.0/16"));
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.2.0/24 239.2.0.0/16");
  engine.status->bootstrapRouterDel(prefix(globalZone));
  EXPECT_EQ(sets(), "");
}

TEST_F(RpCandidate, AZoneKeepsItsRangesBesideACoveringOneThatHasNone) {
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.0.0.0/8", "10.0.0.2");
  addUs({"239.1.0.0/16"});
  engine.electOther("239.0.0.0/8", "10.0.0.3");
  EXPECT_EQ(sets(), "239.0.0.0/8: 239.1.0.0/16");
}

TEST_F(RpCandidate, ALostZoneTakesOnlyItsOwnSet) {
  engine.electOther("238.0.0.0/8", "10.0.0.1");
  engine.electOther("239.0.0.0/8", "10.0.0.2");
  addUs({"238.0.0.0/8", "239.0.0.0/8"});
  engine.addRange(us, "238.0.0.0/8", 20);
  engine.status->bootstrapRouterDel(prefix("239.0.0.0/8"));
  EXPECT_EQ(sets(), "238.0.0.0/8:");
}

TEST_F(RpCandidate, ALostZoneIsAdvertisedToNoMore) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  addUs({"239.1.2.0/24"});
  engine.runTo(1);
  EXPECT_EQ(engine.takeAdvs(),
            Texts{"203.0.113.1 > 10.0.0.2 rp 203.0.113.1 priority 10 holdtime 180 count 1: 239.1.2.0/24"});
  engine.status->bootstrapRouterDel(prefix("239.1.0.0/16"));
  engine.runTo(61);
  EXPECT_EQ(engine.takeAdvs(),
            Texts{"203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 10 holdtime 180 count 1: 239.1.2.0/24"});
}

TEST_F(RpCandidate, ARangeThatComesWhileItRunsIsAdvertisedFromTheNextTime) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  engine.runTo(5);
  engine.addRange(us, "239.2.0.0/16");
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.0.0/16 239.2.0.0/16");
  EXPECT_EQ(nextAdv(), 60);
}

// Nothing hears of an end of options: the range goes when its zone changes and the ranges are sorted anew.
TEST_F(RpCandidate, ARangeWhoseOptionsWentIsAdvertisedUntilItsZoneChanges) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16", "239.2.0.0/16"});
  engine.status->crp(addr(us))->prefixOptionsDel(prefix("239.2.0.0/16"));
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.0.0/16 239.2.0.0/16");
  engine.electOther(globalZone, "10.0.0.2");
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.0.0/16");
}

// Priorities ------------------------------------------------------------------------------------------

TEST_F(RpCandidate, OneMachinePerAddressAndPriorityAdvertisesItsOwnRanges) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  engine.addRange(us, "239.2.0.0/16", 20);
  engine.addRange(us, "239.3.0.0/16", 10);
  engine.addCrp("203.0.113.2", 30);
  engine.addRange("203.0.113.2", "239.1.0.0/16", 10);
  EXPECT_EQ(sets(10), "224.0.0.0/4: 239.1.0.0/16 239.3.0.0/16");
  EXPECT_EQ(sets(20), "224.0.0.0/4: 239.2.0.0/16");
  engine.runTo(1);
  EXPECT_EQ(
      engine.takeAdvs(),
      (Texts{
          "203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 10 holdtime 180 count 2: 239.1.0.0/16 239.3.0.0/16",
          "203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 20 holdtime 180 count 1: 239.2.0.0/16",
          "203.0.113.2 > 10.0.0.1 rp 203.0.113.2 priority 10 holdtime 90 count 1: 239.1.0.0/16"}));
}

TEST_F(RpCandidate, AChangedPriorityMovesTheRangeToTheOtherMachine) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16", "239.2.0.0/16"});
  engine.addRange(us, "239.2.0.0/16", 20);
  EXPECT_EQ(sets(10), "224.0.0.0/4: 239.1.0.0/16");
  EXPECT_EQ(sets(20), "224.0.0.0/4: 239.2.0.0/16");
  EXPECT_EQ(context.traced("Deleted prefix 239.2.0.0/16 from crpAdvSet for zone 224.0.0.0/4"), 1);
}

TEST_F(RpCandidate, AnEmptiedSetStaysAndNothingIsSentForIt) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  engine.addRange(us, "239.1.0.0/16", 20);
  EXPECT_EQ(sets(10), "224.0.0.0/4:");
  engine.runTo(1);
  EXPECT_EQ(engine.takeAdvs(),
            Texts{"203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 20 holdtime 180 count 1: 239.1.0.0/16"});
  EXPECT_EQ(context.traced(skipping), 1);
}

TEST_F(RpCandidate, APriorityThatBecomesUnknownLeavesTheRangeWhereItIs) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  engine.addRange(us, "239.1.0.0/16", 256);
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.0.0/16");
}

// The message -----------------------------------------------------------------------------------------

TEST_F(RpCandidate, EachZonesBsrGetsItsZonesRanges) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  engine.electOther("239.5.0.0/16", "10.0.0.3");
  addUs({"239.1.2.0/24", "239.2.0.0/16", "238.0.0.0/8"});
  engine.runTo(1);
  EXPECT_EQ(
      engine.takeAdvs(),
      (Texts{
          "203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 10 holdtime 180 count 2: 238.0.0.0/8 239.2.0.0/16",
          "203.0.113.1 > 10.0.0.2 rp 203.0.113.1 priority 10 holdtime 180 count 1: 239.1.2.0/24"}));
  EXPECT_EQ(context.traced(" ( shutdown=False"), 1);
  EXPECT_EQ(context.traced(skipping), 1);
  EXPECT_EQ(context.traced("Sending CRP Advertisement message to BSR 10.0.0.1 containing 2 prefixes"), 1);
  EXPECT_EQ(context.traced("Sending CRP Advertisement message to BSR 10.0.0.2 containing 1 prefixes"), 1);
}

TEST_F(RpCandidate, HoldtimeIsThreeTimesTheInterval) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  struct {
    Zet::U32 interval;
    int holdtime;
  } const cases[] = {{1, 3}, {60, 180}, {16383, 49149}};
  int i = 0;
  for (auto const& c : cases) {
    std::string address = "203.0.113." + std::to_string(++i);
    engine.addCrp(address, c.interval);
    engine.addRange(address, globalZone);
    engine.advertiser(address)->doSendCrpAdv(false);
    EXPECT_EQ(engine.takeAdvs(), Texts{address + " > 10.0.0.1 rp " + address + " priority 10 holdtime " +
                                       std::to_string(c.holdtime) + " count 1: 224.0.0.0/4"});
  }
}

TEST_F(RpCandidate, AnOverfullSetFills256EntriesAndAnnounces255) {
  struct {
    int ranges, announced, entries, traced;
  } const cases[] = {{255, 255, 255, 0}, {256, 255, 256, 1}, {300, 255, 256, 1}};
  engine.electOther(globalZone, "10.0.0.1");
  int i = 0;
  for (auto const& c : cases) {
    std::string address = "203.0.113." + std::to_string(++i);
    engine.addCrp(address);
    for (int n = 0; n < c.ranges; ++n) {
      engine.addRange(address, "239." + std::to_string(n / 256) + "." + std::to_string(n % 256) + ".0/24");
    }
    context.traces.clear();
    engine.advertiser(address)->doSendCrpAdv(false);
    auto* adv = dynamic_cast<Routing::Pim::Packet::CrpAdvMessage*>(engine.outbox->sent.back().message.ptr());
    EXPECT_EQ(adv->prefixCount(), c.announced);
    EXPECT_EQ(adv->groupData()->groupInfoCount(), static_cast<Zet::U32>(c.entries));
    EXPECT_EQ(
        context.traced("Configured prefixes are greater than 255. Publishing only the maximum possible."),
        c.traced);
    EXPECT_EQ(context.traced("Sending CRP Advertisement message to BSR 10.0.0.1 containing " +
                             std::to_string(c.ranges) + " prefixes"),
              1);
  }
}

TEST_F(RpCandidate, TheScopeBitIsSetInAScopedZoneWithABorderEntryWhateverItHolds) {
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  engine.electOther("239.2.0.0/16", "10.0.0.3");
  engine.electOther("239.3.0.0/16", "10.0.0.4");
  engine.addBorder(globalZone, "eth0");
  engine.addBorder("239.1.0.0/16", "eth0");
  engine.addBorder("239.3.0.0/16", "eth0", false);
  addUs({"238.0.0.0/8", "239.1.0.0/16", "239.1.2.0/24", "239.2.0.0/16", "239.3.0.0/16"});
  engine.advertiser(us)->doSendCrpAdv(false);
  EXPECT_EQ(
      engine.takeAdvs(),
      (Texts{"203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 10 holdtime 180 count 1: 238.0.0.0/8",
             "203.0.113.1 > 10.0.0.2 rp 203.0.113.1 priority 10 holdtime 180 count 2: 239.1.0.0/16+1 "
             "239.1.2.0/24+1",
             "203.0.113.1 > 10.0.0.3 rp 203.0.113.1 priority 10 holdtime 180 count 1: 239.2.0.0/16",
             "203.0.113.1 > 10.0.0.4 rp 203.0.113.1 priority 10 holdtime 180 count 1: 239.3.0.0/16+1"}));
  EXPECT_EQ(context.traced("C-RP is a ZBR"), 2);
}

TEST_F(RpCandidate, ShutdownWithdrawsInAllZonesThatHaveRangesAtOnce) {
  engine.electOther(globalZone, "10.0.0.1");
  engine.electOther("239.1.0.0/16", "10.0.0.2");
  engine.electOther("239.2.0.0/16", "10.0.0.3");
  addUs({"238.0.0.0/8", "239.1.2.0/24", "239.2.0.0/16"});
  engine.addRange(us, "239.1.2.0/24", 20);  // leaves an empty set in its zone
  engine.advertiser(us)->doSendCrpAdv(true);
  EXPECT_EQ(engine.takeAdvs(),
            (Texts{"203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 10 holdtime 0 count 1: 238.0.0.0/8",
                   "203.0.113.1 > 10.0.0.3 rp 203.0.113.1 priority 10 holdtime 0 count 1: 239.2.0.0/16"}));
  EXPECT_EQ(context.traced(" ( shutdown=True"), 1);
  EXPECT_EQ(context.traced(skipping), 1);
}

TEST_F(RpCandidate, ALostAdvertisementIsRepeatedAtTheNextExpiryOnly) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  engine.outbox->fails = true;
  addUs({globalZone});
  EXPECT_EQ(engine.advTimes(100), (std::vector<int>{0, 60}));
  EXPECT_EQ(engine.status->counters()->txError(), 2u);
}

TEST_F(RpCandidate, ItsOwnRouterAsBsrGetsAdvertisementsThroughTheReceivePath) {
  delays({});
  engine.addRoute("10.0.0.1/32", Slosh::Fib::RouteType::local);
  engine.electUs(globalZone);
  addUs({"239.0.0.0/8"});
  EXPECT_EQ(engine.advTimes(5), std::vector<int>{});
  EXPECT_EQ(engine.rpSet(globalZone), "239.0.0.0/8: 203.0.113.1/180/10");
  engine.status->crpDel(addr(us));
  EXPECT_EQ(engine.rpSet(globalZone), "239.0.0.0/8: 203.0.113.1/0/10");
  engine.runTo(15);
  EXPECT_EQ(engine.rpSet(globalZone), "");
}

// Intervals above 13652 seconds give holdtimes that the receive path drops.
TEST_F(RpCandidate, ALongIntervalIsDroppedByItsOwnRouterAsBsr) {
  engine.addRoute("10.0.0.1/32", Slosh::Fib::RouteType::local);
  engine.electUs(globalZone);
  addUs({globalZone}, 13652);
  engine.advertiser(us)->doSendCrpAdv(false);
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/40956/10");
  engine.status->crp(addr(us))->intervalIs(13653);
  engine.advertiser(us)->doSendCrpAdv(false);
  expectedExceptions = 1;
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/40956/10");
}

// Life ------------------------------------------------------------------------------------------------

TEST_F(RpCandidate, BeforeItIsInitializedItDoesNothing) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  auto machine = engine.advertiser(us);
  double next = nextAdv();
  machine->initializedIs(false);
  engine.electOther("239.0.0.0/8", "10.0.0.2");
  engine.addRange(us, "239.2.0.0/16");
  engine.status->crp(addr(us))->intervalIs(1);
  machine->doSendCrpAdv(true);
  machine->handleCrpAdvTimerExpiry();
  machine->doUpdateCrpAdvSet(prefix(""));
  EXPECT_EQ(sets(), "224.0.0.0/4: 239.1.0.0/16");
  EXPECT_EQ(nextAdv(), next);
  EXPECT_TRUE(engine.takeAdvs().empty());
}

TEST_F(RpCandidate, ItIsInitializedOnce) {
  delays({});
  addUs({globalZone});
  engine.runTo(10);
  engine.advertiser(us)->handleInitialized();
  EXPECT_EQ(nextAdv(), 60);
  EXPECT_EQ(context.tracedPrefix("Instantiated CRP SM"), 1);
}

TEST_F(RpCandidate, ItsEndStopsItsTimerAndItsReactors) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({globalZone});
  EXPECT_EQ(engine.wheel->armed(), 1u);
  engine.status->crpDel(addr(us));
  EXPECT_EQ(engine.wheel->armed(), 0u);
  context.traces.clear();
  engine.electOther(globalZone, "10.0.0.2");
  EXPECT_EQ(context.tracedPrefix("Setting up CRP Adv timer"), 0);
}

TEST_F(RpCandidate, AnAddressFamilyTakenAwayEndsAllMachinesWithoutAMessage) {
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16"});
  engine.addRange(us, "239.2.0.0/16", 20);
  engine.status->afIs(Lanet::AddressFamily::unset);
  EXPECT_EQ(engine.root->rpCandidateSmCount(), 0u);
  EXPECT_TRUE(engine.advTimes(200).empty());
}

TEST_F(RpCandidate, AnAddressFamilyGivenBackMakesAMachineOnlyWhenAPriorityChanges) {
  delays({});
  engine.electOther(globalZone, "10.0.0.1");
  addUs({"239.1.0.0/16", "239.2.0.0/16"});
  engine.status->afIs(Lanet::AddressFamily::unset);
  engine.status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_EQ(engine.root->rpCandidateSmCount(), 0u);
  engine.addRange(us, "239.1.0.0/16", 20);
  EXPECT_FALSE(engine.advertiser(us, 10));
  ASSERT_TRUE(engine.advertiser(us, 20));
  EXPECT_EQ(sets(20), "224.0.0.0/4: 239.1.0.0/16");
  engine.runTo(1);
  EXPECT_EQ(engine.takeAdvs(),
            Texts{"203.0.113.1 > 10.0.0.1 rp 203.0.113.1 priority 20 holdtime 180 count 1: 239.1.0.0/16"});
}

}  // namespace
}  // namespace test
