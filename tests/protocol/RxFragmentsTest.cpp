#include <gmock/gmock.h>

#include "tests/protocol/NonCandidateSupport.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zet::Ptr;

std::string const range = "239.1.0.0/16";
std::string const otherRange = "239.2.0.0/16";

/// The RPs 203.0.113.n for n from `first` to `last`.
std::vector<Rp> rps(int first, int last) {
  std::vector<Rp> all;
  for (int n = first; n <= last; ++n) all.push_back({"203.0.113." + std::to_string(n)});
  return all;
}

/// A fragment of a message of the global zone: one range of `rpCount` RPs in all.
Bsm fragment(Zet::U16 tag, std::vector<Rp> const& held, int rpCount, std::string const& prefix = range) {
  return {.groups = {{prefix, held, 0, rpCount}}, .tag = tag};
}

class RxFragments : public EngineTest {
 protected:
  Ptr<Bsr::PimBsrRxFragments> tag(Zet::U16 number) const { return engine.root->bsmRxFragments(number); }
  Ptr<Bsr::PimBsrRxFragment> held(Zet::U16 number, std::string const& of = range) const {
    return tag(number) ? tag(number)->groupRpData(prefix(of)) : nullptr;
  }
  double timer() const { return due(engine, engine.root->zetFragmentTimer()); }
  /// What the root machine has traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }
  /// Stores a message without a zone machine.
  void store(Bsm const& given) { engine.root->storeRpSet(prefix(global), make(given), false); }
};

std::string const started = "Started fragment timer to expire in 10 seconds from now";
std::string const stopped = "Stopped fragment timer";

std::string counts(int rpCount, int fragRpCount, int number) {
  return "RP Count=" + std::to_string(rpCount) + " RP Frag Count=" + std::to_string(fragRpCount) +
         " Fragment Tag=" + std::to_string(number);
}

// When a range is whole -------------------------------------------------------------------------------

TEST_F(RxFragments, ARangeThatIsWholeInOneMessageNeverEntersTheStore) {
  store({.groups = {{range, rps(1, 3)}}});
  EXPECT_EQ(context.tracedPrefix("RP Count="), 0);
  EXPECT_EQ(context.tracedPrefix("Started fragment timer"), 0);
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
}

TEST_F(RxFragments, TwoPlusThreeAreAppliedOnceWhenTheSecondArrives) {
  engine.runTo(3);
  store(fragment(7, rps(1, 2), 5));
  EXPECT_THAT(texts(), testing::IsSupersetOf({counts(5, 2, 7), started}));
  EXPECT_EQ(engine.rpSet(global), "");
  ASSERT_TRUE(held(7));
  EXPECT_EQ(held(7)->rpCount(), 5);
  EXPECT_EQ(held(7)->rps(), 2u);
  EXPECT_EQ(engine.since(held(7)->creationTime()), 3);
  EXPECT_EQ(timer(), 13);
  engine.runTo(9);
  store(fragment(7, rps(3, 5), 5));
  EXPECT_EQ(engine.rpSet(global),
            "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0 203.0.113.3/150/0 203.0.113.4/150/0 "
            "203.0.113.5/150/0");
  EXPECT_EQ(engine.since(engine.rp(global, range, "203.0.113.1")->setupTime()), 9);
  EXPECT_EQ(context.tracedPrefix("Adding RP"), 5);
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
  EXPECT_EQ(timer(), Kiv::never);
}

TEST_F(RxFragments, TheStepsOfACompletedRangeAreTracedInOrder) {
  engine.status->bootstrapRouterIs(prefix(global));
  texts();
  store(fragment(7, rps(1, 1), 2));
  EXPECT_THAT(texts(), ElementsAre(counts(2, 1, 7), started));
  store({.groups = {{range, {{"203.0.113.2", 0}}, 0, 2}}, .tag = 7});
  Texts all = texts();
  ASSERT_EQ(all.size(), 8u);
  EXPECT_EQ(all[0], counts(2, 1, 7));
  EXPECT_EQ(all[1], "We have received all fragments to process fragment tag 7 and prefix 239.1.0.0/16");
  EXPECT_EQ(all[2], "Creating Rp set associated with prefix 239.1.0.0/16");
  EXPECT_EQ(all[6], "Fragments related to 239.1.0.0/16 from fragment tag 7 processed");
  EXPECT_EQ(all[7], stopped);
}

