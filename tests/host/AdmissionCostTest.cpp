#include <string>

#include "host/Admission.h"
#include "runtime/Meter.h"
#include "tests/host/IngressSupport.h"
#include "tests/support/Allocations.h"
#include "tests/support/Engine.h"
#include "tests/support/RecordingPort.h"

namespace test {
namespace {

using pimbsr::DropReason;
using Zet::U64;

static_assert(Zet::Meter::isOn, "this test is built with the meter");

class AdmissionCostTest : public EngineTest {
 protected:
  /// One of two RPs of each of `ranges` ranges, all under one fragment tag.
  static Bsm fragments(std::string const& zone, int ranges, std::string const& rp) {
    Bsm message{.groups = {{zone, {}, scopedFlag}}, .tag = 7};
    for (int i = 0; i < ranges; ++i)
      message.groups.push_back({"225.0." + std::to_string(i) + ".0/24", {{rp}}, 0, 2, 1});
    return message;
  }

  U64 visitsOf(Bsm const& message) {
    auto made = make(message);
    U64 before = Zet::Meter::visited;
    EXPECT_EQ(admission.validate(*made), DropReason::none);
    return Zet::Meter::visited - before;
  }

  RecordingPort port;
  pimbsr::host::Admission admission{*engine.root, port};
};

TEST_F(AdmissionCostTest, FragmentCostsWhatItNamesHoweverManyRecordsAreKeptUnderItsTag) {
  constexpr int zones = 20, ranges = 100;
  for (int i = 0; i < zones; ++i)
    engine.receive(fragments("239." + std::to_string(i) + ".0.0/16", ranges, "203.0.113.1"));
  Bsm const one = fragments("239.0.0.0/16", 1, "203.0.113.2");
  U64 const indexed = visitsOf(one);
  EXPECT_GT(indexed, U64{zones} * ranges) << "each kept message is indexed when it is asked for first";
  EXPECT_LT(visitsOf(one), U64{zones} * 8);

  engine.receive(fragments("239.3.0.0/16", ranges, "203.0.113.1"));
  U64 const renewed = visitsOf(one);
  EXPECT_GT(renewed, U64{ranges}) << "a message that is kept newly is indexed once";
  EXPECT_LT(renewed, U64{ranges} * 4 + zones * 8) << "what the former one named is taken back";
}

TEST_F(AdmissionCostTest, RepeatedRecordsOfOneRangeCostNoMoreThanOne) {
  constexpr int zones = 20, repeats = 700;
  Bsm const one = fragments("239.0.0.0/16", 1, "203.0.113.2");
  for (int i = 0; i < zones; ++i) {
    Bsm message = fragments("239." + std::to_string(i) + ".0.0/16", 1, "203.0.113.1");
    for (int n = 1; n < repeats; ++n) message.groups.push_back(message.groups.back());
    engine.receive(message);
  }
  EXPECT_GT(visitsOf(one), U64{zones} * repeats) << "each kept message is indexed when it is asked for first";
  EXPECT_LT(visitsOf(one), U64{zones} * 8);
}

TEST_F(AdmissionCostTest, RpsOfGoneAndReplacedMessagesDoNotCount) {
  constexpr char const* zone = "239.0.0.0/16";
  engine.receive(fragments(zone, 1, "203.0.113.1"));
  visitsOf(fragments(zone, 1, "203.0.113.2"));
  EXPECT_EQ(admission.validate(*make(fragments("239.1.0.0/16", 1, "203.0.113.2"))), DropReason::none);
  Bsm both = fragments("239.1.0.0/16", 1, "203.0.113.2");
  both.groups.back().rps.push_back({"203.0.113.3"});
  EXPECT_EQ(admission.validate(*make(both)), DropReason::fragmentOverflow);
  Bsm other = fragments(zone, 1, "203.0.113.1");
  other.tag = 8;
  engine.receive(other);
  EXPECT_EQ(admission.validate(*make(both)), DropReason::none);
}

// Ranges of which many RPs wait --------------------------------------------------------------------------

class WaitingRangeCostTest : public FilteredRouterTest {
 protected:
  WaitingRangeCostTest() {
    router.ingressSettingsIs({.fragmentRps = 20'000, .rps = 20'000, .rangesPerZone = 20'000});
    router.correctionsAre(pimbsr::host::allCorrections);
    receiveHello("192.0.2.1");
  }
  static Bsm fragment(Zet::U16 tag, std::vector<Rp> const& rps) {
    auto named = static_cast<Zet::U8>(rps.size());
    return {.groups = {{"239." + std::to_string(tag) + ".0.0/16", rps, 0, 255, named}}, .tag = tag};
  }
  struct Cost {
    U64 visits;
    int allocations;  ///< a copy of what waits visits nothing
  };
  /// Of a message that names an RP of a range again and again, while so many of its RPs wait for the others.
  Cost costOfRepeats(Zet::U16 tag, int waiting) {
    EXPECT_EQ(reasonFor(fragment(tag, someRps(1, waiting))), "");
    Bsm message = fragment(tag, someRps(1, 1));
    for (int i = 1; i < repeats; ++i) message.groups.push_back(message.groups.front());
    U64 before = Zet::Meter::visited;
    int allocations = allocationsOf([&] { EXPECT_EQ(reasonFor(message), ""); });
    return {Zet::Meter::visited - before, allocations};
  }
  static constexpr int repeats = 60;
  static constexpr U64 levels = 4 * 12;  ///< visits that 16 times as many cost in all look-ups of a record
};

TEST_F(WaitingRangeCostTest, RecordCostsWhatItNamesHoweverManyRpsOfItsRangeWait) {
  Cost const few = costOfRepeats(1, 15), many = costOfRepeats(2, 240);
  EXPECT_LT(many.visits, few.visits + 8 * 240 + repeats * levels);
  EXPECT_LT(many.allocations, few.allocations + 8 * 240);
}

TEST_F(WaitingRangeCostTest, RecordCostsWhatItNamesWhereTheQuotaIsFull) {
  router.ingressSettingsIs({.rps = 250});
  Cost const few = costOfRepeats(1, 15), many = costOfRepeats(2, 240);
  EXPECT_LT(many.visits, few.visits + 40 * 240 + repeats * levels);
  EXPECT_LT(many.allocations, few.allocations + 8 * 240);
}

}  // namespace
}  // namespace test
