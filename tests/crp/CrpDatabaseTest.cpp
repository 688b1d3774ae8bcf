#include <string>
#include <vector>

#include "runtime/Log.h"
#include "tests/support/CrpEngine.h"

namespace test {
namespace {

using Routing::Pim::Mode;
using Routing::Pim::RpType;
using Zet::Ptr;

char const* const globalZone = "224.0.0.0/4";
char const* const rpAddress = "203.0.113.1";

class CrpDatabase : public CrpTest {
 protected:
  double nextBsm(std::string const& zone = globalZone) const {
    return engine.since(engine.root->candidateSm(prefix(zone))->zetBsTimer()->timeMin());
  }
  Ptr<Routing::Pim::RpCandidate> rp(std::string const& address = rpAddress) const {
    return engine.rp(globalZone, globalZone, address);
  }
};

/// This router is the BSR of the global zone as 10.0.0.1, and its next message is due after 60 seconds.
class ElectedCrpDatabase : public CrpDatabase {
 protected:
  ElectedCrpDatabase() { engine.electUs(globalZone); }
};

// Sender of an advertisement --------------------------------------------------------------------------

TEST_F(ElectedCrpDatabase, TheElectedBsrTakesWhatWasSentToIt) {
  engine.receive(Adv{});
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/180/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(globalZone));
  EXPECT_EQ(engine.status->counters()->rxCrpAdvSuccess(), 1u);
  EXPECT_EQ(engine.status->counters()->rxError(), 0u);
  EXPECT_EQ(engine.errors(), Bsr::PimBsrErrorCounters());
  EXPECT_EQ(context.traced("Passing Crp Adv Message to Candidate BSR 10.0.0.1 for zone 224.0.0.0/4"), 1);
}

struct DropCase {
  char const* name;
  char const* ours;     ///< our address as candidate; empty if we are none
  char const* elected;  ///< the elected BSR; empty if there is none
  char const* sentTo;
  char const* trace;
};

class CrpDrop : public CrpDatabase, public testing::WithParamInterface<DropCase> {};

TEST_P(CrpDrop, IsDroppedByTheMachinesAndCounted) {
  DropCase const& c = GetParam();
  if (*c.ours != 0) engine.electUs(globalZone, c.ours);
  if (*c.elected != 0) {
    engine.electOther(globalZone, c.elected);
  } else {
    engine.status->bootstrapRouterDel(prefix(globalZone));
  }
  engine.receive({.bsr = c.sentTo});
  EXPECT_EQ(engine.rpSet(globalZone), "");
  EXPECT_EQ(engine.errors().rxInvalid, 1u);
  EXPECT_EQ(engine.status->counters()->rxError(), 1u);
  EXPECT_EQ(engine.status->counters()->rxCrpAdvError(), 0u);
  EXPECT_EQ(engine.status->counters()->rxCrpAdvSuccess(), 1u);  // the gate let it pass
  EXPECT_EQ(context.tracedAs(std::string("Rx Error - Dropping Crp Adv Message to Candidate BSR ") + c.trace),
            "Pim::Bsr::Sm 1 PimBsrSm");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CrpDrop,
    testing::Values(DropCase{"NoBsrIsKnown", "10.0.0.1", "", "10.0.0.1", "10.0.0.1 for zone "},
                    DropCase{"WeAreNoCandidate", "", "10.0.0.9", "10.0.0.9", "10.0.0.9 for zone 224.0.0.0/4"},
                    DropCase{"AnotherIsElectedAndItCameToUs", "10.0.0.1", "10.0.0.9", "10.0.0.1",
                             "10.0.0.1 for zone 224.0.0.0/4"},
                    DropCase{"AnotherIsElectedAndItWasSentToThat", "10.0.0.1", "10.0.0.9", "10.0.0.9",
                             "10.0.0.9 for zone 224.0.0.0/4"},
                    DropCase{"WeAreElectedAndItWasSentElsewhere", "10.0.0.1", "10.0.0.1", "10.0.0.2",
                             "10.0.0.2 for zone 224.0.0.0/4"}),
    [](auto const& param) { return param.param.name; });

TEST_F(ElectedCrpDatabase, EachRangeGoesToItsBestZoneAndIsCheckedThere) {
  engine.electUs("239.1.0.0/16", "10.0.0.2");
  engine.electOther("239.2.0.0/16", "10.0.0.9");
  engine.receive({.groups = {{"239.0.0.0/8"}, {"239.1.7.0/24"}, {"239.2.7.0/24"}}, .bsr = "10.0.0.1"});
  EXPECT_EQ(engine.rpSet(globalZone), "239.0.0.0/8: 203.0.113.1/180/0");
  EXPECT_EQ(engine.errors().rxInvalid, 2u);
  engine.receive({.groups = {{"239.1.7.0/24"}}, .bsr = "10.0.0.2"});
  EXPECT_EQ(engine.rpSet("239.1.0.0/16"), "239.1.7.0/24: 203.0.113.1/180/0");
  EXPECT_EQ(engine.errors().rxInvalid, 2u);
}

TEST_F(ElectedCrpDatabase, WithoutAnAddressFamilyNothingIsTakenOrCounted) {
  engine.status->afIs(Lanet::AddressFamily::unset);
  engine.crpMsgStatus->groupInfoIs(Zet::make<Routing::Pim::Packet::CrpGroupInfo>(prefix(globalZone)));
  engine.crpMsgStatus->readCountInc(1);
  EXPECT_EQ(engine.status->counters()->rxError(), 0u);
}

TEST_F(ElectedCrpDatabase, ARaiseWithoutAGroupDoesNothing) {
  engine.crpMsgStatus->readCountInc(1);
  EXPECT_EQ(engine.status->counters()->rxError(), 0u);
}

// A new RP --------------------------------------------------------------------------------------------

TEST_F(ElectedCrpDatabase, TheFirstAdvertisementMakesStatusSetAndRp) {
  engine.runTo(7);
  engine.receive({.groups = {{"239.0.0.0/8"}}, .holdtime = 200, .priority = 5});
  auto status = engine.status->crpStatus(prefix(globalZone))->status();
  EXPECT_EQ(status->name(), "");
  EXPECT_EQ(status->rpSetType(), RpType::bsr);
  auto rp = engine.rp(globalZone, "239.0.0.0/8", rpAddress);
  ASSERT_TRUE(rp);
  EXPECT_EQ(engine.since(rp->setupTime()), 7);
  EXPECT_EQ(engine.since(rp->expires()), 207);
  EXPECT_EQ(rp->hashMaskLen().value(), 30u);
  EXPECT_EQ(rp->holdTime().value(), 200u);
  EXPECT_EQ(rp->priority().value(), 5u);
  EXPECT_EQ(rp->pimMode(), Mode::sparse);
  for (char const* text :
       {"Creating CrpStatus for zone 224.0.0.0/4", "Creating CrpSet with prefix 239.0.0.0/8",
        "Adding RP 203.0.113.1 into CrpSet with prefix 239.0.0.0/8",
        "Setting bootstrap timer to expire in BS_MIN_INTERVAL for zone 224.0.0.0/4"}) {
    EXPECT_EQ(context.tracedAs(text), "Pim::Bsr::CandidateSm 8 BsrCandidateSm") << text;
  }
}

TEST_F(ElectedCrpDatabase, ASecondRpUsesTheExistingSet) {
  engine.receive({.rp = "203.0.113.1"});
  engine.receive({.rp = "203.0.113.2", .holdtime = 300, .priority = 9});
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/180/0 203.0.113.2/300/9");
  EXPECT_EQ(context.tracedPrefix("Creating CrpStatus"), 1);
  EXPECT_EQ(context.tracedPrefix("Creating CrpSet"), 1);
}

TEST_F(ElectedCrpDatabase, AFirstAdvertisementWithHoldtime0CreatesNothing) {
  engine.receive({.holdtime = 0});
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  engine.receive({.groups = {{"238.0.0.0/8"}}});
  engine.receive({.holdtime = 0});
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone))->status()->crpSet(prefix(globalZone)));
  EXPECT_EQ(context.traced("Holdtime value of C-RP Advertisement is 0. Ignoring message"), 0);
  engine.receive({.groups = {{"238.0.0.0/8"}}, .rp = "203.0.113.2", .holdtime = 0});
  EXPECT_EQ(engine.rpSet(globalZone), "238.0.0.0/8: 203.0.113.1/180/0");
  EXPECT_EQ(context.traced("Holdtime value of C-RP Advertisement is 0. Ignoring message"), 1);
}

