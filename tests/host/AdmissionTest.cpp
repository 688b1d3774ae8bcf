#include "host/Admission.h"

#include <string>
#include <vector>

#include "runtime/Trace.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using pimbsr::DropReason;
using pimbsr::host::Admission;

/// A router with one address of its own, which sends nowhere.
class OwnAddressPort : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<Zet::U8 const>) override { return true; }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return addr("192.0.2.9"); }
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override { return address == addr("192.0.2.9"); }
};

class AdmissionTest : public EngineTest {
 protected:
  DropReason validate(Bsm const& message) { return admission.validate(*make(message)); }
  /// Hands a message to the gate if it is admitted, as a router does.
  DropReason offer(Bsm const& message) {
    DropReason reason = validate(message);
    if (reason == DropReason::none) engine.receive(message);
    return reason;
  }

  OwnAddressPort port;
  Admission admission{*engine.root, port};
};

/// A record that names some of `announced` RPs of a range.
Group fragment(std::vector<std::string> const& addresses, int announced,
               std::string const& range = "224.0.0.0/4") {
  Group group{range, {}, 0, announced, static_cast<int>(addresses.size())};
  for (std::string const& address : addresses) group.rps.push_back({address});
  return group;
}

TEST_F(AdmissionTest, OrdinaryMessageIsAdmitted) {
  EXPECT_EQ(validate({.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}}), DropReason::none);
  EXPECT_EQ(validate({}), DropReason::none);
}

TEST_F(AdmissionTest, MessageFromAnOwnAddressIsDropped) {
  EXPECT_EQ(validate({.source = "192.0.2.9"}), DropReason::ownAddress);
}

TEST_F(AdmissionTest, HashMaskLengthAbove32IsDropped) {
  EXPECT_EQ(validate({.hashMaskLen = 32}), DropReason::none);
  EXPECT_EQ(validate({.hashMaskLen = 33}), DropReason::hashMaskLength);
}

TEST_F(AdmissionTest, HoldtimeAbove40958IsDroppedInAnyRecord) {
  EXPECT_EQ(validate({.groups = {{"224.0.0.0/4", {{"203.0.113.1", 40958}}}}}), DropReason::none);
  EXPECT_EQ(
      validate({.groups = {{"239.0.0.0/8", {{"203.0.113.2"}}}, {"224.0.0.0/4", {{"203.0.113.1", 40959}}}}}),
      DropReason::holdtime);
}

TEST_F(AdmissionTest, AdvertisementWithAHoldtimeAbove40958IsDropped) {
  auto advertisement = Zet::make<Routing::Pim::Packet::CrpAdvMessage>();
  advertisement->holdtimeIs(40958);
  EXPECT_EQ(admission.validate(*advertisement), DropReason::none);
  advertisement->holdtimeIs(40959);
  EXPECT_EQ(admission.validate(*advertisement), DropReason::holdtime);
}

TEST_F(AdmissionTest, OneRangeTwiceInAMessageCountsTogether) {
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.1"}, 2), fragment({"203.0.113.2"}, 2)}}),
            DropReason::none);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.1", "203.0.113.2"}, 3), fragment({"203.0.113.3"}, 2)}}),
            DropReason::fragmentOverflow);
}

TEST_F(AdmissionTest, MoreRpsThanTheStoreExpectsAreDropped) {
  EXPECT_EQ(offer({.groups = {fragment({"203.0.113.1", "203.0.113.2", "203.0.113.3"}, 4)}, .tag = 7}),
            DropReason::none);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.4", "203.0.113.5"}, 4)}, .tag = 7}),
            DropReason::fragmentOverflow);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.4", "203.0.113.5"}, 4)}, .tag = 8}), DropReason::none);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.4", "203.0.113.5"}, 4, "225.0.0.0/8")}, .tag = 7}),
            DropReason::none);
}

TEST_F(AdmissionTest, WhatTheStoreExpectsBoundsALargerAnnouncement) {
  EXPECT_EQ(offer({.groups = {fragment({"203.0.113.1"}, 2)}, .tag = 7}), DropReason::none);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.2", "203.0.113.3"}, 9)}, .tag = 7}),
            DropReason::fragmentOverflow);
}

