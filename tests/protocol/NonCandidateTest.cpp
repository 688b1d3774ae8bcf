#include <gmock/gmock.h>

#include <sstream>

#include "tests/protocol/NonCandidateSupport.h"
#include "tests/support/Watch.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Zet::Ptr;

std::string const created =
    "Created BSR state: IP=10.0.0.1, Priority=10, hashMaskLen=30 for Zone 224.0.0.0/4";
std::string const renewed =
    "Received preferred BSR state: IP=10.0.0.1, Priority=10, hashMaskLen=30 for Zone 224.0.0.0/4";
std::string const armed = " Next BS timer expiry is in 130 seconds from now.";
std::string const ignored = "Received Non Preferred BSM. Nothing to be done.";

// Construction ----------------------------------------------------------------------------------------

TEST_F(NonCandidate, AGlobalZoneWithoutAnEntryAcceptsAny) {
  engine.makeFollower(global);
  EXPECT_EQ(state(global), State::acceptAny);
  EXPECT_TRUE(engine.follower(global)->initialized());
  EXPECT_EQ(bsTimer(global), Kiv::never);
  EXPECT_EQ(szTimer(global), Kiv::never);
  EXPECT_THAT(texts(), ElementsAre(StartsWith("Initialized=True, bsm=")));
}

TEST_F(NonCandidate, AScopedZoneWithoutAnEntryHasNoInfoAndStaysThereWithoutAMessage) {
  engine.makeFollower(scoped);
  EXPECT_EQ(state(scoped), State::noInfo);
  EXPECT_EQ(bsTimer(scoped), Kiv::never);
  EXPECT_EQ(szTimer(scoped), Kiv::never);
  engine.runTo(100000);
  ASSERT_TRUE(engine.follower(scoped));
  EXPECT_EQ(state(scoped), State::noInfo);
}

TEST_F(NonCandidate, AnEntryFoundAtCreationGetsAFreshFullTimeout) {
  for (std::string const& zone : {global, scoped}) {
    engine.status->bootstrapRouterIs(prefix(zone))->ipAddrIs(addr("10.0.0.1"));
    engine.elected(zone)->expiryTimeIs(Zet::now() + 5000);
    engine.elected(zone)->setupTimeIs(Zet::now() - 77);
  }
  engine.runTo(40);
  for (std::string const& zone : {global, scoped}) {
    engine.makeFollower(zone);
    EXPECT_EQ(state(zone), State::acceptPreferred);
    EXPECT_EQ(expiry(zone), 170);
    EXPECT_EQ(bsTimer(zone), 170);
    EXPECT_EQ(szTimer(zone), Kiv::never);
    EXPECT_EQ(engine.since(engine.elected(zone)->setupTime()), -77);
    EXPECT_THAT(texts(), ElementsAre(armed, StartsWith("Initialized=True, bsm=")));
  }
  engine.runTo(170);
  EXPECT_FALSE(engine.elected(global));
  EXPECT_FALSE(engine.elected(scoped));
}

TEST_F(NonCandidate, AMachineThatIsNotInitializedDoesNothing) {
  auto follower = engine.makeFollower(scoped);
  follower->initializedIs(false);
  texts();
  follower->bsmIs(make(scopedBsm()));
  EXPECT_THAT(texts(), ElementsAre(StartsWith("Initialized=False, bsm=")));
  follower->stateIs(State::acceptPreferred);
  follower->handleBsrTimerExpiry();
  EXPECT_EQ(follower->state(), State::acceptPreferred);
  follower->stateIs(State::acceptAny);
  follower->handleSzTimerExpiry();
  follower->zetBsTimer()->timeMinIs(Zet::now() + 500);
  follower->zetSzTimer()->timeMinIs(Zet::now() + 500);
  engine.status->bsTimeoutIs(10);
  engine.status->szTimeoutIs(10);
  EXPECT_EQ(bsTimer(scoped), 500);
  EXPECT_EQ(szTimer(scoped), 500);
  EXPECT_TRUE(engine.follower(scoped));
  EXPECT_FALSE(engine.elected(scoped));
  EXPECT_THAT(texts(), IsEmpty());
}

