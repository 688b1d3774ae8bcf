#include "host/Corrections.h"
#include "host/RouterParts.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/BsmCutter.h"
#include "host/OwnMessages.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::CorrectionSwitch;
using pimbsr::host::allCorrections;
using pimbsr::host::Correction;
using pimbsr::host::corrections;
using pimbsr::host::CorrectionSettings;
using pimbsr::host::CorrectionSwitches;
using pimbsr::host::OwnMessages;
using Zet::Ptr;
using Message = OwnMessages::Message;

// The table -------------------------------------------------------------------------------------------

TEST(CorrectionsTest, EachHasANameWhatIsDoneInsteadAndASource) {
  std::set<std::string_view> names;
  for (Correction const& correction : corrections()) {
    EXPECT_TRUE(names.insert(correction.key->name).second) << correction.key->name;
    EXPECT_FALSE(correction.key->sentence.empty()) << correction.key->name;
    EXPECT_FALSE(correction.engine.empty()) << correction.key->name;
    EXPECT_FALSE(correction.source.empty()) << correction.key->name;
  }
  EXPECT_GE(names.size(), 11u);
}

TEST(CorrectionsTest, ARouterUsesNoneByItselfAndProgramsUseAll) {
  for (Correction const& correction : corrections()) {
    EXPECT_FALSE(CorrectionSettings().*correction.isOn) << correction.key->name;
    EXPECT_TRUE(allCorrections.*correction.isOn) << correction.key->name;
    EXPECT_EQ(correction.key->fallback, "true");
  }
}

TEST(CorrectionsTest, ASwitchIsTurnedByItsSettingAndKeepsItsCount) {
  CorrectionSwitches switches;
  for (Correction const& correction : corrections()) {
    CorrectionSettings one;
    one.*correction.isOn = true;
    switches.settingsAre(one);
    for (Correction const& other : corrections())
      EXPECT_EQ(switches.of(other.isOn).isOn(), other.isOn == correction.isOn) << other.key->name;
    switches.of(correction.isOn).noteAct();
  }
  switches.settingsAre({});
  for (Correction const& correction : corrections()) EXPECT_EQ(switches.of(correction.isOn).acts(), 1u);
}

// Cutting ---------------------------------------------------------------------------------------------

std::string rpAddress(U32 number) {
  return "10.7." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
}

/// `total` RPs in ranges of up to `perRange`; of a scoped zone, where the first range is the zone.
Bsm messageOf(U32 total, U32 perRange, bool isScoped) {
  Bsm message;
  for (U32 number = 0, range = 0; number < total; ++range) {
    Group group{.prefix = range == 0 && isScoped ? "239.0.0.0/8"
                                                 : "239.1." + std::to_string(range % 250) + "." +
                                                       std::to_string(range / 250) + "/32"};
    if (range == 0 && isScoped) group.flags = scopedFlag;
    for (U32 i = 0; i < perRange && number < total; ++i) group.rps.push_back({rpAddress(number++)});
    message.groups.push_back(group);
  }
  return message;
}

/// RPs that a follower has of each range once it got all fragments; an error where it would wait for more.
std::map<Lanet::IpGenPrefix, std::set<Lanet::IpGenAddr>> collect(std::vector<Message> const& fragments) {
  std::map<Lanet::IpGenPrefix, std::set<Lanet::IpGenAddr>> ranges;
  std::map<Lanet::IpGenPrefix, U32> announced;
  for (Message const& fragment : fragments) {
    for (auto group = fragment->groupRpData()->groupDataIterator(); group; ++group) {
      EXPECT_EQ(group->rpListCount(), group->fragRpCount());
      announced[group->prefix()] = group->rpCount();
      for (auto rp = group->rpListIterator(); rp; ++rp)
        EXPECT_TRUE(ranges[group->prefix()].insert(rp->rpAddress()).second) << "an RP is named twice";
    }
  }
  for (auto const& [range, count] : announced) EXPECT_EQ(ranges[range].size(), count);
  return ranges;
}

