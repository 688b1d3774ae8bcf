#include "tests/protocol/CandidateSupport.h"

namespace test {
namespace {

using Zet::Ptr;

/// What the root machine does with the machines of zones in which this router is a candidate.
class RootCandidate : public CandidateTest {
 public:
  void remove(std::string const& zone = globalZone) { engine.status->cbsrDel(prefix(zone)); }
};

// Coming ----------------------------------------------------------------------------------------------

TEST_F(RootCandidate, EntryBringsAMachineThatWaitsForIt) {
  engine.status->cbsrIs(prefix(globalZone));
  ASSERT_TRUE(machine());
  EXPECT_FALSE(machine()->initialized());
  EXPECT_EQ(context.traced("Instantiated Candidate SM for zone 224.0.0.0/4"), 1);
}

TEST_F(RootCandidate, EntryOverAFollowerTakesItsPlaceAndItsBsr) {
  hear(superior());
  ASSERT_TRUE(engine.follower(globalZone));
  engine.runTo(10);
  toPending();
  EXPECT_FALSE(engine.follower(globalZone));
  int deleted = traceAt("Deleted 224.0.0.0/4 NonCandidate SM");
  EXPECT_LT(0, deleted);
  EXPECT_LT(deleted, traceAt("Instantiated Candidate SM for zone 224.0.0.0/4"));
  // The Bootstrap Timer of the follower is gone; the entry keeps the time that it wrote.
  EXPECT_EQ(show(), "pBsr timer 23 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps -");
}

TEST_F(RootCandidate, MessagesOfACandidatesZoneMakeNoFollower) {
  configure({}, orgZone);
  toPending();
  Bsm scoped = superior();
  scoped.groups = {{orgZone, {}, scopedFlag}};
  scoped.tag = 501;
  hear(scoped);
  EXPECT_EQ(show(orgZone), "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 501");
  EXPECT_EQ(show(), "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -");
  EXPECT_EQ(context.traced("Trigger Scoped Candidate SM Scope: 239.0.0.0/8"), 1);
  hear(superior());
  EXPECT_EQ(show(), "cBsr timer 130 expiry 130 stored 10.0.0.9/20/24 status 10.0.0.9/20/24 keeps 500");
  EXPECT_EQ(context.traced("Trigger Global/Non-Scoped Candidate SM"), 1);
  EXPECT_EQ(engine.root->nonCandidateSmCount(), 0u);
}

TEST_F(RootCandidate, EachZoneHasOneMachine) {
  std::string const followed = "239.255.0.0/16";
  toPending();
  configure({}, orgZone);
  Bsm scoped = superior();
  scoped.groups = {{followed, {}, scopedFlag}};
  hear(scoped);
  EXPECT_EQ(engine.root->candidateSmCount(), 2u);
  EXPECT_EQ(engine.root->nonCandidateSmCount(), 1u);
  configure({}, followed);
  EXPECT_EQ(engine.root->candidateSmCount(), 3u);
  EXPECT_EQ(engine.root->nonCandidateSmCount(), 0u);
  remove(followed);
  EXPECT_FALSE(machine(followed));
  EXPECT_FALSE(engine.follower(followed));
}

TEST_F(RootCandidate, MachineThatIsThereStaysTheSame) {
  toPending();
  Ptr<Bsr::BsrCandidateSm> before = machine();
  engine.root->handleBsrCandidate();
  EXPECT_EQ(machine(), before);
  EXPECT_EQ(context.traced("Instantiated Candidate SM for zone 224.0.0.0/4"), 2);
}

// Going -----------------------------------------------------------------------------------------------

TEST_F(RootCandidate, ElectedThatIsRemovedSaysGoodbyeWithAllItsRps) {
  toElected();
  putRp("203.0.113.1");
  engine.runTo(7);
  Ptr<Bsr::BsrCandidate> entry = candidate();
  remove();
  EXPECT_EQ(sent(), 2u);
  EXPECT_EQ(lastSent(),
            "forward tag 2 bsr 10.0.0.5 priority 0 mask 30 | 224.0.0.0/4 flags 0 count 1 frag 1 "
            "203.0.113.1/1000/7");
  EXPECT_FALSE(entry->elected());
  EXPECT_FALSE(engine.elected(globalZone));
  EXPECT_FALSE(engine.status->crpStatus(prefix(globalZone)));
  EXPECT_FALSE(machine());
  EXPECT_FALSE(engine.follower(globalZone));
  EXPECT_EQ(context.traced("Deleted Candidate SM for zone 224.0.0.0/4"), 1);
  EXPECT_LT(traceAt(" ( shutdown=True )"), traceAt("We, 10.0.0.5 are no longer BSR"));
  engine.runTo(200);
  EXPECT_EQ(sent(), 2u);
  hear(superior());
  ASSERT_TRUE(engine.follower(globalZone));
  EXPECT_EQ(engine.elected(globalZone)->ipAddr(), addr("10.0.0.9"));
}

TEST_F(RootCandidate, EntryGoesBeforeTheRpSetSoThatWhatPimReadsStays) {
  toElected();
  putRp("203.0.113.1");
  remove();
  // A zone without BSR is no match of any range, and only a match is taken out of what PIM reads.
  EXPECT_EQ(engine.rpSet(globalZone), "");
  EXPECT_EQ(engine.mirror(), "224.0.0.0/4: 203.0.113.1/1000/7");
}

TEST_F(RootCandidate, CandidateThatIsRemovedLeavesTheBsrThatItFollowed) {
  Bsm message = superior();
  message.groups = {{globalZone, {{"203.0.113.2"}}}};
  toPending();
  hear(message);
  remove();
  EXPECT_EQ(sent(), 1u);
  EXPECT_FALSE(machine());
  ASSERT_TRUE(engine.elected(globalZone));
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.2/150/0");
  hear(inferior());
  ASSERT_TRUE(engine.follower(globalZone));
  EXPECT_EQ(engine.elected(globalZone)->ipAddr(), addr("10.0.0.9"));
}

TEST_F(RootCandidate, CandidateThatWaitsIsRemovedInSilence) {
  engine.status->cbsrIs(prefix(globalZone));
  remove();
  EXPECT_FALSE(machine());
  EXPECT_EQ(sent(), 0u);
}

TEST_F(RootCandidate, MachineThatIsDeletedAloneTakesTheEntryOfAnElected) {
  toElected();
  engine.root->candidateSmDel(prefix(globalZone));
  EXPECT_TRUE(candidate()->elected());
  EXPECT_FALSE(engine.elected(globalZone));
  EXPECT_EQ(context.traced("Deleted BSR for zone 224.0.0.0/4"), 1);
  EXPECT_EQ(sent(), 1u);
}

TEST_F(RootCandidate, MachineThatIsDeletedAloneLeavesTheEntryOfAnother) {
  toCandidate();
  engine.root->candidateSmDel(prefix(globalZone));
  EXPECT_TRUE(engine.elected(globalZone));
  EXPECT_EQ(context.tracedPrefix("Deleted BSR for zone"), 0);
}

TEST_F(RootCandidate, MachineThatStaysTakesNoEntry) {
  toElected();
  engine.root->handleCandidateSm(prefix(globalZone));
  EXPECT_TRUE(engine.elected(globalZone));
}

// The address family ----------------------------------------------------------------------------------

TEST_F(RootCandidate, FamilyTakenAwayAndGivenBackSendsNothing) {
  configure({}, orgZone);
  toElected();
  hear({.bsr = "10.0.0.9", .priority = 20, .groups = {{orgZone, {}, scopedFlag}}});
  std::size_t before = sent();
  engine.runTo(7);
  engine.status->afIs(Lanet::AddressFamily::unset);
  EXPECT_EQ(engine.root->candidateSmCount(), 0u);
  EXPECT_FALSE(engine.root->initialized());
  EXPECT_TRUE(candidate()->elected());
  EXPECT_FALSE(engine.elected(globalZone));
  EXPECT_TRUE(engine.elected(orgZone));
  engine.bsmStatus->rxBsmIs(make(superior()));
  engine.runTo(50);
  EXPECT_EQ(engine.root->candidateSmCount(), 0u);
  engine.status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_EQ(sent(), before);
  EXPECT_EQ(show(), "eBsr timer 110 expiry 110 elected stored 10.0.0.5/10/30 status 10.0.0.5/10/30 keeps -");
  EXPECT_EQ(show(orgZone), "pBsr timer 63 expiry 135 stored 10.0.0.9/20/30 status 10.0.0.9/20/30 keeps -");
  engine.runTo(110);
  EXPECT_GT(sent(), before);
}

TEST_F(RootCandidate, EntriesWaitForTheFamily) {
  restart([this] { engine.status->afIs(Lanet::AddressFamily::unset); });
  configure();
  EXPECT_FALSE(machine());
  remove();
  configure({}, orgZone);
  engine.status->afIs(Lanet::AddressFamily::ipv4);
  EXPECT_FALSE(machine());
  EXPECT_EQ(show(orgZone), "pBsr timer 5 expiry - stored 10.0.0.5/10/30 status - keeps -");
}

// The end ---------------------------------------------------------------------------------------------

TEST_F(RootCandidate, EndOfTheMachinesSendsNothing) {
  toElected();
  putRp("203.0.113.1");
  engine.stop();
  EXPECT_EQ(sent(), 1u);
  EXPECT_TRUE(candidate()->elected());
  EXPECT_EQ(engine.rpSet(globalZone), "224.0.0.0/4: 203.0.113.1/1000/7");
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

// A new neighbor --------------------------------------------------------------------------------------

TEST_F(RootCandidate, NewNeighborHearsOfFollowedZonesFirst) {
  char const* const followed[] = {"239.1.0.0/16", "239.2.0.0/16", "239.3.0.0/16", "239.4.0.0/16"};
  char const* const former[] = {"239.5.0.0/16", "239.6.0.0/16", "239.7.0.0/16", "239.8.0.0/16"};
  for (char const* zone : former) configure({}, zone);
  configure({}, "239.9.0.0/16");  // has sent nothing yet, and is passed over
  for (char const* zone : former) machine(zone)->doSendBsm(false);
  for (char const* zone : followed) hear({.groups = {{zone, {}, scopedFlag}}});
  std::size_t before = sent();
  Ptr<Routing::Pim::Intf> intf0 = engine.pimStatus->pimIntf(intf("eth0"));
  intf0->iAmDrIs(true);
  intf0->triggeredHelloCountInc(1);
  ASSERT_EQ(sent(), before + 8);
  for (std::size_t i = 0; i < 8; ++i) {
    std::string const& text = engine.outbox->sent[before + i].text;
    std::string const bsr = i < 4 ? "bsr 10.0.0.1 " : "bsr 10.0.0.5 ";
    EXPECT_TRUE(text.starts_with("no-forward ")) << text;
    EXPECT_NE(text.find(bsr), std::string::npos) << i << ": " << text;
  }
  EXPECT_EQ(context.traced("No last BSM available to send triggered BSM"), 1);
}

// The hash mask length --------------------------------------------------------------------------------

TEST_F(RootCandidate, MaskOfTheElectedIsWrittenOntoItsRps) {
  toElected();
  Ptr<Routing::Pim::RpCandidate> rps[] = {putRp("203.0.113.1"), putRp("203.0.113.2", "225.0.0.0/8")};
  candidate()->hashMaskLenIs(20);
  for (auto const& rp : rps) EXPECT_EQ(rp->hashMaskLen().value(), 20u);
  EXPECT_EQ(context.traced("Setting hash mask Len to 20 for RP 203.0.113.2 in rp candidate set for zone "
                           "224.0.0.0/4"),
            1);
  auto copy = engine.rpCandidateStatus->crpSet(prefix("225.0.0.0/8"))->rp(addr("203.0.113.2"));
  EXPECT_EQ(copy->hashMaskLen().value(), 20u);
  candidate()->hashMaskLenIs(128);
  for (auto const& rp : rps) EXPECT_EQ(rp->hashMaskLen().value(), 20u);
}

TEST_F(RootCandidate, MaskBeyondItsRangeIsRejectedAtTheFirstRp) {
  toElected();
  Ptr<Routing::Pim::RpCandidate> rp = putRp("203.0.113.1");
  candidate()->hashMaskLenIs(20);
  expectedExceptions = 1;
  candidate()->hashMaskLenIs(129);
  EXPECT_EQ(engine.elected(globalZone)->hashMaskLen(), 129u);
  EXPECT_EQ(rp->hashMaskLen().value(), 20u);
}

TEST_F(RootCandidate, MaskOfAnotherBsrStaysOffTheRps) {
  Bsm message = superior();
  message.groups = {{globalZone, {{"203.0.113.2"}}}};
  toPending();
  hear(message);
  context.traces.clear();
  engine.elected(globalZone)->hashMaskLenIs(8);
  EXPECT_EQ(engine.rp(globalZone, globalZone, "203.0.113.2")->hashMaskLen().value(), 24u);
  EXPECT_EQ(context.traced("Local CBSR configured for zone 224.0.0.0/4 is not elected BSR. Nothing to do"),
            1);
}

TEST_F(RootCandidate, MaskOfAZoneWithoutCandidateStaysOffTheRps) {
  Bsm message = superior();
  message.groups = {{globalZone, {{"203.0.113.2"}}}};
  hear(message);
  context.traces.clear();
  engine.elected(globalZone)->hashMaskLenIs(8);
  EXPECT_EQ(engine.rp(globalZone, globalZone, "203.0.113.2")->hashMaskLen().value(), 24u);
  EXPECT_EQ(context.traced("No local CBSR configured for zone 224.0.0.0/4. Nothing to do"), 1);
}

TEST_F(RootCandidate, MaskOfAnElectedWithoutRpsHasNowhereToGo) {
  toElected();
  context.traces.clear();
  candidate()->hashMaskLenIs(20);
  EXPECT_EQ(context.traced("No CRP have been populated for zone 224.0.0.0/4"), 1);
}

}  // namespace
}  // namespace test
