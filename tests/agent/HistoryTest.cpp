#include "agent/account/History.h"

#include <gmock/gmock.h>

#include <iterator>
#include <nlohmann/json.hpp>

#include "agent/account/HistoryJson.h"
#include "tests/agent/ObservedRouter.h"
#include "tests/support/Answers.h"

namespace test {
namespace {

using pimbsr::agent::Cause;
using pimbsr::agent::CauseKind;
using pimbsr::agent::History;
using pimbsr::agent::HistoryEntry;
using pimbsr::agent::HistoryKind;
using pimbsr::agent::RpCounts;
using pimbsr::host::ChangeKind;
using pimbsr::host::MessageKind;
using testing::ElementsAre;
using testing::IsEmpty;
using Json = nlohmann::ordered_json;

Bsm bsmWith(std::vector<std::string> const& rps, Zet::U8 priority = 10) {
  Bsm bsm{.priority = priority, .groups = {{"239.1.0.0/16", {}}}};
  for (std::string const& rp : rps) bsm.groups[0].rps.push_back({rp});
  return bsm;
}

class HistoryTest : public ObservedRouter {
 protected:
  void TearDown() override {
    for (HistoryEntry const& entry : history.entries()) keepAnswer("watch", jsonOf(entry));
    ObservedRouter::TearDown();
  }
  /// Kinds of the entries, in order, since the last call.
  std::vector<HistoryKind> kinds() {
    std::vector<HistoryKind> all;
    for (HistoryEntry const& entry : history.entries()) all.push_back(entry.kind);
    history.clear();
    return all;
  }
  /// Ends an event of such changes of the BSR 10.0.0.1 of the global zone.
  void happen(std::vector<ChangeKind> const& changes) {
    history.causeIs({.kind = CauseKind::timer}, context.now());
    for (ChangeKind kind : changes) {
      history.onChange({.kind = kind, .zone = globalZone, .bsr = {addr("10.0.0.1"), 10, 30}});
    }
    history.noteStates(*router);
  }
  pimbsr::agent::ZoneTotals totals() {
    auto at = history.totals().find(globalZone);
    return at == history.totals().end() ? pimbsr::agent::ZoneTotals() : at->second;
  }
  /// The entry at a place, from 0 on.
  HistoryEntry const& entry(std::size_t place) const {
    return *std::next(history.entries().begin(), static_cast<std::ptrdiff_t>(place));
  }
  Lanet::IpGenPrefix const globalZone = prefix("224.0.0.0/4");
  std::vector<HistoryKind> fresh() {
    std::vector<HistoryKind> all;
    for (HistoryEntry const& entry : history.takeNew()) all.push_back(entry.kind);
    return all;
  }
};

// Causes ----------------------------------------------------------------------------------------------

TEST_F(HistoryTest, LearnedBsrNamesTheMessageThatBroughtIt) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  ASSERT_EQ(history.entries().size(), 2u);
  HistoryEntry const& elected = entry(0);
  EXPECT_EQ(elected.kind, HistoryKind::bsrElected);
  EXPECT_EQ(elected.time, context.now());
  EXPECT_EQ(elected.zone, prefix("224.0.0.0/4"));
  EXPECT_EQ(elected.bsr.address, addr("10.0.0.1"));
  EXPECT_FALSE(elected.own);
  EXPECT_EQ(elected.cause, (Cause{CauseKind::message, "eth0", MessageKind::bootstrap, addr("192.0.2.1")}));
}

TEST_F(HistoryTest, OwnElectionHasTheTimerAsItsCause) {
  lead();
  auto elected = std::find_if(history.entries().begin(), history.entries().end(),
                              [](auto& entry) { return entry.kind == HistoryKind::bsrElected; });
  ASSERT_NE(elected, history.entries().end());
  EXPECT_TRUE(elected->own);
  EXPECT_EQ(elected->cause, Cause{.kind = CauseKind::timer});
}

TEST_F(HistoryTest, CauseOfOneEventIsNotThatOfTheNext) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  run(2000);
  EXPECT_EQ(history.entries().back().cause, Cause{.kind = CauseKind::timer});
}