/// Each fragment fits, is encoded in the size that was computed, begins with the zone, and all arrive.
void expectWhole(Bsm const& given, U32 mtu, bool isScoped) {
  Message message = make(given);
  std::vector<Message> fragments = pimbsr::host::cut(*message, mtu - pimbsr::host::ipHeaderSize);
  for (Message const& fragment : fragments) {
    std::vector<U8> bytes;
    ASSERT_TRUE(pimbsr::wire::encodeBootstrap(*fragment, bytes));
    ASSERT_EQ(bytes.size(), pimbsr::host::encodedSize(*fragment));
    ASSERT_LE(bytes.size() + 20, mtu);
    EXPECT_EQ(fragment->groupRpData()->groupDataFirst()->groupFlags().scoped(), isScoped);
    EXPECT_EQ(fragment->fragmentTag(), message->fragmentTag());
  }
  auto ranges = collect(fragments);
  for (Group const& group : given.groups) EXPECT_EQ(ranges[prefix(group.prefix)].size(), group.rps.size());
}

TEST(BsmCutterTest, NoRpIsLostAndEachFragmentFits) {
  for (U32 mtu : {576u, 577u, 590u, 1280u, 1500u, 9000u}) {
    for (U32 total : {1u, 2u, 52u, 53u, 54u, 106u, 122u, 123u, 146u, 147u, 200u, 255u, 256u, 999u, 2000u}) {
      for (U32 perRange : {1u, 2u, 7u, 52u, 53u, 54u, 100u, 254u, 255u}) {
        for (bool isScoped : {false, true}) {
          SCOPED_TRACE(testing::Message() << mtu << " " << total << " " << perRange << " " << isScoped);
          expectWhole(messageOf(total, perRange, isScoped), mtu, isScoped);
          if (testing::Test::HasFailure()) return;
        }
      }
    }
  }
}

TEST(BsmCutterTest, ASplitRangeFillsItsFragments) {
  Message message = make(messageOf(200, 200, false));
  EXPECT_EQ(pimbsr::host::cut(*message, 556).size(), 4u);
  EXPECT_EQ(pimbsr::host::cut(*message, 1480).size(), 2u);
}

TEST(BsmCutterTest, AFragmentIsCutWithItsCountsForASmallerMtu) {
  Bsm given = messageOf(100, 100, true);
  given.groups[0].rpCount = 180;
  std::vector<Message> fragments = pimbsr::host::cut(*make(given), 556);
  U32 rps = 0;
  for (Message const& fragment : fragments) {
    Ptr<Routing::Pim::Packet::BootstrapGroupData> zone = fragment->groupRpData()->groupDataFirst();
    EXPECT_EQ(zone->rpCount(), 180);
    rps += zone->fragRpCount();
  }
  EXPECT_EQ(fragments.size(), 2u);
  EXPECT_EQ(rps, 100u);
}

// Own messages ----------------------------------------------------------------------------------------

class OwnMessagesTest : public testing::Test {
 protected:
  OwnMessagesTest() {
    rangeFull.isOnIs(true);
    repeats.isOnIs(true);
  }
  /// What a message names: "range RP=holdtime ..." of each range.
  std::string sent(std::vector<Group> const& groups) {
    Message message = own.correct(make({.groups = groups, .tag = ++tag}));
    std::string text;
    for (auto group = message->groupRpData()->groupDataIterator(); group; ++group) {
      EXPECT_EQ(group->rpCount(), group->rpListCount());
      EXPECT_EQ(group->fragRpCount(), group->rpListCount());
      std::set<std::string> rps;
      for (auto rp = group->rpListIterator(); rp; ++rp)
        rps.insert(std::string(rp->rpAddress().stringValue().view()) + "=" +
                   std::to_string(rp->rpHoldtime()));
      text += (text.empty() ? "" : "; ") + std::string(group->prefix().stringValue().view());
      for (std::string const& rp : rps) text += " " + rp;
    }
    return text;
  }

  CorrectionSwitch rangeFull;
  CorrectionSwitch repeats;
  OwnMessages own{rangeFull, repeats};
  Zet::U16 tag = 0;
};

TEST_F(OwnMessagesTest, AMessageThatNeedsNothingIsSentAsItIs) {
  Message message = make({.groups = {{"239.1.0.0/16", {{"10.1.0.1"}}}}});
  EXPECT_EQ(own.correct(message), message);
  EXPECT_EQ(own.correct(message), message);
  EXPECT_EQ(rangeFull.acts() + repeats.acts(), 0u);
}

