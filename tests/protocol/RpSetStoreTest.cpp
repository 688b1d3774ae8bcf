#include <gmock/gmock.h>

#include "tests/protocol/NonCandidateSupport.h"
#include "tests/support/Watch.h"

namespace test {
namespace {

using Routing::Pim::Mode;
using testing::ElementsAre;
using testing::IsEmpty;
using Zet::Ptr;

std::string const range = "239.1.0.0/16";
std::string const one = "203.0.113.1";
std::string const two = "203.0.113.2";
std::string const three = "203.0.113.3";

class RpSetStore : public EngineTest {
 protected:
  void store(Bsm const& given, std::string const& zone = global) {
    engine.root->storeRpSet(prefix(zone), make(given), false);
  }
  void refresh(Bsm const& given, std::string const& zone = global) {
    engine.root->storeRpSet(prefix(zone), make(given), true);
  }
  Ptr<Routing::Pim::RpCandidate> rp(std::string const& address) const {
    return engine.rp(global, range, address);
  }
  double expires(std::string const& address) const { return engine.since(rp(address)->expires()); }
  /// What the store has traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }
  /// Elects 10.0.0.1 for the global zone, so that its sets are mirrored.
  void elect() { engine.status->bootstrapRouterIs(prefix(global))->ipAddrIs(addr("10.0.0.1")); }
};

// Records ---------------------------------------------------------------------------------------------

TEST_F(RpSetStore, ARecordWithNoRpInThisMessageChangesNothing) {
  elect();
  for (Group const& empty : {Group{range}, Group{.prefix = range, .rpCount = 5, .fragRpCount = 0},
                             Group{range, {{one, 0}}, 0, 1, 0}}) {
    store({.groups = {empty}});
    EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  }
  store({.groups = {{range, {{one}}}}});
  for (Group const& empty : {Group{range}, Group{.prefix = range, .rpCount = 5, .fragRpCount = 0},
                             Group{range, {{one, 0}}, 0, 1, 0}}) {
    store({.groups = {empty}});
    EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0");
  }
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
}

TEST_F(RpSetStore, EqualCountsMakeARecordWholeHoweverManyRpsItHolds) {
  elect();
  store({.groups = {{range, {{one}, {two}}, 0, 7, 7}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0");
  EXPECT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
}

TEST_F(RpSetStore, AFirstMessageMakesZoneRangeAndRp) {
  elect();
  engine.runTo(5);
  texts();
  store({.groups = {{range, {{one, 150, 7}}}}, .hashMaskLen = 24});
  EXPECT_THAT(texts(),
              ElementsAre("Creating Rp set associated with prefix 239.1.0.0/16",
                          "Adding RP 203.0.113.1 to prefix 239.1.0.0/16 in zone 224.0.0.0/4 with setup "
                          "time of 1e+09",
                          "RP 203.0.113.1 to expire in 150 from now"));
  auto rpSet = engine.status->crpStatus(prefix(global))->status();
  EXPECT_EQ(rpSet->name(), Zet::Name());
  EXPECT_EQ(rpSet->rpSetType(), Routing::Pim::RpType::bsr);
  EXPECT_EQ(rp(one)->priority().value(), 7u);
  EXPECT_EQ(rp(one)->holdTime().value(), 150);
  EXPECT_EQ(rp(one)->hashMaskLen().value(), 24u);
  EXPECT_EQ(rp(one)->pimMode(), Mode::sparse);
  EXPECT_EQ(engine.since(rp(one)->setupTime()), 5);
  EXPECT_EQ(expires(one), 155);
}

TEST_F(RpSetStore, AnRpInTheSetIsUpdatedInPlaceWithItsSetupTime) {
  elect();
  store({.groups = {{range, {{one, 150, 7}}}}});
  auto known = rp(one);
  engine.runTo(60);
  texts();
  store({.groups = {{range, {{one, 100, 9}}}}, .hashMaskLen = 4});
  EXPECT_THAT(texts(), ElementsAre("Updating RP 203.0.113.1 to prefix 239.1.0.0/16 in zone 224.0.0.0/4",
                                   "RP 203.0.113.1 to expire in 100 from now"));
  EXPECT_EQ(rp(one), known);
  EXPECT_EQ(engine.since(known->setupTime()), 0);
  EXPECT_EQ(known->priority().value(), 9u);
  EXPECT_EQ(known->holdTime().value(), 100);
  EXPECT_EQ(known->hashMaskLen().value(), 4u);
  EXPECT_EQ(expires(one), 160);
}

TEST_F(RpSetStore, TheAttributesAreWrittenInAFixedOrderWithExpiresLast) {
  elect();
  store({.groups = {{range, {{one, 150, 7}}}}});
  Texts writes;
  auto watch = Zet::make<RpWatch>([&](std::string const& what) { writes.push_back(what); });
  watch->notifierIs(rp(one));
  engine.runTo(1);
  store({.groups = {{range, {{one, 140, 8}}, bidirFlag}}, .hashMaskLen = 4});
  EXPECT_THAT(writes, ElementsAre("pimMode", "priority", "holdTime", "hashMaskLen", "expires"));
}

TEST_F(RpSetStore, WhatDoesNotChangeIsNotNotified) {
  elect();
  store({.groups = {{range, {{one}}}}});
  Texts writes;
  auto watch = Zet::make<RpWatch>([&](std::string const& what) { writes.push_back(what); });
  watch->notifierIs(rp(one));
  store({.groups = {{range, {{one}}}}});
  EXPECT_THAT(writes, IsEmpty());
  engine.runTo(1);
  store({.groups = {{range, {{one}}}}});
  EXPECT_THAT(writes, ElementsAre("expires"));
}

TEST_F(RpSetStore, AnRpThatAMessageDoesNotNameAgesByItself) {
  elect();
  store({.groups = {{range, {{one}, {two}, {three}}}}});
  engine.runTo(60);
  store({.groups = {{range, {{one}, {three}}}}});
  EXPECT_EQ(expires(one), 210);
  EXPECT_EQ(expires(two), 150);
  EXPECT_EQ(expires(three), 210);
}

TEST_F(RpSetStore, RecordsOfOnePrefixAreTakenInTheOrderOfTheMessage) {
  elect();
  store({.groups = {{range, {{one, 150, 1}}}, {range, {{one, 100, 2}}}, {range, {{two}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/100/2 203.0.113.2/150/0");
}

TEST_F(RpSetStore, EachZoneHasATreeOfItsOwn) {
  store({.groups = {{range, {{one}}}}}, global);
  store({.groups = {{range, {{two}}}}}, scoped);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0");
  EXPECT_EQ(engine.rpSet(scoped), "239.1.0.0/16: 203.0.113.2/150/0");
}

TEST_F(RpSetStore, NothingIsDoneUntilTheFamilyIsKnown) {
  engine.status->afIs(Lanet::AddressFamily::unset);
  auto message = make({.groups = {{range, {{one}}}}, .forward = false});
  engine.root->storeRpSet(prefix(global), message, false);
  engine.root->refreshRpSet(prefix(global), message);
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_FALSE(message->forward());
}

// Withdrawal ------------------------------------------------------------------------------------------

TEST_F(RpSetStore, HoldtimeZeroRemovesTheRp) {
  elect();
  store({.groups = {{range, {{one}, {two}}}}});
  texts();
  store({.groups = {{range, {{one, 0}}}}});
  EXPECT_THAT(texts(), ElementsAre("Deleted RP 203.0.113.1 since holdtime is 0"));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.2/150/0");
}

TEST_F(RpSetStore, HoldtimeZeroOfAnUnknownRpIsTracedAllTheSame) {
  elect();
  store({.groups = {{range, {{one}}}}});
  texts();
  store({.groups = {{range, {{two, 0}}}}});
  EXPECT_THAT(texts(), ElementsAre("Deleted RP 203.0.113.2 since holdtime is 0"));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0");
}

TEST_F(RpSetStore, HoldtimeZeroForAnUnknownRangeLeavesAnEmptySet) {
  elect();
  store({.groups = {{range, {{one, 0}, {two, 0}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16:");
  engine.runTo(1000);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16:");
}

/// Two addresses in the order in which a record is walked.
std::pair<std::string, std::string> walkOrder() {
  auto message = make({.groups = {{range, {{one}, {two}}}}});
  bool straight = message->groupRpData()->groupDataFirst()->rpListIterator()->rpAddress() == addr(one);
  return straight ? std::pair(one, two) : std::pair(two, one);
}

TEST_F(RpSetStore, WhatFollowsTheLastRpOfASetGoesIntoTheSetThatLeftTheTree) {
  elect();
  auto const [last, further] = walkOrder();
  store({.groups = {{range, {{last}}}}});
  Ptr<Routing::Pim::RpCandidateSet> set =
      engine.status->crpStatus(prefix(global))->status()->crpSet(prefix(range));
  texts();
  store({.groups = {{range, {{last, 0}, {further}}}}});
  EXPECT_THAT(texts(), ElementsAre("Deleted zone 224.0.0.0/4 RP set ",
                                   "Deleted rpset for prefix 239.1.0.0/16 in zone 224.0.0.0/4",
                                   "Deleted RP " + last + " since holdtime is 0",
                                   "Adding RP " + further +
                                       " to prefix 239.1.0.0/16 in zone 224.0.0.0/4 with setup time of 1e+09",
                                   "RP " + further + " to expire in 150 from now"));
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_EQ(engine.mirror(), "");
  ASSERT_TRUE(set->rp(addr(further)));
  EXPECT_EQ(engine.since(set->rp(addr(further))->expires()), 150);
  EXPECT_EQ(set->rpCount(), 1u);
}

TEST_F(RpSetStore, ASetThatIsNotReferencedOutlivesItsLastRpForTheRestOfItsRecord) {
  elect();
  auto const [last, further] = walkOrder();
  store({.groups = {{range, {{last}}}, {"239.2.0.0/16", {{three}}}}});
  store({.groups = {{range, {{last, 0}, {further}}}, {"239.3.0.0/16", {{three}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.2.0.0/16: 203.0.113.3/150/0; 239.3.0.0/16: 203.0.113.3/150/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
  store({.groups = {{range, {{further}}}}});
  EXPECT_EQ(engine.rpSet(global),
            "239.1.0.0/16: " + further +
                "/150/0; 239.2.0.0/16: 203.0.113.3/150/0; 239.3.0.0/16: 203.0.113.3/150/0");
}

TEST_F(RpSetStore, ARecordAfterTheOneThatEmptiedTheZoneMakesItAnew) {
  elect();
  store({.groups = {{range, {{one}}}}});
  store({.groups = {{range, {{one, 0}}}, {"239.2.0.0/16", {{two}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.2.0.0/16: 203.0.113.2/150/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
}

// Bidirectional ranges --------------------------------------------------------------------------------

TEST_F(RpSetStore, TheTopFlagBitMakesAnRpBidirectionalAndAClearBitNeverTakesThatBack) {
  elect();
  store({.groups = {{range, {{one}}, 0x7f}}});
  EXPECT_EQ(rp(one)->pimMode(), Mode::sparse);
  store({.groups = {{range, {{one}}, bidirFlag}}});
  EXPECT_EQ(rp(one)->pimMode(), Mode::bidir);
  store({.groups = {{range, {{one}}}}});
  EXPECT_EQ(rp(one)->pimMode(), Mode::bidir);
  store({.groups = {{range, {{one, 0}}}}});
  store({.groups = {{range, {{one}}}}});
  EXPECT_EQ(rp(one)->pimMode(), Mode::sparse);
}

TEST_F(RpSetStore, AFragmentedRangeHasTheFlagsOfTheRecordThatCompletedIt) {
  elect();
  for (bool last : {true, false}) {
    store({.groups = {{range, {{one}}, last ? Zet::U8{0} : bidirFlag, 2}}});
    store({.groups = {{range, {{two}}, last ? bidirFlag : Zet::U8{0}, 2}}});
    EXPECT_EQ(rp(one)->pimMode(), last ? Mode::bidir : Mode::sparse);
    EXPECT_EQ(rp(two)->pimMode(), last ? Mode::bidir : Mode::sparse);
    engine.status->crpStatus(prefix(global))->status()->crpSetDelAll();
  }
}

// Refreshing ------------------------------------------------------------------------------------------

TEST_F(RpSetStore, ARefreshMakesNeitherZoneNorRangeNorRp) {
  elect();
  refresh({.groups = {{range, {{one}}}}});
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_FALSE(engine.root->crpZoneStatus(prefix(global)));
  store({.groups = {{range, {{one}}}}});
  texts();
  refresh({.groups = {{"239.2.0.0/16", {{one}}}, {range, {{two}}}}});
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0");
}

TEST_F(RpSetStore, ARefreshRenewsWhatIsThere) {
  elect();
  store({.groups = {{range, {{one}, {two}}}}});
  engine.runTo(60);
  refresh({.groups = {{"239.2.0.0/16", {{one}}}, {range, {{one, 90, 4}, {three}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/90/4 203.0.113.2/150/0");
  EXPECT_EQ(expires(one), 150);
  EXPECT_EQ(engine.since(rp(one)->setupTime()), 0);
}

/// Rules that ask for withdrawals last.
class LastRules final : public Bsr::StoreRules {
 public:
  bool takesWithdrawalsLast() const override { return true; }
  void handleWithdrawnLast() override { ++acts; }
  void handleElection(Lanet::IpGenPrefix const&) override {}
  bool keeps(Lanet::IpGenPrefix const&) const override { return false; }
  bool keeps(Lanet::IpGenPrefix const&, Lanet::IpGenAddr const&) const override { return false; }
  void handleMirrored(Lanet::IpGenPrefix const&, Lanet::IpGenAddr const&) override {}
  void handleOriginated(Lanet::IpGenPrefix const&, Routing::Pim::Packet::BootstrapMessage const&) override {}
  int acts = 0;
};

TEST_F(RpSetStore, ByAHostsRuleTheRpsThatStayAreTakenBeforeThoseThatAreWithdrawn) {
  elect();
  auto rules = Zet::make<LastRules>();
  engine.root->storeRulesIs(rules);
  auto const [last, further] = walkOrder();
  store({.groups = {{range, {{last}}}}});
  store({.groups = {{range, {{last, 0}}}, {"239.2.0.0/16", {{one}}}}});
  EXPECT_EQ(rules->acts, 0);
  store({.groups = {{range, {{last}}}}});
  store({.groups = {{range, {{last, 0}, {further}}}}});
  EXPECT_FALSE(rp(last));
  EXPECT_TRUE(rp(further));
  EXPECT_EQ(rules->acts, 1);
  engine.root->storeRulesIs(nullptr);
}

TEST_F(RpSetStore, ARefreshStillRemovesAnRpOfHoldtimeZero) {
  elect();
  store({.groups = {{range, {{one}, {two}}}}});
  refresh({.groups = {{range, {{one, 0}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.2/150/0");
}

TEST_F(RpSetStore, RefreshingFromAKeptMessageSetsItsForwardFlag) {
  elect();
  store({.groups = {{range, {{one}}}}});
  engine.runTo(60);
  auto kept = make({.groups = {{range, {{one}, {two}}}}, .forward = false});
  engine.root->refreshRpSet(prefix(global), kept);
  EXPECT_TRUE(kept->forward());
  EXPECT_EQ(expires(one), 210);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0");
  engine.root->refreshRpSet(prefix(global), nullptr);
}

TEST_F(RpSetStore, ARefreshBringsBackNoRpThatHasGone) {
  engine.receive({.groups = {{global, {{one, 20}, {two}}}}});
  engine.runTo(130);
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.2/150/0");
  EXPECT_EQ(engine.since(engine.rp(global, global, two)->expires()), 280);
}

// Values out of range ---------------------------------------------------------------------------------

TEST_F(RpSetStore, TheHighestValuesThatAnRpCanHaveAreStored) {
  elect();
  store({.groups = {{range, {{one, 40958, 255}}}}, .hashMaskLen = 128});
  EXPECT_EQ(rp(one)->holdTime().value(), 40958);
  EXPECT_EQ(rp(one)->hashMaskLen().value(), 128u);
  EXPECT_EQ(expires(one), 40958);
}

/// A message that breaks off in the middle: its second record of three.
struct Broken {
  Zet::U16 holdtime;
  Zet::U8 hashMaskLen;
  std::string error;
  Zet::U32 holdtimeWritten;
};

Broken const brokenHoldtime{40959, 30, "CrpHoldTime::value < 0 or > 40958 not allowed", 0};
Broken const brokenMask{200, 129, "RpHashMaskLen::value < 0 or > 128 not allowed", 200};

Bsm brokenBsm(Broken const& broken) {
  return {.groups = {{range, {{one, 100, 6}}},
                     {"239.2.0.0/16", {{two, broken.holdtime, 7}}},
                     {"239.3.0.0/16", {{three}}}},
          .tag = 9,
          .hashMaskLen = broken.hashMaskLen};
}

TEST_F(RpSetStore, AHoldtimeAboveTheRangeLeavesWhatWasWrittenBeforeIt) {
  engine.addIntf("eth0");
  engine.receive(brokenBsm(brokenHoldtime));
  expectedExceptions = 1;
  EXPECT_EQ(context.tracedPrefix("Exception from the handler of attribute"), 1);
  EXPECT_NE(context.traces.back().text.find(brokenHoldtime.error), std::string::npos);
  // Before: entered, forwarded, and the first record stored whole.
  EXPECT_EQ(engine.elected(global)->ipAddr(), addr("10.0.0.1"));
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(expires(one), 100);
  // The RP itself: made, with the priority and nothing after it.
  auto broken = engine.rp(global, "239.2.0.0/16", two);
  ASSERT_TRUE(broken);
  EXPECT_EQ(engine.since(broken->setupTime()), 0);
  EXPECT_EQ(broken->priority().value(), 7u);
  EXPECT_EQ(broken->holdTime().value(), 0);
  EXPECT_EQ(broken->hashMaskLen().value(), 128u);
  EXPECT_EQ(broken->expires(), 0.0);
  // After it: nothing stored, kept or armed; the gate has accepted the message.
  EXPECT_FALSE(engine.status->crpStatus(prefix(global))->status()->crpSet(prefix("239.3.0.0/16")));
  EXPECT_FALSE(engine.follower(global)->lastBsm());
  EXPECT_FALSE(engine.follower(global)->zetBsTimer()->isArmed());
  EXPECT_EQ(engine.follower(global)->state(), State::acceptPreferred);
  EXPECT_EQ(engine.status->counters()->rxBsmSuccess(), 1u);
  EXPECT_EQ(engine.status->counters()->rxSuccess(), 1u);
  EXPECT_EQ(engine.status->counters()->rxError(), 0u);
}

TEST_F(RpSetStore, AHashMaskLengthAboveTheRangeStopsAtTheFirstRpOfTheMessage) {
  engine.addIntf("eth0");
  engine.receive(brokenBsm(brokenMask));
  expectedExceptions = 1;
  EXPECT_NE(context.traces.back().text.find(brokenMask.error), std::string::npos);
  EXPECT_EQ(engine.elected(global)->hashMaskLen(), 129u);
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/100/6");
  EXPECT_EQ(rp(one)->hashMaskLen().value(), 128u);
  EXPECT_EQ(rp(one)->expires(), 0.0);
  EXPECT_FALSE(engine.follower(global)->lastBsm());
  EXPECT_EQ(engine.status->counters()->rxSuccess(), 1u);
}

TEST_F(RpSetStore, ABrokenMessageOfAKnownBsrMovesTheEntryButNeitherTimerNorKeptMessage) {
  auto first = engine.receive({.groups = {{range, {{one}}}, {"239.2.0.0/16", {{two, 150, 1}}}}});
  engine.runTo(60);
  engine.receive(brokenBsm(brokenHoldtime));
  expectedExceptions = 1;
  EXPECT_EQ(engine.since(engine.elected(global)->expiryTime()), 190);
  EXPECT_EQ(due(engine, engine.follower(global)->zetBsTimer()), 130);
  EXPECT_EQ(engine.follower(global)->lastBsm(), first);
  EXPECT_EQ(expires(one), 160);
  auto broken = engine.rp(global, "239.2.0.0/16", two);
  EXPECT_EQ(broken->priority().value(), 7u);
  EXPECT_EQ(broken->holdTime().value(), 150);
  EXPECT_EQ(engine.since(broken->expires()), 150);
  engine.runTo(130);
  EXPECT_FALSE(engine.elected(global));
}

TEST_F(RpSetStore, TheMachineGoesOnWithTheNextMessageAfterABrokenOne) {
  engine.receive(brokenBsm(brokenHoldtime));
  expectedExceptions = 1;
  engine.receive({.groups = {{"239.2.0.0/16", {{two}}}}});
  EXPECT_EQ(engine.since(engine.rp(global, "239.2.0.0/16", two)->expires()), 150);
  EXPECT_EQ(due(engine, engine.follower(global)->zetBsTimer()), 130);
}

}  // namespace
}  // namespace test