// Candidacies -----------------------------------------------------------------------------------------

TEST_F(HistoryTest, StatesOfACandidacyAreNoted) {
  lead();
  settings.router.candidateBsrs.clear();
  configure();
  std::vector<std::string> states;
  for (HistoryEntry const& entry : history.entries()) {
    if (entry.kind == HistoryKind::candidateState) states.push_back(entry.formerState + " > " + entry.state);
  }
  EXPECT_THAT(states, ElementsAre("- > Pending-BSR", "Pending-BSR > Elected-BSR", "Elected-BSR > -"));
}

TEST_F(HistoryTest, OwnLossIsNoted) {
  lead();
  history.clear();
  settings.router.candidateBsrs.clear();
  configure();
  ASSERT_FALSE(history.entries().empty());
  ASSERT_EQ(entry(0).kind, HistoryKind::bsrLost);
  EXPECT_TRUE(entry(0).own);
}

TEST_F(HistoryTest, BetterBsrTakesOver) {
  lead();
  helloFromNeighbor();
  history.clear();
  ASSERT_TRUE(receive(packetOf(bsmWith({"10.0.0.2"}, 200))).accepted());
  ASSERT_EQ(history.entries().size(), 3u);
  HistoryEntry const& changed = entry(0);
  EXPECT_FALSE(changed.own);
  EXPECT_TRUE(changed.formerOwn);
  EXPECT_EQ(changed.bsr.address, addr("10.0.0.1"));
  EXPECT_EQ(changed.formerBsr.address, addr("192.0.2.9"));
  EXPECT_EQ(entry(2).state, "Candidate-BSR");
  EXPECT_THAT(fresh(),
              ElementsAre(HistoryKind::bsrChanged, HistoryKind::rpAdded, HistoryKind::candidateState));
  EXPECT_THAT(kinds(),
              ElementsAre(HistoryKind::bsrChanged, HistoryKind::rpAdded, HistoryKind::candidateState));
  EXPECT_EQ(totals().bsrLosses, 0u);
  EXPECT_EQ(totals().bsrChanges, 1u);
  EXPECT_EQ(totals().elections, 1u);
}

TEST_F(HistoryTest, OwnElectionInPlaceOfAnotherIsAnElectionAndAChange) {
  lead();
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"}, 200)));
  ASSERT_EQ(totals().bsrChanges, 1u);
  history.clear();
  run(200);
  auto changed = std::find_if(history.entries().begin(), history.entries().end(),
                              [](auto& entry) { return entry.kind == HistoryKind::bsrChanged; });
  ASSERT_NE(changed, history.entries().end());
  EXPECT_TRUE(changed->own);
  EXPECT_FALSE(changed->formerOwn);
  EXPECT_EQ(totals().elections, 2u);
  EXPECT_EQ(totals().bsrChanges, 2u);
  EXPECT_EQ(totals().bsrLosses, 0u);
}

TEST_F(HistoryTest, BsrThatComesBackUnchangedInTheSameEventSaysNothing) {
  happen({ChangeKind::bsrLost, ChangeKind::bsrElected});
  EXPECT_THAT(kinds(), IsEmpty());
  EXPECT_EQ(totals().bsrChanges, 0u);
  happen({ChangeKind::bsrElected, ChangeKind::bsrLost});
  EXPECT_THAT(kinds(), ElementsAre(HistoryKind::bsrElected, HistoryKind::bsrLost));
}

TEST_F(HistoryTest, BsrsOfTwoZonesAreNotOneChange) {
  history.causeIs({.kind = CauseKind::timer}, context.now());
  history.onChange({.kind = ChangeKind::bsrLost, .zone = prefix("239.1.0.0/16"), .bsr = {addr("10.0.0.1")}});
  history.onChange(
      {.kind = ChangeKind::bsrElected, .zone = prefix("239.2.0.0/16"), .bsr = {addr("10.0.0.1")}});
  history.noteStates(*router);
  EXPECT_THAT(kinds(), ElementsAre(HistoryKind::bsrLost, HistoryKind::bsrElected));
}

