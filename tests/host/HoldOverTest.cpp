#include "host/HoldOver.h"

#include <gmock/gmock.h>

#include "host/Observer.h"
#include "host/RouterParts.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::Change;
using pimbsr::host::ChangeKind;
using pimbsr::host::CorrectionSettings;
using pimbsr::host::HoldOver;
using pimbsr::host::Observer;
using testing::ElementsAre;
using testing::IsEmpty;

/// Changes of RPs as "kept 203.0.113.1".
struct RpChanges : pimbsr::host::ChangeSink {
  void onChange(Change const& change) override {
    char const* kind = change.kind == ChangeKind::rpAdded     ? "added "
                       : change.kind == ChangeKind::rpKept    ? "kept "
                       : change.kind == ChangeKind::rpRemoved ? "removed "
                       : change.kind == ChangeKind::rpExpired ? "expired "
                                                              : nullptr;
    if (kind != nullptr) all.push_back(kind + std::string(change.rp.address.stringValue().view()));
  }
  std::vector<std::string> take() { return std::exchange(all, {}); }
  std::vector<std::string> all;
};

/// A follower of the BSRs 10.0.0.1 and 10.0.0.2, of which the second has the greater weight.
class HoldOverTest : public FilteredRouterTest {
 protected:
  HoldOverTest() {
    for (char const* bsr : {"10.0.0.2", "10.0.0.3"}) rpf->neighbors[addr(bsr)] = addr("192.0.2.1");
    router.correctionsAre({.holdOver = true});
    receiveHello("192.0.2.1");
  }
  /// A message of the BSR with the last byte `bsr`.
  static Bsm of(int bsr, std::vector<Group> const& groups) {
    return {.bsr = numbered("10.0.0.", bsr), .priority = static_cast<U8>(10 * bsr), .groups = groups};
  }
  static Adv advertisement(char const* rp, U16 holdtime) {
    return {.groups = {{"239.1.0.0/16"}},
            .rp = rp,
            .holdtime = holdtime,
            .bsr = "192.0.2.9",
            .source = "192.0.2.1"};
  }
  Reception take(Bsm const& message) {
    observer.messageInHand();
    Reception reception = offer(message);
    observer.flush();
    return reception;
  }
  void pass(double seconds) {
    run(seconds);
    observer.flush();
  }
  HoldOver const& kept() const { return partsOf(router).correctors->holdOver(); }

  Group const twoRps{"239.1.0.0/16", {{"203.0.113.1", 100}, {"203.0.113.2", 60}}};
  Group const otherRp{"239.1.0.0/16", {{"203.0.113.3"}}};
  RpChanges changes;
  Observer observer{router, changes};
};

TEST_F(HoldOverTest, RpsOfTheFormerBsrStayUntilTheNewOneNamesTheirRange) {
  take(of(1, {twoRps, {"239.2.0.0/16", {{"203.0.113.9"}}}}));
  changes.take();
  take(of(2, {}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  EXPECT_EQ(kept().count(), 3u);
  EXPECT_EQ(changes.take().size(), 3u);
  take(of(2, {{"239.1.0.0/16", {}}}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2")) << "named without an RP";
  take(of(2, {otherRp}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.3"));
  EXPECT_THAT(read("239.2.0.0/16"), ElementsAre("203.0.113.9")) << "not named yet";
  EXPECT_THAT(changes.take(), ElementsAre("added 203.0.113.3", "removed 203.0.113.1", "removed 203.0.113.2"));
  EXPECT_EQ(kept().count(), 1u);
}

TEST_F(HoldOverTest, TheMessageThatChangesTheBsrMayNameTheRangeItself) {
  take(of(1, {twoRps}));
  changes.take();
  take(of(2, {{"239.1.0.0/16", {{"203.0.113.2"}, {"203.0.113.3"}}}}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.2", "203.0.113.3"));
  EXPECT_EQ(kept().count(), 0u);
}

TEST_F(HoldOverTest, AKeptRpEndsWithItsHoldtime) {
  take(of(1, {twoRps}));
  run(10);
  take(of(2, {}));
  changes.take();
  pass(49);
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  pass(2);
  EXPECT_THAT(read(), ElementsAre("203.0.113.1"));
  pass(40);
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_FALSE(router.rpCandidateStatus()->crpSet(prefix("239.1.0.0/16")))
      << "the range goes with its last RP";
  EXPECT_THAT(changes.take(), ElementsAre("expired 203.0.113.2", "expired 203.0.113.1"));
}

TEST_F(HoldOverTest, ARangeWithoutKeptRpsGoesThoughAWiderZoneHasIt) {
  Group const zone{"239.0.0.0/8", {}, scopedFlag};
  take(of(1, {zone, twoRps}));
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.9", 1000}}}}));
  take(of(2, {zone}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  pass(101);
  EXPECT_FALSE(router.rpCandidateStatus()->crpSet(prefix("239.1.0.0/16")))
      << "the zone has a BSR, so that PIM doesn't read the range of the wider one";
}

TEST_F(HoldOverTest, AnRpThatAWiderZoneHasTooIsKept) {
  Group const zone{"239.0.0.0/8", {}, scopedFlag};
  take(of(1, {zone, twoRps}));
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 1000}}}}));
  take(of(2, {zone}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  take(of(2, {zone, otherRp}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.3"));
}

TEST_F(HoldOverTest, AnElectionOfAWiderZoneTakesNoKeptRpOfANarrowerOne) {
  Group const zone{"239.0.0.0/8", {}, scopedFlag};
  take(of(1, {zone, twoRps}));
  take(of(2, {zone}));
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 1000}}}}));
  take(of(2, {}));
  EXPECT_EQ(kept().keptZone(prefix("239.1.0.0/16")), prefix("239.0.0.0/8"));
  take(of(2, {zone, otherRp}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.3"));
  EXPECT_EQ(kept().count(), 0u);
}

TEST_F(HoldOverTest, TurnedOffAndOnItDoesNotCountFromFormerMessages) {
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 150}}}}));
  router.correctionsAre({});
  run(100);
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 150}}}}));
  router.correctionsAre({.holdOver = true});
  take(of(2, {}));
  pass(120);
  EXPECT_THAT(read(), ElementsAre("203.0.113.1"));
}

