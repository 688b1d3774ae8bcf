#include <gmock/gmock.h>

#include "tests/protocol/NonCandidateSupport.h"

namespace test {
namespace {

using testing::ElementsAre;

// The timers ------------------------------------------------------------------------------------------

TEST_F(NonCandidate, AfterItsExpiryTheGlobalZoneAcceptsAnyAndLivesOn) {
  engine.receive(globalBsm());
  texts();
  engine.runTo(129.9);
  EXPECT_TRUE(engine.elected(global));
  engine.runTo(130);
  EXPECT_FALSE(engine.elected(global));
  EXPECT_EQ(state(global), State::acceptAny);
  EXPECT_THAT(texts(), ElementsAre("Removing BSR 10.0.0.1 state for zone 224.0.0.0/4"));
  EXPECT_EQ(bsTimer(global), Kiv::never);
  EXPECT_EQ(szTimer(global), Kiv::never);
  engine.runTo(100000);
  EXPECT_TRUE(engine.follower(global));
}

TEST_F(NonCandidate, ExpiryRefreshesTheRpsOfTheKeptMessageAndSetsItsForwardFlag) {
  auto kept = engine.receive(globalBsm());
  kept->forwardIs(false);
  engine.runTo(130);
  EXPECT_TRUE(kept->forward());
  EXPECT_EQ(engine.follower(global)->lastBsm(), kept);
  EXPECT_EQ(engine.since(engine.rp(global, global, "203.0.113.1")->expires()), 280);
}

TEST_F(NonCandidate, ExpiryWithNoKeptMessageRefreshesNothing) {
  engine.receive(globalBsm({.forward = false}));
  engine.runTo(130);
  EXPECT_FALSE(engine.elected(global));
  EXPECT_EQ(engine.since(engine.rp(global, global, "203.0.113.1")->expires()), 150);
}

TEST_F(NonCandidate, AScopedZoneLivesForBothTimeoutsAfterItsLastMessage) {
  engine.receive(scopedBsm());
  engine.runTo(60);
  engine.receive(scopedBsm());
  texts();
  engine.runTo(190);
  EXPECT_THAT(texts(), ElementsAre("Removing BSR 10.0.0.1 state for zone 239.0.0.0/8",
                                   " Next SZ timer expiry is in 1300 seconds from now."));
  EXPECT_EQ(state(scoped), State::acceptAny);
  engine.runTo(1489.9);
  ASSERT_TRUE(engine.follower(scoped));
  engine.runTo(1490);
  EXPECT_FALSE(engine.follower(scoped));
  EXPECT_THAT(texts(), ElementsAre("Deleted Zone 239.0.0.0/8"));
}

TEST_F(NonCandidate, AMachineThatSomebodyHoldsEndsInNoInfo) {
  engine.receive(scopedBsm());
  auto held = engine.follower(scoped);
  engine.runTo(1430);
  EXPECT_FALSE(engine.follower(scoped));
  EXPECT_EQ(held->state(), State::noInfo);
}

TEST_F(NonCandidate, TheNextMessageOfAZoneThatHasGoneMakesAnotherMachine) {
  engine.receive(scopedBsm());
  engine.runTo(5000);
  ASSERT_FALSE(engine.follower(scoped));
  engine.receive(scopedBsm());
  EXPECT_EQ(state(scoped), State::acceptPreferred);
  EXPECT_EQ(bsTimer(scoped), 5130);
  EXPECT_EQ(szTimer(scoped), Kiv::never);
}

TEST_F(NonCandidate, AMessageInAcceptAnyStopsTheScopeZoneTimer) {
  engine.receive(scopedBsm());
  engine.runTo(1429);
  EXPECT_EQ(szTimer(scoped), 1430);
  engine.receive(scopedBsm());
  EXPECT_EQ(szTimer(scoped), Kiv::never);
  engine.runTo(1500);
  EXPECT_TRUE(engine.elected(scoped));
}

TEST_F(NonCandidate, ATimerInAStateThatDoesNotKnowItIsTracedAndIgnored) {
  struct Case {
    State state;
    void (Bsr::BsrNonCandidateSm::*expiry)();
    std::string text;
  };
  auto const bs = &Bsr::BsrNonCandidateSm::handleBsrTimerExpiry;
  auto const sz = &Bsr::BsrNonCandidateSm::handleSzTimerExpiry;
  for (Case const& given : {
           Case{State::acceptAny, bs, "Invalid event Bootstrap Timer Expiry in state acceptAny"},
           Case{State::noInfo, bs, "Invalid event Bootstrap Timer Expiry in state noInfo"},
           Case{State::acceptPreferred, sz,
                "Invalid event Scope Zone Timer Expiry in state acceptPreferred for zone 239.0.0.0/8"},
           Case{State::noInfo, sz,
                "Invalid event Scope Zone Timer Expiry in state noInfo for zone 239.0.0.0/8"},
       }) {
    SCOPED_TRACE(given.text);
    engine.receive(scopedBsm());
    auto follower = engine.follower(scoped);
    follower->stateIs(given.state);
    texts();
    ((*follower).*given.expiry)();
    EXPECT_EQ(context.tracedAs(given.text), "Pim::Bsr::NonCandidateSm 1 BsrNonCandidateSm");
    EXPECT_THAT(texts(), ElementsAre(given.text));
    EXPECT_EQ(follower->state(), given.state);
    EXPECT_TRUE(engine.elected(scoped));
    EXPECT_TRUE(engine.follower(scoped));
    EXPECT_EQ(szTimer(scoped), Kiv::never);
  }
}

// Changed timeouts ------------------------------------------------------------------------------------

struct TimeoutChange {
  Zet::U32 timeout;  ///< in place of 130 with 100 seconds left, or of 1300 with 1000 left
  double due;        ///< when the timer goes off then
  Texts texts;
};

TEST_F(NonCandidate, ALoweredBsTimeoutMovesTimerAndEntryAndARaisedOneNeither) {
  for (TimeoutChange const& given : {
           TimeoutChange{
               99,
               129,
               {"BS timer expiry was in 100 seconds from now. Resetting BS timer expiry to 99 seconds "
                "from now."}},
           TimeoutChange{
               100,
               130,
               {"BS timer expiry was in 100 seconds from now. Resetting BS timer expiry to 100 seconds "
                "from now."}},
           TimeoutChange{101, 130, {}},
           TimeoutChange{131, 130, {}},
           TimeoutChange{
               0,
               30,
               {"BS timer expiry was in 100 seconds from now. Resetting BS timer expiry to 0 seconds "
                "from now."}},
       }) {
    SCOPED_TRACE(given.timeout);
    Engine router;
    router.receive(globalBsm());
    router.runTo(30);
    texts();
    router.status->bsTimeoutIs(given.timeout);
    EXPECT_EQ(texts(), given.texts);
    EXPECT_EQ(router.since(router.elected(global)->expiryTime()), given.due);
    EXPECT_EQ(router.since(router.follower(global)->zetBsTimer()->timeMin()), given.due);
    router.runTo(given.due);
    EXPECT_FALSE(router.elected(global));
  }
}

TEST_F(NonCandidate, ALoweredBsTimeoutMovesTheTimerOfAZoneWhoseEntryWasTaken) {
  engine.receive(globalBsm());
  engine.status->bootstrapRouterDel(prefix(global));
  engine.status->bsTimeoutIs(20);
  EXPECT_EQ(bsTimer(global), 20);
  EXPECT_FALSE(engine.elected(global));
}

TEST_F(NonCandidate, AChangedBsTimeoutDoesNothingWhereTheTimerWasNeverArmed) {
  engine.makeFollower(global);
  texts();
  engine.status->bsTimeoutIs(20);
  EXPECT_THAT(texts(), ElementsAre("BS timer not set. Nothing to be done. "));
  EXPECT_EQ(bsTimer(global), Kiv::never);
}

TEST_F(NonCandidate, ALoweredSzTimeoutMovesTheScopeZoneTimerAndARaisedOneDoesNot) {
  for (TimeoutChange const& given : {
           TimeoutChange{
               999,
               1429,
               {"SZ timer expiry was in 1000 seconds from now. Restting SZ timer expiry to 999 seconds "
                "from now."}},
           TimeoutChange{1000,
                         1430,
                         {"SZ timer expiry was in 1000 seconds from now. Restting SZ timer expiry to 1000 "
                          "seconds from now."}},
           TimeoutChange{1001, 1430, {}},
           TimeoutChange{1301, 1430, {}},
       }) {
    SCOPED_TRACE(given.timeout);
    Engine router;
    router.receive(scopedBsm());
    router.runTo(430);
    texts();
    router.status->szTimeoutIs(given.timeout);
    EXPECT_EQ(texts(), given.texts);
    EXPECT_EQ(router.since(router.follower(scoped)->zetSzTimer()->timeMin()), given.due);
    router.runTo(given.due);
    EXPECT_FALSE(router.follower(scoped));
  }
}

TEST_F(NonCandidate, AChangedSzTimeoutDoesNothingWhereTheTimerIsStopped) {
  engine.receive(scopedBsm());
  texts();
  engine.status->szTimeoutIs(20);
  EXPECT_THAT(texts(), ElementsAre("SZ timer not set. Nothing to be done. "));
  EXPECT_EQ(szTimer(scoped), Kiv::never);
}

TEST_F(NonCandidate, ALoweredSzTimeoutWritesNoEntry) {
  engine.receive(scopedBsm());
  engine.follower(scoped)->zetSzTimer()->timeMinIs(Zet::now() + 1000);
  engine.status->szTimeoutIs(20);
  EXPECT_EQ(szTimer(scoped), 20);
  EXPECT_EQ(expiry(scoped), 130);
  EXPECT_EQ(bsTimer(scoped), 130);
}

// End -------------------------------------------------------------------------------------------------

TEST_F(NonCandidate, AFamilyTakenAwayEndsTheMachineAndLeavesItsEntryToTheNext) {
  engine.receive(scopedBsm());
  engine.runTo(100);
  engine.status->afIs(Lanet::AddressFamily::unset);
  EXPECT_FALSE(engine.follower(scoped));
  engine.runTo(500);
  ASSERT_TRUE(engine.elected(scoped));
  engine.status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_EQ(state(scoped), State::acceptPreferred);
  EXPECT_EQ(expiry(scoped), 630);
  engine.runTo(630);
  EXPECT_FALSE(engine.elected(scoped));
}

TEST_F(NonCandidate, ACandidateOfTheZoneEndsTheMachineAndLeavesItsEntry) {
  engine.receive(scopedBsm());
  engine.status->cbsrIs(prefix(scoped));
  EXPECT_FALSE(engine.follower(scoped));
  ASSERT_TRUE(engine.elected(scoped));
  EXPECT_EQ(engine.elected(scoped)->ipAddr(), addr("10.0.0.1"));
}

}  // namespace
}  // namespace test