TEST_F(HistoryTest, OwnElectionCountsAlsoWhereTheBsrWasNamedAllTheTime) {
  lead();
  History other;
  other.causeIs({.kind = CauseKind::timer}, 77);
  other.noteStates(*router);
  EXPECT_EQ(other.totals().at(globalZone).elections, 1u);
  EXPECT_EQ(other.bsrSince(globalZone), 77);
}

TEST_F(HistoryTest, BsrThatOnlyCeasesToBeThisRouterIsAChange) {
  lead();
  History other;
  other.noteStates(*router);
  helloFromNeighbor();
  ASSERT_TRUE(receive(packetOf(bsmWith({}, 200))).accepted());
  pimbsr::host::BsrView ours{.address = addr("192.0.2.9"), .priority = 64, .hashMaskLen = 30};
  other.causeIs({.kind = CauseKind::timer}, 77);
  other.onChange({.kind = ChangeKind::bsrLost, .zone = globalZone, .bsr = ours});
  other.onChange({.kind = ChangeKind::bsrElected, .zone = globalZone, .bsr = ours});
  other.noteStates(*router);
  std::vector<HistoryEntry> taken = other.takeNew();
  ASSERT_EQ(taken.size(), 2u);
  EXPECT_EQ(taken[0].kind, HistoryKind::bsrChanged);
  EXPECT_TRUE(taken[0].formerOwn);
  EXPECT_FALSE(taken[0].own);
  EXPECT_EQ(other.totals().at(globalZone).bsrChanges, 1u);
  EXPECT_EQ(other.totals().at(globalZone).elections, 1u);
}

// The present BSR -------------------------------------------------------------------------------------

TEST_F(HistoryTest, BsrIsKnownSinceItsAddressWasTakenUp) {
  EXPECT_EQ(history.bsrSince(globalZone), std::nullopt);
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  double first = context.now();
  EXPECT_EQ(history.bsrSince(globalZone), first);
  run(20);
  receive(packetOf(bsmWith({"10.0.0.2"}, 11)));
  EXPECT_EQ(history.bsrSince(globalZone), first);
  Bsm other = bsmWith({"10.0.0.2"}, 12);
  other.bsr = "10.0.0.9";
  receive(packetOf(other));
  EXPECT_EQ(history.bsrSince(globalZone), first + 20);
  run(2000);
  EXPECT_EQ(history.bsrSince(globalZone), std::nullopt);
}

TEST_F(HistoryTest, OwnElectionBeginsANewTerm) {
  lead();
  double elected = *history.bsrSince(globalZone);
  auto entry = std::find_if(history.entries().begin(), history.entries().end(),
                            [](auto& one) { return one.state == "Elected-BSR"; });
  ASSERT_NE(entry, history.entries().end());
  EXPECT_EQ(elected, entry->time);
  run(500);
  EXPECT_EQ(*history.bsrSince(globalZone), elected);
}

TEST_F(HistoryTest, TakenUpIsKeptOfSoManyZones) {
  history.causeIs({}, 1);
  for (int i = 0; i < 300; ++i) {
    std::string zone = "239." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24";
    history.onChange({.kind = ChangeKind::bsrElected, .zone = prefix(zone), .bsr = {addr("10.0.0.1")}});
  }
  history.noteStates(*router);
  EXPECT_EQ(history.bsrSince(prefix("239.0.255.0/24")), 1);
  EXPECT_EQ(history.bsrSince(prefix("239.1.0.0/24")), std::nullopt);
}

TEST_F(HistoryTest, OtherTermsOfTheSameBsrAreAChange) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  history.clear();
  receive(packetOf(bsmWith({"10.0.0.2"}, 11)));
  ASSERT_EQ(history.entries().size(), 1u);
  EXPECT_EQ(entry(0).kind, HistoryKind::bsrChanged);
  EXPECT_EQ(entry(0).bsr.priority, 11u);
  EXPECT_EQ(entry(0).formerBsr.priority, 10u);
}