TEST_F(ElectedCrpDatabase, AnEmptySetThatExistedStaysAfterAWithdrawal) {
  auto status = engine.status->crpStatusIs(prefix(globalZone))->statusIs("");
  status->crpSetIs(prefix(globalZone));
  engine.receive({.holdtime = 0});
  ASSERT_TRUE(status->crpSet(prefix(globalZone)));
  EXPECT_EQ(status->crpSet(prefix(globalZone))->rpCount(), 0u);
  EXPECT_EQ(engine.status->crpStatus(prefix(globalZone))->status(), status);
}

// Holdtimes -------------------------------------------------------------------------------------------

struct Holdtime {
  Zet::U32 period;
  Zet::U16 given;
  Zet::U32 stored;
};

class CrpHoldtimes : public CrpDatabase, public testing::WithParamInterface<Holdtime> {};

TEST_P(CrpHoldtimes, UpToTwoAndAHalfPeriodsAreRaisedToThree) {
  auto [period, given, stored] = GetParam();
  engine.electUs(globalZone, "10.0.0.1", period);
  engine.runTo(period < 5 ? 0 : 5);
  double now = engine.elapsed();
  engine.receive({.holdtime = given});
  ASSERT_TRUE(rp());
  EXPECT_EQ(rp()->holdTime().value(), stored);
  EXPECT_EQ(engine.since(rp()->expires()), now + stored);
  std::string trace = "C-RP Adv message contains holdtime " + std::to_string(given) +
                      " seconds which is less than 2.5 times bsPeriod of " + std::to_string(period) +
                      " seconds.";
  EXPECT_EQ(context.traced(trace), given == stored ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Cases, CrpHoldtimes,
                         testing::Values(Holdtime{60, 1, 180}, Holdtime{60, 149, 180}, Holdtime{60, 150, 180},
                                         Holdtime{60, 151, 151}, Holdtime{60, 40958, 40958},
                                         Holdtime{1, 2, 3}, Holdtime{5, 12, 15}, Holdtime{5, 13, 13},
                                         Holdtime{13652, 100, 40956}));

TEST_F(CrpDatabase, ARaisedHoldtimeKeepsTheLow16BitsOfThePeriodAndExpiresByAllOfIt) {
  engine.electUs(globalZone, "10.0.0.1", 65536 + 20);
  engine.receive({.holdtime = 150});
  EXPECT_EQ(rp()->holdTime().value(), 60u);
  EXPECT_EQ(engine.since(rp()->expires()), 3 * 65556.0);
}

TEST_F(CrpDatabase, ARaisedHoldtimeAboveItsLimitRaisesAndLeavesWhatWasWritten) {
  engine.electUs(globalZone, "10.0.0.1", 13653);
  engine.receive({.groups = {{globalZone, bidirFlag}}, .priority = 7});
  expectedExceptions = 1;
  ASSERT_TRUE(rp());
  EXPECT_EQ(rp()->priority().value(), 7u);
  EXPECT_EQ(rp()->pimMode(), Mode::bidir);
  EXPECT_EQ(rp()->hashMaskLen().value(), 30u);
  EXPECT_EQ(rp()->holdTime().value(), 0u);
  EXPECT_EQ(rp()->expires(), 0.0);
  EXPECT_EQ(nextBsm(), 10);
  EXPECT_EQ(engine.status->counters()->rxCrpAdvSuccess(), 1u);
}

TEST_F(ElectedCrpDatabase, AHashMaskLengthAboveItsLimitRaisesAndLeavesAnRpWithoutHoldtime) {
  engine.elected(globalZone)->hashMaskLenIs(129);
  engine.receive({.priority = 7});
  expectedExceptions = 1;
  ASSERT_TRUE(rp());
  EXPECT_EQ(rp()->setupTime(), Zet::now());
  EXPECT_EQ(rp()->hashMaskLen().value(), 128u);
  EXPECT_EQ(rp()->priority().value(), 256u);
  EXPECT_EQ(rp()->expires(), 0.0);
  EXPECT_EQ(nextBsm(), 60);
  EXPECT_EQ(context.tracedPrefix("Adding RP"), 0);
}

// The next message ------------------------------------------------------------------------------------

TEST_F(CrpDatabase, ANewRpPullsANextMessageThatIsMoreThan10SecondsAwayToNowPlus10) {
  struct {
    double at, next;
  } const cases[] = {{10, 20}, {49.5, 59.5}, {50, 60}, {51, 60}};
  for (auto const& c : cases) {
    CrpEngine router;
    router.permit("0.0.0.0/0");
    router.openGate();
    router.start();
    auto machine = router.electUs(globalZone);
    router.runTo(c.at);
    router.receive(Adv{});
    EXPECT_EQ(router.since(machine->zetBsTimer()->timeMin()), c.next) << c.at;
    EXPECT_EQ(router.since(router.elected(globalZone)->expiryTime()), 60) << c.at;
  }
  EXPECT_EQ(context.tracedPrefix("Setting bootstrap timer to expire in BS_MIN_INTERVAL"), 2);
}

TEST_F(ElectedCrpDatabase, AnotherNewRpPushesTheNextMessageOutAgain) {
  engine.receive({.rp = "203.0.113.1"});
  EXPECT_EQ(nextBsm(), 10);
  engine.runTo(9);
  engine.receive({.rp = "203.0.113.2"});
  EXPECT_EQ(nextBsm(), 19);
}

TEST_F(ElectedCrpDatabase, RenewalLeavesTheTimerAndKeepsSetupTimeAndHashMaskLength) {
  engine.receive(Adv{});
  rp()->hashMaskLenIs(17);
  engine.runTo(20);  // the message of 10 seconds has gone, the next is due at 70
  engine.receive({.holdtime = 400, .priority = 3});
  EXPECT_EQ(nextBsm(), 70);
  EXPECT_EQ(engine.since(rp()->setupTime()), 0);
  EXPECT_EQ(rp()->hashMaskLen().value(), 17u);
  EXPECT_EQ(rp()->priority().value(), 3u);
  EXPECT_EQ(rp()->holdTime().value(), 400u);
  EXPECT_EQ(engine.since(rp()->expires()), 420);
  EXPECT_EQ(context.tracedPrefix("Adding RP"), 1);
}

TEST_F(ElectedCrpDatabase, AnRpThatIsNotRenewedGoesWithItsSetAndZone) {
  engine.receive({.holdtime = 151});
  engine.runTo(150.5);
  EXPECT_TRUE(rp());
  engine.runTo(151);
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  EXPECT_EQ(engine.mirror(), "");
}

// Withdrawal ------------------------------------------------------------------------------------------

TEST_F(ElectedCrpDatabase, AWithdrawalSetsHoldtime0AndHurriesTheNextMessage) {
  engine.receive({.holdtime = 200});
  engine.runTo(30);
  engine.receive({.holdtime = 0});
  ASSERT_TRUE(rp());
  EXPECT_EQ(rp()->holdTime().value(), 0u);
  EXPECT_EQ(engine.since(rp()->expires()), 230);
  EXPECT_EQ(nextBsm(), 40);
  EXPECT_EQ(engine.since(engine.elected(globalZone)->expiryTime()), 70);
  EXPECT_EQ(context.traced("C-RP 203.0.113.1 updated with holdtime 0"), 1);
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/0/0");
}

TEST_F(ElectedCrpDatabase, AWithdrawal10SecondsBeforeTheNextMessageLeavesTheTimer) {
  engine.receive({.holdtime = 200});
  engine.runTo(60);  // next at 70
  engine.receive({.holdtime = 0});
  EXPECT_EQ(nextBsm(), 70);
}

TEST_F(ElectedCrpDatabase, ASecondWithdrawalChangesNothing) {
  engine.receive({.holdtime = 200});
  engine.runTo(30);
  engine.receive({.holdtime = 0});
  engine.runTo(35);
  engine.receive({.holdtime = 0, .priority = 9});
  EXPECT_EQ(engine.since(rp()->expires()), 230);
  EXPECT_EQ(rp()->priority().value(), 0u);
  EXPECT_EQ(nextBsm(), 40);
  EXPECT_EQ(context.traced("Ignoring duplicate C-RP advertisement with 0 holdtime"), 1);
  EXPECT_EQ(context.traced("C-RP 203.0.113.1 updated with holdtime 0"), 1);
}

TEST_F(ElectedCrpDatabase, AWithdrawnRpThatIsAdvertisedAgainStays) {
  engine.receive({.holdtime = 200});
  engine.receive({.holdtime = 0});
  engine.receive({.holdtime = 200});
  engine.runTo(100);
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/200/0");
  EXPECT_EQ(engine.since(rp()->setupTime()), 0);
}

TEST_F(ElectedCrpDatabase, AWithdrawnRpIsInExactlyOneMessageAndThenLeavesBothTrees) {
  engine.receive({.rp = "203.0.113.1", .holdtime = 300});
  engine.receive({.rp = "203.0.113.2", .holdtime = 300});
  engine.runTo(20);
  engine.receive({.rp = "203.0.113.1", .holdtime = 0});
  engine.outbox->sent.clear();
  engine.runTo(29.5);
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/0/0 203.0.113.2/300/0");
  engine.runTo(30);
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.2/300/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(globalZone));
  engine.runTo(200);
  std::vector<bool> named, withdrawn;
  for (Sent const& one : engine.outbox->sent) {
    named.push_back(one.text.find("203.0.113.1/") != std::string::npos);
    withdrawn.push_back(one.text.find("203.0.113.1/0/0") != std::string::npos);
  }
  EXPECT_EQ(named, (std::vector<bool>{true, false, false}));  // at 30, 90 and 150 seconds
  EXPECT_EQ(withdrawn, named);
}