TEST_F(OwnMessagesTest, AWithdrawnRpIsNamedInTwoFurtherMessages) {
  EXPECT_EQ(sent({{"239.1.0.0/16", {{"10.1.0.1", 0}, {"10.1.0.2"}}}}),
            "239.1.0.0/16 10.1.0.1=0 10.1.0.2=150");
  std::vector<Group> const later = {{"239.1.0.0/16", {{"10.1.0.2"}}}};
  EXPECT_EQ(sent(later), "239.1.0.0/16 10.1.0.1=0 10.1.0.2=150");
  EXPECT_EQ(sent(later), "239.1.0.0/16 10.1.0.1=0 10.1.0.2=150");
  EXPECT_EQ(sent(later), "239.1.0.0/16 10.1.0.2=150");
  EXPECT_EQ(repeats.acts(), 2u);
}

/// A range of withdrawn RPs alone would be lost at followers.
TEST_F(OwnMessagesTest, AmongMoreWithdrawnRpsThanFitTheBestOneThatStaysIsNamed) {
  for (int withdrawn : {254, 255, 256, 300}) {
    std::vector<Rp> rps = {{"10.2.0.1", 150, 8}, {"10.2.0.2", 150, 7}, {"10.2.0.3", 150, 9}};
    for (int i = 0; i < withdrawn; ++i)
      rps.push_back(
          {.address = numbered("10.1." + std::to_string(i / 250) + ".", 1 + i % 250), .holdtime = 0});
    std::string const text = sent({{"239.1.0.0/16", rps}});
    EXPECT_EQ(std::count(text.begin(), text.end(), '='), 255);
    EXPECT_THAT(text, testing::HasSubstr(" 10.2.0.2=150"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr(" 10.2.0.1=")));
  }
}

TEST_F(OwnMessagesTest, ARangeThatHasGoneIsNamedForItsWithdrawnRp) {
  sent({{"239.1.0.0/16", {{"10.1.0.1", 0}}}});
  EXPECT_EQ(sent({}), "239.1.0.0/16 10.1.0.1=0");
  EXPECT_EQ(sent({{"239.2.0.0/16", {{"10.1.0.2"}}}}), "239.2.0.0/16 10.1.0.2=150; 239.1.0.0/16 10.1.0.1=0");
  EXPECT_EQ(sent({}), "");
}

TEST_F(OwnMessagesTest, AnRpThatIsBackIsNotWithdrawnAgain) {
  sent({{"239.1.0.0/16", {{"10.1.0.1", 0}}}});
  EXPECT_EQ(sent({{"239.1.0.0/16", {{"10.1.0.1", 90}}}}), "239.1.0.0/16 10.1.0.1=90");
  EXPECT_EQ(sent({{"239.1.0.0/16", {{"10.1.0.1", 90}}}}), "239.1.0.0/16 10.1.0.1=90");
  EXPECT_EQ(repeats.acts(), 0u);
}

TEST_F(OwnMessagesTest, TheSameMessageOnAnotherInterfaceIsTheSameAgain) {
  sent({{"239.1.0.0/16", {{"10.1.0.1", 0}}}});
  Message second = make({.tag = 9});
  EXPECT_EQ(own.correct(second), own.correct(second));
  EXPECT_NE(own.correct(second), second);
  EXPECT_EQ(repeats.acts(), 1u);
}

TEST_F(OwnMessagesTest, OfTooManyRpsTheBestAreAnnounced) {
  for (U32 total : {256u, 300u, 512u}) {
    Group group{.prefix = "239.1.0.0/16"};
    for (U32 i = 0; i < total; ++i) group.rps.push_back({rpAddress(i), 150, static_cast<U8>(i < 40 ? 9 : 5)});
    Message message = own.correct(make({.groups = {group}, .tag = ++tag}));
    Ptr<Routing::Pim::Packet::BootstrapGroupData> sentGroup = message->groupRpData()->groupDataFirst();
    EXPECT_EQ(sentGroup->rpCount(), 255);
    EXPECT_EQ(sentGroup->fragRpCount(), 255);
    EXPECT_EQ(sentGroup->rpListCount(), 255u);
    U32 worse = 0;
    for (auto rp = sentGroup->rpListIterator(); rp; ++rp) worse += rp->rpPriority() == 9 ? 1 : 0;
    EXPECT_EQ(worse, total - 40 >= 255 ? 0 : 255 - (total - 40));
  }
  EXPECT_EQ(rangeFull.acts(), 3u);
}