TEST_F(HoldOverTest, AKeptRpThatIsWithdrawnGoesAtOnceAndTheOthersStay) {
  take(of(1, {twoRps}));
  take(of(2, {}));
  take(of(2, {{"239.1.0.0/16", {{"203.0.113.1", 0}}}}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.2"));
}

TEST_F(HoldOverTest, ARangeInFragmentsIsSwitchedByTheLastOfThem) {
  take(of(1, {twoRps}));
  Bsm half = of(2, {{"239.1.0.0/16", {{"203.0.113.3"}}, 0, 2, 1}});
  take(half);
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  half.groups[0].rps = {{"203.0.113.4"}};
  take(half);
  EXPECT_THAT(read(), ElementsAre("203.0.113.3", "203.0.113.4"));
}

TEST_F(HoldOverTest, TheBsrThatComesAfterALossOfTheFormerTakesOverAlike) {
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 300}}}}));
  run(140);
  ASSERT_FALSE(router.status()->bootstrapRouter(prefix("224.0.0.0/4")));
  take(of(1, {}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1"));
  take(of(1, {otherRp}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.3")) << "no dead RP beside the new ones";
}

/// A follower renews the RPs of a BSR that it has lost, until the next one comes.
TEST_F(HoldOverTest, AnRpOfALostBsrEndsByTheLastMessageThatNamedIt) {
  struct Case {
    U16 holdtime;
    int comes, ends;  ///< seconds after that message: the next BSR's first one, and the end of the RP
  };
  for (Case const& c : std::initializer_list<Case>{{300, 140, 300}, {150, 140, 225}, {200, 200, 285}}) {
    SCOPED_TRACE(c.comes);
    take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", c.holdtime}}}}));
    pass(c.comes);
    ASSERT_FALSE(router.status()->bootstrapRouter(prefix("224.0.0.0/4")));
    take(of(2, {}));
    pass(c.ends - c.comes - 1);
    EXPECT_THAT(read(), ElementsAre("203.0.113.1"));
    pass(2);
    EXPECT_THAT(read(), IsEmpty());
    pass(400);
  }
}

TEST_F(HoldOverTest, KeptRpsOfAFormerRunAreKeptOn) {
  for (bool isOn : {true, false}) {
    Ptr<Bsr::Status> status = Bsr::statusFactory("bsr");
    status->afIs(Lanet::AddressFamily::ipv4);
    auto pimSet = Routing::Pim::rpCandidateStatusFactory("bsr");
    Ptr<Routing::Pim::RpCandidate> rp = pimSet->crpSetIs(prefix("239.1.0.0/16"))->rpIs(addr("203.0.113.1"));
    rp->expiresIs(context.now() + 40);
    Router again(
        context, port,
        {.status = status, .rpCandidateStatus = pimSet, .rpf = rpf, .corrections = {.holdOver = isOn}});
    EXPECT_EQ(partsOf(again).correctors->holdOver().keeps(prefix("239.1.0.0/16")), isOn);
    context.nowIs(context.now() + 41);
    again.advance();
    EXPECT_EQ(pimSet->crpSet(prefix("239.1.0.0/16")) == nullptr, isOn) << "it is swept within a minute";
  }
}

TEST_F(HoldOverTest, ACandidateThatFollowsSwitchesAsAFollowerDoes) {
  router.candidateBsrIs(prefix("224.0.0.0/4"),
                        {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = 1});
  take(of(1, {twoRps}));
  take(of(2, {}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.2"));
  EXPECT_EQ(kept().count(), 2u);
  take(of(2, {otherRp}));
  EXPECT_THAT(read(), ElementsAre("203.0.113.3"));
}

TEST_F(HoldOverTest, ACandidateTakesTheWithdrawalsOfABsrThatEnds) {
  router.correctionsAre({.holdOver = true, .loweredBsr = true});
  router.candidateBsrIs(prefix("224.0.0.0/4"),
                        {.address = addr("192.0.2.9"), .intfId = intf("eth0"), .priority = 1});
  take(of(2, {twoRps}));
  Bsm last = of(2, {{"239.1.0.0/16", {{"203.0.113.1", 0}}}});
  last.priority = 0;
  take(last);
  EXPECT_THAT(read(), ElementsAre("203.0.113.2"));
  run(30);
  EXPECT_THAT(read(), ElementsAre("203.0.113.2")) << "kept once the candidate is elected";
}

TEST_F(HoldOverTest, ANewBsrItselfSwitchesWithItsOwnMessage) {
  receiveHello("192.0.2.1");
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 40000}}}}));
  lead();
  EXPECT_THAT(read(), ElementsAre("203.0.113.1"));
  run(1);
  EXPECT_EQ(reasonFor(advertisement("203.0.113.3", 150), {"192.0.2.1", "192.0.2.9"}), "");
  EXPECT_THAT(read(), ElementsAre("203.0.113.1", "203.0.113.3"));
  run(61);
  EXPECT_THAT(read(), ElementsAre("203.0.113.3"));
}

