#include <string>
#include <vector>

#include "tests/support/Engine.h"
#include "tests/support/RangeError.h"

/// The life of nested reactors, seen on the root machine, whose tree is the deepest there is.
namespace test {
namespace {

using testing_support::rangeError;
using Zet::Ptr;

std::string const global = "224.0.0.0/4";

class NestedReactors : public EngineTest {
 protected:
  NestedReactors() {
    engine.addIntf("eth0");
    engine.receive({.groups = {{global, {{"203.0.113.1"}}}}});
    engine.status->crpIs(addr("10.9.9.9"))->prefixOptionsIs(prefix(global));
  }

  auto& zone() { return *engine.root->crpZoneStatus(prefix(global)); }
  auto& set() { return *zone().zetCrpStatus()->crpSet(prefix(global)); }
  auto& rp() { return *set().rp(addr("203.0.113.1")); }

  /// One reactor of each kind and depth, the machine itself left out.
  std::vector<Zet::Reactor*> all() {
    Bsr::PimBsrSm& root = *engine.root;
    auto crp = root.crp(addr("10.9.9.9"));
    return {root.zetBsrStatus(),
            root.zetPimStatus(),
            root.zetBsmStatus(),
            root.zetCrpMsgStatus(),
            root.zetFragmentTimer(),
            root.pimIntf(intf("eth0")).ptr(),
            crp.ptr(),
            crp->options(prefix(global)).ptr(),
            &zone(),
            zone().zetCrpStatus(),
            &set(),
            &rp(),
            rp().zetHoldtimeTimer(),
            root.bsr(prefix(global)).ptr()};
  }
};

TEST_F(NestedReactors, HasNotificationActiveIsReachesEveryOne) {
  for (bool on : {true, false}) {
    engine.root->hasNotificationActiveIs(on);
    EXPECT_EQ(engine.root->hasNotificationActive(), on);
    for (Zet::Reactor* reactor : all()) EXPECT_EQ(reactor->hasNotificationActive(), on);
  }
}

TEST_F(NestedReactors, ZetDoZombieReactorsReachesEveryOneBothWays) {
  for (bool on : {true, false}) {
    engine.root->zetDoZombieReactors(on);
    EXPECT_EQ(engine.root->zetMarkedForDeletion(), on);
    for (Zet::Reactor* reactor : all()) EXPECT_EQ(reactor->zetMarkedForDeletion(), on);
  }
}

TEST_F(NestedReactors, ZetDoZombieReactorsDoesNothingWhereTheMarkIsSetAlready) {
  set().zetMarkedForDeletionIs(true);
  engine.root->zetDoZombieReactors(true);
  EXPECT_FALSE(rp().zetMarkedForDeletion()) << "it went on below a reactor that was marked already";
  engine.root->zetDoZombieReactors(false);
  engine.root->zetMarkedForDeletionIs(true);
  engine.root->zetDoZombieReactors(true);
  EXPECT_FALSE(zone().zetMarkedForDeletion());
  engine.root->zetMarkedForDeletionIs(false);
}

TEST_F(NestedReactors, AZombieHearsNothingWhileTheObjectChanges) {
  engine.follower(global)->zetBsTimer()->timeMinIs(Kiv::never);
  engine.root->zetDoZombieReactors(true);
  engine.addIntf("eth1");
  EXPECT_FALSE(engine.root->pimIntf(intf("eth1")));
  auto deep = engine.rp(global, global, "203.0.113.1");
  deep->priorityIs(7);
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/150/0");
  engine.runTo(10000);
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/7") << "a zombie timer fired";
  engine.root->zetDoZombieReactors(false);
  deep->priorityIs(8);
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/150/8");
}

TEST_F(NestedReactors, AZombieIsDeafToTheKeylessFormToo) {
  engine.root->zetPimStatus()->isRegisteredNotifieeIs(false);
  engine.addIntf("eth1");
  engine.root->zetDoZombieReactors(true);
  engine.root->zetPimStatus()->onPimIntfZetImmediate();
  EXPECT_FALSE(engine.root->pimIntf(intf("eth1")));
  engine.root->zetDoZombieReactors(false);
}

TEST_F(NestedReactors, TheKeylessFormAddsWhatCameAndRemovesWhatWent) {
  engine.addIntf("eth1");
  engine.root->zetPimStatus()->isRegisteredNotifieeIs(false);
  engine.addIntf("eth2");
  engine.pimStatus->pimIntfDel(intf("eth0"));
  Ptr<Bsr::PimBsrSm::ZetPimIntf> kept = engine.root->pimIntf(intf("eth1"));
  EXPECT_FALSE(engine.root->pimIntf(intf("eth2")));
  engine.root->zetPimStatus()->onPimIntfZetImmediate();
  EXPECT_FALSE(engine.root->pimIntf(intf("eth0")));
  EXPECT_EQ(engine.root->pimIntf(intf("eth1")), kept);
  EXPECT_TRUE(engine.root->pimIntf(intf("eth2")));
  EXPECT_EQ(engine.root->pimIntfCount(), 2u);
}

TEST_F(NestedReactors, AnotherObjectUnderTheSameKeyGetsAReactorOfItsOwn) {
  engine.root->zetPimStatus()->isRegisteredNotifieeIs(false);
  Ptr<Bsr::PimBsrSm::ZetPimIntf> former = engine.root->pimIntf(intf("eth0"));
  engine.pimStatus->pimIntfDel(intf("eth0"));
  auto anew = engine.pimStatus->pimIntfIs(intf("eth0"));
  engine.root->zetPimStatus()->onPimIntfZetImmediate();
  EXPECT_NE(engine.root->pimIntf(intf("eth0")), former);
  EXPECT_EQ(engine.root->pimIntf(intf("eth0"))->notifier(), anew);
  EXPECT_FALSE(former->notifier());
  EXPECT_TRUE(former->zetMarkedForDeletion());
}

TEST_F(NestedReactors, NotifierIsFollowsAnotherObject) {
  auto other = Routing::Pim::statusFactory("other");
  auto eth1 = other->pimIntfIs(intf("eth1"));
  auto anew = other->pimIntfIs(intf("eth0"));
  engine.root->zetPimStatus()->notifierIs(other);
  EXPECT_EQ(engine.root->pimIntfCount(), 2u);
  EXPECT_EQ(engine.root->pimIntf(intf("eth1"))->notifier(), eth1);
  EXPECT_EQ(engine.root->pimIntf(intf("eth0"))->notifier(), anew);
  other->pimIntfDel(intf("eth1"));
  EXPECT_EQ(engine.root->pimIntfCount(), 1u);
}

TEST_F(NestedReactors, NotifierIsNullRemovesTheNestedReactors) {
  engine.root->zetPimStatus()->notifierIs(nullptr);
  EXPECT_EQ(engine.root->pimIntfCount(), 0u);
  engine.addIntf("eth1");
  EXPECT_EQ(engine.root->pimIntfCount(), 0u);
  engine.root->zetPimStatus()->notifierIs(engine.pimStatus);
  EXPECT_EQ(engine.root->pimIntfCount(), 2u);
}

TEST_F(NestedReactors, NotifierIsReachesTheReactorsBelow) {
  zone().zetCrpStatus()->notifierIs(nullptr);
  EXPECT_EQ(zone().zetCrpStatus()->crpSetCount(), 0u);
  zone().zetCrpStatus()->notifierIs(engine.status->crpStatus(prefix(global))->status());
  EXPECT_TRUE(set().rp(addr("203.0.113.1")));
  zone().notifierIs(nullptr);
  EXPECT_EQ(zone().zetCrpStatus(), nullptr);
}

TEST_F(NestedReactors, NotifierIsOfAZombieAttachesAndMakesNothing) {
  engine.root->zetDoZombieReactors(true);
  auto other = Routing::Pim::statusFactory("other");
  other->pimIntfIs(intf("eth1"));
  engine.root->zetPimStatus()->notifierIs(other);
  EXPECT_EQ(engine.root->zetPimStatus()->notifier(), other);
  EXPECT_FALSE(engine.root->pimIntf(intf("eth1")));
  engine.root->zetDoZombieReactors(false);
}

TEST_F(NestedReactors, TheKeylessFormRunsTheHandlerOfEachKeyToo) {
  auto builder = engine.root->bsrTrieBuilder();
  builder->zetBsrStatus()->isRegisteredNotifieeIs(false);
  engine.status->bootstrapRouterIs(prefix("239.1.0.0/16"));
  EXPECT_FALSE(engine.root->bsrTrie()->route(prefix("239.1.0.0/16")));
  builder->zetBsrStatus()->onBootstrapRouterZetImmediate();
  EXPECT_TRUE(engine.root->bsrTrie()->route(prefix("239.1.0.0/16")));
  EXPECT_TRUE(builder->bsr(prefix("239.1.0.0/16")));
}

TEST_F(NestedReactors, AMachineTakesOverWhatExistsAlready) {
  engine.addIntf("eth1");
  engine.stop();
  engine.start();
  EXPECT_EQ(engine.root->pimIntfCount(), 2u);
  EXPECT_TRUE(engine.root->crp(addr("10.9.9.9"))->options(prefix(global)));
  EXPECT_TRUE(set().rp(addr("203.0.113.1")));
  EXPECT_TRUE(engine.root->initialized());
}

TEST_F(NestedReactors, TheEndOfAMachineDetachesThemAll) {
  Ptr<Routing::Pim::Intf> eth0 = engine.pimStatus->pimIntf(intf("eth0"));
  auto deep = engine.rp(global, global, "203.0.113.1");
  EXPECT_FALSE(eth0->zetNotifiees().empty());
  EXPECT_FALSE(deep->zetNotifiees().empty());
  engine.stop();
  EXPECT_TRUE(eth0->zetNotifiees().empty());
  EXPECT_TRUE(deep->zetNotifiees().empty());
  EXPECT_TRUE(engine.status->zetNotifiees().empty());
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

TEST_F(NestedReactors, TheMutatorOfACollectionRejectsNullByItsText) {
  EXPECT_EQ(rangeError([&] { engine.root->pimIntfIs(nullptr); }),
            "null _pimIntf parameter to mutator for Routing::Pim::Bsr::PimBsrSm::pimIntf not allowed\"");
  EXPECT_EQ(rangeError([&] { engine.root->crpIs(nullptr); }),
            "null _crp parameter to mutator for Routing::Pim::Bsr::PimBsrSm::crp not allowed\"");
  EXPECT_EQ(rangeError([&] { set().rpIs(nullptr); }),
            "null _rp parameter to mutator for "
            "Routing::Pim::Bsr::PimBsrSm::ZetCrpZoneStatus::ZetCrpStatus::ZetCrpSet::rp not allowed\"");
}

// The activity of a machine ---------------------------------------------------------------------------

TEST_F(NestedReactors, AMachineUsesTheStandardActivityUnlessItIsGivenOne) {
  EXPECT_EQ(engine.root->zetFwkActivity(), Zet::ActivityConfig::standard());
  auto own = Zet::make<Zet::ActivityConfig>();
  auto machine = Bsr::bsrNonCandidateSmFactory(prefix(global), engine.status, engine.wheel, engine.wheel,
                                               engine.root.ptr(), own);
  EXPECT_EQ(machine->zetFwkActivity(), own);
  EXPECT_EQ(machine->zetActivitySm(), Zet::zetActivitySmFor(own));
  EXPECT_NE(machine->zetActivitySm(), engine.root->zetActivitySm());
  machine->zetFwkActivityIs(Zet::ActivityConfig::standard());
  EXPECT_EQ(machine->zetActivitySm(), engine.root->zetActivitySm());
}

TEST_F(NestedReactors, AMachineHandsItsActivityToTheMachinesItMakes) {
  auto own = Zet::make<Zet::ActivityConfig>();
  engine.root->zetFwkActivityIs(own);
  auto made = engine.root->nonCandidateSmIs(prefix("239.0.0.0/8"), engine.status, engine.wheel, engine.wheel);
  EXPECT_EQ(made->zetFwkActivity(), own);
}

}  // namespace
}  // namespace test
