#include "agent/account/HistoryStore.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>

#include "agent/account/HistoryJson.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using pimbsr::agent::HistoryEntry;
using pimbsr::agent::HistoryKind;
using pimbsr::agent::HistoryStore;
using pimbsr::agent::RpCounts;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// The n-th of many zones.
Lanet::IpGenPrefix zoneOf(int n) {
  return prefix("239." + std::to_string(n / 256) + "." + std::to_string(n % 256) + ".0/24");
}
Lanet::IpGenPrefix const global = prefix("224.0.0.0/4");

HistoryEntry elected(double time, std::string const& bsr, Lanet::IpGenPrefix const& zone = global) {
  return {.time = time, .kind = HistoryKind::bsrElected, .zone = zone, .bsr = {addr(bsr), 10, 30}};
}
HistoryEntry lost(double time, std::string const& bsr) {
  HistoryEntry entry = elected(time, bsr);
  entry.kind = HistoryKind::bsrLost;
  return entry;
}
HistoryEntry expired(double time, std::string const& rp, Lanet::IpGenPrefix const& zone = global) {
  return {.time = time,
          .kind = HistoryKind::rpExpired,
          .zone = zone,
          .rp = {.range = prefix("239.1.0.0/16"), .address = addr(rp)}};
}
HistoryEntry forgotten(double time, Lanet::IpGenPrefix const& zone) {
  return {.time = time, .kind = HistoryKind::zoneForgotten, .zone = zone};
}

std::vector<std::string> textsOf(HistoryStore const& store) {
  std::vector<std::string> texts;
  for (HistoryEntry const& entry : store.entries()) {
    std::string address(entry.bsr.address.stringValue().view());
    texts.push_back(std::to_string(static_cast<int>(entry.time)) + " " + address + " x" +
                    std::to_string(entry.count));
  }
  return texts;
}

// Folding ---------------------------------------------------------------------------------------------

TEST(HistoryStoreTest, FlappingFoldsIntoOneEntryOfEachKind) {
  HistoryStore store(256);
  for (int i = 0; i < 1000; ++i) {
    store.add(elected(1000 + i, "10.0.0.1"));
    store.add(lost(1000 + i, "10.0.0.1"));
  }
  ASSERT_THAT(store.entries(), SizeIs(2));
  HistoryEntry const& first = store.entries().front();
  EXPECT_EQ(first.kind, HistoryKind::bsrElected);
  EXPECT_EQ(first.count, 1000u);
  EXPECT_EQ(first.firstTime, 1000);
  EXPECT_EQ(first.time, 1999);
  EXPECT_EQ(store.entries().back().kind, HistoryKind::bsrLost);
}

TEST(HistoryStoreTest, RunsOfTheAgentAreEntriesUntilTheyAreTooMany) {
  HistoryStore store(256);
  for (int i = 0; i < 100; ++i) store.add({.time = 1000.0 + i, .kind = HistoryKind::agentStarted});
  EXPECT_THAT(store.entries(), SizeIs(HistoryStore::foldBurst));
  EXPECT_EQ(store.entries().back().count, 85u);
}

TEST(HistoryStoreTest, RepetitionAfterALongTimeIsAnEntryOfItsOwn) {
  HistoryStore store(256);
  store.add(elected(1000, "10.0.0.1"));
  store.add(elected(1000 + HistoryStore::foldSpan, "10.0.0.1"));
  store.add(elected(1001 + 2 * HistoryStore::foldSpan, "10.0.0.1"));
  EXPECT_THAT(textsOf(store), ElementsAre("1300 10.0.0.1 x2", "1601 10.0.0.1 x1"));
}

TEST(HistoryStoreTest, ClockThatWentBackFoldsNothing) {
  HistoryStore store(256);
  store.add(elected(2000, "10.0.0.1"));
  store.add(elected(1000, "10.0.0.1"));
  EXPECT_THAT(textsOf(store), ElementsAre("2000 10.0.0.1 x1", "1000 10.0.0.1 x1"));
}

TEST(HistoryStoreTest, OtherBsrsAreEntriesUntilTheyAreTooMany) {
  HistoryStore store(256);
  for (int i = 0; i < 100; ++i) store.add(elected(1000 + i, "10.0.0." + std::to_string(i)));
  EXPECT_THAT(store.entries(), SizeIs(HistoryStore::foldBurst));
  EXPECT_EQ(textsOf(store).front(), "1000 10.0.0.0 x1") << "what began it stays";
  EXPECT_EQ(textsOf(store).back(), "1099 10.0.0.99 x85");
}

TEST(HistoryStoreTest, SetsOfRpsAddUp) {
  HistoryStore store(256);
  HistoryEntry set{.time = 1000, .kind = HistoryKind::rpSetChanged, .zone = global};
  set.rps = {.added = 2};
  set.firstRps = {addr("10.0.0.1"), addr("10.0.0.2"), addr("10.0.0.3")};
  store.add(set);
  set.rps = {.removed = 1};
  set.firstRps = {addr("10.0.0.2"), addr("10.0.0.4"), addr("10.0.0.5")};
  store.add(set);
  ASSERT_THAT(store.entries(), SizeIs(1));
  HistoryEntry const& sum = store.entries().front();
  EXPECT_EQ(sum.rps, (RpCounts{.added = 2, .removed = 1}));
  EXPECT_THAT(sum.firstRps,
              ElementsAre(addr("10.0.0.1"), addr("10.0.0.2"), addr("10.0.0.3"), addr("10.0.0.4")));
  EXPECT_TRUE(sum.moreRps);
}