TEST_F(RxFragments, TheSameFragmentTwiceAddsNothing) {
  store(fragment(7, rps(1, 2), 5));
  store(fragment(7, rps(1, 2), 5));
  EXPECT_EQ(held(7)->rps(), 2u);
  EXPECT_EQ(engine.rpSet(global), "");
  store(fragment(7, rps(2, 5), 5));
  EXPECT_FALSE(held(7));
  EXPECT_EQ(engine.status->crpStatus(prefix(global))->status()->crpSet(prefix(range))->rpCount(), 5u);
}

TEST_F(RxFragments, ALaterCopyOfAnAddressOverwritesTheEarlierValues) {
  store({.groups = {{range, {{"203.0.113.1", 100, 1}}, 0, 2}}, .tag = 7});
  store({.groups = {{range, {{"203.0.113.1", 90, 2}}, 0, 2}}, .tag = 7});
  EXPECT_EQ(held(7)->rp(addr("203.0.113.1"))->rpHoldtime(), 90);
  EXPECT_EQ(held(7)->rp(addr("203.0.113.1"))->rpPriority(), 2);
  store({.groups = {{range, {{"203.0.113.2", 80, 3}}, 0, 2}}, .tag = 7});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/90/2 203.0.113.2/80/3");
}

TEST_F(RxFragments, TheStoreHoldsCopiesOfTheRpRecords) {
  auto message = make(fragment(7, rps(1, 1), 2));
  engine.root->storeRpSet(prefix(global), message, false);
  message->groupRpData()->groupDataFirst()->rpListIs(addr("203.0.113.1"))->rpHoldtimeIs(1);
  EXPECT_EQ(held(7)->rp(addr("203.0.113.1"))->rpHoldtime(), 150);
}

TEST_F(RxFragments, TheFirstRecordFixesHowManyRpsARangeMustReachAndItsAge) {
  store(fragment(7, rps(1, 1), 3));
  engine.runTo(5);
  store(fragment(7, rps(2, 2), 9));
  EXPECT_EQ(held(7)->rpCount(), 3);
  EXPECT_EQ(engine.since(held(7)->creationTime()), 0);
  store(fragment(7, rps(3, 3), 2));
  EXPECT_FALSE(held(7));
  EXPECT_EQ(engine.status->crpStatus(prefix(global))->status()->crpSet(prefix(range))->rpCount(), 3u);
}

TEST_F(RxFragments, AFragmentThatHoldsMoreRpsThanItAnnouncesMayCompleteTheRange) {
  store({.groups = {{range, rps(1, 2), 0, 2, 1}}, .tag = 7});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0");
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
}

TEST_F(RxFragments, RangesOfOneTagCompleteIndependently) {
  store({.groups = {{range, rps(1, 1), 0, 2}, {otherRange, rps(1, 1), 0, 2}}, .tag = 7});
  EXPECT_EQ(tag(7)->groupRpDataCount(), 2u);
  store(fragment(7, rps(2, 2), 2));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0");
  EXPECT_FALSE(held(7));
  EXPECT_TRUE(held(7, otherRange));
  EXPECT_EQ(timer(), 10);
  store(fragment(7, rps(2, 2), 2, otherRange));
  EXPECT_FALSE(tag(7));
  EXPECT_EQ(timer(), Kiv::never);
}

TEST_F(RxFragments, TagsKeepTheSameRangeApart) {
  store(fragment(7, rps(1, 1), 2));
  store(fragment(8, rps(2, 2), 2));
  EXPECT_EQ(engine.rpSet(global), "");
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 2u);
  store(fragment(8, rps(3, 3), 2));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.2/150/0 203.0.113.3/150/0");
  EXPECT_TRUE(held(7));
  EXPECT_FALSE(tag(8));
}

TEST_F(RxFragments, AFragmentedRangeMayLieBesideWholeOnes) {
  store(
      {.groups = {{otherRange, rps(9, 9)}, {range, rps(1, 1), 0, 2}, {"239.3.0.0/16", rps(8, 8)}}, .tag = 7});
  EXPECT_EQ(engine.rpSet(global), "239.2.0.0/16: 203.0.113.9/150/0; 239.3.0.0/16: 203.0.113.8/150/0");
}

