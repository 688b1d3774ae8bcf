#include <gmock/gmock.h>

#include <functional>

#include "tests/support/Engine.h"
#include "tests/support/Watch.h"

namespace test {
namespace {

using Routing::Pim::Mode;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using Zet::Ptr;
using RpCandidate = Routing::Pim::RpCandidate;
using RpCandidateSet = Routing::Pim::RpCandidateSet;
using RpCandidateStatus = Routing::Pim::RpCandidateStatus;
using Texts = std::vector<std::string>;

std::string const global = "224.0.0.0/4";
std::string const scoped = "239.0.0.0/8";
std::string const range = "239.1.0.0/16";
std::string const otherRange = "239.2.0.0/16";
std::string const one = "203.0.113.1";
std::string const two = "203.0.113.2";

std::string const notBest =
    "Not updating RpCandidateStatus since our zone 224.0.0.0/4 does not match the longest prefix match "
    "239.0.0.0/8 for "
    "prefix 239.1.0.0/16";

/// Notes each write to a whole set: "set" for a range that comes or goes, "rp" for an RP, else the attribute.
class SetWatch : public RpCandidateStatus::NotifieeConst {
 public:
  explicit SetWatch(Note note) : note_(std::move(note)) {}
  void onCrpSet(Lanet::IpGenPrefix const& key) override {
    note_("set");
    if (auto set = notifier()->crpSet(key)) {
      range_ = Zet::make<RangeWatch>(note_);
      range_->notifierIs(set);
    }
  }

 private:
  class RangeWatch : public RpCandidateSet::NotifieeConst {
   public:
    explicit RangeWatch(Note note) : note_(std::move(note)) {}
    void onRp(Lanet::IpGenAddr const& key) override {
      note_("rp");
      if (auto rp = notifier()->rp(key)) {
        rp_ = Zet::make<RpWatch>(note_);
        rp_->notifierIs(rp);
      }
    }

   private:
    Note note_;
    Ptr<RpWatch> rp_;
  };