TEST_F(ElectedCrpDatabase, AWithdrawnSoleRpTakesItsSetAndZoneWithItAfterTheMessage) {
  engine.receive(Adv{});
  engine.receive({.holdtime = 0});
  engine.outbox->sent.clear();
  engine.runTo(10);
  ASSERT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_NE(engine.outbox->sent[0].text.find("203.0.113.1/0/0"), std::string::npos);
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  EXPECT_EQ(engine.mirror(), "");
}

// Modes -----------------------------------------------------------------------------------------------

std::string const preferBidir =
    "CRP 203.0.113.1 has both PIM-SM and PIM-BIDIR instances. We prefer BIDIR. Hence ";

class BidirCrpDatabase : public ElectedCrpDatabase {
 protected:
  /// An advertisement of the RP as bidirectional.
  static Adv bidir(Zet::U16 holdtime = 200) {
    return {.groups = {{globalZone, bidirFlag}}, .holdtime = holdtime};
  }
  static Adv sparse(Zet::U16 holdtime = 200) { return {.holdtime = holdtime}; }
};

TEST_F(BidirCrpDatabase, ABidirAdvertisementReplacesASparseRpByANewOne) {
  engine.receive({.rp = "203.0.113.2", .holdtime = 300});
  engine.receive(sparse());
  auto former = rp();
  engine.runTo(20);
  engine.receive(bidir());
  ASSERT_TRUE(rp());
  EXPECT_NE(rp(), former);
  EXPECT_EQ(former->pimMode(), Mode::sparse);
  EXPECT_EQ(rp()->pimMode(), Mode::bidir);
  EXPECT_EQ(engine.since(rp()->setupTime()), 20);
  EXPECT_EQ(engine.since(rp()->expires()), 220);
  EXPECT_EQ(nextBsm(), 30);
  EXPECT_EQ(engine.rpCandidateStatus->crpSet(prefix(globalZone))->rp(addr(rpAddress))->pimMode(),
            Mode::bidir);
  EXPECT_EQ(context.traced(preferBidir + "deleting existing PIM-SM CRP entry"), 1);
}