TEST_F(RxFragments, ARangeThatCompletesInARefreshWithoutASetStaysInTheStore) {
  store(fragment(7, rps(1, 1), 2));
  engine.root->refreshRpSet(prefix(global), make(fragment(7, rps(2, 2), 2)));
  EXPECT_EQ(held(7)->rps(), 2u);
  EXPECT_EQ(context.tracedPrefix("Fragments related"), 0);
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
}

using RxFragmentsDeathTest = RxFragments;

TEST_F(RxFragmentsDeathTest, MoreRpsThanAnnouncedEndTheProcess) {
  store(fragment(7, rps(1, 3), 4));
  EXPECT_DEATH(store(fragment(7, rps(4, 5), 4)), "fragment->rpCount\\(\\) == fragment->rps\\(\\)");
}

TEST_F(RxFragments, ACompleteRangeLeftByAnExceptionIsAppliedLaterAndTakesInNothingMore) {
  engine.receive(fragment(7, rps(1, 1), 2));
  Bsm broken = fragment(7, rps(2, 2), 2);
  broken.hashMaskLen = 129;
  engine.receive(broken);
  expectedExceptions = 1;
  ASSERT_TRUE(held(7));
  EXPECT_EQ(held(7)->rps(), 2u);
  texts();
  engine.receive(fragment(7, rps(3, 3), 2));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0");
  EXPECT_EQ(context.tracedPrefix("We have received all fragments"), 0);
  EXPECT_EQ(context.traced("Fragments related to 239.1.0.0/16 from fragment tag 7 processed"), 1);
  EXPECT_FALSE(tag(7));
}

// The timer -------------------------------------------------------------------------------------------

TEST_F(RxFragments, TheTimerIsStoppedUntilTheFirstTag) { EXPECT_EQ(timer(), Kiv::never); }

TEST_F(RxFragments, AFurtherTagLeavesTheTimersPhaseAlone) {
  store(fragment(7, rps(1, 1), 2));
  texts();
  engine.runTo(4);
  store(fragment(8, rps(1, 1), 2));
  store(fragment(7, rps(1, 1), 2, otherRange));
  EXPECT_EQ(timer(), 10);
  EXPECT_THAT(texts(), ElementsAre(counts(2, 1, 8), counts(2, 1, 7)));
}

TEST_F(RxFragments, WhileTagsRemainEachScanArmsTheNext) {
  store(fragment(7, rps(1, 1), 2));
  texts();
  engine.runTo(10);
  EXPECT_EQ(timer(), 20);
  EXPECT_EQ(context.tracedAs("fragment 239.1.0.0/16 around for 10 seconds"), "Pim::Bsr::Sm 1 PimBsrSm");
  EXPECT_THAT(texts(), ElementsAre("fragment 239.1.0.0/16 around for 10 seconds",
                                   "Next fragmentTimerTimeout in 10 seconds from now"));
}

TEST_F(RxFragments, TheTimerStopsWhenTheLastTagGoesForAnyReason) {
  store(fragment(7, rps(1, 1), 2));
  store(fragment(8, rps(1, 1), 2));
  texts();
  engine.root->bsmRxFragmentsDel(7);
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(timer(), 10);
  store(fragment(8, rps(2, 2), 2));
  EXPECT_EQ(texts().back(), stopped);
  EXPECT_EQ(timer(), Kiv::never);
  store(fragment(9, rps(1, 1), 2));
  EXPECT_EQ(timer(), 10);
  engine.root->bsmRxFragmentsDel(9);
  EXPECT_EQ(timer(), Kiv::never);
  engine.root->bsmRxFragmentsDel(9);
  EXPECT_EQ(context.traced(stopped), 1);
}

TEST_F(RxFragments, RemovingAllButOneTagStartsNothingAnew) {
  store(fragment(7, rps(1, 1), 2));
  engine.runTo(4);
  store(fragment(8, rps(1, 1), 2));
  store(fragment(7, rps(2, 2), 2));
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 1u);
  EXPECT_EQ(timer(), 10);
  EXPECT_EQ(context.traced(started), 1);
}

// Ageing ----------------------------------------------------------------------------------------------

