// The life of the root machine, and which zone machine gets a message. The effects of the machines on it are
// in their own tests.

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "crp/RpCandidateSm.h"
#include "runtime/Trace.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using Lanet::AddressFamily;
using Zet::Ptr;
using Texts = std::vector<std::string>;

std::string const global = "224.0.0.0/4";
std::string const scoped = "239.0.0.0/8";
std::string const rpAddress = "10.0.0.1";

/// The traces of the root machine about a machine made or deleted, in their order.
Texts lifeTraces(TestContext const& context) {
  Texts texts;
  for (Zet::TraceLine const& line : context.traces) {
    bool isRoot = std::string(line.sourceBlock) == "PimBsrSm";
    bool isAboutLife = line.text.find(" SM") != std::string::npos || line.text.starts_with("Deleted") ||
                       line.text.starts_with("Created") || line.text.starts_with("Address");
    if (isRoot && isAboutLife) texts.push_back(line.text);
  }
  return texts;
}

/// Notes which of the root machine's members come and go, by a reference that doesn't keep it alive.
class RootWatch : public Bsr::PimBsrSm::NotifieeConst {
 public:
  void onBsrTrie() override { heard.emplace_back("bsrTrie"); }
  void onBsrTrieBuilder() override { heard.emplace_back("bsrTrieBuilder"); }
  void onInitialized() override { heard.emplace_back("initialized"); }
  void onCandidateSm(Lanet::IpGenPrefix const&) override { heard.emplace_back("candidateSm"); }
  void onNonCandidateSm(Lanet::IpGenPrefix const&) override { heard.emplace_back("nonCandidateSm"); }
  void onRpCandidateSm(Bsr::CrpOptions const&) override { heard.emplace_back("rpCandidateSm"); }
  void onBsmFragments(Zet::U32 const&) override { heard.emplace_back("bsmFragments"); }
  void onBsmRxFragments(Zet::U16 const&) override { heard.emplace_back("bsmRxFragments"); }
  Texts heard;
};

class RootBase : public ModelTest {
 protected:
  explicit RootBase(Engine::Family family, bool started) : engine(family, started) {}

  Bsr::PimBsrSm& root() const { return *engine.root; }
  Ptr<Bsr::BsrCandidate> addCandidate(std::string const& zone) { return engine.status->cbsrIs(prefix(zone)); }
  void addRp(std::string const& range, Zet::U32 priority) {
    engine.status->crpIs(addr(rpAddress))->prefixOptionsIs(prefix(range))->priorityIs(priority);
  }
  /// One machine of each kind: a follower of the global zone, a candidate in the scoped one, a candidate RP.
  void makeOneOfEach() {
    engine.receive(Bsm{});
    addCandidate(scoped);
    addRp(scoped, 5);
  }
  Texts machines() const {
    return {std::to_string(root().candidateSmCount()) + " candidates",
            std::to_string(root().nonCandidateSmCount()) + " followers",
            std::to_string(root().rpCandidateSmCount()) + " RPs"};
  }
  Ptr<RootWatch> watchRoot() {
    auto watch = Zet::make<RootWatch>();
    watch->isWeakReferenceIs(true);
    watch->notifierIs(engine.root);
    return watch;
  }

  Engine engine;
};

/// With IPv4 from the beginning.
class Root : public RootBase {
 protected:
  Root() : RootBase(Engine::Family::ipv4, true) {}
};

/// With the entities made, and the machines left to the test.
class RootStart : public RootBase {
 protected:
  RootStart() : RootBase(Engine::Family::ipv4, false) {}
};

/// Started while the family is unknown.
class RootWaiting : public RootBase {
 protected:
  RootWaiting() : RootBase(Engine::Family::unset, true) {}
  void familyComes() { engine.status->afIs(AddressFamily::ipv4); }
};

Texts const none{"0 candidates", "0 followers", "0 RPs"};
Texts const oneOfEach{"1 candidates", "1 followers", "1 RPs"};

