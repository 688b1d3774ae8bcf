// Elections with corrections: what a lowered, a lost and a changed BSR or candidacy leads to.
#include <initializer_list>
#include <string>

#include "host/Corrections.h"
#include "host/RouterParts.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::allCorrections;
using pimbsr::host::CorrectionSettings;
using Zet::Ptr;

/// A message of priority `priority` of the BSR with the last byte `bsr`.
Bsm ofBsr(int bsr, U8 priority) {
  return {
      .bsr = numbered("10.0.0.", bsr), .priority = priority, .groups = {{"239.1.0.0/16", {{"10.1.0.1"}}}}};
}

/// A follower with a neighbor, which is the way to the BSRs 10.0.0.1 and 10.0.0.2.
class ElectionTest : public FilteredRouterTest {
 protected:
  ElectionTest() {
    router.correctionsAre(allCorrections);
    rpf->neighbors[addr("10.0.0.2")] = addr("192.0.2.1");
    router.routeIs(prefix("192.0.2.9/32").v4Prefix(), {.type = Slosh::Fib::RouteType::local});
    receiveHello("192.0.2.1");
  }
  /// "BSR/priority" of all groups, or "none".
  std::string elected() const {
    Ptr<Bsr::ElectedBsrStatus> entry = router.status()->bootstrapRouter(allGroups);
    if (!entry) return "none";
    return std::string(entry->ipAddr().stringValue().view()) + "/" + std::to_string(entry->priority());
  }
  Zet::U64 acts(bool CorrectionSettings::*isOn) const { return router.corrections().of(isOn).acts(); }
  bool reads(char const* rp) const {
    Ptr<Routing::Pim::RpCandidateSet> range = router.rpCandidateStatus()->crpSet(prefix("239.1.0.0/16"));
    return range && range->rp(addr(rp));
  }
  void candidateIs(U16 priority) {
    router.candidateBsrIs(allGroups,
                          {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = priority});
  }

  Lanet::IpGenPrefix const allGroups = prefix("224.0.0.0/4");
};

TEST_F(ElectionTest, AFollowerTakesTheMessageOfItsBsrWhosePriorityIsLower) {
  offer(ofBsr(1, 100));
  int sends = port.sends;
  offer(ofBsr(1, 0));
  EXPECT_EQ(elected(), "10.0.0.1/0");
  EXPECT_GT(port.sends, sends) << "it is forwarded";
  EXPECT_TRUE(reads("10.1.0.1"));
  EXPECT_EQ(acts(&CorrectionSettings::loweredBsr), 1u);
  offer(ofBsr(1, 0));
  EXPECT_EQ(acts(&CorrectionSettings::loweredBsr), 1u) << "an equal weight is the machine's own task";
  offer(ofBsr(2, 10));
  EXPECT_EQ(elected(), "10.0.0.2/10");
}

TEST_F(ElectionTest, AfterABsrThatHasEndedAnyOtherIsFollowed) {
  offer(ofBsr(2, 100));
  offer(ofBsr(2, 0));
  offer(ofBsr(1, 0));
  EXPECT_EQ(elected(), "10.0.0.1/0") << "of the same priority, and of a lower address";
  EXPECT_TRUE(reads("10.1.0.1"));
  offer(ofBsr(2, 0));
  EXPECT_EQ(elected(), "10.0.0.2/0");
  offer(ofBsr(1, 0));
  EXPECT_EQ(elected(), "10.0.0.2/0") << "which has not ended";
}

TEST_F(ElectionTest, AFollowerIgnoresALowerMessageOfAnotherBsr) {
  offer(ofBsr(1, 100));
  offer(ofBsr(2, 10));
  EXPECT_EQ(elected(), "10.0.0.1/100");
  EXPECT_EQ(acts(&CorrectionSettings::loweredBsr), 0u);
}

TEST_F(ElectionTest, TurnedOffAFollowerIgnoresTheLowerMessageOfItsBsr) {
  router.correctionsAre({});
  offer(ofBsr(1, 100));
  offer(ofBsr(1, 0));
  offer(ofBsr(2, 10));
  EXPECT_EQ(elected(), "10.0.0.1/100");
}

TEST_F(ElectionTest, ACandidateWithoutABsrComparesWithItsPresentPriority) {
  for (bool isOn : {true, false}) {
    router.correctionsAre({.candidacyChanges = isOn});
    candidateIs(10);
    run(1);
    candidateIs(200);
    run(0);
    offer(ofBsr(1, 100));
    EXPECT_EQ(elected(), isOn ? "none" : "10.0.0.1/100");
    run(30);
    EXPECT_EQ(elected(), isOn ? "192.0.2.9/200" : "10.0.0.1/100");
    router.candidateBsrDel(allGroups);
    run(200);
  }
  EXPECT_EQ(acts(&CorrectionSettings::candidacyChanges), 1u);
}

