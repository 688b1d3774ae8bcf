#include "host/Observer.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/BsrCandidateSm.h"
#include "tests/support/Engine.h"
#include "tests/support/Messages.h"

namespace pimbsr::host {
namespace {

using test::addr;
using test::Bsm;
using test::prefix;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::string show(BsrView const& bsr) {
  std::ostringstream out;
  out << bsr.address << '/' << bsr.priority << '/' << bsr.hashMaskLen;
  return out.str();
}

std::string show(RpView const& rp) {
  std::ostringstream out;
  out << rp.range << ' ' << rp.address << '/' << rp.priority << '/' << rp.holdTime;
  if (rp.mode == Routing::Pim::Mode::bidir) out << " bidir";
  return out.str();
}

/// Writes each change down as one line: kind, zone, new value, and after "was" the old one.
class Listener final : public ChangeSink {
 public:
  void onChange(Change const& change) override {
    static constexpr char const* names[] = {"elected", "changed", "lost",    "added",    "updated",
                                            "kept",    "removed", "expired", "forgotten"};
    std::ostringstream out;
    out << names[static_cast<int>(change.kind)] << ' ' << change.zone;
    if (!change.bsr.address.isEmpty()) out << ": " << show(change.bsr);
    if (!change.formerBsr.address.isEmpty()) out << " was " << show(change.formerBsr);
    if (!change.rp.address.isEmpty()) out << ": " << show(change.rp);
    if (!change.formerRp.address.isEmpty()) out << " was " << show(change.formerRp);
    heard.push_back(out.str());
  }

  std::vector<std::string> take() { return std::exchange(heard, {}); }

  std::vector<std::string> heard;
};

/// What one test says most often: the global zone with one RP.
Bsm oneRp(test::Rp const& rp = {"203.0.113.1"}) {
  return {.groups = {{.prefix = "224.0.0.0/4", .rps = {rp}}}};
}

Bsm scopedRp(test::Rp const& rp = {"203.0.113.1"}) {
  return {.groups = {{.prefix = "239.255.0.0/16", .rps = {rp}, .flags = test::scopedFlag}}};
}

class ObserverTest : public test::EngineTest {
 protected:
  ObserverTest() { observe(); }

  void observe() { observer = std::make_unique<Observer>(engine.status, engine.root, listener); }

  /// Hands in a message as a host does, and gives the changes that were reported.
  std::vector<std::string> receive(Bsm const& message) {
    observer->messageInHand();
    engine.receive(message);
    observer->flush();
    return listener.take();
  }
  std::vector<std::string> runTo(double seconds) {
    engine.runTo(seconds);
    observer->flush();
    return listener.take();
  }

