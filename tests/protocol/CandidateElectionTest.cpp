#include "tests/protocol/CandidateSupport.h"

namespace test {
namespace {

using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;

/// A zone's machine in some state, one event, and what it has come to.
struct Transition {
  char const* name;
  void (*lead)(CandidateTest&);
  void (*event)(CandidateTest&);
  int messages;  ///< that left by the event
  char const* outcome;
};

void pending(CandidateTest& test) { test.toPending(); }
void elected(CandidateTest& test) { test.toElected(); }
void following(CandidateTest& test) { test.toCandidate(); }

/// pBsr since 130, for the second time: the BSR has fallen silent, and its entry still exists.
void pendingAgain(CandidateTest& test) {
  test.toCandidate();
  test.engine.runTo(130);
}

/// With a period so short that the timer has more on it.
void pendingBriefly(CandidateTest& test) { test.configure({.bsPeriod = 1}); }
void electedBriefly(CandidateTest& test) {
  test.configure({.bsPeriod = 2});
  test.engine.runTo(5);
}

template <int seconds>
void hearSuperior(CandidateTest& test) {
  test.engine.runTo(seconds);
  test.hear(superior());
}

template <int seconds>
void hearInferior(CandidateTest& test) {
  test.engine.runTo(seconds);
  test.hear(inferior());
}

template <int seconds>
void wait(CandidateTest& test) {
  test.engine.runTo(seconds);
}

template <int seconds, Zet::U32 period>
void changePeriod(CandidateTest& test) {
  test.engine.runTo(seconds);
  test.candidate()->bsPeriodIs(period);
}

template <int seconds, Zet::U32 timeout>
void changeTimeout(CandidateTest& test) {
  test.engine.runTo(seconds);
  test.engine.status->bsTimeoutIs(timeout);
}

void restartElected(CandidateTest& test) {
  test.engine.runTo(7);
  test.restart([] {});
}

class CandidateTransition : public CandidateTest, public testing::WithParamInterface<Transition> {};

TEST_P(CandidateTransition, LeadsThere) {
  GetParam().lead(*this);
  std::size_t before = sent();
  GetParam().event(*this);
  EXPECT_EQ(show(), GetParam().outcome);
  EXPECT_EQ(static_cast<int>(sent() - before), GetParam().messages);
}

// The delay after superior(): 5 + 2 * log2(1 + 20 - 10) + (2 - 10.0.0.5 / 2^31) = 13.8, cut to 13.
Transition const byInitialization[] = {
    {"StartWaits", [](CandidateTest&) {}, pending, 0,
     "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -"},
    {"StartWithElectedFlag", elected, restartElected, 0,
     "eBsr timer 67 expiry 67 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps -"},
};

Transition const byMessage[] = {
    {"PendingSuperior", pending, hearSuperior<2>, 1,
     "cBsr timer 132 expiry 132 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"ElectedSuperior", elected, hearSuperior<7>, 1,
     "cBsr timer 137 expiry 137 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"FollowingSuperior", following, hearSuperior<7>, 1,
     "cBsr timer 137 expiry 137 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"FollowingInferior", following, hearInferior<7>, 1,
     "pBsr timer 20 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 600"},
    {"PendingInferior", pending, hearInferior<2>, 1,
     "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps 600"},
    {"ElectedInferior", elected, hearInferior<7>, 1,
     "eBsr timer 67 expiry 67 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 2"},
};

Transition const byExpiry[] = {
    {"FollowingExpires", following, wait<130>, 0,
     "pBsr timer 143 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"PendingExpires", pending, wait<5>, 1,
     "eBsr timer 15 expiry 15 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 1"},
    {"PendingAgainExpires", pendingAgain, wait<143>, 1,
     "eBsr timer 153 expiry 153 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 1"},
    {"ElectedWithoutRpsExpires", elected, wait<15>, 1,
     "eBsr timer 25 expiry 25 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 2"},
    {"ElectedWithRpsExpires", elected,
     [](CandidateTest& test) {
       test.putRp("203.0.113.1");
       test.engine.runTo(15);
     },
     1, "eBsr timer 75 expiry 75 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 2"},
};

Transition const byPeriod[] = {
    {"PendingShortens", pending, changePeriod<2, 2>, 0,
     "pBsr timer 4 expiry - stored 10.0.0.5/10/30 status - keeps -"},
    {"PendingAgainShortens", pendingAgain, changePeriod<131, 4>, 0,
     "pBsr timer 135 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"ElectedShortens", elected, changePeriod<7, 4>, 0,
     "eBsr timer 11 expiry 11 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 1"},
    {"ElectedNeverLengthens", elected, changePeriod<7, 120>, 0,
     "eBsr timer 15 expiry 15 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 1"},
    {"FollowingIsUnchanged", following, changePeriod<7, 20>, 0,
     "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
};

Transition const byTimeout[] = {
    {"FollowingShortens", following, changeTimeout<7, 100>, 0,
     "cBsr timer 107 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"FollowingNeverLengthens", following, changeTimeout<7, 200>, 0,
     "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"FollowingMindsTheOverride", following, changeTimeout<7, 40>, 0,
     "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500"},
    {"PendingIsUnchanged", pendingBriefly, changeTimeout<2, 2>, 0,
     "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -"},
    {"ElectedIsUnchanged", electedBriefly, changeTimeout<7, 3>, 0,
     "eBsr timer 15 expiry 15 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 1"},
};

std::string nameOf(testing::TestParamInfo<Transition> const& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(ByInitialization, CandidateTransition, testing::ValuesIn(byInitialization), nameOf);
INSTANTIATE_TEST_SUITE_P(ByMessage, CandidateTransition, testing::ValuesIn(byMessage), nameOf);
INSTANTIATE_TEST_SUITE_P(ByExpiry, CandidateTransition, testing::ValuesIn(byExpiry), nameOf);
INSTANTIATE_TEST_SUITE_P(ByPeriod, CandidateTransition, testing::ValuesIn(byPeriod), nameOf);
INSTANTIATE_TEST_SUITE_P(ByTimeout, CandidateTransition, testing::ValuesIn(byTimeout), nameOf);

class CandidateElection : public CandidateTest {};

// Steps and their order -------------------------------------------------------------------------------

using Lines = std::vector<std::string>;

TEST_F(CandidateElection, PreferredMessageStepsDownBeforeItFollows) {
  toElected();
  putRp("203.0.113.1");
  Diary diary(*this);
  hear({.bsr = "10.0.0.9",
        .priority = 20,
        .groups = {{globalZone, {{"203.0.113.2"}}, 0, 2, 1}},
        .hashMaskLen = 24});
  Lines expected{"state cBsr",  "entry gone", "RP set gone",  "stored address", "stored priority",
                 "stored mask", "entry made", "entry set up", "entry address",  "entry priority",
                 "entry mask",  "sent",       "entry expiry", "message kept",   "fragments kept"};
  EXPECT_EQ(diary.lines, expected);
}

TEST_F(CandidateElection, PreferredMessageIsForwardedBeforeItIsStored) {
  toPending();
  Diary diary(*this);
  hear({.bsr = "10.0.0.9", .priority = 20, .groups = {{globalZone, {{"203.0.113.2"}}}}, .hashMaskLen = 24});
  Lines expected{"state cBsr",   "stored address", "stored priority", "stored mask", "entry made",
                 "entry set up", "entry address",  "entry priority",  "entry mask",  "sent",
                 "RP set made",  "entry expiry",   "message kept"};
  EXPECT_EQ(diary.lines, expected);
}

TEST_F(CandidateElection, TakeoverClearsTheRpSetFirstAndPublishesBeforeItSends) {
  toPending();
  hear({.bsr = "10.0.0.9",
        .priority = 20,
        .groups = {{globalZone, {{"203.0.113.2", 1000}}}},
        .hashMaskLen = 24});
  engine.runTo(142);
  Diary diary(*this);
  engine.runTo(143);
  Lines expected{"RP set gone", "state eBsr",    "stored address", "stored priority",
                 "stored mask", "entry address", "entry priority", "entry mask",
                 "sent",        "message kept",  "entry expiry"};
  EXPECT_EQ(diary.lines, expected);
  EXPECT_EQ(context.traced("Clearing RP Set for zone 224.0.0.0/4 since we are now going to be the BSR"), 1);
  EXPECT_EQ(engine.rpSet(globalZone), "");
  EXPECT_EQ(engine.mirror(), "");
}

TEST_F(CandidateElection, TakeoverWithoutRpSetHasNothingToClear) {
  toElected();
  EXPECT_EQ(context.tracedPrefix("Clearing RP Set"), 0);
}

TEST_F(CandidateElection, InferiorMessagesAreKeptAfterTheyWereForwarded) {
  toCandidate();
  Diary diary(*this);
  hear(inferior());
  EXPECT_EQ(diary.lines, (Lines{"state pBsr", "sent", "message kept"}));
  hear(inferior());
  EXPECT_EQ(diary.lines, (Lines{"state pBsr", "sent", "message kept", "sent", "message kept"}));
}

TEST_F(CandidateElection, ElectedRouterAnswersAnInferiorMessageWithItsOwn) {
  toElected();
  engine.runTo(7);
  Diary diary(*this);
  hear(inferior());
  EXPECT_EQ(diary.lines, (Lines{"sent", "message kept", "entry expiry"}));
  EXPECT_EQ(lastSent(), "forward tag 2 bsr 10.0.0.5 priority 10 mask 30");
}

// Weights ---------------------------------------------------------------------------------------------

TEST_F(CandidateElection, EqualWeightUnseatsTheElectedAndRebuildsItsRpSet) {
  toElected();
  putRp("203.0.113.1");
  engine.runTo(7);
  hear({.bsr = "10.0.0.5", .priority = 10, .groups = {{globalZone, {{"203.0.113.2"}}}}, .tag = 9});
  EXPECT_EQ(show(), "cBsr timer 137 expiry 137 stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps 9");
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.2/150/0");
  EXPECT_EQ(engine.since(engine.elected(globalZone)->setupTime()), 7);
  EXPECT_EQ(context.traced("We, 10.0.0.5 are no longer BSR for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(context.traced("Deleting 10.0.0.5 as elected BSR for zone"), 1);
}

TEST_F(CandidateElection, BsrThatIsFollowedKeepsItsAge) {
  toCandidate();
  engine.runTo(60);
  hear(superior());
  EXPECT_EQ(engine.since(engine.elected(globalZone)->setupTime()), 0);
  EXPECT_EQ(context.traced("Added Elected BSR 10.0.0.9 with priority 20, hashMaskLen 24"), 2);
}

struct Contest {
  char const* bsr;
  Zet::U8 priority;
  bool preferred;
};

TEST_F(CandidateElection, PriorityDecidesBeforeTheAddress) {
  configure({.address = "10.0.0.5", .priority = 266});  // 10 in the byte that counts
  Contest const contests[] = {{"10.0.0.9", 9, false}, {"10.0.0.4", 10, false}, {"9.255.255.255", 10, false},
                              {"10.0.0.5", 10, true}, {"10.0.0.6", 10, true},  {"1.0.0.1", 11, true}};
  for (Contest const& contest : contests) {
    restart([] {});
    hear({.bsr = contest.bsr, .priority = contest.priority});
    EXPECT_EQ(machine()->state() == Bsr::BsrCandidateState::cBsr, contest.preferred)
        << contest.bsr << ' ' << int{contest.priority};
    restart([this] { engine.status->bootstrapRouterDelAll(); });
  }
}

// Messages that are not used --------------------------------------------------------------------------

TEST_F(CandidateElection, InferiorMessagesNeverReachTheRpSet) {
  Bsm message = inferior();
  message.groups = {{globalZone, {{"203.0.113.2"}}}};
  toPending();
  hear(message);
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  toElected();
  hear(message);
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  hear(superior());
  hear(message);
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
}

TEST_F(CandidateElection, FloodOfInferiorMessagesCannotHoldOffTheTakeover) {
  toPending();
  for (int second = 1; second < 5; ++second) {
    engine.runTo(second);
    hear(inferior());
  }
  engine.runTo(5);
  EXPECT_TRUE(candidate()->elected());
}

TEST_F(CandidateElection, NoForwardMessageIsFollowedButNeitherForwardedNorKept) {
  toCandidate();
  std::size_t before = sent();
  Bsm message = superior();
  message.priority = 30;
  message.tag = 501;
  message.forward = false;
  message.groups = {{globalZone, {{"203.0.113.2"}}, 0, 2, 1}, {"225.0.0.0/8", {{"203.0.113.3"}}}};
  machine()->bsmIs(make(message));
  EXPECT_EQ(show(), "cBsr timer 130 expiry 130 stored 10.0.0.9/30/24 status 10.0.0.9/30/24 keeps 500");
  EXPECT_EQ(engine.rpSet(globalZone), "225.0.0.0/8: 203.0.113.3/150/0");
  EXPECT_FALSE(machine()->lastBsmFragments());
  EXPECT_EQ(sent(), before);
  EXPECT_EQ(context.traced("Not Forwarding bootstrap message since noForward bit is set"), 1);
}

TEST_F(CandidateElection, NoForwardInferiorMessageIsKeptButNotForwarded) {
  toCandidate();
  std::size_t before = sent();
  Bsm message = inferior();
  message.forward = false;
  machine()->bsmIs(make(message));
  EXPECT_EQ(machine()->lastBsm()->fragmentTag(), 600);
  message.tag = 601;
  machine()->bsmIs(make(message));
  EXPECT_EQ(machine()->lastBsm()->fragmentTag(), 601);
  EXPECT_EQ(sent(), before);
  EXPECT_EQ(context.traced("Not Forwarding bootstrap message since noForward bit is set"), 2);
}

TEST_F(CandidateElection, SameMessageTwiceIsHandledOnce) {
  toPending();
  Ptr<BootstrapMessage> message = make(superior());
  machine()->bsmIs(message);
  engine.runTo(30);
  machine()->bsmIs(message);
  EXPECT_EQ(show(), "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500");
  EXPECT_EQ(sent(), 1u);
  machine()->bsmIs(make(superior()));
  EXPECT_EQ(engine.since(machine()->zetBsTimer()->timeMin()), 160);
}

TEST_F(CandidateElection, TakingTheMessageBackIsNoMessage) {
  toCandidate();
  std::string before = show();
  machine()->bsmDel();
  EXPECT_EQ(show(), before);
  EXPECT_EQ(sent(), 1u);
}

// Fragments of the kept message -----------------------------------------------------------------------

Bsm fragmentWithTag(Zet::U16 tag, bool forward = true) {
  Bsm message = superior();
  message.groups = {{globalZone, {{"203.0.113.2"}}, 0, 2, 1}};
  message.tag = tag;
  message.forward = forward;
  return message;
}

TEST_F(CandidateElection, KeepsTheFragmentsOfTheLastMessageAndDropsFormerOnes) {
  toPending();
  hear(fragmentWithTag(7));
  ASSERT_TRUE(machine()->lastBsmFragments());
  EXPECT_EQ(machine()->lastBsmFragments(), engine.root->bsmRxFragments(7));
  hear(fragmentWithTag(7));
  EXPECT_EQ(machine()->lastBsmFragments(), engine.root->bsmRxFragments(7));
  EXPECT_EQ(context.tracedPrefix("Removing saved fragments"), 0);
  hear(fragmentWithTag(8));
  EXPECT_FALSE(engine.root->bsmRxFragments(7));
  EXPECT_EQ(machine()->lastBsmFragments(), engine.root->bsmRxFragments(8));
  EXPECT_EQ(context.traced("Removing saved fragments related to tag 7"), 1);
  hear(superior());
  EXPECT_FALSE(engine.root->bsmRxFragments(8));
  EXPECT_FALSE(machine()->lastBsmFragments());
}

TEST_F(CandidateElection, MessagesThatAreNotKeptOrNotPreferredLeaveTheKeptFragments) {
  toPending();
  hear(fragmentWithTag(7));
  machine()->bsmIs(make(fragmentWithTag(8, false)));
  EXPECT_TRUE(engine.root->bsmRxFragments(7));
  EXPECT_TRUE(engine.root->bsmRxFragments(8));
  EXPECT_EQ(machine()->lastBsmFragments(), engine.root->bsmRxFragments(7));
  hear(inferior());
  hear(inferior());
  EXPECT_EQ(machine()->lastBsmFragments(), engine.root->bsmRxFragments(7));
}

// The timer of the elected ----------------------------------------------------------------------------

TEST_F(CandidateElection, ElectedWithoutRpsSendsEveryTenSecondsAndThenByItsPeriod) {
  toElected();
  engine.runTo(36);
  EXPECT_EQ(sent(), 4u);  // 5, 15, 25, 35
  putRp("203.0.113.1");
  engine.runTo(104);
  EXPECT_EQ(sent(), 5u);  // 45
  engine.runTo(105);
  EXPECT_EQ(sent(), 6u);
}

TEST_F(CandidateElection, StatusWithoutRangesAndStatusWithoutSetAreEmptyRpSets) {
  engine.status->crpStatusIs(prefix(globalZone));
  toElected();
  EXPECT_EQ(engine.since(machine()->zetBsTimer()->timeMin()), 15);
  engine.status->crpStatus(prefix(globalZone))->statusIs("");
  engine.runTo(15);
  EXPECT_EQ(engine.since(machine()->zetBsTimer()->timeMin()), 25);
}

/// Fills the RP set as soon as the zone has a BSR.
class Advertiser : public Bsr::Status::NotifieeConst {
 public:
  explicit Advertiser(CandidateTest& test) : test_(test) {}
  void onBootstrapRouter(Lanet::IpGenPrefix const&) override { test_.putRp("203.0.113.1"); }

 private:
  CandidateTest& test_;
};

TEST_F(CandidateElection, TakeoverWithRpsAtOnceGoesByItsPeriod) {
  auto advertiser = Zet::make<Advertiser>(*this);
  advertiser->notifierIs(engine.status);
  toElected();
  EXPECT_EQ(lastSent(),
            "forward tag 1 bsr 10.0.0.5 priority 10 mask 30 | 224.0.0.0/4 flags 0 count 1 frag 1 "
            "203.0.113.1/1000/7");
  EXPECT_EQ(engine.since(machine()->zetBsTimer()->timeMin()), 65);
  EXPECT_EQ(engine.since(engine.elected(globalZone)->expiryTime()), 65);
}

TEST_F(CandidateElection, ElectedTakesUpItsConfigurationAnewAtEachExpiry) {
  toElected();
  machine()->storedBsr()->priorityIs(3);
  engine.runTo(15);
  EXPECT_EQ(machine()->storedBsr()->priority(), 10);
}

// Invariants ------------------------------------------------------------------------------------------

using CandidateDeathTest = CandidateElection;

TEST_F(CandidateDeathTest, MachineThatRunsHasAState) {
  toPending();
  machine()->stateIs(Bsr::BsrCandidateState::noInfoBsr);
  EXPECT_DEATH(machine()->handleBsrTimerExpiry(), "0 && \"Invalid Candidate BSR state\"");
  EXPECT_DEATH(hear(inferior()), "0 && \"Invalid Candidate BSR state\"");
}

TEST_F(CandidateElection, PreferredMessageLeadsOutOfAnyState) {
  toPending();
  machine()->stateIs(Bsr::BsrCandidateState::noInfoBsr);
  hear(superior());
  EXPECT_EQ(machine()->state(), Bsr::BsrCandidateState::cBsr);
}

TEST_F(CandidateDeathTest, ElectedCandidateIsInTheElectedState) {
  toPending();
  candidate()->electedIs(true);
  EXPECT_DEATH(candidate()->priorityIs(11), "bsrCandidateSm\\(\\)->state\\(\\) == eBsr\\(\\)");
  EXPECT_DEATH(candidate()->addressIs(addr("10.0.0.6")), "bsrCandidateSm\\(\\)->state\\(\\) == eBsr\\(\\)");
  EXPECT_DEATH(candidate()->hashMaskLenIs(20), "bsrCandidateSm\\(\\)->state\\(\\) == eBsr\\(\\)");
}

TEST_F(CandidateDeathTest, DelayIsOneOfIpv4) {
  toPending();
  Ptr<Bsr::BsrCandidateSm> held = machine();
  engine.status->afIs(Lanet::AddressFamily::unset);
  EXPECT_DEATH(held->bs_rand_override(), "0 && \"IPV6 not supported.\"");
}

// The state that is shown -----------------------------------------------------------------------------

TEST_F(CandidateElection, ShownStateIsNotKeptUpByTheTransitions) {
  toElected();
  hear(superior());
  EXPECT_EQ(candidate()->state(), Bsr::BsrCandidateState::noInfoBsr);
  machine()->stateIs(Bsr::BsrCandidateState::eBsr);
  EXPECT_EQ(candidate()->state(), Bsr::BsrCandidateState::noInfoBsr);
}

TEST_F(CandidateElection, WriteOfTheStateByNameIsShown) {
  toPending();
  std::string before = show();
  Bsr::BsrCandidateSm::GenericIf_ byName;
  Ptr<Bsr::BsrCandidateSm> written = machine();
  byName.write(*written, "state", "'cBsr'");
  EXPECT_EQ(candidate()->state(), Bsr::BsrCandidateState::cBsr);
  byName.write(*written, "state", "'pBsr'");
  EXPECT_EQ(candidate()->state(), Bsr::BsrCandidateState::pBsr);
  EXPECT_EQ(show(), before);
}

TEST_F(CandidateElection, WriteOfTheStateByNameNeedsNoCandidate) {
  Ptr<Bsr::BsrCandidateSm> alone =
      Bsr::bsrCandidateSmFactory(prefix(globalZone), engine.status, engine.wheel, engine.root.ptr());
  ASSERT_FALSE(alone->candidate());
  Bsr::BsrCandidateSm::GenericIf_().write(*alone, "state", "'cBsr'");
  EXPECT_EQ(alone->state(), Bsr::BsrCandidateState::cBsr);
}

}  // namespace
}  // namespace test