// Construction ----------------------------------------------------------------------------------------

TEST_F(Root, InitializedItHasTheGlobalZoneAnEmptyTrieAndAStoppedFragmentTimer) {
  EXPECT_TRUE(root().initialized());
  EXPECT_EQ(root().globalOrNonScopeZone(), prefix("224.0.0.0/4"));
  EXPECT_EQ(root().bsrTrie()->name(), "PimBsrTrie");
  EXPECT_EQ(root().bsrTrie()->af(), AddressFamily::ipv4);
  EXPECT_EQ(root().bsrTrieBuilder()->trie(), root().bsrTrie());
  EXPECT_EQ(root().bsrTrieBuilder()->bsrStatus(), engine.status);
  EXPECT_EQ(static_cast<Zet::U32>(engine.rpCandidateStatus->rpSetType()), 2u);
  EXPECT_EQ(root().fragmentTimer(), engine.wheel);
  EXPECT_TRUE(std::isinf(root().zetFragmentTimer()->timeMin()));
  EXPECT_FALSE(root().zetFragmentTimer()->isArmed());
  EXPECT_EQ(root().fragmentTimeout(), 25u);
  EXPECT_EQ(root().fragmentInterval(), 10u);
  EXPECT_EQ(machines(), none);
}

TEST_F(RootStart, TheRngIsSeededWithTheTimeInWholeSeconds) {
  context.nowIs(1234567890.75);
  engine.start();
  EXPECT_EQ(context.seeds, std::vector<unsigned>{1234567890});
}

TEST_F(RootStart, WhatIsInStatusIsTakenOver) {
  engine.addIntf("eth0");
  addCandidate(global);
  engine.status->bootstrapRouterIs(prefix(scoped));
  engine.status->crpStatusIs(prefix(scoped));
  addRp(scoped, 5);
  engine.start();
  EXPECT_EQ(machines(), oneOfEach);
  EXPECT_TRUE(root().candidateSm(prefix(global)));
  EXPECT_TRUE(root().nonCandidateSm(prefix(scoped)));
  EXPECT_TRUE(root().bsrTrie()->route(prefix(scoped)));
  EXPECT_TRUE(root().pimIntf(intf("eth0")));
  EXPECT_TRUE(root().crp(addr(rpAddress)));
  EXPECT_TRUE(root().crpZoneStatus(prefix(scoped)));
  EXPECT_TRUE(root().bsr(prefix(scoped)));
}

TEST_F(RootStart, ItsStepsTowardsTheCandidatesAreTracedAsEntries) {
  Zet::TraceHandle::handle("Pim::Bsr::Sm").levelIs(9, true);
  engine.start();
  for (char const* step :
       {"PimBsrSm::handleInitialized(", "PimBsrSm::handleBsrCandidate(", "PimBsrSm::handleRpCandidate("}) {
    auto isStep = [step](auto const& line) {
      return line.level == 9 && line.text.find(step) != std::string::npos;
    };
    EXPECT_TRUE(std::any_of(context.traces.begin(), context.traces.end(), isStep)) << step;
  }
}

TEST_F(RootStart, AKeptElectedBsrIsFollowedWhereThisRouterIsNoCandidate) {
  for (std::string const& zone : {global, scoped}) {
    auto elected = engine.status->bootstrapRouterIs(prefix(zone));
    elected->ipAddrIs(addr("10.0.0.9"));
    elected->priorityIs(7);
  }
  addCandidate(scoped);
  engine.start();
  EXPECT_EQ(machines(), (Texts{"1 candidates", "1 followers", "0 RPs"}));
  ASSERT_TRUE(engine.follower(global));
  EXPECT_EQ(engine.follower(global)->state(), Bsr::BsrNonCandidateState::acceptPreferred);
  EXPECT_EQ(engine.since(engine.elected(global)->expiryTime()), 130.0);
  EXPECT_EQ(lifeTraces(context), (Texts{"Instantiated Candidate SM for zone 239.0.0.0/8",
                                        "Created Non Candidate SM for zone 224.0.0.0/4"}));
  EXPECT_EQ(context.tracedAs("Created Non Candidate SM for zone 224.0.0.0/4"), "Pim::Bsr::Sm 8 PimBsrSm");
}

