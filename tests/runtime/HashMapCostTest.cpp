// What the operations of a map cost for keys that a peer has chosen, in visits of nodes, buckets and words as
// the meter counts them. Each costs O(log n) or, where a resize may be among it, that in the mean.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "runtime/Meter.h"
#include "tests/runtime/HashMapKeys.h"

namespace test {
namespace {

using Zet::U32;
using Zet::U64;

static_assert(Zet::Meter::isOn, "this test is built with the meter");

enum class Kind { oneBucket, lastBucket, oneHash };

struct Case {
  Kind kind;
  U32 members;
};

void PrintTo(Case const& c, std::ostream* out) {
  constexpr char const* names[] = {"oneBucket", "lastBucket", "oneHash"};
  *out << names[static_cast<int>(c.kind)] << c.members;
}

U64 visitsOf(std::function<void()> const& operation) {
  U64 const before = Zet::Meter::visited;
  operation();
  return Zet::Meter::visited - before;
}

class HashMapCost : public testing::TestWithParam<Case> {
 protected:
  HashMapCost() {
    for (U32 i = 0; i < GetParam().members; ++i) keys.push_back(key(2 * i));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
  }

  /// Key number `i` in the order of the walk; even numbers are in the map, odd ones are not.
  ChosenKey key(U32 i) const {
    switch (GetParam().kind) {
      case Kind::oneBucket:
        return {0x12340000u + i, 0};
      case Kind::lastBucket:
        return {0xffff0000u + i, 0};
      default:
        return {0x12345678u, i};
    }
  }

  void fill() {
    for (ChosenKey const& k : keys) add(map, k);
  }
  /// What one operation may cost: a path of the index with a search in each node, and a few steps beside.
  U64 bound() const { return 3 * static_cast<U64>(std::bit_width(keys.size())) + 40; }
  ChosenKey absentBeside(ChosenKey const& present) const {
    return GetParam().kind == Kind::oneHash ? ChosenKey{present.hash, present.id + 1}
                                            : ChosenKey{present.hash + 1, 0};
  }

  template <class Operation>
  void expectEachWithinBound(Operation const& operation) {
    for (ChosenKey const& k : keys) ASSERT_LE(visitsOf([&] { operation(k); }), bound());
  }

  std::vector<ChosenKey> keys;
  ChosenMap map;
};

TEST_P(HashMapCost, OfAnInsertionIsLogarithmicInTheMean) {
  EXPECT_LE(visitsOf([&] { fill(); }), bound() * keys.size());
}

TEST_P(HashMapCost, OfInsertionsInAndAgainstTheOrderIsLogarithmicInTheMean) {
  std::sort(keys.begin(), keys.end());
  EXPECT_LE(visitsOf([&] { fill(); }), bound() * keys.size());
  map.clear();
  std::reverse(keys.begin(), keys.end());
  EXPECT_LE(visitsOf([&] { fill(); }), bound() * keys.size());
}

TEST_P(HashMapCost, OfALookupIsLogarithmic) {
  fill();
  expectEachWithinBound([&](ChosenKey const& k) { ASSERT_NE(map.find(k), nullptr); });
  expectEachWithinBound([&](ChosenKey const& k) { ASSERT_EQ(map.find(absentBeside(k)), nullptr); });
}

TEST_P(HashMapCost, OfTheFirstMemberIsLogarithmic) {
  fill();
  EXPECT_LE(visitsOf([&] { EXPECT_EQ(map.first()->fwkKey(), key(0)); }), bound());
}

TEST_P(HashMapCost, OfTheFirstMemberFromAKeyOnIsLogarithmic) {
  fill();
  expectEachWithinBound([&](ChosenKey const& k) { ASSERT_EQ(map.firstNotBefore(k)->fwkKey(), k); });
  expectEachWithinBound([&](ChosenKey const& k) { map.firstNotBefore(absentBeside(k)); });
}

TEST_P(HashMapCost, OfAStepIsLogarithmic) {
  fill();
  auto at = map.iterator();
  for (; at; ++at) ASSERT_LE(visitsOf([&] { map.after(at.ptr().ptr()); }), bound());
}

TEST_P(HashMapCost, OfAStepFromARemovedBookmarkIsLogarithmic) {
  fill();
  for (ChosenKey const& k : keys) {
    auto bookmark = map.iteratorFrom(k);
    Zet::Ptr<ChosenMember> const removed = map.remove(k);
    ASSERT_LE(visitsOf([&] { ++bookmark; }), bound());
    map.insert(removed);
  }
}

TEST_P(HashMapCost, OfAWalkThatRemovesWhatItPassesIsLogarithmicInTheMean) {
  fill();
  U64 const visits = visitsOf([&] {
    for (auto at = map.iterator(); at; ++at) map.remove(ChosenKey(at.key()));
  });
  EXPECT_LE(visits, 3 * bound() * keys.size());
  EXPECT_TRUE(map.empty());
}

TEST_P(HashMapCost, OfARemovalIsLogarithmicInTheMean) {
  fill();
  U64 const visits = visitsOf([&] {
    for (ChosenKey const& k : keys) map.remove(k);
  });
  EXPECT_LE(visits, 2 * bound() * keys.size());
}

TEST_P(HashMapCost, OfClearingIsLogarithmicInTheMean) {
  fill();
  EXPECT_LE(visitsOf([&] { map.clear(); }), 3 * bound() * keys.size());
}

/// Members of the table's other buckets, as the peer's own RPs among those of everybody else.
TEST_P(HashMapCost, OfALookupIsLogarithmicAmongOrdinaryKeys) {
  std::mt19937 random(5);
  for (U32 i = 0; i < 30'000; ++i) add(map, {static_cast<U32>(random()), 1'000'000 + i});
  fill();
  expectEachWithinBound([&](ChosenKey const& k) { ASSERT_NE(map.find(k), nullptr); });
}

INSTANTIATE_TEST_SUITE_P(Chosen, HashMapCost,
                         testing::Values(Case{Kind::oneBucket, 1000}, Case{Kind::oneBucket, 16'000},
                                         Case{Kind::lastBucket, 1000}, Case{Kind::lastBucket, 16'000},
                                         Case{Kind::oneHash, 1000}, Case{Kind::oneHash, 16'000}),
                         testing::PrintToStringParamName());

TEST(HashMapCostOfOrdinaryKeys, IsAShortChain) {
  ChosenMap map;
  std::mt19937 random(6);
  std::vector<ChosenKey> keys;
  for (U32 i = 0; i < 16'000; ++i) keys.push_back({static_cast<U32>(random()), i});
  for (ChosenKey const& k : keys) add(map, k);
  U64 const visits = visitsOf([&] {
    for (ChosenKey const& k : keys) EXPECT_NE(map.find(k), nullptr);
  });
  EXPECT_LE(visits, 2 * keys.size());
}

}  // namespace
}  // namespace test