// Bounds ----------------------------------------------------------------------------------------------

TEST(HistoryStoreTest, ClassesDoNotDisplaceEachOther) {
  HistoryStore store(4);
  store.add({.time = 1, .kind = HistoryKind::agentStarted});
  store.add(elected(1, "10.0.0.1"));
  store.add(forgotten(1, zoneOf(0)));
  for (int i = 0; i < 1000; ++i) store.add(expired(1000.0 * i, "10.0.0.1"));
  EXPECT_THAT(store.entries(), SizeIs(3 + 4));
  for (int i = 0; i < 1000; ++i) store.add(forgotten(1e6 + i, zoneOf(i)));
  EXPECT_THAT(store.entries(), SizeIs(2 + 4 + 4));
  EXPECT_EQ(store.entries().front().kind, HistoryKind::agentStarted);
}

TEST(HistoryStoreTest, ZonesOfAStrangerDoNotDisplaceThoseOfOthers) {
  HistoryStore store(64);
  store.add(elected(1, "10.0.0.1"));
  for (int i = 0; i < 5000; ++i) store.add(elected(1000.0 * (i + 1), "10.9.9.9", zoneOf(i % 32)));
  ASSERT_THAT(store.entries(), SizeIs(64));
  EXPECT_EQ(store.entries().front().bsr.address, addr("10.0.0.1"));
}

TEST(HistoryStoreTest, OfZonesWithAsManyEntriesTheOldestGoes) {
  HistoryStore store(3);
  for (int i = 0; i < 5; ++i) store.add(elected(i, "10.0.0.1", zoneOf(i)));
  EXPECT_EQ(store.entries().front().zone, zoneOf(2));
  EXPECT_EQ(store.entries().back().zone, zoneOf(4));
}

// Saving ----------------------------------------------------------------------------------------------

TEST(HistoryStoreTest, EachElectionIsSavedAtOnceAndRepeatedRpsLater) {
  HistoryStore store(256);
  store.add(elected(1, "10.0.0.1"));
  store.add(expired(1, "10.0.0.2"));
  EXPECT_THAT(store.takeUnsaved(), SizeIs(2));
  EXPECT_THAT(store.takeUnsaved(), IsEmpty());
  store.add(expired(2, "10.0.0.2"));
  EXPECT_THAT(store.takeUnsaved(), IsEmpty());
  EXPECT_TRUE(store.hasRepeated());
  store.add(elected(2, "10.0.0.1"));
  std::vector<HistoryEntry> unsaved = store.takeUnsaved();
  ASSERT_THAT(unsaved, SizeIs(1));
  EXPECT_EQ(unsaved[0].count, 2u);
  EXPECT_EQ(unsaved[0].id, 1u);
  EXPECT_THAT(store.takeRepeated(), SizeIs(1));
  EXPECT_FALSE(store.hasRepeated());
}

TEST(HistoryStoreTest, DisplacedEntryIsNotSaved) {
  HistoryStore store(1);
  for (int i = 0; i < 3; ++i) store.add(elected(1000 * i, "10.0.0.1"));
  EXPECT_THAT(store.takeUnsaved(), SizeIs(1));
  store.add(elected(9000, "10.0.0.1"));
  store.clear();
  EXPECT_THAT(store.takeUnsaved(), IsEmpty());
}

TEST(HistoryStoreTest, LastLineOfAnEntryCountsAtItsPlace) {
  HistoryStore store(256);
  std::string text;
  auto add = [&](HistoryEntry const& change) {
    store.add(change);
    for (HistoryEntry const& entry : store.takeUnsaved()) text += lineOf(entry);
  };
  add(elected(1, "10.0.0.1"));
  add(lost(2, "10.0.0.1"));
  add(elected(3, "10.0.0.1"));
  HistoryStore again(256);
  EXPECT_EQ(restoreLines(again, text).damaged, 0u);
  EXPECT_EQ(linesOf(again), linesOf(store));
  EXPECT_THAT(textsOf(again), ElementsAre("2 10.0.0.1 x1", "3 10.0.0.1 x2"));
  again.add(elected(1000, "10.0.0.9"));
  EXPECT_EQ(again.entries().back().id, 3u) << "ids go on";
}

TEST(HistoryStoreTest, LinesOfAnEarlierVersionHaveNoIdAndEachIsAnEntry) {
  HistoryStore store(256);
  HistoryEntry entry = elected(1, "10.0.0.1");
  std::string line = jsonOf(entry).dump() + "\n";
  EXPECT_EQ(restoreLines(store, line + line).damaged, 0u);
  ASSERT_THAT(store.entries(), SizeIs(2));
  EXPECT_EQ(store.entries().back().id, 2u);
}

}  // namespace
}  // namespace test