// RPs -------------------------------------------------------------------------------------------------

TEST_F(HistoryTest, RpsOfOneEventMakeOneEntryAndAreTakenOneByOne) {
  helloFromNeighbor();
  history.takeNew();
  receive(packetOf(bsmWith({"10.0.0.2", "10.0.0.3", "10.0.0.4"})));
  EXPECT_THAT(fresh(), ElementsAre(HistoryKind::bsrElected, HistoryKind::rpAdded, HistoryKind::rpAdded,
                                   HistoryKind::rpAdded));
  EXPECT_THAT(fresh(), IsEmpty());
  EXPECT_EQ(history.entries().back().rps, (RpCounts{.added = 3}));
  EXPECT_TRUE(history.entries().back().rp.address.isEmpty());
  EXPECT_THAT(history.entries().back().firstRps,
              ElementsAre(addr("10.0.0.2"), addr("10.0.0.3"), addr("10.0.0.4")));
  EXPECT_FALSE(history.entries().back().moreRps);
  EXPECT_THAT(kinds(), ElementsAre(HistoryKind::bsrElected, HistoryKind::rpSetChanged));
}

TEST_F(HistoryTest, FirstOfManyRpsAreNamedOnce) {
  helloFromNeighbor();
  Bsm bsm = bsmWith({"10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5"});
  bsm.groups.push_back(bsm.groups[0]);
  bsm.groups[1].prefix = "239.2.0.0/16";
  receive(packetOf(bsm));
  HistoryEntry four = history.entries().back();
  EXPECT_EQ(four.rps.added, 8u);
  EXPECT_THAT(four.firstRps,
              ElementsAre(addr("10.0.0.2"), addr("10.0.0.3"), addr("10.0.0.4"), addr("10.0.0.5")));
  EXPECT_FALSE(four.moreRps);
  receive(packetOf(bsmWith({"10.0.1.2", "10.0.1.3", "10.0.1.4", "10.0.1.5", "10.0.1.6"})));
  EXPECT_EQ(history.entries().back().firstRps.size(), 4u);
  EXPECT_TRUE(history.entries().back().moreRps);
}

TEST_F(HistoryTest, SingleRpIsKeptByName) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  EXPECT_EQ(history.entries().back().kind, HistoryKind::rpAdded);
  EXPECT_EQ(history.entries().back().rp.address, addr("10.0.0.2"));
  EXPECT_EQ(history.entries().back().rps, RpCounts());
  EXPECT_THAT(history.entries().back().firstRps, IsEmpty());
}

TEST_F(HistoryTest, ChangesOfRpsAreCountedApart) {
  helloFromNeighbor();
  Bsm bsm = bsmWith({"10.0.0.2", "10.0.0.3", "10.0.0.4"});
  bsm.groups[0].rps[2].holdtime = 0;
  receive(packetOf(bsmWith({"10.0.0.2", "10.0.0.4"})));
  history.clear();
  bsm.groups[0].rps[0].priority = 9;
  receive(packetOf(bsm));
  ASSERT_EQ(history.entries().size(), 1u);
  RpCounts const& counts = entry(0).rps;
  EXPECT_EQ(counts.added, 1u);
  EXPECT_GE(counts.updated, 1u);
  run(1000);
  EXPECT_GE(history.totals().at(prefix("224.0.0.0/4")).rps.expired, 2u);
}

TEST_F(HistoryTest, RepeatedMessageChangesNothing) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  history.clear();
  history.takeNew();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  EXPECT_THAT(kinds(), IsEmpty());
  EXPECT_THAT(fresh(), IsEmpty());
}