TEST_F(OwnMessagesTest, AnRpThatIsWithdrawnFromAFullRangeIsNamed) {
  Group group{.prefix = "239.1.0.0/16"};
  for (U32 i = 0; i < 255; ++i) group.rps.push_back({rpAddress(i), 150});
  group.rps.push_back({"10.9.0.1", 0});
  Message message = own.correct(make({.groups = {group}, .tag = ++tag}));
  Ptr<Routing::Pim::Packet::BootstrapGroupData> sentGroup = message->groupRpData()->groupDataFirst();
  EXPECT_EQ(sentGroup->rpListCount(), 255u);
  ASSERT_TRUE(sentGroup->rpList(addr("10.9.0.1")));
  EXPECT_EQ(sentGroup->rpList(addr("10.9.0.1"))->rpHoldtime(), 0);
  group.rps.pop_back();
  message = own.correct(make({.groups = {group}, .tag = ++tag}));
  EXPECT_EQ(message->groupRpData()->groupDataFirst()->rpListCount(), 255u);
  EXPECT_FALSE(message->groupRpData()->groupDataFirst()->rpList(addr("10.9.0.1"))) << "there is no room";
}

TEST_F(OwnMessagesTest, TwoHundredFiftyFiveRpsAreAllAnnounced) {
  Group group{.prefix = "239.1.0.0/16"};
  for (U32 i = 0; i < 255; ++i) group.rps.push_back({rpAddress(i)});
  Message message = make({.groups = {group}});
  EXPECT_EQ(own.correct(message), message);
}

// A router --------------------------------------------------------------------------------------------

class CorrectedRouterTest : public FilteredRouterTest {
 protected:
  CorrectedRouterTest() { router.correctionsAre(allCorrections); }
  Zet::U64 acts(bool CorrectionSettings::*isOn) const { return router.corrections().of(isOn).acts(); }
  Ptr<Routing::Pim::RpCandidateSet> range(std::string const& text) const {
    return router.rpCandidateStatus()->crpSet(prefix(text));
  }
};

TEST_F(CorrectedRouterTest, AReplacedRpIsFollowedInOneMessage) {
  offer(Bsm{.groups = {{"239.1.0.0/16", {{"10.1.0.1"}}}}});
  for (int i = 2; i < 20; ++i) {
    std::string former = numbered("10.1.0.", i - 1), next = numbered("10.1.0.", i);
    offer(Bsm{.groups = {{"239.1.0.0/16", {{former, 0}, {next}}}}, .tag = static_cast<U16>(i)});
    ASSERT_TRUE(range("239.1.0.0/16"));
    EXPECT_TRUE(range("239.1.0.0/16")->rp(addr(next))) << next;
    EXPECT_EQ(range("239.1.0.0/16")->rpCount(), 1u);
  }
  EXPECT_EQ(acts(&CorrectionSettings::withdrawalsLast), 18u);
}

TEST_F(CorrectedRouterTest, AWithdrawalOfAnUnknownRpLeavesNoEmptyRange) {
  offer(Bsm{.groups = {{"239.1.0.0/16", {{"10.1.0.1", 0}}}}});
  EXPECT_FALSE(range("239.1.0.0/16"));
  EXPECT_FALSE(router.status()->crpStatus(prefix("224.0.0.0/4")));
}

TEST_F(CorrectedRouterTest, ABorderClosesTheZonesWithinIt) {
  router.borderIs(prefix("239.0.0.0/8"), intf("eth0"), true);
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "border");
  EXPECT_EQ(reasonFor(scoped("239.0.0.0/8")), "border");
  EXPECT_EQ(reasonFor(scoped("232.0.0.0/8")), "");
  EXPECT_EQ(reasonFor(ordinary), "");
  EXPECT_EQ(acts(&CorrectionSettings::coveringBorder), 1u);
  router.exactBordersAre({intf("eth0")});
  EXPECT_EQ(reasonFor(scoped("239.1.0.0/16")), "");
}

TEST_F(CorrectedRouterTest, ABorderOfAllGroupsClosesEveryScope) {
  router.borderIs(prefix("224.0.0.0/4"), intf("eth0"), true);
  for (char const* zone : {"224.0.0.0/4", "224.0.0.0/5", "239.0.0.0/8", "239.1.1.1/32"})
    EXPECT_EQ(reasonFor(scoped(zone)), "border") << zone;
}