TEST_F(RxFragments, AnIncompleteRangeIsDiscardedAtTheFirstScanFromItsTimeoutOn) {
  store(fragment(7, rps(1, 3), 4));
  engine.runTo(29.9);
  EXPECT_TRUE(held(7));
  texts();
  engine.runTo(30);
  std::string const deleted = "Deleted Group fragment 239.1.0.0/16 due to timeout. Num Rps=3";
  EXPECT_EQ(context.tracedAs(deleted), "Pim::Bsr::Sm 1 PimBsrSm");
  EXPECT_EQ(context.tracedAs("Deleted fragment 7 due to timeout"), "Pim::Bsr::Sm 1 PimBsrSm");
  EXPECT_THAT(texts(), ElementsAre("fragment 239.1.0.0/16 around for 30 seconds", deleted, stopped,
                                   "Deleted fragment 7 due to timeout"));
  EXPECT_FALSE(tag(7));
  EXPECT_EQ(timer(), Kiv::never);
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  store(fragment(7, rps(4, 4), 4));
  EXPECT_EQ(held(7)->rps(), 1u);
}

TEST_F(RxFragments, TheAgeIsRoundedToWholeSeconds) {
  struct Case {
    double created;
    double discarded;
  };
  for (Case const& given : {Case{5.4, 30}, Case{5.6, 40}, Case{5.0, 30}, Case{9.9, 40}, Case{0.1, 30}}) {
    SCOPED_TRACE(given.created);
    Engine router;
    router.root->storeRpSet(prefix(global), make(fragment(6, rps(1, 1), 2)), false);
    router.runTo(given.created);
    router.root->storeRpSet(prefix(global), make(fragment(7, rps(1, 1), 2)), false);
    router.runTo(given.discarded - 0.1);
    EXPECT_TRUE(router.root->bsmRxFragments(7));
    router.runTo(given.discarded);
    EXPECT_FALSE(router.root->bsmRxFragments(7));
  }
}

TEST_F(RxFragments, AnAgeOfJustUnderTwentyFiveSecondsIsTracedAsRounded) {
  store(fragment(6, rps(1, 1), 2));
  engine.runTo(5.4);
  store(fragment(7, rps(1, 1), 2, otherRange));
  engine.runTo(30);
  EXPECT_EQ(context.traced("fragment 239.2.0.0/16 around for 25 seconds"), 1);
}

TEST_F(RxFragments, AgeingTakesTheOldRangesOfATagAndLeavesTheYoung) {
  store({.groups = {{range, rps(1, 1), 0, 2}, {"239.3.0.0/16", rps(1, 2), 0, 4}}, .tag = 7});
  engine.runTo(20);
  store(fragment(7, rps(1, 1), 2, otherRange));
  store(fragment(8, rps(1, 1), 2));
  engine.runTo(30);
  EXPECT_EQ(tag(7)->groupRpDataCount(), 1u);
  EXPECT_TRUE(held(7, otherRange));
  EXPECT_TRUE(held(8));
  EXPECT_EQ(timer(), 40);
  engine.runTo(50);
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
  EXPECT_EQ(timer(), Kiv::never);
}

TEST_F(RxFragments, ARepeatedFragmentDoesNotRenewARange) {
  for (double at : {0.0, 9.0, 18.0, 27.0}) {
    engine.runTo(at);
    store(fragment(7, rps(1, 1), 2));
  }
  engine.runTo(30);
  EXPECT_FALSE(tag(7));
}

TEST_F(RxFragments, AFamilyTakenAwayLeavesTheStoreAndStopsTheScans) {
  store(fragment(7, rps(1, 1), 2));
  engine.status->afIs(Lanet::AddressFamily::unset);
  texts();
  engine.runTo(200);
  EXPECT_TRUE(held(7));
  engine.root->bsmRxFragmentsIs(8);
  engine.root->bsmRxFragmentsDel(7);
  engine.root->bsmRxFragmentsDel(8);
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RxFragments, AfterTheFamilyCameBackTheTimerWaitsForTheNextFirstTag) {
  store(fragment(7, rps(1, 1), 2));
  engine.status->afIs(Lanet::AddressFamily::unset);
  engine.status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_EQ(timer(), Kiv::never);
  store(fragment(8, rps(1, 1), 2));
  EXPECT_EQ(timer(), Kiv::never);
  store(fragment(7, rps(2, 2), 2));
  store(fragment(8, rps(2, 2), 2));
  store(fragment(9, rps(1, 1), 2));
  EXPECT_EQ(timer(), 10);
}