// A BSR that ends -------------------------------------------------------------------------------------

/// A zone that gets no other BSR ends as soon as without the correction.
TEST_F(ElectionTest, TheLastMessageOfABsrDoesNotProlongIt) {
  offer(ofBsr(1, 100));
  run(50);
  Bsm last = ofBsr(1, 0);
  last.tag = 7;
  offer(last);
  offer(last);
  run(79);
  EXPECT_EQ(elected(), "10.0.0.1/0");
  run(2);
  EXPECT_EQ(elected(), "none");
}

TEST_F(ElectionTest, ABsrThatGoesOnWithPriority0IsRenewedByItsNextMessage) {
  offer(ofBsr(1, 100));
  for (U16 tag : {1, 2, 3}) {
    run(60);
    Bsm message = ofBsr(1, 0);
    message.tag = tag;
    offer(message);
  }
  run(129);
  EXPECT_EQ(elected(), "10.0.0.1/0");
  run(2);
  EXPECT_EQ(elected(), "none");
}

TEST_F(ElectionTest, APendingCandidateTakesTheWithdrawalsOfItsBsr) {
  candidateIs(10);
  run(1);
  offer(ofBsr(1, 100));
  candidateIs(200);
  offer(ofBsr(1, 100));
  ASSERT_TRUE(reads("10.1.0.1"));
  Bsm withdrawal = ofBsr(1, 100);
  withdrawal.groups = {{"239.1.0.0/16", {{"10.1.0.1", 0}}}};
  offer(withdrawal);
  EXPECT_FALSE(reads("10.1.0.1"));
  run(30);
  EXPECT_EQ(elected(), "192.0.2.9/200");
  EXPECT_FALSE(reads("10.1.0.1"));
}

/// The BSR has one tag for all of its messages.
TEST_F(ElectionTest, ABsrThatHasEndedAndReturnsIsRenewedByEachOfItsMessages) {
  offer(ofBsr(1, 100));
  offer(ofBsr(1, 0));
  for (int i = 0; i < 5; ++i) {
    run(60);
    offer(ofBsr(1, 100));
    run(0);
    EXPECT_EQ(elected(), "10.0.0.1/100");
  }
}

/// Its message may look like a fragment of the last one.
TEST_F(ElectionTest, ABsrThatReturnsAtOnceIsRenewedByItsMessage) {
  offer(ofBsr(1, 100));
  run(100);
  offer(ofBsr(1, 0));
  run(5);
  offer(ofBsr(1, 100));
  run(129);
  EXPECT_EQ(elected(), "10.0.0.1/100");
  run(2);
  EXPECT_EQ(elected(), "none");
}

// Candidates ------------------------------------------------------------------------------------------

/// The candidate has priority 50, and its BSR 100 is gone or lives on.
TEST_F(ElectionTest, APendingCandidateThatHasLostItsBsrFollowsWhoOutweighsIt) {
  struct Case {
    bool isOn;
    int waits;  ///< seconds since the BSR's last message
    U8 other;   ///< priority of the next claim
    char const* follows;
  };
  for (Case const& c : std::initializer_list<Case>{{true, 131, 60, "10.0.0.2/60"},
                                                   {true, 131, 40, "10.0.0.1/100"},
                                                   {true, 100, 60, "10.0.0.1/100"},
                                                   {false, 131, 60, "10.0.0.1/100"}}) {
    SCOPED_TRACE(testing::Message() << c.isOn << " " << c.waits << " " << int{c.other});
    router.correctionsAre({.electedOnly = c.isOn});
    candidateIs(50);
    run(1);
    offer(ofBsr(1, 100));
    run(c.waits);
    auto before = acts(&CorrectionSettings::electedOnly);
    offer(ofBsr(2, c.other));
    EXPECT_EQ(elected(), c.follows);
    bool isFollowed = std::string(c.follows) == "10.0.0.2/60";
    EXPECT_EQ(acts(&CorrectionSettings::electedOnly) - before, isFollowed || c.waits == 100 ? 1u : 0u);
    router.candidateBsrDel(allGroups);
    run(300);
  }
}

TEST_F(ElectionTest, ACandidateWithoutAnAddressTakesPartInNoElection) {
  router.correctionsAre({.electedOnly = true, .loweredBsr = true});
  offer(ofBsr(1, 100));
  router.status()->cbsrIs(allGroups)->priorityIs(50);
  ASSERT_TRUE(router.status()->cbsr(allGroups)->address().isEmpty());
  for (U8 priority : {100, 70, 0, 60}) {
    run(131);
    offer(ofBsr(priority == 60 ? 2 : 1, priority));
  }
  EXPECT_EQ(elected(), "10.0.0.1/100");
}