// The former RP takes its set and zone out of the tree, and the new one goes into that set: it is heard of
// with its next advertisement.
TEST_F(BidirCrpDatabase, ASoleRpThatTurnsBidirLeavesTheTreeUntilItIsAdvertisedAgain) {
  engine.receive(sparse());
  engine.receive(bidir());
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  EXPECT_EQ(engine.mirror(), "");
  EXPECT_EQ(context.traced("Adding RP 203.0.113.1 into CrpSet with prefix 224.0.0.0/4"), 2);
  engine.receive(bidir());
  ASSERT_TRUE(rp());
  EXPECT_EQ(rp()->pimMode(), Mode::bidir);
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/200/0");
}

TEST_F(BidirCrpDatabase, ABidirWithdrawalOfASparseRpDeletesItAtOnce) {
  engine.receive({.rp = "203.0.113.2", .holdtime = 300});
  engine.receive(sparse());
  engine.receive(bidir(0));
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.2/300/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(globalZone));
  EXPECT_EQ(context.traced("Holdtime value of C-RP Advertisement is 0. Ignoring message"), 1);
}

TEST_F(BidirCrpDatabase, ASparseAdvertisementLeavesABidirRpWhichAgesOut) {
  engine.receive(bidir());
  engine.runTo(100);
  engine.receive({.holdtime = 400, .priority = 9});
  engine.receive(sparse(0));
  EXPECT_EQ(rp()->pimMode(), Mode::bidir);
  EXPECT_EQ(rp()->priority().value(), 0u);
  EXPECT_EQ(rp()->holdTime().value(), 200u);
  EXPECT_EQ(engine.since(rp()->expires()), 200);
  EXPECT_EQ(context.traced(preferBidir + "ignoring PIM-SM CRP Advertisement"), 2);
  engine.runTo(199.5);
  EXPECT_TRUE(rp());
  engine.runTo(200);
  EXPECT_FALSE(rp());
}

