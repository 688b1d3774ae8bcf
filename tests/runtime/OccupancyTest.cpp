#include "runtime/Occupancy.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

namespace {

using Zet::Occupancy;
using Zet::U32;
using Zet::U64;

/// The first of a set from an index on.
U32 nextOf(std::set<U32> const& used, U32 index) {
  auto at = used.lower_bound(index);
  return at == used.end() ? Occupancy::none : *at;
}

class OccupancyOf : public testing::TestWithParam<U32> {
 protected:
  U32 const bits = GetParam();
  U32 const buckets = 1u << bits;
  std::vector<U64> words = std::vector<U64>(Occupancy::words(bits));
  Occupancy occupancy{words.data(), bits};
};

TEST_P(OccupancyOf, FindsTheNextBucketInUse) {
  std::mt19937 random(bits);
  std::set<U32> used;
  for (int i = 0; i < 2000; ++i) {
    U32 const index = random() % buckets;
    // Phases of few and of many buckets in use.
    if (random() % 100 < (i / 500 % 2 == 0 ? 70u : 20u)) {
      occupancy.set(index);
      used.insert(index);
    } else {
      occupancy.clear(index);
      used.erase(index);
    }
    U32 const from = random() % buckets;
    ASSERT_EQ(occupancy.next(from), nextOf(used, from));
    ASSERT_EQ(occupancy.next(0), nextOf(used, 0));
    ASSERT_EQ(occupancy.next(buckets), Occupancy::none);
  }
}

TEST_P(OccupancyOf, FindsTheLastBucketFromEachOther) {
  EXPECT_EQ(occupancy.next(0), Occupancy::none);
  occupancy.set(buckets - 1);
  for (U32 from = 0; from < buckets; from += 1 + buckets / 300) ASSERT_EQ(occupancy.next(from), buckets - 1);
  occupancy.clear(buckets - 1);
  EXPECT_EQ(occupancy.next(0), Occupancy::none);
}

TEST_P(OccupancyOf, IsZeroAgainWhenNoBucketIsInUse) {
  for (U32 index = 0; index < buckets; ++index) occupancy.set(index);
  for (U32 index = 0; index < buckets; ++index) occupancy.clear(index);
  EXPECT_EQ(words, std::vector<U64>(words.size()));
}

TEST_P(OccupancyOf, IsFilledFromATable) {
  std::mt19937 random(bits);
  std::vector<U64> table(buckets);
  for (U32 i = 0; i < buckets / 50 + 1; ++i) table[random() % buckets] = random() % 2;
  words.assign(words.size(), ~U64{0});
  occupancy.fill(table.data());
  std::vector<U64> marked(words.size());
  Occupancy expected(marked.data(), bits);
  for (U32 i = 0; i < buckets; ++i) {
    if (table[i] != 0) expected.set(i);
  }
  EXPECT_EQ(words, marked);
}

INSTANTIATE_TEST_SUITE_P(Sizes, OccupancyOf, testing::Values(1, 6, 7, 11, 12, 13, 18, 19));

}  // namespace