TEST_F(CorrectedRouterTest, AZoneIsForgottenWhenItsInterfaceBecomesABorder) {
  offer(Bsm{.groups = {{"239.1.0.0/16", {{"10.1.0.1"}}, scopedFlag}}});
  ASSERT_TRUE(range("239.1.0.0/16"));
  router.borderIs(prefix("239.1.0.0/16"), intf("eth1"), true);
  run(1);
  EXPECT_TRUE(range("239.1.0.0/16"));
  router.borderIs(prefix("239.1.0.0/16"), intf("eth0"), true);
  run(1);
  EXPECT_FALSE(range("239.1.0.0/16"));
  EXPECT_FALSE(router.status()->bootstrapRouter(prefix("239.1.0.0/16")));
  EXPECT_FALSE(pimbsr::host::partsOf(router).root->nonCandidateSm(prefix("239.1.0.0/16")));
  EXPECT_EQ(acts(&CorrectionSettings::forgetLeak), 1u);
}

TEST_F(CorrectedRouterTest, OfOtherZonesNothingIsForgottenAtABorder) {
  offer(ordinary);
  router.borderIs(prefix("239.0.0.0/8"), intf("eth0"), true);
  run(1);
  EXPECT_TRUE(router.status()->bootstrapRouter(prefix("224.0.0.0/4")));
  EXPECT_EQ(acts(&CorrectionSettings::forgetLeak), 0u);
}

TEST_F(CorrectedRouterTest, ASparseRpThatBecomesBidirectionalStays) {
  lead();
  offer(Adv{.bsr = "192.0.2.9"}, {.source = "203.0.113.1", .destination = "192.0.2.9", .ttl = 9});
  offer(Adv{.groups = {{"224.0.0.0/4", bidirFlag}}, .bsr = "192.0.2.9"},
        {.source = "203.0.113.1", .destination = "192.0.2.9", .ttl = 9});
  ASSERT_TRUE(range("224.0.0.0/4"));
  Ptr<Routing::Pim::RpCandidate> rp = range("224.0.0.0/4")->rp(addr("203.0.113.1"));
  ASSERT_TRUE(rp);
  EXPECT_EQ(rp->pimMode(), Routing::Pim::Mode::bidir);
}

/// A router over a tree that a former one has left.
TEST_F(CorrectedRouterTest, RpsOfAFormerRunAge) {
  offer(Bsm{.groups = {{"239.1.0.0/16", {{"10.1.0.1", 100, 7}}}}});
  for (bool isOn : {false, true}) {
    Ptr<Bsr::Status> kept = Bsr::statusFactory("bsr");
    kept->afIs(Lanet::AddressFamily::ipv4);
    Ptr<Bsr::PimBsrRpCandidateStatus> zone = kept->crpStatusIs(prefix("224.0.0.0/4"));
    Ptr<Routing::Pim::RpCandidate> rp =
        zone->statusIs("")->crpSetIs(prefix("239.1.0.0/16"))->rpIs(addr("10.1.0.1"));
    rp->priorityIs(7u);
    rp->holdTimeIs(100);
    rp->expiresIs(context.now() + 40);
    kept->bootstrapRouterIs(prefix("224.0.0.0/4"))->ipAddrIs(addr("10.0.0.1"));
    auto pimSet = Routing::Pim::rpCandidateStatusFactory("bsr");
    Router again(
        context, port,
        {.status = kept, .rpCandidateStatus = pimSet, .rpf = rpf, .corrections = {.keptStatus = isOn}});
    ASSERT_TRUE(pimSet->crpSet(prefix("239.1.0.0/16")));
    Ptr<Routing::Pim::RpCandidate> read = pimSet->crpSet(prefix("239.1.0.0/16"))->rp(addr("10.1.0.1"));
    EXPECT_EQ(read->priority().value(), isOn ? 7u : 256u);
    EXPECT_EQ(read->holdTime().value() == 100, isOn);
    EXPECT_EQ(read->expires() == context.now() + 40, isOn);
    context.nowIs(context.now() + 41);
    again.advance();
    EXPECT_EQ(kept->crpStatus(prefix("224.0.0.0/4")) == nullptr, isOn);
  }
}

}  // namespace
}  // namespace test