TEST_F(HistoryTest, ChangesOfTheRpChoiceAreMarked) {
  auto touches = [](HistoryKind kind, Zet::U32 mask, Zet::U32 formerMask) {
    return HistoryEntry{.kind = kind, .bsr = {.hashMaskLen = mask}, .formerBsr = {.hashMaskLen = formerMask}}
        .isOfRpSet();
  };
  EXPECT_TRUE(touches(HistoryKind::rpAdded, 0, 0));
  EXPECT_TRUE(touches(HistoryKind::rpExpired, 0, 0));
  EXPECT_TRUE(touches(HistoryKind::rpSetChanged, 0, 0));
  EXPECT_TRUE(touches(HistoryKind::bsrChanged, 30, 4));
  EXPECT_FALSE(touches(HistoryKind::bsrChanged, 30, 30));
  EXPECT_FALSE(touches(HistoryKind::bsrElected, 30, 0));
  EXPECT_FALSE(touches(HistoryKind::candidateState, 0, 0));
}

// Bounds and totals -----------------------------------------------------------------------------------

TEST_F(HistoryTest, OldEntriesAreForgotten) {
  History few(3);
  for (int i = 0; i < 5; ++i) {
    few.causeIs({.kind = CauseKind::timer}, i + 1);
    few.onChange({.kind = pimbsr::host::ChangeKind::zoneForgotten,
                  .zone = prefix("239." + std::to_string(i) + ".0.0/16")});
    few.noteStates(*router);
  }
  ASSERT_EQ(few.entries().size(), 3u);
  EXPECT_EQ(few.entries().front().time, 3);
  EXPECT_EQ(few.entries().back().time, 5);
}

TEST_F(HistoryTest, TotalsOutliveAClear) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2", "10.0.0.3"})));
  history.clear();
  EXPECT_EQ(history.totals().at(prefix("224.0.0.0/4")).elections, 1u);
  EXPECT_EQ(history.totals().at(prefix("224.0.0.0/4")).rps, (RpCounts{.added = 2}));
}

TEST_F(HistoryTest, ForgottenZonesAndThoseBeyondTheBoundCountAsOthers) {
  history.causeIs({}, 1);
  auto elect = [&](std::string const& zone) {
    history.onChange({.kind = pimbsr::host::ChangeKind::bsrElected, .zone = prefix(zone)});
    history.noteStates(*router);
  };
  elect("239.1.0.0/16");
  history.onChange({.kind = pimbsr::host::ChangeKind::zoneForgotten, .zone = prefix("239.1.0.0/16")});
  history.noteStates(*router);
  EXPECT_FALSE(history.totals().contains(prefix("239.1.0.0/16")));
  EXPECT_EQ(history.totals().at({}).elections, 1u);
  for (int i = 0; i < 300; ++i)
    elect("239." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24");
  EXPECT_LE(history.totals().size(), History::maxZones + 1);
  EXPECT_EQ(history.totals().at({}).elections, 1u + 300 - (History::maxZones - 1));
}

// Over a restart --------------------------------------------------------------------------------------

TEST_F(HistoryTest, EntriesComeBackAsTheyWere) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2", "10.0.0.3"})));
  receive(packetOf(bsmWith({"10.0.0.2"}, 12)));
  Bsm bidir = bsmWith({"10.0.0.2"}, 12);
  bidir.groups[0].flags = bidirFlag;
  bidir.groups[0].rps[0].priority = 3;
  receive(packetOf(bidir));
  lead("239.255.0.0/16");
  run(3000);
  settings.router.candidateBsrs.clear();
  configure();
  ASSERT_GE(history.entries().size(), 8u);
  History again;
  EXPECT_EQ(restoreLines(again.store(), linesOf(history.store())).damaged, 0u);
  EXPECT_EQ(linesOf(again.store()), linesOf(history.store()));
}

TEST_F(HistoryTest, FormerEntriesComeBeforeNewOnes) {
  History former;
  former.causeIs({.kind = CauseKind::stop}, 5);
  former.onChange({.kind = pimbsr::host::ChangeKind::zoneForgotten, .zone = prefix("239.1.0.0/16")});
  former.noteStates(*router);
  restoreLines(history.store(), linesOf(former.store()));
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  EXPECT_THAT(kinds(),
              ElementsAre(HistoryKind::zoneForgotten, HistoryKind::bsrElected, HistoryKind::rpAdded));
}