TEST_F(HoldOverTest, ACandidateRpWithdrawsItselfFromANewBsrThatHasNotHeardOfIt) {
  take(of(1, {{"239.1.0.0/16", {{"203.0.113.1", 40000}}}}));
  lead();
  EXPECT_EQ(reasonFor(advertisement("203.0.113.1", 0), {"192.0.2.1", "192.0.2.9"}), "");
  EXPECT_THAT(read(), IsEmpty());
}

// What is removed otherwise -----------------------------------------------------------------------------

TEST_F(HoldOverTest, ABorderRemovesWhatIsKeptOfItsZone) {
  router.correctionsAre({.holdOver = true, .forgetLeak = true});
  Group const zone{"239.0.0.0/8", {}, scopedFlag};
  take(of(1, {zone, twoRps}));
  take(of(2, {zone}));
  ASSERT_EQ(kept().count(), 2u);
  router.borderIs(prefix("239.0.0.0/8"), intf("eth0"), true);
  run(1);
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_EQ(kept().count(), 0u);
}

TEST_F(HoldOverTest, TurnedOffNothingIsKept) {
  take(of(1, {twoRps}));
  take(of(2, {}));
  router.correctionsAre({});
  EXPECT_THAT(read(), IsEmpty());
  take(of(2, {twoRps}));
  take(of(3, {}));
  EXPECT_THAT(read(), IsEmpty());
}

// The bound ---------------------------------------------------------------------------------------------

TEST_F(HoldOverTest, KeptRpsCountInTheBoundAndGiveWay) {
  router.ingressSettingsIs({.rps = 5});
  for (int round = 1; round <= 20; ++round) {
    std::string range = "239." + std::to_string(round) + ".0.0/16";
    Bsm message{.bsr = round % 2 == 0 ? "10.0.0.1" : "10.0.0.2",
                .priority = static_cast<U8>(10 + round),
                .groups = {{range, someRps(1, 3)}}};
    take(message);
    take(message);
    EXPECT_EQ(read(range).size(), 3u) << "those of the present BSR are taken";
    EXPECT_LE(kept().count(), 2u);
  }
}

TEST_F(HoldOverTest, AFullSetPassesFromOneBsrToTheNext) {
  router.ingressSettingsIs({.rps = 5});
  take(of(1, {{"239.1.0.0/16", someRps(1, 5)}}));
  take(of(2, {}));
  EXPECT_EQ(kept().count(), 5u);
  EXPECT_EQ(take(of(2, {{"239.1.0.0/16", someRps(1, 5)}})).reason, "");
  EXPECT_EQ(read().size(), 5u);
  EXPECT_EQ(kept().count(), 0u);
}

}  // namespace
}  // namespace test