  Note note_;
  Ptr<RangeWatch> range_;
};

/// A tree that a test writes by hand, as the store and the C-RP database do.
class RpTree : public EngineTest {
 protected:
  void elect(std::string const& zone) {
    engine.status->bootstrapRouterIs(prefix(zone))->ipAddrIs(addr("10.0.0.1"));
  }
  Ptr<RpCandidateStatus> tree(std::string const& zone = global) {
    auto zoneStatus = engine.status->crpStatusIs(prefix(zone));
    return zoneStatus->status() ? zoneStatus->status() : zoneStatus->statusIs("");
  }
  Ptr<RpCandidate> add(std::string const& address = one, std::string const& of = range,
                       std::string const& zone = global) {
    return tree(zone)->crpSetIs(prefix(of))->rpIs(addr(address));
  }
  Ptr<RpCandidate> addUntil(double seconds, std::string const& address = one, std::string const& of = range,
                            std::string const& zone = global) {
    auto rp = add(address, of, zone);
    rp->holdTimeIs(100);
    rp->expiresIs(Zet::now() + seconds - engine.elapsed());
    return rp;
  }
  Ptr<RpCandidate> mirrored(std::string const& address = one, std::string const& of = range) const {
    auto set = engine.rpCandidateStatus->crpSet(prefix(of));
    return set ? set->rp(addr(address)) : nullptr;
  }
  /// What the root machine has traced since the last call.
  Texts texts() {
    Texts all = context.tracedBy("PimBsrSm");
    context.traces.clear();
    return all;
  }
};

// Construction ----------------------------------------------------------------------------------------

TEST_F(RpTree, ARangeAndItsRpsAreMirroredAsTheyCome) {
  elect(global);
  tree()->crpSetIs(prefix(range));
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16:");
  add();
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/0/256");
  EXPECT_EQ(context.tracedPrefix("Not updating"), 0);
}

TEST_F(RpTree, ANewRpHasNoHoldTimerUntilItsExpiryIsWritten) {
  elect(global);
  auto rp = add();
  EXPECT_EQ(engine.wheel->armed(), 0u);
  rp->holdTimeIs(100);
  EXPECT_EQ(engine.wheel->armed(), 0u);
  rp->expiresIs(Zet::now() + 100);
  EXPECT_EQ(engine.wheel->armed(), 1u);
}

TEST_F(RpTree, AnRpThatIsNotMirroredIsMadeByEachStepOfItsOwnZoneOnly) {
  elect(global);
  elect(scoped);
  texts();
  add();
  EXPECT_EQ(engine.mirror(), "");
  EXPECT_THAT(texts(), ElementsAre(notBest, notBest));  // the range and the RP
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/0/256");
}

// The handlers ----------------------------------------------------------------------------------------

/// One attribute of an RP: its writer and what a mirror shows of it.
struct Attribute {
  std::string name;
  std::function<void(RpCandidate&)> write;
  std::function<double(RpCandidate const&)> read;
  double written;
};

std::vector<Attribute> const mirroredAttributes{
    {"priority", [](RpCandidate& rp) { rp.priorityIs(7u); },
     [](RpCandidate const& rp) -> double { return rp.priority().value(); }, 7},
    {"hashMaskLen", [](RpCandidate& rp) { rp.hashMaskLenIs(4u); },
     [](RpCandidate const& rp) -> double { return rp.hashMaskLen().value(); }, 4},
    {"holdTime", [](RpCandidate& rp) { rp.holdTimeIs(40958u); },
     [](RpCandidate const& rp) -> double { return rp.holdTime().value(); }, 40958},
    {"pimMode", [](RpCandidate& rp) { rp.pimModeIs(Mode::bidir); },
     [](RpCandidate const& rp) -> double { return static_cast<double>(rp.pimMode()); }, 2},
    {"setupTime", [](RpCandidate& rp) { rp.setupTimeIs(5); },
     [](RpCandidate const& rp) { return rp.setupTime(); }, 5},
    {"expires", [](RpCandidate& rp) { rp.expiresIs(2e9); },
     [](RpCandidate const& rp) { return rp.expires(); }, 2e9},
};

TEST_F(RpTree, EachAttributeIsCopiedAsItIsWrittenAndNoOtherWithIt) {
  for (Attribute const& attribute : mirroredAttributes) {
    SCOPED_TRACE(attribute.name);
    Engine router;
    router.status->bootstrapRouterIs(prefix(global));
    auto rp =
        router.status->crpStatusIs(prefix(global))->statusIs("")->crpSetIs(prefix(range))->rpIs(addr(one));
    auto copy = router.rpCandidateStatus->crpSet(prefix(range))->rp(addr(one));
    Texts writes;
    auto watch = Zet::make<RpWatch>([&](std::string const& what) { writes.push_back(what); });
    watch->notifierIs(copy);
    attribute.write(*rp);
    EXPECT_EQ(attribute.read(*copy), attribute.written);
    EXPECT_THAT(writes, ElementsAre(attribute.name));
  }
}

TEST_F(RpTree, NoAttributeOfAZoneThatIsNotTheBestIsCopied) {
  elect(global);
  auto rp = add();
  elect(scoped);
  auto copy = mirrored();
  for (Attribute const& attribute : mirroredAttributes) {
    SCOPED_TRACE(attribute.name);
    double before = attribute.read(*copy);
    texts();
    attribute.write(*rp);
    EXPECT_EQ(attribute.read(*copy), before);
    EXPECT_THAT(texts(), ElementsAre(notBest));
  }
}

TEST_F(RpTree, AZoneWithoutAnElectedBsrIsNeverTheBest) {
  texts();
  addUntil(100);
  std::string const text =
      "Not updating RpCandidateStatus since our zone 224.0.0.0/4 does not match the longest prefix match  "
      "for prefix "
      "239.1.0.0/16";
  EXPECT_EQ(context.tracedAs(text), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_THAT(texts(), ElementsAre(text, text, text, text));  // the range, the RP, holdTime and expires
  EXPECT_EQ(engine.mirror(), "");
  engine.runTo(100);
  EXPECT_EQ(engine.rpSet(global), "");
}

TEST_F(RpTree, WhatPimAloneReadsIsNotMirrored) {
  elect(global);
  auto rp = add();
  rp->overrideIs(true);
  rp->upTimeIs(5);
  EXPECT_FALSE(mirrored()->override());
  EXPECT_EQ(mirrored()->upTime(), 0.0);
}

TEST_F(RpTree, ACopyThatSomebodyTookAwayComesBackWithExpiresAlone) {
  elect(global);
  auto rp = addUntil(100);
  engine.rpCandidateStatus->crpSet(prefix(range))->rpDel(addr(one));
  rp->priorityIs(7u);
  rp->holdTimeIs(150u);
  EXPECT_FALSE(mirrored());
  rp->expiresIs(Zet::now() + 150);
  ASSERT_TRUE(mirrored());
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/7");
  EXPECT_EQ(context.tracedPrefix("Forced creation"), 0);
}

TEST_F(RpTree, ARangeThatIsMissingInTheMirrorIsForcedAndItsRpWrittenInAFixedOrder) {
  elect(global);
  elect(scoped);
  auto rp = add();
  rp->priorityIs(7u);
  rp->hashMaskLenIs(30u);
  rp->setupTimeIs(Zet::now());
  rp->pimModeIs(Mode::bidir);
  rp->holdTimeIs(100u);
  engine.status->bootstrapRouterDel(prefix(scoped));
  Texts writes;
  auto watch = Zet::make<SetWatch>([&](std::string const& what) { writes.push_back(what); });
  watch->notifierIs(engine.rpCandidateStatus);
  texts();
  rp->expiresIs(Zet::now() + 100);
  EXPECT_THAT(texts(),
              ElementsAre("Forced creation of crpSet with prefix 239.1.0.0/16 in rpCandidateStatus"));
  EXPECT_THAT(writes, ElementsAre("set", "rp", "priority", "hashMaskLen", "setupTime", "pimMode", "holdTime",
                                  "expires"));
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
  EXPECT_EQ(mirrored()->expires(), rp->expires());
  EXPECT_EQ(mirrored()->pimMode(), Mode::bidir);
}

// Zones -----------------------------------------------------------------------------------------------

TEST_F(RpTree, ASetStoredUnderAZoneThatIsNotTheBestNeverReachesPim) {
  engine.receive({.groups = {{scoped, {{two}}, scopedFlag}}});
  engine.receive({.groups = {{global, {{one}}}, {range, {{one}}}}});
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0; 239.1.0.0/16: 203.0.113.1/150/0");
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/150/0; 239.0.0.0/8: 203.0.113.2/150/0");
  engine.receive({.groups = {{range, {{one, 0}}}}});
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0");
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/150/0; 239.0.0.0/8: 203.0.113.2/150/0");
}

TEST_F(RpTree, TwoZonesMayHoldOneRangeAndTheBetterOneIsSeen) {
  engine.receive({.groups = {{scoped, {}, scopedFlag}, {range, {{two}}}}});
  engine.receive({.groups = {{range, {{one}}}}});
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.2/150/0");
  engine.receive({.groups = {{range, {{one, 0}}}}});
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.2/150/0");
}

TEST_F(RpTree, AZoneThatBecomesTheBestIsMirroredFromItsNextMessageOn) {
  engine.receive({.groups = {{scoped, {}, scopedFlag}}});
  engine.runTo(100);
  engine.receive({.groups = {{range, {{one}}}}});
  engine.runTo(130);
  ASSERT_FALSE(engine.elected(scoped));
  EXPECT_EQ(engine.mirror(), "");
  engine.receive({.groups = {{range, {{one}}}}});
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/0");
  EXPECT_EQ(context.traced("Forced creation of crpSet with prefix 239.1.0.0/16 in rpCandidateStatus"), 1);
}

TEST_F(RpTree, AZoneThatIsNoLongerTheBestLeavesItsMirrorAsItIs) {
  engine.receive({.groups = {{range, {{one}}}}});
  engine.receive({.groups = {{scoped, {}, scopedFlag}}});
  engine.receive({.groups = {{range, {{one, 90, 4}}}}});
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/90/4");
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/0");
  engine.receive({.groups = {{range, {{one, 0}}}}});
  EXPECT_EQ(engine.rpSet(global), "");
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/0");
}

TEST_F(RpTree, RpsThatExpireAfterTheirBsrStayInTheMirror) {
  engine.receive({.groups = {{global, {{one}}}}});
  engine.runTo(280);
  EXPECT_EQ(engine.rpSet(global), "");
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/150/0");
  EXPECT_EQ(engine.since(engine.rpCandidateStatus->crpSet(prefix(global))->rp(addr(one))->expires()), 280);
}

// The hold timer --------------------------------------------------------------------------------------

TEST_F(RpTree, AnRpLeavesBothSetsWhenItExpires) {
  elect(global);
  addUntil(100);
  addUntil(200, two);
  engine.runTo(99.9);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/100/256 203.0.113.2/100/256");
  engine.runTo(100);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.2/100/256");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
}

TEST_F(RpTree, EachNewExpiryArmsTheTimerAnew) {
  elect(global);
  auto rp = addUntil(100);
  engine.runTo(50);
  rp->expiresIs(Zet::now() + 100);
  engine.runTo(149.9);
  EXPECT_TRUE(mirrored());
  rp->expiresIs(Zet::now() + 5);
  engine.runTo(154.8);
  EXPECT_TRUE(mirrored());
  engine.runTo(155);
  EXPECT_FALSE(mirrored());
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

TEST_F(RpTree, TheTimerFollowsExpiresAndNotTheHoldtime) {
  elect(global);
  auto rp = addUntil(100);
  rp->holdTimeIs(10u);
  engine.runTo(99);
  EXPECT_TRUE(mirrored());
  rp->holdTimeIs(1000u);
  engine.runTo(100);
  EXPECT_FALSE(mirrored());
}

// The end of RPs, ranges and zones --------------------------------------------------------------------

TEST_F(RpTree, TheLastRpTakesItsRangeAndTheLastRangeItsZone) {
  elect(global);
  add(one, range);
  add(two, range);
  add(one, otherRange);
  texts();
  tree()->crpSet(prefix(range))->rpDel(addr(one));
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.2/0/256; 239.2.0.0/16: 203.0.113.1/0/256");
  tree()->crpSet(prefix(range))->rpDel(addr(two));
  EXPECT_THAT(texts(), ElementsAre("Deleted rpset for prefix 239.1.0.0/16 in zone 224.0.0.0/4"));
  EXPECT_EQ(engine.rpSet(global), "239.2.0.0/16: 203.0.113.1/0/256");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
  tree()->crpSet(prefix(otherRange))->rpDel(addr(one));
  EXPECT_THAT(texts(), ElementsAre("Deleted zone 224.0.0.0/4 RP set ",
                                   "Deleted rpset for prefix 239.2.0.0/16 in zone 224.0.0.0/4"));
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_FALSE(engine.root->crpZoneStatus(prefix(global)));
  EXPECT_EQ(engine.rpCandidateStatus->crpSetCount(), 0u);
}

TEST_F(RpTree, TheLastRpOfAZoneMayGoByItsTimer) {
  engine.receive({.groups = {{range, {{one, 20}}}}});
  engine.runTo(20);
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_EQ(engine.rpCandidateStatus->crpSetCount(), 0u);
}

TEST_F(RpTree, TheEndOfAZoneThatIsNotTheBestLeavesTheMirror) {
  elect(global);
  add();
  elect(scoped);
  texts();
  tree()->crpSet(prefix(range))->rpDel(addr(one));
  EXPECT_THAT(texts(), ElementsAre(notBest, notBest, "Deleted zone 224.0.0.0/4 RP set ",
                                   "Deleted rpset for prefix 239.1.0.0/16 in zone 224.0.0.0/4"));
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/0/256");
}

TEST_F(RpTree, ClearingAllRangesClearsMirrorTimersAndZone) {
  elect(global);
  addUntil(100, one, range);
  addUntil(100, two, range);
  addUntil(100, one, otherRange);
  Ptr<RpCandidateStatus> held = tree();
  texts();
  held->crpSetDelAll();
  EXPECT_EQ(engine.rpCandidateStatus->crpSetCount(), 0u);
  EXPECT_EQ(engine.wheel->armed(), 0u);
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
  Texts all = texts();
  EXPECT_EQ(std::count(all.begin(), all.end(), "Deleted zone 224.0.0.0/4 RP set "), 1);
  // The RPs of the range that went last find no zone any more.
  EXPECT_EQ(all.back(), "Nothing to do since the Crp Zone has already been deleted ");
  EXPECT_EQ(engine.rpSet(global), "");
}

TEST_F(RpTree, ARangeTakenOutTakesItsRpsFromTheMirrorAndLeavesTheOthers) {
  elect(global);
  addUntil(100, one, range);
  addUntil(100, two, otherRange);
  texts();
  tree()->crpSetDel(prefix(range));
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(engine.mirror(), "239.2.0.0/16: 203.0.113.2/100/256");
  EXPECT_EQ(engine.wheel->armed(), 1u);
}

TEST_F(RpTree, AnEmptyRangeTakenOutByHandEndsItsZoneToo) {
  elect(global);
  tree()->crpSetIs(prefix(range));
  texts();
  Ptr<RpCandidateStatus> held = tree();
  held->crpSetDel(prefix(range));
  EXPECT_THAT(texts(), ElementsAre("Deleted zone 224.0.0.0/4 RP set "));
  EXPECT_FALSE(engine.status->crpStatus(prefix(global)));
}

TEST_F(RpTree, AZoneRemovedFromOutsideLeavesNothingToDo) {
  elect(global);
  addUntil(100, one, range);
  addUntil(100, two, range);
  Ptr<RpCandidateStatus> held = tree();
  texts();
  engine.status->crpStatusDel(prefix(global));
  EXPECT_THAT(texts(), ElementsAre("Nothing to do since the Crp Zone has already been deleted ",
                                   "Nothing to do since the Crp Zone has already been deleted "));
  EXPECT_EQ(engine.rpCandidateStatus->crpSetCount(), 0u);
  EXPECT_EQ(engine.wheel->armed(), 0u);
  EXPECT_EQ(held->crpSet(prefix(range))->rpCount(), 2u);
  engine.runTo(200);
  add();
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/0/256");
}

TEST_F(RpTree, ASetRemovedFromItsZoneLeavesNothingToDoEither) {
  elect(global);
  addUntil(100);
  texts();
  engine.status->crpStatus(prefix(global))->statusDel();
  EXPECT_THAT(texts(), ElementsAre("Nothing to do since the Crp Zone has already been deleted "));
  EXPECT_EQ(engine.rpCandidateStatus->crpSetCount(), 0u);
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

// A restart of the machines ---------------------------------------------------------------------------

TEST_F(RpTree, TheEndOfTheMachinesLeavesStatusAndMirrorUnchanged) {
  engine.receive({.groups = {{range, {{one}}}}});
  std::string const kept = engine.rpSet(global);
  texts();
  engine.stop();
  EXPECT_EQ(engine.rpSet(global), kept);
  EXPECT_EQ(engine.mirror(), kept);
  EXPECT_EQ(engine.wheel->armed(), 0u);
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(RpTree, RpsKeptOverARestartStayUntilTheirExpiryIsWrittenAgain) {
  engine.receive({.groups = {{range, {{one}, {two}}}}});
  engine.runTo(100);
  engine.stop();
  engine.start();
  EXPECT_TRUE(engine.root->crpZoneStatus(prefix(global)));
  engine.runTo(160);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/150/0 203.0.113.2/150/0");
  auto kept = engine.rp(global, range, one);
  engine.receive({.groups = {{range, {{one}}}}});
  EXPECT_EQ(engine.rp(global, range, one), kept);
  EXPECT_EQ(engine.since(kept->setupTime()), 0);
  engine.receive({.groups = {{range, {{one, 30}}}}});
  engine.runTo(190);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.2/150/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
}

TEST_F(RpTree, AMirrorMadeAnewIsFilledFromTheKeptTreeWithoutItsAttributes) {
  engine.receive({.groups = {{range, {{one}}}}});
  engine.stop();
  engine.rpCandidateStatus->crpSetDelAll();
  engine.start();
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/0/256");
  engine.runTo(10);
  engine.receive({.groups = {{range, {{one}}}}});
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/0");
}

TEST_F(RpTree, ATreeThatExistsBeforeTheFamilyIsKnownIsNotMirroredAndStillAges) {
  Engine router(Engine::Family::unset, false);
  auto rp =
      router.status->crpStatusIs(prefix(global))->statusIs("")->crpSetIs(prefix(range))->rpIs(addr(one));
  router.start();
  rp->expiresIs(Zet::now() + 100);
  EXPECT_EQ(router.mirror(), "");
  router.status->afIs(Lanet::AddressFamily::ipv4);
  router.status->bootstrapRouterIs(prefix(global));
  router.runTo(100);
  EXPECT_FALSE(router.status->crpStatus(prefix(global)));
}

TEST_F(RpTree, AReactorThatIsNotInitializedNeitherAgesNorMirrorsNorTidies) {
  elect(global);
  auto rp = addUntil(100);
  auto set = engine.root->crpZoneStatus(prefix(global))->zetCrpStatus()->crpSet(prefix(range));
  auto reactor = set->rp(addr(one));
  reactor->initializedIs(false);
  rp->expiresIs(Zet::now() + 200);
  rp->priorityIs(9);
  EXPECT_EQ(engine.since(reactor->zetHoldtimeTimer()->timeMin()), 100);
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/100/256");
  engine.runTo(100);
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16: 203.0.113.1/100/9");
  tree()->crpSet(prefix(range))->rpDel(addr(one));
  EXPECT_EQ(engine.rpSet(global), "239.1.0.0/16:");
  set->initializedIs(false);
  tree()->crpSetDel(prefix(range));
  EXPECT_TRUE(engine.status->crpStatus(prefix(global)));
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/100/256");
}

}  // namespace
}  // namespace test
