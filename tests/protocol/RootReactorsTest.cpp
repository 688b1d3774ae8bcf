// The reactors of the root machine on this router's candidate RPs and on the elected BSRs, and what its
// get-or-create functions and mutators drop.

#include <string>
#include <vector>

#include "crp/RpCandidateSm.h"
#include "runtime/Exceptions.h"
#include "tests/support/Engine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using Bsr::CrpOptions;
using testing_support::rangeError;
using Zet::Ptr;
using Zet::U32;

// This router's candidate RPs -------------------------------------------------------------------------

class RootCrp : public ModelTest {
 protected:
  explicit RootCrp(Engine::Family family = Engine::Family::ipv4) : engine(family) {}
  void setPriority(std::string const& range, U32 priority, std::string const& address = "10.0.0.1") {
    engine.status->crpIs(addr(address))->prefixOptionsIs(prefix(range))->priorityIs(priority);
  }
  void removeRange(std::string const& range) {
    engine.status->crp(addr("10.0.0.1"))->prefixOptionsDel(prefix(range));
  }
  Ptr<Bsr::RpCandidateSm> machine(U32 priority, std::string const& address = "10.0.0.1") const {
    return engine.root->rpCandidateSm(CrpOptions(addr(address), priority));
  }
  U32 machines() const { return engine.root->rpCandidateSmCount(); }

  Engine engine;
};

TEST_F(RootCrp, APriorityMakesAMachineOnTheTrieAndTheWheel) {
  setPriority("239.1.0.0/16", 5);
  ASSERT_TRUE(machine(5));
  EXPECT_EQ(machine(5)->bsrStatus(), engine.status);
  EXPECT_EQ(machine(5)->bsrTrie(), engine.root->bsrTrie());
  EXPECT_EQ(machine(5)->crpAdvTimer(), engine.wheel);
  EXPECT_EQ(machine(5)->bsrSm(), engine.root.ptr());
  EXPECT_EQ(context.tracedAs("Created RpcandidateSm with options 10.0.0.1,5"), "Pim::Bsr::Sm 8 PimBsrSm");
}

TEST_F(RootCrp, OneMachineServesOneAddressAndPriority) {
  setPriority("239.1.0.0/16", 5);
  auto shared = machine(5);
  setPriority("239.2.0.0/16", 5);
  EXPECT_EQ(machine(5), shared);
  EXPECT_EQ(machines(), 1u);
  setPriority("239.3.0.0/16", 6);
  setPriority("239.1.0.0/16", 5, "10.0.0.2");
  EXPECT_EQ(machines(), 3u);
  EXPECT_TRUE(machine(6));
  EXPECT_TRUE(machine(5, "10.0.0.2"));
}

TEST_F(RootCrp, TheUnknownPriorityMakesNoMachine) {
  engine.status->crpIs(addr("10.0.0.1"))->prefixOptionsIs(prefix("239.1.0.0/16"));
  EXPECT_EQ(machines(), 0u);
  setPriority("239.1.0.0/16", 5);
  setPriority("239.1.0.0/16", 256);
  EXPECT_EQ(machines(), 1u);
  EXPECT_TRUE(machine(5)) << "and ends none";
  removeRange("239.1.0.0/16");
  EXPECT_EQ(machines(), 1u) << "nor does the end of an entry that has it";
}

TEST_F(RootCrp, PriorityZeroIsAPriority) {
  setPriority("239.1.0.0/16", 0);
  EXPECT_TRUE(machine(0));
}