TEST_F(HistoryTest, DamagedLinesAreLeftOut) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2"})));
  std::string good = lineOf(entry(0));
  good.pop_back();
  auto with = [&](std::string const& from, std::string const& to) {
    std::string line = good;
    std::size_t at = line.find(from);
    EXPECT_NE(at, line.npos) << from;
    return line.replace(at, from.size(), to);
  };
  std::vector<std::string> damaged = {"",
                                      "{",
                                      "null",
                                      "[]",
                                      "{}",
                                      good.substr(0, good.size() / 2),
                                      good + good,
                                      with("bsrElected", "bsrEaten"),
                                      with("224.0.0.0/4", "224.0.0.0/40"),
                                      with("\"10.0.0.1\"", "\"10.0.0.256\""),
                                      with("\"10.0.0.1\"", "7"),
                                      with("\"priority\":10", "\"priority\":65536"),
                                      with("\"priority\":10", "\"priority\":-1"),
                                      with("\"priority\":10", "\"priority\":1.5"),
                                      with("\"time\":", "\"time\":1e200,\"was\":"),
                                      with("\"time\":", "\"time\":null,\"was\":"),
                                      with("\"message\":\"bsm\"", "\"message\":\"bs\""),
                                      with("\"kind\":\"message\"", "\"kind\":\"massage\""),
                                      with("\"id\":1", "\"id\":-1"),
                                      with("\"id\":1", "\"id\":\"1\""),
                                      with("\"id\":1", "\"id\":1e300"),
                                      with("\"id\":1", "\"count\":2,\"id\":1")};
  for (std::string const& line : damaged) {
    History again;
    EXPECT_EQ(restoreLines(again.store(), line + "\n" + good + "\n"),
              (pimbsr::agent::HistoryLines{.all = 2, .damaged = 1}))
        << line;
    EXPECT_EQ(again.entries().size(), 1u) << line;
  }
}

TEST_F(HistoryTest, EntryThatNamesMoreRpsThanItMayIsDamaged) {
  helloFromNeighbor();
  receive(packetOf(bsmWith({"10.0.0.2", "10.0.0.3"})));
  Json json = jsonOf(history.entries().back());
  EXPECT_EQ(json["firstRps"].dump(), R"(["10.0.0.2","10.0.0.3"])");
  for (char const* rps :
       {R"(["10.0.0.2","10.0.0.3","10.0.0.4","10.0.0.5","10.0.0.6"])", R"("10.0.0.2")", R"([7])", "null"}) {
    json["firstRps"] = Json::parse(rps);
    History again;
    EXPECT_EQ(restoreLines(again.store(), json.dump()).damaged, 1u) << rps;
  }
}

TEST_F(HistoryTest, CandidacyThatBeginsOrEndsHasNoStateOnOneSide) {
  lead();
  settings.router.candidateBsrs.clear();
  configure();
  Json first = jsonOf(history.entries().front());
  Json last = jsonOf(history.entries().back());
  EXPECT_TRUE(first.at("formerState").is_null());
  EXPECT_EQ(first.at("state"), "Pending-BSR");
  EXPECT_TRUE(last.at("state").is_null());
}

TEST_F(HistoryTest, FileLongerThanTheBoundKeepsItsEnd) {
  helloFromNeighbor();
  for (int i = 0; i < 9; ++i) receive(packetOf(bsmWith({"10.0.0.2"}, static_cast<Zet::U8>(20 + i))));
  History few(2);
  restoreLines(few.store(), linesOf(history.store()));
  ASSERT_EQ(few.entries().size(), 3u) << "two of elections and the RP that was added";
  EXPECT_EQ(few.entries().back().bsr.priority, 28u);
}

}  // namespace
}  // namespace test