TEST_F(BidirCrpDatabase, ABidirRpIsRenewedAndWithdrawnByItsOwnKind) {
  engine.receive(bidir());
  engine.runTo(20);
  engine.receive(bidir(300));
  EXPECT_EQ(engine.since(rp()->setupTime()), 0);
  EXPECT_EQ(engine.since(rp()->expires()), 320);
  engine.receive(bidir(0));
  EXPECT_EQ(rp()->holdTime().value(), 0u);
  EXPECT_EQ(context.tracedPrefix(preferBidir), 0);
}

// The Zone bit ----------------------------------------------------------------------------------------

TEST_F(ElectedCrpDatabase, ASetZoneBitIsLoggedEachTimeAndTheRangeTaken) {
  engine.receive({.groups = {{"239.0.0.0/8", scopedFlag}, {"238.0.0.0/8"}}});
  std::string const text = "C-RP advertisement received from 203.0.113.1 with Zone bit set.";
  EXPECT_EQ(context.logs, std::vector<std::string>{text});
  EXPECT_EQ(context.tracedAs("Zone bit set in Candidate RP Advertisement from 203.0.113.1"),
            "Pim::Bsr::CandidateSm 7 BsrCandidateSm");
  EXPECT_EQ(engine.rpSet(globalZone), "238.0.0.0/8: 203.0.113.1/180/0; 239.0.0.0/8: 203.0.113.1/180/0");
  engine.receive({.groups = {{"239.0.0.0/8", scopedFlag}}, .holdtime = 0});
  EXPECT_EQ(context.logs.size(), 2u);
}