TEST_F(RootStart, AnElectedBsrThatIsFollowedAlreadyKeepsItsFollower) {
  engine.status->bootstrapRouterIs(prefix(global));
  engine.start();
  auto follower = engine.follower(global);
  ASSERT_TRUE(follower);
  engine.root->maybeInitNonCandidateSm();
  EXPECT_EQ(engine.follower(global), follower);
  EXPECT_EQ(context.traced("Created Non Candidate SM for zone 224.0.0.0/4"), 1);
}

TEST_F(RootStart, AMessageThatWaitedBeforeItsStartIsNotRead) {
  engine.bsmStatus->rxBsmIs(make(Bsm{}));
  engine.start();
  EXPECT_EQ(machines(), none);
}

TEST_F(RootStart, ARestartOverTheSameStatusGoesOnWithWhatWasLearned) {
  engine.start();
  engine.receive({.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}});
  engine.stop();
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0");
  engine.runTo(50);
  engine.start();
  EXPECT_EQ(engine.elected(global)->ipAddr(), addr("10.0.0.1"));
  engine.runTo(179);
  EXPECT_TRUE(engine.elected(global)) << "the timer runs anew from the restart";
  engine.runTo(180);
  EXPECT_FALSE(engine.elected(global));
}

// The address family ----------------------------------------------------------------------------------