TEST_F(RxFragments, AStoreThatIsNotEmptyGoesWithTheMachines) {
  engine.receive(fragment(7, rps(1, 1), 2));
  engine.stop();
  engine.start();
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
  EXPECT_EQ(timer(), Kiv::never);
}

// Fragments that a zone keeps -------------------------------------------------------------------------

TEST_F(RxFragments, AZoneKeepsTheStoreOfItsMessageUntilThatIsComplete) {
  engine.receive({.groups = {{range, rps(1, 1)}}});
  EXPECT_FALSE(engine.follower(global)->lastBsmFragments());
  engine.receive(fragment(7, rps(1, 1), 2));
  EXPECT_EQ(engine.follower(global)->lastBsmFragments(), tag(7));
  engine.receive(fragment(7, rps(1, 1), 2, otherRange));
  EXPECT_EQ(engine.follower(global)->lastBsmFragments(), tag(7));
  EXPECT_EQ(context.tracedPrefix("Removing saved fragments"), 0);
  engine.receive({.groups = {{range, rps(2, 2), 0, 2}, {otherRange, rps(2, 2), 0, 2}}, .tag = 7});
  EXPECT_FALSE(engine.follower(global)->lastBsmFragments());
}

TEST_F(RxFragments, AMessageOfAnotherTagDropsWhatWasHeldOfTheFormer) {
  engine.receive(fragment(7, rps(1, 1), 2));
  texts();
  engine.receive(fragment(8, rps(1, 1), 2));
  EXPECT_EQ(context.tracedAs("Removing saved fragments related to tag 7"),
            "Pim::Bsr::NonCandidateSm 8 BsrNonCandidateSm");
  EXPECT_FALSE(tag(7));
  EXPECT_EQ(engine.follower(global)->lastBsmFragments(), tag(8));
  engine.receive({.groups = {{range, rps(1, 1)}}, .tag = 9});
  EXPECT_EQ(context.traced("Removing saved fragments related to tag 8"), 1);
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
  EXPECT_FALSE(engine.follower(global)->lastBsmFragments());
  EXPECT_EQ(timer(), Kiv::never);
}

TEST_F(RxFragments, ANoForwardMessageDropsWhatIsHeldEvenUnderItsOwnTag) {
  for (Zet::U16 number : {Zet::U16{7}, Zet::U16{8}}) {
    engine.receive(fragment(7, rps(1, 1), 2));
    texts();
    Bsm given = fragment(number, rps(1, 1), 2, otherRange);
    given.forward = false;
    engine.follower(global)->bsmIs(make(given));
    EXPECT_EQ(context.traced("Removing saved fragments related to tag 7"), 1);
    EXPECT_FALSE(tag(7));
    EXPECT_FALSE(engine.follower(global)->lastBsmFragments());
    engine.root->bsmRxFragmentsDelAll();
  }
}

TEST_F(RxFragments, AMessageOfLowerWeightDropsNothing) {
  engine.receive(fragment(7, rps(1, 1), 2));
  Bsm lower = fragment(8, rps(1, 1), 2);
  lower.priority = 1;
  engine.receive(lower);
  EXPECT_TRUE(tag(7));
  EXPECT_FALSE(tag(8));
}

TEST_F(RxFragments, ATagThatAgedOutStaysReadableForTheZoneThatKeptIt) {
  engine.receive(fragment(7, rps(1, 1), 2));
  Ptr<Bsr::PimBsrRxFragments> kept = tag(7);
  engine.runTo(30);
  EXPECT_FALSE(tag(7));
  EXPECT_EQ(engine.follower(global)->lastBsmFragments(), kept);
  EXPECT_EQ(kept->fragTag(), 7);
  EXPECT_EQ(kept->groupRpDataCount(), 0u);
}

TEST_F(RxFragments, ADroppedTagIsDroppedForEveryZoneThatUsesIt) {
  engine.receive(fragment(7, rps(1, 1), 2));
  engine.receive({.groups = {{scoped, {}, scopedFlag}, {otherRange, rps(1, 1), 0, 2}}, .tag = 7});
  EXPECT_EQ(engine.follower(scoped)->lastBsmFragments(), tag(7));
  engine.receive(fragment(8, rps(1, 1), 2));
  EXPECT_FALSE(tag(7));
  EXPECT_TRUE(engine.follower(scoped)->lastBsmFragments()->groupRpData(prefix(otherRange)));
}

}  // namespace
}  // namespace test