/// Notes which message of the system log was written.
class HandleContext : public TestContext {
 public:
  void log(Zet::LogHandle const& handle, std::string const&) override { handles.push_back(&handle); }
  std::vector<Zet::LogHandle const*> handles;
};

TEST(CrpZoneLog, IsANoticeThatSaysWhatItMeansAndWhatToDo) {
  HandleContext context;
  Zet::Context::Scope scope(context);
  CrpEngine router;
  router.permit("0.0.0.0/0");
  router.openGate();
  router.start();
  router.electUs(globalZone);
  router.receive({.groups = {{globalZone, scopedFlag}}});
  ASSERT_EQ(context.handles.size(), 1u);
  Zet::LogHandle const& handle = *context.handles[0];
  EXPECT_STREQ(handle.name(), "PIMBSR_MESSAGE_CRP_ZONE");
  EXPECT_EQ(static_cast<int>(handle.severity()), 5);
  EXPECT_STREQ(handle.format(), "C-RP advertisement received from %s with Zone bit set.");
  EXPECT_STREQ(handle.explanation(),
               "Indicated C-RP is a ZBR. This message is logged in compliance to RFC 5059.");
  EXPECT_STREQ(handle.recommendedAction(),
               "If C-RP is not a ZBR contact support. This message is safe to ignore otherwise.");
  EXPECT_EQ(handle.rateFlags(), 0);
}

}  // namespace
}  // namespace test