TEST_F(RootWaiting, WithoutAFamilyItSeedsTracesAndWaits) {
  EXPECT_FALSE(root().initialized());
  EXPECT_EQ(lifeTraces(context), Texts{"Address Family not initialized in status"});
  EXPECT_EQ(context.tracedAs("Address Family not initialized in status"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.seeds.size(), 1u);
  EXPECT_TRUE(root().globalOrNonScopeZone().isEmpty());
  EXPECT_FALSE(root().bsrTrie());
  EXPECT_FALSE(root().bsrTrieBuilder());
  EXPECT_FALSE(root().fragmentTimer());
  EXPECT_EQ(engine.rpCandidateStatus->rpSetType(), Routing::Pim::RpType::unset);
}

TEST_F(RootWaiting, NothingThatHappensWhileItWaitsMakesAMachine) {
  engine.bsmStatus->rxBsmIs(make(Bsm{}));
  addCandidate(global);
  engine.status->cbsrDel(prefix(global));
  addRp(scoped, 5);
  root().handleBsrCandidate();
  root().handleCrpMsg();
  root().handleFragmentTimerExpiry();
  EXPECT_EQ(machines(), none);
  EXPECT_EQ(lifeTraces(context).size(), 1u);
}

TEST_F(RootWaiting, TheFamilyMakesTheMachinesOfWhatExistsByThen) {
  addCandidate(global);
  engine.status->bootstrapRouterIs(prefix(scoped));
  familyComes();
  EXPECT_TRUE(root().initialized());
  EXPECT_EQ(machines(), (Texts{"1 candidates", "1 followers", "0 RPs"}));
  EXPECT_EQ(context.seeds.size(), 2u);
  EXPECT_TRUE(root().bsrTrie()->route(prefix(scoped)));
}

TEST_F(RootWaiting, AnRpSetKeptFromAFormerRunDoesNoHarmBeforeTheFamilyComes) {
  engine.stop();
  auto set = engine.status->crpStatusIs(prefix(scoped))->statusIs("")->crpSetIs(prefix("239.1.0.0/16"));
  auto rp = set->rpIs(addr("203.0.113.1"));
  engine.status->bootstrapRouterIs(prefix(scoped));
  engine.start();
  EXPECT_EQ(engine.mirror(), "");
  familyComes();
  rp->holdTimeIs(150);
  rp->expiresIs(Zet::now() + 150);
  EXPECT_EQ(engine.mirror(), "239.1.0.0/16: 203.0.113.1/150/256");
}

TEST_F(Root, TheFamilySetAgainInitializesNothingAgain) {
  auto trie = root().bsrTrie();
  engine.status->afIs(AddressFamily::ipv4);
  root().handleAf();
  EXPECT_EQ(context.seeds.size(), 1u);
  EXPECT_EQ(root().bsrTrie(), trie);
}

TEST_F(Root, TheFamilyTakenAwayDeletesAllMachinesCandidateRpsFirst) {
  makeOneOfEach();
  ASSERT_EQ(machines(), oneOfEach);
  auto watch = watchRoot();
  context.traces.clear();
  engine.status->afIs(AddressFamily::unset);
  EXPECT_EQ(machines(), none);
  EXPECT_FALSE(root().initialized());
  EXPECT_EQ(watch->heard, (Texts{"rpCandidateSm", "nonCandidateSm", "candidateSm", "initialized"}));
  EXPECT_EQ(lifeTraces(context), (Texts{"Deleted all RP Candidate SMs", "Deleted all Non Candidate SMs",
                                        "Deleted all Candidate SMs"}));
  EXPECT_EQ(context.tracedAs("Deleted all Candidate SMs"), "Pim::Bsr::Sm 8 PimBsrSm");
}

TEST_F(Root, TheFamilyTakenAwaySendsNothing) {
  engine.addIntf("eth0");
  makeOneOfEach();
  std::size_t sent = engine.outbox->sent.size();
  engine.status->afIs(AddressFamily::unset);
  EXPECT_EQ(engine.outbox->sent.size(), sent);
  EXPECT_EQ(engine.crpMsgStatus->writeCount(), 0u);
}

TEST_F(Root, TheFamilyTakenAwayLeavesTheTrieTheTimerAndTheReactors) {
  engine.addIntf("eth0");
  makeOneOfEach();
  auto trie = root().bsrTrie();
  engine.status->afIs(AddressFamily::unset);
  EXPECT_EQ(root().bsrTrie(), trie);
  EXPECT_TRUE(trie->route(prefix(global)));
  EXPECT_TRUE(root().bsrTrieBuilder());
  EXPECT_EQ(root().fragmentTimer(), engine.wheel);
  EXPECT_TRUE(root().pimIntf(intf("eth0")));
  EXPECT_TRUE(root().crp(addr(rpAddress)));
  EXPECT_TRUE(root().bsr(prefix(global)));
}

TEST_F(Root, TheFamilyTakenAwayMakesItDeafToMessages) {
  engine.status->afIs(AddressFamily::unset);
  engine.bsmStatus->rxBsmIs(make(Bsm{}));
  addCandidate(scoped);
  EXPECT_EQ(machines(), none);
}

TEST_F(Root, TheFamilyGivenBackMakesTheZoneMachinesAnew) {
  makeOneOfEach();
  engine.status->afIs(AddressFamily::unset);
  engine.status->afIs(AddressFamily::ipv4);
  EXPECT_TRUE(root().initialized());
  EXPECT_EQ(context.seeds.size(), 2u);
  EXPECT_EQ(machines(), (Texts{"1 candidates", "1 followers", "0 RPs"}));
  addRp(scoped, 6);
  EXPECT_EQ(root().rpCandidateSmCount(), 1u) << "a candidate RP waits for a change of its priority";
}

using RootDeath = RootStart;
using RootWaitingDeath = RootWaiting;

TEST_F(RootDeath, OfIp6AtTheStart) {
  engine.status->afIs(AddressFamily::ipv6);
  EXPECT_DEATH(engine.start(), "IPV6 Not supported");
}

TEST_F(RootDeath, OfIp6InsteadOfIp4) {
  engine.start();
  EXPECT_DEATH(engine.status->afIs(AddressFamily::ipv6), "IPV6 Not supported");
}

TEST_F(RootWaitingDeath, OfIp6InsteadOfNone) {
  EXPECT_DEATH(engine.status->afIs(AddressFamily::ipv6), "IPV6 Not supported");
}

// The dispatch of messages ----------------------------------------------------------------------------

struct Dispatch {
  char const* name;
  std::vector<Group> groups;
  std::string zone;
};

void PrintTo(Dispatch const& given, std::ostream* out) { *out << given.name; }

Dispatch const dispatches[] = {
    {"NoGroup", {}, global},
    {"AnUnscopedGroup", {{"239.0.0.0/8"}}, global},
    {"AnUnscopedGroupOfAnotherFlag", {{"239.0.0.0/8", {}, 0xfe}}, global},
    {"AnUnscopedGroupBeforeScopedOnes", {{"225.0.0.0/8"}, {"239.0.0.0/8", {}, scopedFlag}}, global},
    {"AScopedGroup", {{"239.0.0.0/8", {}, scopedFlag}}, scoped},
    {"AScopedGroupWithAnotherFlag", {{"239.0.0.0/8", {}, scopedFlag | bidirFlag}}, scoped},
    {"AScopedGroupBeforeOthers", {{"239.0.0.0/8", {}, scopedFlag}, {"238.0.0.0/8", {}, scopedFlag}}, scoped},
};

class RootDispatch : public Root, public testing::WithParamInterface<Dispatch> {
 protected:
  bool isScoped() const { return GetParam().zone == scoped; }
};

TEST_P(RootDispatch, MakesAFollowerOnceAndGivesItEachMessage) {
  std::string const trace = isScoped() ? "Instantiated Scoped NonCandidate SM Scope: 239.0.0.0/8"
                                       : "Instantiated Global/Non-Scoped Non Candidate SM";
  auto first = engine.receive({.groups = GetParam().groups});
  auto follower = engine.follower(GetParam().zone);
  ASSERT_TRUE(follower);
  EXPECT_EQ(follower->bsm(), first);
  EXPECT_EQ(context.tracedAs(trace), "Pim::Bsr::Sm 8 PimBsrSm");
  auto second = engine.receive({.groups = GetParam().groups});
  EXPECT_EQ(engine.follower(GetParam().zone), follower);
  EXPECT_EQ(follower->bsm(), second);
  EXPECT_EQ(context.tracedPrefix("Instantiated"), 1);
  EXPECT_EQ(machines(), (Texts{"0 candidates", "1 followers", "0 RPs"}));
}

TEST_P(RootDispatch, GivesTheMessageToTheZonesCandidateAndMakesNoFollower) {
  std::string const trace = isScoped() ? "Trigger Scoped Candidate SM Scope: 239.0.0.0/8"
                                       : "Trigger Global/Non-Scoped Candidate SM";
  addCandidate(GetParam().zone);
  auto message = engine.receive({.groups = GetParam().groups});
  EXPECT_EQ(root().candidateSm(prefix(GetParam().zone))->bsm(), message);
  EXPECT_EQ(context.tracedAs(trace), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(machines(), (Texts{"1 candidates", "0 followers", "0 RPs"}));
}

INSTANTIATE_TEST_SUITE_P(Table, RootDispatch, testing::ValuesIn(dispatches),
                         [](auto const& given) { return given.param.name; });

TEST_F(Root, EachZoneHasAFollowerOfItsOwn) {
  auto unscoped = engine.receive(Bsm{});
  auto ofZone = engine.receive({.groups = {{"239.0.0.0/8", {}, scopedFlag}}});
  EXPECT_EQ(root().nonCandidateSmCount(), 2u);
  EXPECT_EQ(engine.follower(global)->bsm(), unscoped);
  EXPECT_EQ(engine.follower(scoped)->bsm(), ofZone);
}

TEST_F(Root, ZoneMachinesUseStatusTheWheelAndThisRoot) {
  makeOneOfEach();
  auto follower = engine.follower(global);
  auto candidate = root().candidateSm(prefix(scoped));
  EXPECT_EQ(follower->bsrStatus(), engine.status);
  EXPECT_EQ(follower->bsTimer(), engine.wheel);
  EXPECT_EQ(follower->szTimer(), engine.wheel);
  EXPECT_EQ(follower->bsrSm(), engine.root.ptr());
  EXPECT_EQ(candidate->bsrStatus(), engine.status);
  EXPECT_EQ(candidate->bsTimer(), engine.wheel);
  EXPECT_EQ(candidate->bsrSm(), engine.root.ptr());
}

// Candidates and followers ----------------------------------------------------------------------------

TEST_F(Root, ACandidacyReplacesTheZonesFollower) {
  engine.receive({.groups = {{"239.0.0.0/8", {}, scopedFlag}}});
  auto watch = watchRoot();
  context.traces.clear();
  addCandidate(scoped);
  EXPECT_EQ(machines(), (Texts{"1 candidates", "0 followers", "0 RPs"}));
  EXPECT_EQ(watch->heard, (Texts{"nonCandidateSm", "candidateSm"}));
  EXPECT_EQ(lifeTraces(context),
            (Texts{"Deleted 239.0.0.0/8 NonCandidate SM", "Instantiated Candidate SM for zone 239.0.0.0/8"}));
  EXPECT_EQ(context.tracedAs("Deleted 239.0.0.0/8 NonCandidate SM"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.tracedAs("Instantiated Candidate SM for zone 239.0.0.0/8"), "Pim::Bsr::Sm 8 PimBsrSm");
}

TEST_F(Root, ACandidacyThatIsLookedAtAgainIsTracedAgainAndKeepsItsMachine) {
  addCandidate(scoped);
  auto machine = root().candidateSm(prefix(scoped));
  root().handleBsrCandidate();
  EXPECT_EQ(root().candidateSm(prefix(scoped)), machine);
  EXPECT_EQ(context.traced("Instantiated Candidate SM for zone 239.0.0.0/8"), 2);
}

TEST_F(Root, ACandidacyThatEndsLeavesTheZoneWithoutAMachineUntilItsNextMessage) {
  engine.receive({.groups = {{"239.0.0.0/8", {}, scopedFlag}}});
  addCandidate(scoped);
  context.traces.clear();
  engine.status->cbsrDel(prefix(scoped));
  EXPECT_EQ(machines(), none);
  EXPECT_EQ(lifeTraces(context), Texts{"Deleted Candidate SM for zone 239.0.0.0/8"});
  EXPECT_EQ(context.tracedAs("Deleted Candidate SM for zone 239.0.0.0/8"), "Pim::Bsr::Sm 8 PimBsrSm");
  ASSERT_TRUE(engine.elected(scoped)) << "the learned BSR stays";
  engine.receive({.bsr = "10.0.0.9", .priority = 1, .groups = {{"239.0.0.0/8", {}, scopedFlag}}});
  ASSERT_TRUE(engine.follower(scoped));
  EXPECT_EQ(engine.elected(scoped)->ipAddr(), addr("10.0.0.1")) << "and the new follower took it up";
}

TEST_F(Root, AnElectedCandidacyThatEndsIsElectedNoMore) {
  auto candidate = addCandidate(scoped);
  candidate->electedIs(true);
  engine.status->cbsrDel(prefix(scoped));
  EXPECT_FALSE(candidate->elected());
  EXPECT_EQ(machines(), none);
}

TEST_F(Root, ACandidatesMachineDeletedByItselfTakesTheElectedBsrWithIt) {
  addCandidate(scoped)->electedIs(true);
  engine.status->bootstrapRouterIs(prefix(scoped));
  root().candidateSmDel(prefix(scoped));
  EXPECT_FALSE(engine.elected(scoped));
  EXPECT_EQ(context.tracedAs("Deleted BSR for zone 239.0.0.0/8"), "Pim::Bsr::Sm 8 PimBsrSm");
}

TEST_F(Root, ACandidatesMachineDeletedByItselfLeavesTheBsrThatAnotherRouterIs) {
  addCandidate(scoped);
  engine.status->bootstrapRouterIs(prefix(scoped));
  root().candidateSmDel(prefix(scoped));
  EXPECT_TRUE(engine.elected(scoped));
  root().handleCandidateSm(prefix(global));
  EXPECT_EQ(context.tracedPrefix("Deleted BSR"), 0);
}

TEST_F(Root, ACandidatesMachineThatComesLeavesTheElectedBsr) {
  engine.status->bootstrapRouterIs(prefix(scoped));
  auto candidate = addCandidate(scoped);
  candidate->electedIs(true);
  root().handleCandidateSm(prefix(scoped));
  EXPECT_TRUE(engine.elected(scoped));
}

/// Ends each candidacy as soon as its machine comes.
class Spoilsport : public Bsr::PimBsrSm::NotifieeConst {
 public:
  explicit Spoilsport(Ptr<Bsr::Status> status) : status_(std::move(status)) {}
  void onCandidateSm(Lanet::IpGenPrefix const& zone) override { status_->cbsrDel(zone); }

 private:
  Ptr<Bsr::Status> status_;
};

TEST_F(RootWaiting, TheCandidaciesMayEndWhileTheirMachinesAreMade) {
  for (char const* zone : {"239.1.0.0/16", "239.2.0.0/16", "239.3.0.0/16"}) addCandidate(zone);
  auto spoilsport = Zet::make<Spoilsport>(engine.status);
  spoilsport->isWeakReferenceIs(true);
  spoilsport->notifierIs(engine.root);
  familyComes();
  EXPECT_EQ(context.tracedPrefix("Instantiated Candidate SM"), 3);
  EXPECT_EQ(machines(), none);
}

// End -------------------------------------------------------------------------------------------------

TEST_F(Root, ItsEndTakesTheTrieItsBuilderAndThenTheMachinesInOrder) {
  makeOneOfEach();
  root().bsmFragmentsIs(1500);
  root().bsmRxFragmentsIs(7);
  auto watch = watchRoot();
  engine.stop();
  EXPECT_EQ(watch->heard, (Texts{"bsrTrie", "bsrTrieBuilder", "candidateSm", "nonCandidateSm",
                                 "rpCandidateSm", "bsmFragments", "bsmRxFragments"}));
}

TEST_F(Root, ItsEndSendsNothingAndLeavesStatusUnchanged) {
  engine.addIntf("eth0");
  auto candidate = addCandidate(scoped);
  candidate->electedIs(true);
  addRp(scoped, 5);
  engine.receive({.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}});
  std::size_t sent = engine.outbox->sent.size();
  context.traces.clear();
  engine.stop();
  EXPECT_EQ(engine.outbox->sent.size(), sent);
  EXPECT_EQ(engine.crpMsgStatus->writeCount(), 0u);
  EXPECT_EQ(lifeTraces(context), Texts{"Deleted BSR for zone 239.0.0.0/8"})
      << "as after any end of its machine";
  EXPECT_TRUE(candidate->elected());
  EXPECT_TRUE(engine.elected(global));
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

TEST_F(Root, AfterItsEndNothingIsHeard) {
  makeOneOfEach();
  engine.stop();
  context.traces.clear();
  engine.status->cbsrDelAll();
  engine.status->crpDelAll();
  engine.status->bootstrapRouterDelAll();
  engine.bsmStatus->rxBsmIs(make(Bsm{}));
  engine.status->afIs(AddressFamily::ipv6);
  EXPECT_TRUE(context.traces.empty());
}

}  // namespace
}  // namespace test