TEST_F(ElectionTest, ACandidateWhoseBsrHasEndedFollowsWhoOutweighsIt) {
  for (bool isOn : {true, false}) {
    router.correctionsAre({.loweredBsr = isOn});
    candidateIs(50);
    run(1);
    offer(ofBsr(1, 100));
    offer(ofBsr(1, 0));
    offer(ofBsr(2, 40));
    EXPECT_EQ(elected(), isOn ? "10.0.0.1/0" : "10.0.0.1/100") << "not one that it outweighs";
    offer(ofBsr(2, 60));
    EXPECT_EQ(elected(), isOn ? "10.0.0.2/60" : "10.0.0.1/100");
    router.candidateBsrDel(allGroups);
    run(300);
  }
}

/// A candidate of priority 0 whose address is lower than the BSR's.
TEST_F(ElectionTest, ACandidateDoesNotFollowTheFurtherFragmentsOfABsrThatHasEnded) {
  router.correctionsAre({.loweredBsr = true});
  candidateIs(0);
  run(1);
  Bsm last = ofBsr(1, 0);
  last.bsr = "192.0.2.20";
  rpf->neighbors[addr(last.bsr)] = addr("192.0.2.1");
  Bsm before = last;
  before.priority = 100;
  offer(before);
  offer(last);
  offer(last);
  run(30);
  EXPECT_EQ(elected(), "192.0.2.9/0");
}

TEST_F(ElectionTest, ACandidateFollowsALoweredBsrThatStillOutweighsIt) {
  router.correctionsAre({.electedOnly = true, .loweredBsr = true});
  candidateIs(50);
  run(1);
  offer(ofBsr(1, 100));
  offer(ofBsr(1, 70));
  EXPECT_EQ(elected(), "10.0.0.1/70") << "at once";
  offer(ofBsr(2, 60));
  EXPECT_EQ(elected(), "10.0.0.1/70") << "the lowered one is stronger than this";
  run(30);
  EXPECT_EQ(elected(), "10.0.0.1/70") << "it does not claim";
}

TEST_F(ElectionTest, APendingCandidateFollowsItsLostBsrThatReturnsWithALowerPriority) {
  struct Case {
    U8 priority;
    char const* follows;
  };
  for (Case const& c : {Case{60, "10.0.0.1/60"}, Case{40, "192.0.2.9/50"}, Case{0, "192.0.2.9/50"}}) {
    router.correctionsAre({.electedOnly = true});
    candidateIs(50);
    run(1);
    offer(ofBsr(1, 100));
    run(131);
    offer(ofBsr(1, c.priority));
    run(30);
    EXPECT_EQ(elected(), c.follows);
    router.candidateBsrDel(allGroups);
    run(300);
  }
}

TEST_F(ElectionTest, ACandidateWhoseBsrReturnsHasNotLostIt) {
  router.correctionsAre({.loweredBsr = true});
  candidateIs(50);
  run(1);
  for (U8 priority : {100, 0, 100}) offer(ofBsr(1, priority));
  offer(ofBsr(2, 40));
  ASSERT_EQ(partsOf(router).root->candidateSm(allGroups)->state(), Bsr::BsrCandidateState::pBsr);
  offer(ofBsr(2, 60));
  EXPECT_EQ(elected(), "10.0.0.1/100");
}

TEST_F(ElectionTest, ACandidateThatIsRaisedAboveALoweredBsrIsElected) {
  router.correctionsAre({.electedOnly = true, .loweredBsr = true});
  candidateIs(20);
  run(1);
  offer(ofBsr(1, 100));
  offer(ofBsr(1, 10));
  candidateIs(90);
  offer(ofBsr(2, 70));
  run(30);
  EXPECT_EQ(elected(), "192.0.2.9/90");
}

TEST_F(ElectionTest, AMessageThatTheGateDropsChangesNoElection) {
  router.correctionsAre({.electedOnly = true});
  candidateIs(50);
  run(1);
  offer(ofBsr(1, 100));
  run(131);
  Bsm dropped = ofBsr(2, 60);
  dropped.forward = false;
  offer(dropped);
  EXPECT_EQ(acts(&CorrectionSettings::electedOnly), 0u);
  EXPECT_EQ(partsOf(router).root->candidateSm(allGroups)->storedBsr()->priority(), 100u);
}

TEST_F(ElectionTest, TheBsrThatACandidateFollowedIsGivenUpAfterItsCandidacy) {
  for (bool isOn : {false, true}) {
    router.correctionsAre({.candidacyChanges = isOn});
    candidateIs(10);
    run(1);
    offer(ofBsr(1, 100));
    run(50);
    router.candidateBsrDel(allGroups);
    run(79);
    EXPECT_EQ(elected(), "10.0.0.1/100");
    run(2);
    EXPECT_EQ(elected(), isOn ? "none" : "10.0.0.1/100");
  }
  EXPECT_EQ(acts(&CorrectionSettings::candidacyChanges), 1u);
}

}  // namespace
}  // namespace test
