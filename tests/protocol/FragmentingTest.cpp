#include <gmock/gmock.h>

#include "protocol/BsmFragmenting.h"
#include "tests/protocol/ForwardingSupport.h"
#include "tests/protocol/NonCandidateSupport.h"

namespace test {
namespace {

using Routing::Pim::Bsr::doAddGroupData;
using Routing::Pim::Bsr::fragmentEstimate;
using Routing::Pim::Bsr::PimBsrTxFragments;
using testing::ElementsAre;
using testing::IsEmpty;
using Zet::Ptr;
using Zet::U32;

class Fragmenting : public EngineTest {
 protected:
  /// The records of the fragments by which a message leaves along an interface of that MTU.
  Texts cut(U32 mtu, std::vector<Group> const& groups, std::string const& zone = global) {
    engine.outbox->sent.clear();
    if (!engine.pimStatus->pimIntf(intf("eth0"))) engine.addIntf("eth0");
    engine.interfaces->intfStatus(intf("eth0"))->mtuIs(mtu);
    engine.root->forwardBsm(prefix(zone), make({.groups = groups}));
    return sentRecords(engine);
  }
  /// What has been traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }
};

/// The zone's own record with so many RPs.
Group zoneRecord(int rps, Zet::U8 flags = scopedFlag) { return {scoped, someRps(rps), flags}; }

// Number of fragments ---------------------------------------------------------------------------------

TEST_F(Fragmenting, TheNumberOfFragmentsIsEstimatedFromLengthAndMtu) {
  struct Case {
    U32 length, mtu;
    bool isScoped;
    U32 fragments;
  };
  for (Case const& given : {
           Case{2000, 1500, false, 2}, Case{3100, 1500, true, 3}, Case{1501, 1500, false, 2},
           Case{1501, 1500, true, 2}, Case{3000, 1500, false, 3},  // q 2, total 3036
           Case{2999, 1500, false, 2},                             // q 1, total 2999
           Case{2988, 1500, true, 2},                              // q 1, nothing is added
           Case{4428, 1500, false, 3},                             // q 2, total 4464
           Case{4464, 1500, false, 3},                             // q 2, total exactly 4500
           Case{4476, 1500, false, 4},                             // q 2, total 4512
           Case{4452, 1500, true, 3},                              // q 2, adjusted 4464, total exactly 4500
           Case{4464, 1500, true, 4},                              // q 2, adjusted 4476, total 4512
           Case{456, 96, false, 6},                                // q 4, total 564
           Case{456, 96, true, 7},                                 // q 4, adjusted 492, total 600
       }) {
    EXPECT_EQ(fragmentEstimate(given.length, given.mtu, given.isScoped), given.fragments)
        << given.length << '/' << given.mtu << (given.isScoped ? " scoped" : "");
  }
}

TEST_F(Fragmenting, TheNumberIsTracedAndAllFragmentsAreSent) {
  engine.addIntf("eth0", 1, 1500);
  texts();
  EXPECT_EQ(cut(1500, {someGroup(1, 80), someGroup(2, 80)}).size(), 2u);
  EXPECT_EQ(context.traced("2 fragments to be generated"), 1);
  EXPECT_EQ(context.traced(" Forwarding BSM fragment to oif=eth0 for zone 224.0.0.0/4"), 2);
  EXPECT_EQ(context.tracedPrefix(" Forwarding BSM to"), 0);
}

// Whole records ---------------------------------------------------------------------------------------

TEST_F(Fragmenting, ARecordGoesIntoTheFirstFragmentThatTakesItWhole) {
  EXPECT_THAT(cut(132, {someGroup(1, 3), someGroup(2, 5), someGroup(3, 3)}),
              ElementsAre("239.1.0.0/16 3/3(3) | 239.3.0.0/16 3/3(3)", "239.2.0.0/16 5/5(5)"));
}

TEST_F(Fragmenting, TheChoiceOfAFragmentIsTraced) {
  engine.addIntf("eth0", 1, 132);
  texts();
  cut(132, {someGroup(1, 3), someGroup(2, 5)});
  cut(132, {someGroup(1, 3), someGroup(2, 6)});
  Texts all = texts();
  auto first = std::find(all.begin(), all.end(), "2 fragments to be generated");
  ASSERT_LE(6, all.end() - first);
  EXPECT_THAT(Texts(first + 1, first + 6),
              ElementsAre("Length of fragment 0 is 36", "Fragment 0 to house prefix 239.1.0.0/16 with 3 RPs",
                          "Length of fragment 0 is 84", "Length of fragment 1 is 36",
                          "Fragment 1 to house prefix 239.2.0.0/16 with 5 RPs"));
}

TEST_F(Fragmenting, AWholeRecordKeepsItsCountsFlagsAndRps) {
  Group part{"239.1.0.0/16", {{"203.0.113.1", 100, 4}, {"203.0.113.2", 0, 9}}, bidirFlag, 3};
  ASSERT_EQ(cut(132, {part, someGroup(2, 5)}).size(), 2u);
  EXPECT_EQ(engine.outbox->sent.front().text, show(*make({.groups = {part}})));
}

TEST_F(Fragmenting, ARecordCountsByTheRpsThatItAnnounces) {
  // 3 RPs are announced where one is held: the next record of 5 finds no space beside them.
  Group given{"239.1.0.0/16", someRps(1), 0, 3};
  EXPECT_THAT(cut(132, {given, someGroup(2, 5)}), ElementsAre("239.1.0.0/16 3/1(1)", "239.2.0.0/16 5/5(5)"));
}

// Records that must be split --------------------------------------------------------------------------

TEST_F(Fragmenting, ARecordThatFitsNowhereIsSplitOverTheFragments) {
  EXPECT_THAT(cut(132, {someGroup(1, 12)}), ElementsAre("239.1.0.0/16 12/7(7)", "239.1.0.0/16 12/5(5)"));
  Texts all = texts();
  auto at = std::find(all.begin(), all.end(), " Group-Rp data needs to be split across fragments");
  ASSERT_LE(6, all.end() - at);
  EXPECT_THAT(Texts(at + 1, at + 6),
              ElementsAre("Length of fragment 0 is 36", "Length of fragment 1 is 36",
                          "Splitting fragment for prefix 239.1.0.0/16 containing 12 RPs",
                          "    into fragment 0 with 7 Rps ( max 7 RPs )",
                          "    into fragment 1 with 5 Rps ( max 7 RPs )"));
  EXPECT_EQ(engine.root->splitGroupRpDataCount(), 0u);
}

TEST_F(Fragmenting, TheRpsOfASplitRecordKeepTheirOrderAndValues) {
  Group given = someGroup(1, 12);
  given.flags = bidirFlag;
  for (std::size_t i = 0; i < given.rps.size(); ++i) given.rps[i].priority = static_cast<Zet::U8>(i);
  cut(132, {given});
  Texts whole;
  auto message = make({.groups = {given}});
  for (auto at = message->groupRpData()->groupDataFirst()->rpListIterator(); at; ++at) {
    whole.push_back(std::string(at->rpAddress().stringValue().view()) + "/" +
                    std::to_string(at->rpPriority()));
  }
  Texts parts;
  for (Sent const& sent : engine.outbox->sent) {
    auto group = bsmOf(sent).groupRpData()->groupDataFirst();
    EXPECT_EQ(group->groupFlags().value, bidirFlag);
    Texts part;
    for (auto at = group->rpListIterator(); at; ++at) {
      EXPECT_EQ(at->rpHoldtime(), 150);
      part.push_back(std::string(at->rpAddress().stringValue().view()) + "/" +
                     std::to_string(at->rpPriority()));
    }
    parts.insert(parts.end(), part.begin(), part.end());
  }
  EXPECT_EQ(parts, whole);
}

TEST_F(Fragmenting, ASplitRecordThatHoldsFewerRpsThanItAnnouncesCarriesThoseThatItHas) {
  Group given{"239.1.0.0/16", someRps(9), 0, 12, 12};
  EXPECT_THAT(cut(132, {given}), ElementsAre("239.1.0.0/16 12/7(7)", "239.1.0.0/16 12/5(2)"));
}

TEST_F(Fragmenting, RecordsThatFitWholeGoFirstAndThoseToSplitFillWhatIsLeft) {
  EXPECT_THAT(cut(132, {someGroup(1, 10), someGroup(2, 2)}),
              ElementsAre("239.2.0.0/16 2/2(2) | 239.1.0.0/16 10/4(4)", "239.1.0.0/16 10/6(6)"));
}

TEST_F(Fragmenting, SeveralRecordsAreSplitInTheOrderOfTheMessage) {
  // Two fragments are planned: the last 3 RPs have no space.
  EXPECT_THAT(cut(132, {someGroup(1, 8), someGroup(2, 8)}),
              ElementsAre("239.1.0.0/16 8/7(7)", "239.1.0.0/16 8/1(1) | 239.2.0.0/16 8/5(5)"));
}

/// Fragments that have come to these lengths.
Ptr<PimBsrTxFragments> fragmentsOf(U32 mtu, std::vector<U32> const& lengths) {
  auto fragments = Zet::make<PimBsrTxFragments>(mtu);
  for (U32 i = 0; i < lengths.size(); ++i) {
    auto fragment = Zet::make<Routing::Pim::Bsr::PimBsrTxFragment>();
    fragment->bsmIs(make(Bsm{}));
    fragment->lengthIs(lengths[i]);
    fragments->fragmentIs(i, fragment);
  }
  return fragments;
}

/// What adding a range 239.1.0.0/16 to fragments does: the result, then each fragment's records and length.
Texts added(std::vector<U32> const& lengths, int rps, bool split, std::string const& zone = global,
            U32 mtu = 132) {
  auto fragments = fragmentsOf(mtu, lengths);
  auto message = make({.groups = {someGroup(1, rps)}});
  int result =
      doAddGroupData(prefix(zone), 6, *fragments, mtu, *message->groupRpData()->groupDataFirst(), split);
  Texts all{std::to_string(result)};
  for (U32 i = 0; i < fragments->fragmentCount(); ++i) {
    all.push_back(records(*fragments->fragment(i)->bsm()) + " " +
                  std::to_string(fragments->fragment(i)->length()));
  }
  return all;
}

TEST_F(Fragmenting, WithoutSplittingARecordThatFitsNowhereIsDropped) {
  EXPECT_THAT(added({84, 90}, 3, false), ElementsAre("0", "239.1.0.0/16 3/3(3) 132", " 90"));
  EXPECT_THAT(added({85, 84}, 3, false), ElementsAre("0", " 85", "239.1.0.0/16 3/3(3) 132"));
  EXPECT_THAT(added({85, 90}, 3, false), ElementsAre("-1", " 85", " 90"));
}

TEST_F(Fragmenting, WithSplittingARecordThatFitsSomewhereStaysWhole) {
  EXPECT_THAT(added({85, 84}, 3, true), ElementsAre("0", " 85", "239.1.0.0/16 3/3(3) 132"));
}

TEST_F(Fragmenting, AFragmentNeedsTwentyFiveBytesToTakePartOfARecord) {
  EXPECT_THAT(added({108, 107, 36}, 8, true),
              ElementsAre("0", " 108", "239.1.0.0/16 8/1(1) 131", "239.1.0.0/16 8/7(7) 132"));
  EXPECT_EQ(context.traced("Fragment 0 does not have space. Required Space:24, Available space:24"), 1);
  EXPECT_EQ(context.traced("    into fragment 1 with 1 Rps ( max 1 RPs )"), 1);
}

TEST_F(Fragmenting, TheSpaceOfAFragmentIsCutToWholeRps) {
  for (auto const& [space, taken] : {std::pair{25u, 1u}, {35u, 1u}, {36u, 2u}, {47u, 2u}, {48u, 3u}}) {
    EXPECT_EQ(added({132 - space}, 8, true)[1], "239.1.0.0/16 8/" + std::to_string(taken) + "(" +
                                                    std::to_string(taken) + ") " +
                                                    std::to_string(132 - space + 12 + 12 * taken));
  }
}

TEST_F(Fragmenting, AFragmentThatIsFullBeyondTheMtuTakesNothing) {
  EXPECT_THAT(added({140, 36}, 8, true), ElementsAre("0", " 140", "239.1.0.0/16 8/7(7) 132"));
}

TEST_F(Fragmenting, TheLastFragmentsStayUntouchedOnceAllRpsArePlaced) {
  EXPECT_THAT(added({36, 36, 36}, 8, true),
              ElementsAre("0", "239.1.0.0/16 8/7(7) 132", "239.1.0.0/16 8/1(1) 60", " 36"));
}

TEST_F(Fragmenting, RpsForWhichNoSpaceIsLeftAreLostWithoutATrace) {
  EXPECT_THAT(added({36}, 10, true), ElementsAre("0", "239.1.0.0/16 10/7(7) 132"));
  EXPECT_THAT(added({120}, 10, true), ElementsAre("0", " 120"));
}

TEST_F(Fragmenting, AMessageThatTheEstimateCutsTooShortLosesItsLastRange) {
  std::vector<Group> seven;
  for (int i = 1; i <= 7; ++i) seven.push_back(someGroup(i, 4));
  EXPECT_THAT(cut(96, seven),
              ElementsAre("239.1.0.0/16 4/4(4)", "239.2.0.0/16 4/4(4)", "239.3.0.0/16 4/4(4)",
                          "239.4.0.0/16 4/4(4)", "239.5.0.0/16 4/4(4)", "239.6.0.0/16 4/4(4)"));
}

TEST_F(Fragmenting, AFragmentThatReceivedNoRangeIsSentToo) {
  EXPECT_THAT(cut(60, {someGroup(1, 3)}), ElementsAre("", ""));
}

// Counts that wrapped around --------------------------------------------------------------------------

TEST_F(Fragmenting, ThreeHundredRpsThatCountAsFortyFourGoWholeWhereFortyFourFit) {
  Group given{"239.1.0.0/16", someRps(300), 0, 44, 44};
  EXPECT_THAT(cut(576, {given}), ElementsAre("239.1.0.0/16 44/44(300)"));
  EXPECT_THAT(cut(600, {given, someGroup(2, 44)}),
              ElementsAre("239.1.0.0/16 44/44(300)", "239.2.0.0/16 44/44(44)"));
}

TEST_F(Fragmenting, OfThreeHundredRpsThatCountAsFortyFourASplitCarriesFortyFour) {
  Group given{"239.1.0.0/16", someRps(300), 0, 44, 44};
  EXPECT_THAT(cut(575, {given}), ElementsAre("239.1.0.0/16 44/43(43)", "239.1.0.0/16 44/1(1)"));
}

// Scoped zones ----------------------------------------------------------------------------------------

TEST_F(Fragmenting, EachFragmentOfAScopedZoneBeginsWithTheZonesRecord) {
  EXPECT_THAT(
      cut(132, {zoneRecord(2), someGroup(1, 5), someGroup(2, 4)}, scoped),
      ElementsAre("239.0.0.0/8 2/2(2) | 239.2.0.0/16 4/4(4)", "239.0.0.0/8 2/0(0) | 239.1.0.0/16 5/5(5)"));
}

TEST_F(Fragmenting, AMessageOfAScopedZoneWithoutRecordsLeavesInFragmentsWithoutRecords) {
  EXPECT_THAT(cut(35, {}, scoped), ElementsAre("", ""));
}

TEST_F(Fragmenting, TheInsertedRecordHasTheScopedFlagAlone) {
  cut(132, {zoneRecord(2, scopedFlag | bidirFlag), someGroup(1, 5), someGroup(2, 4)}, scoped);
  auto inserted = bsmOf(engine.outbox->sent.back()).groupRpData()->groupDataFirst();
  EXPECT_EQ(inserted->prefix(), prefix(scoped));
  EXPECT_EQ(inserted->groupFlags().value, scopedFlag);
  auto own = bsmOf(engine.outbox->sent.front()).groupRpData()->groupDataFirst();
  EXPECT_EQ(own->groupFlags().value, scopedFlag | bidirFlag);
}

TEST_F(Fragmenting, TheInsertedRecordAnnouncesAllRpsOfTheZonesOwnRange) {
  Group part = zoneRecord(2);
  part.rpCount = 3;
  EXPECT_THAT(
      cut(132, {part, someGroup(1, 5), someGroup(2, 3)}, scoped),
      ElementsAre("239.0.0.0/8 3/2(2) | 239.2.0.0/16 3/3(3)", "239.0.0.0/8 3/0(0) | 239.1.0.0/16 5/5(5)"));
}

TEST_F(Fragmenting, AReceiverTakesNoContentFromAnInsertedRecord) {
  cut(132, {zoneRecord(2), someGroup(1, 5), someGroup(2, 4)}, scoped);
  Engine receiver;
  for (Sent const& sent : engine.outbox->sent) {
    auto copy = static_cast<Routing::Pim::Packet::BootstrapMessage*>(sent.message.ptr());
    receiver.root->storeRpSet(prefix(scoped), Ptr<Routing::Pim::Packet::BootstrapMessage>(copy), false);
  }
  auto rpSet = receiver.status->crpStatus(prefix(scoped))->status();
  EXPECT_EQ(rpSet->crpSetCount(), 3u);
  EXPECT_EQ(rpSet->crpSet(prefix(scoped))->rpCount(), 2u);
  EXPECT_EQ(receiver.root->bsmRxFragmentsCount(), 0u);
}

TEST_F(Fragmenting, TheFirstRecordOfAScopedZoneIsSplitBeforeTheOthersArePlaced) {
  EXPECT_THAT(cut(132, {zoneRecord(10), someGroup(1, 2)}, scoped),
              ElementsAre("239.0.0.0/8 10/7(7)", "239.0.0.0/8 10/3(3) | 239.1.0.0/16 2/2(2)"));
  EXPECT_EQ(context.traced(" Group-Rp data needs to be split across fragments"), 0);
}

TEST_F(Fragmenting, ASplitRecordOpensEmptyFragmentsWithTheZonesRecord) {
  EXPECT_THAT(
      cut(132, {zoneRecord(1), someGroup(1, 10)}, scoped),
      ElementsAre("239.0.0.0/8 1/1(1) | 239.1.0.0/16 10/5(5)", "239.0.0.0/8 1/0(0) | 239.1.0.0/16 10/5(5)"));
}

TEST_F(Fragmenting, TheZonesRecordCountsTowardsTheSpaceOfAnEmptyFragment) {
  // 36 + 12 + 12 + 12 * 6 is 132: a seventh RP has no space, though it has where the zone's own record opens
  // it.
  EXPECT_THAT(added({36}, 6, false, scoped),
              ElementsAre("0", "239.0.0.0/8 6/0(0) | 239.1.0.0/16 6/6(6) 132"));
  EXPECT_THAT(added({36}, 7, false, scoped), ElementsAre("-1", " 36"));
  EXPECT_THAT(added({36}, 7, false, global), ElementsAre("0", "239.1.0.0/16 7/7(7) 132"));
  EXPECT_THAT(added({36}, 7, false, "239.1.0.0/16"), ElementsAre("0", "239.1.0.0/16 7/7(7) 132"));
  EXPECT_THAT(added({48}, 6, false, scoped), ElementsAre("0", "239.1.0.0/16 6/6(6) 132"));
}

TEST_F(Fragmenting, AnEmptyFragmentTooSmallForPartOfARecordGoesWithTheZonesRecordAlone) {
  EXPECT_THAT(added({36}, 7, true, scoped, 72), ElementsAre("0", "239.0.0.0/8 6/0(0) 48"));
  EXPECT_THAT(added({36}, 7, true, scoped, 73),
              ElementsAre("0", "239.0.0.0/8 6/0(0) | 239.1.0.0/16 7/1(1) 72"));
}

}  // namespace
}  // namespace test