  Listener listener;
  std::unique_ptr<Observer> observer;
};

TEST_F(ObserverTest, FirstMessageOfAZoneElectsItsBsrAndAddsItsRps) {
  Bsm message = oneRp({"203.0.113.1", 150, 10});
  message.groups[0].rps.push_back({"203.0.113.2", 90, 20});
  EXPECT_THAT(receive(message), UnorderedElementsAre("elected 224.0.0.0/4: 10.0.0.1/10/30",
                                                     "added 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/10/150",
                                                     "added 224.0.0.0/4: 224.0.0.0/4 203.0.113.2/20/90"));
}

TEST_F(ObserverTest, ChangesAreReportedWithinTheMessageInTheirOrder) {
  observer->messageInHand();
  engine.receive(oneRp());
  EXPECT_THAT(listener.heard, ElementsAre("elected 224.0.0.0/4: 10.0.0.1/10/30",
                                          "added 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, RenewalIsNoChange) {
  receive(oneRp());
  engine.runTo(60);
  EXPECT_THAT(receive(oneRp()), IsEmpty());
}

TEST_F(ObserverTest, NewBsrClearsTheSetAndBuildsItAnew) {
  receive(oneRp());
  Bsm better = oneRp();
  better.bsr = "10.0.0.2";
  better.priority = 20;
  EXPECT_THAT(receive(better), ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150",
                                           "changed 224.0.0.0/4: 10.0.0.2/20/30 was 10.0.0.1/10/30",
                                           "added 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, SameBsrWithAnotherPriorityOrMaskLengthHasChanged) {
  receive(oneRp());
  Bsm message = oneRp();
  message.priority = 11;
  EXPECT_THAT(receive(message), ElementsAre("changed 224.0.0.0/4: 10.0.0.1/11/30 was 10.0.0.1/10/30"));
  message.hashMaskLen = 24;
  EXPECT_THAT(receive(message), ElementsAre("changed 224.0.0.0/4: 10.0.0.1/11/24 was 10.0.0.1/11/30"));
}

TEST_F(ObserverTest, RpWithAnotherPriorityHoldtimeOrModeIsUpdated) {
  receive(oneRp());
  engine.runTo(1);
  EXPECT_THAT(receive(oneRp({"203.0.113.1", 150, 5})),
              ElementsAre("updated 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/5/150 was 224.0.0.0/4 "
                          "203.0.113.1/0/150"));
  EXPECT_THAT(receive(oneRp({"203.0.113.1", 90, 5})),
              ElementsAre("updated 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/5/90 was 224.0.0.0/4 "
                          "203.0.113.1/5/150"));
  Bsm bidir = oneRp({"203.0.113.1", 90, 5});
  bidir.groups[0].flags = test::bidirFlag;
  EXPECT_THAT(receive(bidir), ElementsAre("updated 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/5/90 bidir was "
                                          "224.0.0.0/4 203.0.113.1/5/90"));
}

TEST_F(ObserverTest, UpdateThatDoesNotMoveTheExpiryIsReportedByTheFlush) {
  receive(oneRp());
  observer->messageInHand();
  engine.receive(oneRp({"203.0.113.1", 150, 5}));
  EXPECT_THAT(listener.heard, IsEmpty()) << "the message came at the very time of the first";
  observer->flush();
  EXPECT_EQ(listener.take().size(), 1u);
}

TEST_F(ObserverTest, RpNamedWithHoldtimeZeroIsRemoved) {
  Bsm message = oneRp();
  message.groups[0].rps.push_back({"203.0.113.2"});
  receive(message);
  message.groups[0].rps[1].holdtime = 0;
  EXPECT_THAT(receive(message), ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.2/0/150"));
}

TEST_F(ObserverTest, LastRpOfARangeIsRemovedOnce) {
  receive(oneRp());
  EXPECT_THAT(receive(oneRp({"203.0.113.1", 0})),
              ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, RpThatIsNotNamedAgainExpires) {
  receive(oneRp({"203.0.113.1", 100}));
  EXPECT_THAT(runTo(99), IsEmpty());
  EXPECT_THAT(runTo(100), ElementsAre("expired 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/100"));
}

TEST_F(ObserverTest, RpWithdrawnBeforeALateHostServesItsTimerWasRemoved) {
  receive(oneRp({"203.0.113.1", 100}));
  context.nowIs(Zet::now() + 110);  // the timer is due and hasn't been served
  EXPECT_THAT(receive(oneRp({"203.0.113.1", 0})),
              ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/100"));
}

TEST_F(ObserverTest, RpThatGoesBeforeItsTimeWithoutAMessageWasRemoved) {
  receive(oneRp());
  engine.status->crpStatus(prefix("224.0.0.0/4"))->status()->crpSetDelAll();
  EXPECT_THAT(listener.take(), ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, MessageIsInHandNoLongerThanToTheFlush) {
  observer->messageInHand();
  engine.receive(oneRp({"203.0.113.1", 100}));
  observer->flush();
  listener.take();
  EXPECT_THAT(runTo(100), ElementsAre("expired 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/100"));
}

TEST_F(ObserverTest, BsrThatIsNotHeardIsLostAndItsRpsAreRenewedSilently) {
  receive(oneRp());
  EXPECT_THAT(runTo(130), ElementsAre("lost 224.0.0.0/4: 10.0.0.1/10/30"));
  EXPECT_THAT(runTo(279), IsEmpty());
  EXPECT_THAT(runTo(280), ElementsAre("expired 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, BsrThatComesBackIsElectedAgain) {
  receive(oneRp());
  runTo(130);
  EXPECT_THAT(receive(oneRp()), ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150",
                                            "elected 224.0.0.0/4: 10.0.0.1/10/30",
                                            "added 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
}

TEST_F(ObserverTest, ScopedZoneIsForgottenAndTheGlobalZoneIsNot) {
  receive(oneRp());
  receive(scopedRp());
  runTo(1429);
  EXPECT_THAT(runTo(1430), ElementsAre("forgotten 239.255.0.0/16"));
  EXPECT_THAT(runTo(9999), IsEmpty());
}

TEST_F(ObserverTest, RpsOutliveTheZoneThatIsForgotten) {
  receive(scopedRp({"203.0.113.1", 2000}));
  EXPECT_THAT(runTo(1430), ElementsAre("lost 239.255.0.0/16: 10.0.0.1/10/30", "forgotten 239.255.0.0/16"));
  EXPECT_THAT(runTo(2130), ElementsAre("expired 239.255.0.0/16: 239.255.0.0/16 203.0.113.1/0/2000"));
}

TEST_F(ObserverTest, ZoneThatGainsACandidateIsNotForgotten) {
  receive(scopedRp());
  ASSERT_TRUE(engine.follower("239.255.0.0/16"));
  engine.status->cbsrIs(prefix("239.255.0.0/16"));
  ASSERT_FALSE(engine.follower("239.255.0.0/16"));
  ASSERT_TRUE(engine.root->candidateSm(prefix("239.255.0.0/16")));
  observer->flush();
  EXPECT_THAT(listener.take(), testing::Not(testing::Contains("forgotten 239.255.0.0/16")));
}

TEST_F(ObserverTest, ZoneThatLosesACandidateIsNotForgottenWhileItsBsrIsKnown) {
  receive(scopedRp());
  engine.status->cbsrIs(prefix("239.255.0.0/16"));
  engine.status->cbsrDel(prefix("239.255.0.0/16"));
  ASSERT_FALSE(engine.root->candidateSm(prefix("239.255.0.0/16")));
  ASSERT_FALSE(engine.follower("239.255.0.0/16"));
  observer->flush();
  EXPECT_THAT(listener.take(), testing::Not(testing::Contains("forgotten 239.255.0.0/16")));
  engine.status->bootstrapRouterDel(prefix("239.255.0.0/16"));
  observer->flush();
  std::vector<std::string> changes = listener.take();
  EXPECT_THAT(changes, testing::Contains(testing::StartsWith("lost 239.255.0.0/16")));
  EXPECT_THAT(changes, testing::Contains("forgotten 239.255.0.0/16").Times(1));
}

TEST_F(ObserverTest, EarlierStateIsKnownAndItsChangesAreReported) {
  observer = nullptr;
  engine.receive(oneRp());
  observe();
  EXPECT_THAT(listener.take(), IsEmpty());
  EXPECT_THAT(receive(oneRp({"203.0.113.1", 0})),
              ElementsAre("removed 224.0.0.0/4: 224.0.0.0/4 203.0.113.1/0/150"));
  EXPECT_THAT(runTo(130), ElementsAre("lost 224.0.0.0/4: 10.0.0.1/10/30"));
}

TEST_F(ObserverTest, EntryWithoutItsExpiryIsReportedByTheFlush) {
  auto zone = prefix("239.255.0.0/16");
  auto rp = engine.status->crpStatusIs(zone)->statusIs("")->crpSetIs(zone)->rpIs(addr("203.0.113.1"));
  rp->priorityIs(7);
  EXPECT_THAT(listener.take(), IsEmpty());
  observer->flush();
  EXPECT_THAT(listener.take(), ElementsAre("added 239.255.0.0/16: 239.255.0.0/16 203.0.113.1/7/0"));
}

TEST_F(ObserverTest, BsrEntryIsReportedOnceItHasAnAddress) {
  auto entry = engine.status->bootstrapRouterIs(prefix("239.255.0.0/16"));
  entry->priorityIs(3);
  observer->flush();
  EXPECT_THAT(listener.take(), IsEmpty());
  entry->ipAddrIs(addr("10.0.0.9"));
  observer->flush();
  EXPECT_THAT(listener.take(), ElementsAre("elected 239.255.0.0/16: 10.0.0.9/3/128"));
}

TEST_F(ObserverTest, EntryRemovedBeforeItsReportIsNotReported) {
  auto zone = prefix("239.255.0.0/16");
  engine.status->bootstrapRouterIs(zone);
  engine.status->crpStatusIs(zone)->statusIs("")->crpSetIs(zone)->rpIs(addr("203.0.113.1"));
  engine.status->bootstrapRouterDel(zone);
  engine.status->crpStatusDel(zone);
  observer->flush();
  EXPECT_THAT(listener.take(), IsEmpty());
}

TEST_F(ObserverTest, SetThatIsReplacedIsFollowed) {
  auto zone = prefix("239.255.0.0/16");
  auto rps = engine.status->crpStatusIs(zone);
  rps->statusIs("old")->crpSetIs(zone)->rpIs(addr("203.0.113.1"));
  observer->flush();
  listener.take();
  rps->statusDel();
  rps->statusIs("new")->crpSetIs(zone)->rpIs(addr("203.0.113.2"))->expiresIs(Zet::now() + 1);
  EXPECT_THAT(listener.take(), ElementsAre("removed 239.255.0.0/16: 239.255.0.0/16 203.0.113.1/256/0",
                                           "added 239.255.0.0/16: 239.255.0.0/16 203.0.113.2/256/0"));
}

TEST_F(ObserverTest, MachinesMayGoBeforeTheirObserver) {
  receive(scopedRp());
  engine.stop();
  observer->flush();
  EXPECT_THAT(listener.take(), IsEmpty()) << "the end of the machines is no news of the zones";
}

TEST_F(ObserverTest, ObserverThatHasGoneHearsNothing) {
  observer = nullptr;
  engine.receive(oneRp());
  EXPECT_THAT(listener.heard, IsEmpty());
}

}  // namespace
}  // namespace pimbsr::host