// The first message -----------------------------------------------------------------------------------

TEST_F(NonCandidate, TheFirstMessageOfTheGlobalZoneMakesTheEntryAndStoresTheRpSet) {
  engine.runTo(20);
  engine.receive({.groups = {{global, {{"203.0.113.1"}, {"203.0.113.2", 100, 5}}}}});
  EXPECT_EQ(state(global), State::acceptPreferred);
  auto elected = engine.elected(global);
  ASSERT_TRUE(elected);
  EXPECT_EQ(elected->ipAddr(), addr("10.0.0.1"));
  EXPECT_EQ(elected->priority(), 10);
  EXPECT_EQ(elected->hashMaskLen(), 30u);
  EXPECT_EQ(engine.since(elected->setupTime()), 20);
  EXPECT_EQ(expiry(global), 150);
  EXPECT_EQ(bsTimer(global), 150);
  EXPECT_EQ(szTimer(global), Kiv::never);
  EXPECT_EQ(elected->upTime(), 0.0);
  EXPECT_EQ(elected->expires(), 0.0);
  EXPECT_EQ(engine.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0 203.0.113.2/100/5");
  EXPECT_EQ(engine.mirror(), engine.rpSet(global));
  EXPECT_THAT(texts(), ElementsAre(StartsWith("Initialized=True, bsm="), created, armed));
}

TEST_F(NonCandidate, TheFirstMessageOfAScopedZoneTakesItFromNoInfo) {
  engine.makeFollower(scoped)->zetSzTimer()->timeMinIs(Zet::now() + 7);
  engine.receive(scopedBsm());
  EXPECT_EQ(state(scoped), State::acceptPreferred);
  EXPECT_TRUE(engine.elected(scoped));
  EXPECT_EQ(bsTimer(scoped), 130);
  EXPECT_EQ(szTimer(scoped), Kiv::never);
  EXPECT_FALSE(engine.follower(global));
}

TEST_F(NonCandidate, ANewEntryClearsTheRpSetThatIsLeftOfTheZone) {
  for (std::string const& zone : {global, scoped}) {
    engine.receive(zone == global ? globalBsm() : scopedBsm());
    engine.runTo(engine.elapsed() + 130);
    ASSERT_FALSE(engine.elected(zone));
    ASSERT_NE(engine.rpSet(zone), "");
    auto old = engine.rp(zone, zone, "203.0.113.1");
    texts();
    Bsm next{.bsr = "10.0.0.2", .priority = 1};
    engine.receive(zone == global ? globalBsm(next) : scopedBsm(next));
    EXPECT_EQ(texts().front(), "Clearing RP Set for zone " + zone + " since we have a new BSR");
    EXPECT_NE(engine.rp(zone, zone, "203.0.113.1"), old);
    EXPECT_EQ(engine.rp(zone, zone, "203.0.113.1")->setupTime(), Zet::now());
  }
}

TEST_F(NonCandidate, InAcceptAnyEvenALowerWeightIsTaken) {
  engine.receive(globalBsm({.bsr = "10.0.0.9", .priority = 200}));
  engine.runTo(130);
  engine.receive(globalBsm({.bsr = "10.0.0.1", .priority = 0}));
  ASSERT_TRUE(engine.elected(global));
  EXPECT_EQ(engine.elected(global)->ipAddr(), addr("10.0.0.1"));
  EXPECT_EQ(engine.elected(global)->priority(), 0);
}

// The order of the steps ------------------------------------------------------------------------------

/// Notes how far a zone's machine has come at each of its writes.
class Steps {
 public:
  Steps(Engine& engine, std::string const& zone)
      : engine_(engine),
        zone_(zone),
        follower_(Zet::make<FollowerWatch>([this](std::string const& what) { note(what); })),
        status_(Zet::make<StatusWatch>([this](std::string const& what) { note(what); })),
        bsmStatus_(Zet::make<BsmStatusWatch>([this](std::string const& what) { note(what); })) {
    follower_->notifierIs(engine.follower(zone));
    status_->notifierIs(engine.status);
    bsmStatus_->notifierIs(engine.bsmStatus);
  }
  ~Steps() {
    follower_->notifierIs(nullptr);
    status_->notifierIs(nullptr);
    bsmStatus_->notifierIs(nullptr);
  }
  /// "what: state, entry until, RP until, kept tag, bs timer, sz timer"; what isn't there is left out.
  std::string at(std::string const& what) const {
    auto follower = engine_.follower(zone_);
    std::ostringstream out;
    out << what << ": " << follower->state();
    if (auto elected = engine_.elected(zone_)) out << ", entry " << shown(elected->expiryTime());
    if (auto rp = engine_.rp(zone_, zone_, "203.0.113.1")) out << ", RP " << shown(rp->expires());
    if (follower->lastBsm()) out << ", kept " << follower->lastBsm()->fragmentTag();
    if (follower->zetBsTimer()->isArmed()) out << ", bs " << shown(follower->zetBsTimer()->timeMin());
    if (follower->zetSzTimer()->isArmed()) out << ", sz " << shown(follower->zetSzTimer()->timeMin());
    return out.str();
  }
  Texts seen;

 private:
  void note(std::string const& what) {
    if (what != "oifIntfId" && what != "txBsm") seen.push_back(at(what));
  }
  std::string shown(double time) const {
    return time == 0.0 ? "unset" : std::to_string(static_cast<int>(engine_.since(time)));
  }

  Engine& engine_;
  std::string zone_;
  Ptr<FollowerWatch> follower_;
  Ptr<StatusWatch> status_;
  Ptr<BsmStatusWatch> bsmStatus_;
};

TEST_F(NonCandidate, ANewBsrIsEnteredThenForwardedThenStoredThenKeptAndTheTimerComesLast) {
  engine.addIntf("eth0");
  engine.receive(scopedBsm({.tag = 1}));
  engine.runTo(200);
  Steps steps(engine, scoped);
  EXPECT_EQ(steps.at("before"), "before: acceptAny, RP 280, kept 1, sz 1430");
  engine.receive(scopedBsm({.bsr = "10.0.0.2", .tag = 2}));
  EXPECT_THAT(steps.seen, ElementsAre("state: acceptPreferred, RP 280, kept 1, sz 1430",
                                      "crpStatus: acceptPreferred, kept 1, sz 1430",
                                      "bootstrapRouter: acceptPreferred, entry unset, kept 1, sz 1430",
                                      "writeCount: acceptPreferred, entry 330, kept 1",
                                      "crpStatus: acceptPreferred, entry 330, kept 1",
                                      "lastBsm: acceptPreferred, entry 330, RP 350, kept 2"));
  EXPECT_EQ(steps.at("after"), "after: acceptPreferred, entry 330, RP 350, kept 2, bs 330");
}

TEST_F(NonCandidate, APreferredMessageTakesTheSameStepsInTheSameOrder) {
  engine.addIntf("eth0");
  engine.receive(scopedBsm({.tag = 1}));
  engine.runTo(60);
  Steps steps(engine, scoped);
  engine.receive(scopedBsm({.tag = 2}));
  EXPECT_THAT(steps.seen, ElementsAre("writeCount: acceptPreferred, entry 190, RP 150, kept 1, bs 130",
                                      "lastBsm: acceptPreferred, entry 190, RP 210, kept 2, bs 130"));
  EXPECT_EQ(steps.at("after"), "after: acceptPreferred, entry 190, RP 210, kept 2, bs 190");
}

TEST_F(NonCandidate, AtItsExpiryTheSetIsRefreshedThenTheEntryGoesThenTheScopeZoneTimerStarts) {
  engine.receive(scopedBsm({.tag = 1}));
  Steps steps(engine, scoped);
  engine.runTo(130);
  EXPECT_THAT(steps.seen, ElementsAre("state: acceptAny, entry 130, RP 150, kept 1",
                                      "bootstrapRouter: acceptAny, RP 280, kept 1"));
  EXPECT_EQ(steps.at("after"), "after: acceptAny, RP 280, kept 1, sz 1430");
}

// Preference ------------------------------------------------------------------------------------------

TEST_F(NonCandidate, TheSameMessageObjectHandedInTwiceIsHandledOnce) {
  engine.addIntf("eth0");
  auto message = engine.receive(globalBsm());
  engine.runTo(10);
  texts();
  engine.follower(global)->bsmIs(message);
  EXPECT_THAT(texts(), IsEmpty());
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(expiry(global), 130);
}

TEST_F(NonCandidate, AMessageOfEqualWeightRefreshesTheEntryAndKeepsSetupTimeAndRpSet) {
  engine.receive(globalBsm());
  auto rp = engine.rp(global, global, "203.0.113.1");
  texts();
  engine.runTo(60);
  engine.receive(globalBsm({.hashMaskLen = 24}));
  EXPECT_THAT(texts(),
              ElementsAre("Received preferred BSR state: IP=10.0.0.1, Priority=10, hashMaskLen=24 for Zone "
                          "224.0.0.0/4",
                          armed));
  EXPECT_EQ(expiry(global), 190);
  EXPECT_EQ(bsTimer(global), 190);
  EXPECT_EQ(engine.since(engine.elected(global)->setupTime()), 0);
  EXPECT_EQ(engine.elected(global)->hashMaskLen(), 24u);
  EXPECT_EQ(engine.rp(global, global, "203.0.113.1"), rp);
  EXPECT_EQ(engine.since(rp->setupTime()), 0);
}

/// A BSR against the one known, which is 10.0.0.5 with priority 10.
struct Rival {
  std::string bsr;
  Zet::U8 priority;
};

TEST_F(NonCandidate, AHigherWeightFromAnotherBsrClearsTheRpSetAndTakesTheZone) {
  for (Rival const& rival : {Rival{"10.0.0.1", 11}, Rival{"10.0.0.6", 10}, Rival{"10.0.1.0", 10}}) {
    SCOPED_TRACE(rival.bsr);
    Engine router;
    router.receive({.bsr = "10.0.0.5", .groups = {{global, {{"203.0.113.1"}, {"203.0.113.2"}}}}});
    texts();
    router.runTo(60);
    router.receive(globalBsm({.bsr = rival.bsr, .priority = rival.priority}));
    EXPECT_EQ(texts().front(),
              "Clearing RP Set for zone 224.0.0.0/4 since we have a new BSR. Old BSR was 10.0.0.5");
    EXPECT_EQ(router.elected(global)->ipAddr(), addr(rival.bsr));
    EXPECT_EQ(router.elected(global)->priority(), rival.priority);
    EXPECT_EQ(router.since(router.elected(global)->setupTime()), 60);
    EXPECT_EQ(router.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0");
    EXPECT_EQ(router.rp(global, global, "203.0.113.1")->setupTime(), Zet::now());
  }
}

TEST_F(NonCandidate, AHigherPriorityOfTheSameBsrChangesOnlyWhatTheMessageAnnounces) {
  engine.receive(globalBsm());
  auto rp = engine.rp(global, global, "203.0.113.1");
  engine.runTo(60);
  engine.receive(globalBsm({.priority = 11, .hashMaskLen = 4}));
  EXPECT_EQ(context.tracedPrefix("Clearing RP Set"), 0);
  EXPECT_EQ(engine.elected(global)->priority(), 11);
  EXPECT_EQ(engine.elected(global)->hashMaskLen(), 4u);
  EXPECT_EQ(engine.since(engine.elected(global)->setupTime()), 0);
  EXPECT_EQ(engine.rp(global, global, "203.0.113.1"), rp);
}

TEST_F(NonCandidate, AChangeOfTheBsrClearsNothingWhereTheZoneHasNoRpSet) {
  engine.receive({.bsr = "10.0.0.1"});
  engine.receive({.bsr = "10.0.0.2"});
  EXPECT_EQ(context.tracedPrefix("Clearing RP Set"), 0);
  EXPECT_EQ(engine.elected(global)->ipAddr(), addr("10.0.0.2"));
}

TEST_F(NonCandidate, ALowerWeightIsTracedAndNothingElse) {
  for (Rival const& rival : {Rival{"10.0.0.9", 9}, Rival{"10.0.0.4", 10}, Rival{"10.0.0.5", 9}}) {
    SCOPED_TRACE(rival.bsr);
    Engine router;
    router.addIntf("eth0");
    auto first = router.receive(globalBsm({.bsr = "10.0.0.5", .tag = 1}));
    texts();
    router.runTo(129);
    Bsm lower = globalBsm({.bsr = rival.bsr, .priority = rival.priority, .tag = 2});
    lower.groups.front().rps = {{"203.0.113.9"}};
    router.receive(lower);
    EXPECT_THAT(texts(), ElementsAre(ignored));
    EXPECT_EQ(router.outbox->sent.size(), 1u);
    EXPECT_EQ(router.rpSet(global), "224.0.0.0/4: 203.0.113.1/150/0");
    EXPECT_EQ(router.follower(global)->lastBsm(), first);
    EXPECT_EQ(router.follower(global)->state(), State::acceptPreferred);
    EXPECT_EQ(router.elected(global)->ipAddr(), addr("10.0.0.5"));
    router.runTo(130);
    EXPECT_FALSE(router.elected(global));
  }
}

TEST_F(NonCandidate, TheKnownPriorityIsComparedByItsLowEightBits) {
  for (int known : {10, 256 + 10, 512 + 10}) {
    SCOPED_TRACE(known);
    Engine router;
    router.receive(globalBsm());
    router.elected(global)->priorityIs(static_cast<Zet::U16>(known));
    texts();
    router.receive(globalBsm({.priority = 9}));
    EXPECT_THAT(texts(), ElementsAre(ignored));
    router.receive(globalBsm({.priority = 10}));
    EXPECT_THAT(texts(), ElementsAre(renewed, armed));
  }
}

TEST_F(NonCandidate, AnEntryOfUnknownPriorityYieldsToTheLowest) {
  engine.status->bootstrapRouterIs(prefix(global))->ipAddrIs(addr("10.0.0.1"));
  engine.receive(globalBsm({.priority = 0}));
  EXPECT_EQ(engine.elected(global)->priority(), 0);
}

TEST_F(NonCandidate, AllButInvalidEventsAreTracedAtLevelEight) {
  engine.receive(globalBsm());
  for (std::string const& text : {created, armed}) {
    EXPECT_EQ(context.tracedAs(text), "Pim::Bsr::NonCandidateSm 8 BsrNonCandidateSm");
  }
}

// The No-Forward bit ----------------------------------------------------------------------------------

TEST_F(NonCandidate, ANoForwardMessageIsStoredAndTimedButNeitherForwardedNorKept) {
  engine.addIntf("eth0");
  engine.receive(scopedBsm());
  engine.runTo(50);
  texts();
  Bsm given = scopedBsm({.forward = false});
  given.groups.push_back({"239.1.0.0/16", {{"203.0.113.7"}}});
  engine.follower(scoped)->bsmIs(make(given));
  EXPECT_THAT(texts(),
              ElementsAre("Received preferred BSR state: IP=10.0.0.1, Priority=10, hashMaskLen=30 for Zone "
                          "239.0.0.0/8",
                          "Not Forwarding bootstrap message since noForward bit is set", armed));
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(engine.rpSet(scoped), "239.0.0.0/8: 203.0.113.1/150/0; 239.1.0.0/16: 203.0.113.7/150/0");
  EXPECT_FALSE(engine.follower(scoped)->lastBsm());
  EXPECT_EQ(expiry(scoped), 180);
  EXPECT_EQ(bsTimer(scoped), 180);
}

TEST_F(NonCandidate, ANoForwardMessageOfLowerWeightLeavesWhatIsKept) {
  auto kept = engine.receive(globalBsm());
  engine.follower(global)->bsmIs(make(globalBsm({.priority = 9, .forward = false})));
  EXPECT_EQ(engine.follower(global)->lastBsm(), kept);
}

}  // namespace
}  // namespace test