TEST_F(RootCrp, TheLastRangeOfAPriorityTakesTheMachineWithIt) {
  setPriority("239.1.0.0/16", 5);
  setPriority("239.2.0.0/16", 5);
  removeRange("239.1.0.0/16");
  EXPECT_TRUE(machine(5));
  EXPECT_EQ(context.traced("RpCandidateSm 10.0.0.1,5 deleted"), 0);
  removeRange("239.2.0.0/16");
  EXPECT_FALSE(machine(5));
  EXPECT_EQ(context.tracedAs("RpCandidateSm 10.0.0.1,5 deleted"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_TRUE(engine.root->crp(addr("10.0.0.1"))) << "the candidate itself is still there";
}

TEST_F(RootCrp, AChangedPriorityMakesAnotherMachineAndLeavesTheFormerAlive) {
  setPriority("239.1.0.0/16", 5);
  auto former = machine(5);
  setPriority("239.1.0.0/16", 6);
  EXPECT_EQ(machine(5), former);
  EXPECT_TRUE(machine(6));
  removeRange("239.1.0.0/16");
  EXPECT_FALSE(machine(6));
  EXPECT_EQ(machine(5), former) << "only the priority that the range had at last is looked at";
}

TEST_F(RootCrp, ACandidateThatGoesTakesAllItsMachinesAndNoOthers) {
  setPriority("239.1.0.0/16", 5);
  setPriority("239.1.0.0/16", 6);
  setPriority("239.1.0.0/16", 5, "10.0.0.2");
  engine.status->crpDel(addr("10.0.0.1"));
  EXPECT_EQ(machines(), 1u);
  EXPECT_TRUE(machine(5, "10.0.0.2"));
  EXPECT_EQ(context.tracedAs("Deleted CRP SM 10.0.0.1 with priority 5"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.tracedAs("Deleted CRP SM 10.0.0.1 with priority 6"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.tracedPrefix("RpCandidateSm 10.0.0.1"), 0);
  EXPECT_FALSE(engine.root->crp(addr("10.0.0.1")));
}

TEST_F(RootCrp, ACandidateThatComesBackHasItsMachineAnew) {
  setPriority("239.1.0.0/16", 5);
  auto former = machine(5);
  engine.status->crpDel(addr("10.0.0.1"));
  setPriority("239.1.0.0/16", 5);
  ASSERT_TRUE(machine(5));
  EXPECT_NE(machine(5), former);
}

/// Started while the family is unknown, with one range of priority 5.
class RootCrpWaiting : public RootCrp {
 protected:
  RootCrpWaiting() : RootCrp(Engine::Family::unset) { setPriority("239.1.0.0/16", 5); }
  void familyComes() { engine.status->afIs(Lanet::AddressFamily::ipv4); }
};

TEST_F(RootCrpWaiting, APriorityHeardBeforeTheFamilyMakesNoMachineUntilItChanges) {
  familyComes();
  EXPECT_EQ(machines(), 0u);
  EXPECT_EQ(context.tracedPrefix("Created RpcandidateSm"), 0);
  setPriority("239.1.0.0/16", 6);
  EXPECT_TRUE(machine(6));
  EXPECT_FALSE(machine(5));
}

TEST_F(RootCrpWaiting, AnotherRangeOfThatPriorityMakesTheMachine) {
  familyComes();
  setPriority("239.2.0.0/16", 5);
  EXPECT_TRUE(machine(5));
}

TEST_F(RootCrpWaiting, ARangeThatGoesBeforeTheFamilyComesDoesNothing) {
  removeRange("239.1.0.0/16");
  engine.status->crpDel(addr("10.0.0.1"));
  familyComes();
  EXPECT_EQ(machines(), 0u);
}

TEST_F(RootCrpWaiting, ARangeWithoutAMachineMayGo) {
  familyComes();
  removeRange("239.1.0.0/16");
  EXPECT_EQ(context.tracedPrefix("RpCandidateSm"), 0);
}

// The hash mask length of an elected BSR --------------------------------------------------------------

class RootHashMask : public ModelTest {
 protected:
  RootHashMask() { elected = engine.status->bootstrapRouterIs(zone); }
  Ptr<Bsr::BsrCandidate> addCandidate(bool isElected) {
    auto candidate = engine.status->cbsrIs(zone);
    candidate->electedIs(isElected);
    return candidate;
  }
  Ptr<Routing::Pim::RpCandidate> addRp(std::string const& range, std::string const& address) {
    auto rp = engine.status->crpStatusIs(zone)->statusIs("")->crpSetIs(prefix(range))->rpIs(addr(address));
    rp->hashMaskLenIs(30);
    return rp;
  }
  /// Changes the elected BSR's mask length and gives the traces that follow.
  std::vector<std::string> change(U32 hashMaskLen) {
    context.traces.clear();
    elected->hashMaskLenIs(hashMaskLen);
    std::vector<std::string> texts;
    for (Zet::TraceLine const& line : context.traces) {
      if (std::string(line.sourceBlock) == "PimBsrSm" && line.level == 8) texts.push_back(line.text);
    }
    return texts;
  }

  Engine engine;
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  Ptr<Bsr::ElectedBsrStatus> elected;
};

using Texts = std::vector<std::string>;

TEST_F(RootHashMask, WithoutALocalCandidateThereIsNothingToDo) {
  auto rp = addRp("239.1.0.0/16", "203.0.113.1");
  EXPECT_EQ(change(24), Texts{"No local CBSR configured for zone 239.0.0.0/8. Nothing to do"});
  EXPECT_EQ(rp->hashMaskLen(), 30u);
}

TEST_F(RootHashMask, WithALocalCandidateThatIsNotElectedThereIsNothingToDo) {
  addCandidate(false);
  auto rp = addRp("239.1.0.0/16", "203.0.113.1");
  EXPECT_EQ(change(24),
            Texts{"Local CBSR configured for zone 239.0.0.0/8 is not elected BSR. Nothing to do"});
  EXPECT_EQ(rp->hashMaskLen(), 30u);
}

TEST_F(RootHashMask, WithoutAnRpSetThereIsNothingToDo) {
  addCandidate(true);
  EXPECT_EQ(change(24), Texts{"No CRP have been populated for zone 239.0.0.0/8"});
  engine.status->crpStatusIs(zone);
  EXPECT_EQ(change(25), Texts());
}

TEST_F(RootHashMask, TheUnknownLengthIsNoLength) {
  addCandidate(true);
  auto rp = addRp("239.1.0.0/16", "203.0.113.1");
  change(24);
  EXPECT_EQ(change(128), Texts());
  EXPECT_EQ(rp->hashMaskLen(), 24u);
}

TEST_F(RootHashMask, AnElectedRouterWritesItOntoEveryRpOfTheZoneAlone) {
  addCandidate(true);
  auto first = addRp("239.1.0.0/16", "203.0.113.1");
  auto second = addRp("239.1.0.0/16", "203.0.113.2");
  auto third = addRp("239.2.0.0/16", "203.0.113.1");
  auto other = engine.status->crpStatusIs(prefix("238.0.0.0/8"))
                   ->statusIs("")
                   ->crpSetIs(prefix("238.1.0.0/16"))
                   ->rpIs(addr("203.0.113.1"));
  Texts texts = change(24);
  EXPECT_EQ(texts.size(), 3u);
  EXPECT_EQ(context.traced(
                "Setting hash mask Len to 24 for RP 203.0.113.1 in rp candidate set for zone 239.0.0.0/8"),
            2);
  EXPECT_EQ(context.traced(
                "Setting hash mask Len to 24 for RP 203.0.113.2 in rp candidate set for zone 239.0.0.0/8"),
            1);
  EXPECT_EQ(first->hashMaskLen(), 24u);
  EXPECT_EQ(second->hashMaskLen(), 24u);
  EXPECT_EQ(third->hashMaskLen(), 24u);
  EXPECT_EQ(other->hashMaskLen(), 128u);
}

TEST_F(RootHashMask, ALengthThatNoRpCanHaveIsRejectedAndNothingWritten) {
  addCandidate(true);
  auto rp = addRp("239.1.0.0/16", "203.0.113.1");
  EXPECT_EQ(change(129), Texts());
  EXPECT_EQ(rp->hashMaskLen(), 30u);
  EXPECT_EQ(elected->hashMaskLen(), 129u);
  EXPECT_EQ(context.tracedPrefix("Exception from the handler of attribute"), 1);
  expectedExceptions = 1;
}

TEST_F(RootHashMask, AnEntryThatComesWithItsLengthIsNoChange) {
  addCandidate(true);
  auto rp = addRp("239.1.0.0/16", "203.0.113.1");
  engine.stop();
  elected->hashMaskLenIs(24);
  engine.start();
  EXPECT_EQ(rp->hashMaskLen(), 30u);
}

// Entries of Status and of PIM ------------------------------------------------------------------------

using RootReactors = EngineTest;

TEST_F(RootReactors, OneExistsForEachMemberOfTheCollectionsThatAreWatched) {
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  for (int i = 0; i < 2; ++i) {
    auto pimIntf = engine.addIntf("eth0");
    auto crp = engine.status->crpIs(addr("10.0.0.1"));
    auto rpSet = engine.status->crpStatusIs(zone);
    auto bsr = engine.status->bootstrapRouterIs(zone);
    ASSERT_TRUE(engine.root->pimIntf(intf("eth0")));
    EXPECT_EQ(engine.root->pimIntf(intf("eth0"))->notifier(), pimIntf);
    EXPECT_EQ(engine.root->crp(addr("10.0.0.1"))->notifier(), crp);
    EXPECT_EQ(engine.root->crpZoneStatus(zone)->notifier(), rpSet);
    EXPECT_EQ(engine.root->bsr(zone)->notifier(), bsr);
    engine.pimStatus->pimIntfDel(intf("eth0"));
    engine.status->crpDel(addr("10.0.0.1"));
    engine.status->crpStatusDel(zone);
    engine.status->bootstrapRouterDel(zone);
    EXPECT_EQ(engine.root->pimIntfCount() + engine.root->crpCount(), 0u);
    EXPECT_EQ(engine.root->crpZoneStatusCount() + engine.root->bsrCount(), 0u);
  }
}

// Drops -----------------------------------------------------------------------------------------------

TEST_F(RootReactors, TheirMutatorsRejectNull) {
  auto& root = *engine.root;
  engine.status->crpIs(addr("10.0.0.1"));
  std::string const where = " parameter to mutator for Routing::Pim::Bsr::PimBsrSm::";
  EXPECT_EQ(rangeError([&] { root.pimIntfIs(nullptr); }), "null _pimIntf" + where + "pimIntf not allowed\"");
  EXPECT_EQ(rangeError([&] { root.crpIs(nullptr); }), "null _crp" + where + "crp not allowed\"");
  EXPECT_EQ(rangeError([&] { root.crpZoneStatusIs(nullptr); }),
            "null _crpZoneStatus" + where + "crpZoneStatus not allowed\"");
  EXPECT_EQ(rangeError([&] { root.bsrIs(nullptr); }), "null _bsr" + where + "bsr not allowed\"");
  EXPECT_EQ(rangeError([&] { root.crp(addr("10.0.0.1"))->optionsIs(nullptr); }),
            "null _options" + where + "ZetCrp::options not allowed\"");
}

/// The text of the NameInUseException that `action` raises, up to the value after it.
template <class Action>
std::string nameInUse(Action action) {
  try {
    action();
  } catch (Zet::NameInUseException const& e) {
    std::string text = e.what();
    return text.substr(0, text.find("value of ") + 9);
  }
  return "no NameInUseException";
}

std::string anotherValueOf(std::string const& attribute) {
  return "Reinstantiating the pointer interface where constructor parameter attribute _" + attribute +
         " has a different value of ";
}

TEST_F(RootReactors, AMachineIsFoundAgainWithTheArgumentsItWasMadeWith) {
  auto& root = *engine.root;
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  engine.status->crpIs(addr("10.0.0.1"));
  CrpOptions const options(addr("10.0.0.1"), 5);
  auto follower = root.nonCandidateSmIs(zone, engine.status, engine.wheel, engine.wheel);
  EXPECT_EQ(root.nonCandidateSmIs(zone, engine.status, engine.wheel, engine.wheel), follower);
  auto crp = root.rpCandidateSmIs(options, engine.status, root.bsrTrie(), engine.wheel);
  EXPECT_EQ(root.rpCandidateSmIs(options, engine.status, root.bsrTrie(), engine.wheel), crp);
  engine.status->cbsrIs(zone);
  auto candidate = root.candidateSm(zone);
  EXPECT_EQ(root.candidateSmIs(zone, engine.status, engine.wheel), candidate);
}

TEST_F(RootReactors, AMachineIsNotFoundWithArgumentsOtherThanItWasMadeWith) {
  auto& root = *engine.root;
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  auto otherWheel = Zet::make<Kiv::TimerWheel>();
  auto otherStatus = Bsr::statusFactory("other");
  auto otherTrie = Routing::trieGenFactory("other", Lanet::AddressFamily::ipv4);
  root.nonCandidateSmIs(zone, engine.status, engine.wheel, engine.wheel);
  EXPECT_EQ(nameInUse([&] { root.nonCandidateSmIs(zone, otherStatus, engine.wheel, engine.wheel); }),
            anotherValueOf("bsrStatus"));
  EXPECT_EQ(nameInUse([&] { root.nonCandidateSmIs(zone, engine.status, otherWheel, engine.wheel); }),
            anotherValueOf("bsTimer"));
  EXPECT_EQ(nameInUse([&] { root.nonCandidateSmIs(zone, engine.status, engine.wheel, otherWheel); }),
            anotherValueOf("szTimer"));
  engine.status->cbsrIs(zone);
  EXPECT_EQ(nameInUse([&] { root.candidateSmIs(zone, otherStatus, engine.wheel); }),
            anotherValueOf("bsrStatus"));
  EXPECT_EQ(nameInUse([&] { root.candidateSmIs(zone, engine.status, otherWheel); }),
            anotherValueOf("bsTimer"));
  engine.status->crpIs(addr("10.0.0.1"))->prefixOptionsIs(zone)->priorityIs(5);
  CrpOptions const options(addr("10.0.0.1"), 5);
  EXPECT_EQ(nameInUse([&] { root.rpCandidateSmIs(options, otherStatus, root.bsrTrie(), engine.wheel); }),
            anotherValueOf("bsrStatus"));
  EXPECT_EQ(nameInUse([&] { root.rpCandidateSmIs(options, engine.status, otherTrie, engine.wheel); }),
            anotherValueOf("bsrTrie"));
  EXPECT_EQ(nameInUse([&] { root.rpCandidateSmIs(options, engine.status, root.bsrTrie(), otherWheel); }),
            anotherValueOf("crpAdvTimer"));
}

TEST_F(RootReactors, TheRootRejectsNullArguments) {
  auto const& e = engine;
  std::string const null = "null ValidPtr";
  auto make = [&](Ptr<Bsr::Status> const& status, Ptr<Routing::Pim::Status> const& pim,
                  Ptr<Bsr::PimBsmStatus> const& bsm, Ptr<Bsr::PimCrpMsgStatus> const& crp) {
    Bsr::pimBsrSmFactory(status, pim, bsm, crp, e.rpCandidateStatus, e.wheel, e.interfaces);
  };
  EXPECT_EQ(rangeError([&] { make(nullptr, e.pimStatus, e.bsmStatus, e.crpMsgStatus); }), null);
  EXPECT_EQ(rangeError([&] { make(e.status, nullptr, e.bsmStatus, e.crpMsgStatus); }), null);
  EXPECT_EQ(rangeError([&] { make(e.status, e.pimStatus, nullptr, e.crpMsgStatus); }), null);
  EXPECT_EQ(rangeError([&] { make(e.status, e.pimStatus, e.bsmStatus, nullptr); }), null);
  auto makeRest = [&](Ptr<Routing::Pim::RpCandidateStatus> const& rpSet, Ptr<Kiv::TimerWheel> const& wheel,
                      Ptr<Interface::AllIntfStatusDir> const& interfaces) {
    Bsr::pimBsrSmFactory(e.status, e.pimStatus, e.bsmStatus, e.crpMsgStatus, rpSet, wheel, interfaces);
  };
  EXPECT_EQ(rangeError([&] { makeRest(nullptr, e.wheel, e.interfaces); }), null);
  EXPECT_EQ(rangeError([&] { makeRest(e.rpCandidateStatus, nullptr, e.interfaces); }), null);
  EXPECT_EQ(rangeError([&] { makeRest(e.rpCandidateStatus, e.wheel, nullptr); }), null);
}

}  // namespace
}  // namespace test