TEST_F(AdmissionTest, KeptMessageOfAnotherZoneCountsAfterItsFragmentsAgedOut) {
  Group scope{"239.0.0.0/8", {}, scopedFlag};
  EXPECT_EQ(offer({.groups = {scope, fragment({"203.0.113.1", "203.0.113.2"}, 3)}, .tag = 7}),
            DropReason::none);
  engine.runTo(40);
  ASSERT_EQ(engine.root->bsmRxFragmentsCount(), 0u);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.3", "203.0.113.4"}, 5)}, .tag = 7}),
            DropReason::fragmentOverflow);
  EXPECT_EQ(validate({.groups = {fragment({"203.0.113.3"}, 5)}, .tag = 7}), DropReason::none);
}

TEST_F(AdmissionTest, RecordThatIsWholeInItselfNeverOverflows) {
  EXPECT_EQ(offer({.groups = {fragment({"203.0.113.1"}, 2)}, .tag = 7}), DropReason::none);
  EXPECT_EQ(
      validate({.groups = {{"224.0.0.0/4", {{"203.0.113.2"}, {"203.0.113.3"}, {"203.0.113.4"}}}}, .tag = 7}),
      DropReason::none);
}

TEST_F(AdmissionTest, EveryDropReasonHasANameAndASentence) {
  for (auto reason : {DropReason::ownAddress, DropReason::hashMaskLength, DropReason::holdtime,
                      DropReason::fragmentOverflow}) {
    EXPECT_FALSE(name(reason).empty());
    EXPECT_TRUE(sentence(reason).ends_with('.'));
  }
  EXPECT_TRUE(name(DropReason::none).empty());
}

// All small cases ---------------------------------------------------------------------------------------

/// One event of a small world: a message with a fragment of one range under one tag in one of two zones, or
/// time.
struct Event {
  bool scoped;
  std::vector<std::string> rps;
  int announced;
  double wait;
};

/// Every way to name one or two of three RPs out of two or three announced, in both zones; and the two waits
/// in which fragments age out and in which the Bootstrap Timers read the kept messages again.
std::vector<Event> allEvents() {
  std::string const a = "203.0.113.1", b = "203.0.113.2", c = "203.0.113.3";
  std::vector<Event> events = {{false, {}, 0, 40}, {false, {}, 0, 131}};
  for (bool scoped : {false, true}) {
    for (std::vector<std::string> rps : {std::vector{a}, {b}, {c}, {a, b}, {a, c}, {b, c}}) {
      if (rps.size() == 1) events.push_back({scoped, rps, 2, 0});
      events.push_back({scoped, rps, 3, 0});
    }
  }
  return events;
}

/// Plays events through admission and gate, then lets every timer run out. A broken invariant ends the test.
void play(std::vector<Event const*> const& events) {
  Engine engine;
  OwnAddressPort port;
  Admission admission(*engine.root, port);
  for (Event const* event : events) {
    if (event->rps.empty()) {
      engine.runTo(engine.elapsed() + event->wait);
      continue;
    }
    Bsm message{.tag = 7};
    if (event->scoped) message.groups.push_back({"239.0.0.0/8", {}, scopedFlag});
    message.groups.push_back(fragment(event->rps, event->announced));
    if (admission.validate(*make(message)) == DropReason::none) engine.receive(message);
  }
  engine.runTo(engine.elapsed() + 300);
}

class SmallWorlds : public ModelTest {};

TEST_F(SmallWorlds, NoAdmittedSequenceOfThreeEventsBreaksTheEngine) {
  for (Zet::TraceHandle* handle : Zet::TraceHandle::handles()) handle->enabledIs(false);
  std::vector<Event> events = allEvents();
  for (Event const& first : events) {
    for (Event const& second : events) {
      for (Event const& third : events) play({&first, &second, &third});
    }
  }
}

TEST_F(SmallWorlds, WithoutAdmissionSuchASequenceEndsTheProcess) {
  EXPECT_DEATH(
      {
        Engine engine;
        engine.receive({.groups = {fragment({"203.0.113.1"}, 2)}, .tag = 7});
        engine.receive({.groups = {fragment({"203.0.113.2", "203.0.113.3"}, 3)}, .tag = 7});
      },
      "fragment->rpCount\\(\\) == fragment->rps\\(\\)");
}

}  // namespace
}  // namespace test
