// Keys that share buckets or hashes, as a peer can choose them: the map behaves as with any others, through
// all the sizes of its table and with the indexes of its long chains made and dropped.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "tests/runtime/HashMapKeys.h"

namespace test {
namespace {

using Zet::Ptr;
using Zet::U32;

/// An ordinary map with the same keys: its order is that of a walk.
using Model = std::map<ChosenKey, ChosenMember*>;

std::vector<ChosenKey> keysOf(Model const& model) {
  std::vector<ChosenKey> keys;
  for (auto const& [key, member] : model) keys.push_back(key);
  return keys;
}

ChosenMember* at(Model const& model, Model::const_iterator place) {
  return place == model.end() ? nullptr : place->second;
}

/// How a test chooses hashes: `few` values that agree in their first `sharedBits` bits.
struct Hashes {
  char const* name;
  U32 few;
  U32 sharedBits;
  U32 first;
};

void PrintTo(Hashes const& hashes, std::ostream* out) { *out << hashes.name; }

class HashMapChosen : public testing::TestWithParam<Hashes> {
 protected:
  ChosenKey randomKey() {
    Hashes const& p = GetParam();
    U32 const number = static_cast<U32>(random() % p.few);
    U32 const spread = p.sharedBits == 32 ? 0 : number * (0xffffffffu / p.few) >> p.sharedBits;
    return {p.first ^ spread, static_cast<U32>(random() % idsPerHash)};
  }

  void insert(ChosenKey const& key) {
    if (model.count(key) != 0) return;
    auto member = Zet::make<ChosenMember>(key);
    map.insert(member);
    model[key] = member.ptr();
  }

  void remove(ChosenKey const& key) {
    Ptr<ChosenMember> removed = map.remove(key);
    ASSERT_EQ(removed.ptr(), at(model, model.find(key)));
    model.erase(key);
  }

  void expectLookups(ChosenKey const& key) const {
    ASSERT_EQ(map.find(key), at(model, model.find(key)));
    ASSERT_EQ(map.firstNotBefore(key), at(model, model.lower_bound(key)));
    ASSERT_EQ(map.first(), at(model, model.begin()));
  }

  /// Moves a bookmark on, whose member may have gone meanwhile.
  void step(ChosenMap::Iterator& bookmark) {
    if (!bookmark) {
      bookmark = map.iteratorFrom(randomKey());
      return;
    }
    ChosenKey const key = bookmark.key();
    ++bookmark;
    ASSERT_EQ(bookmark.ptr().ptr(), at(model, model.upper_bound(key)));
  }

  void play(U32 insertsPerCent) {
    ChosenKey const key = randomKey();
    ASSERT_NO_FATAL_FAILURE(expectLookups(key));
    if (random() % 100 < insertsPerCent) {
      insert(key);
    } else {
      ASSERT_NO_FATAL_FAILURE(remove(key));
    }
    ASSERT_NO_FATAL_FAILURE(step(bookmarks[random() % std::size(bookmarks)]));
  }

  U32 const idsPerHash = 4000 / GetParam().few;
  std::mt19937 random{7};
  ChosenMap map;
  Model model;
  ChosenMap::Iterator bookmarks[4];
};

TEST_P(HashMapChosen, BehavesAsAnOrderedMapOfHashAndKey) {
  for (U32 phase = 0; phase < 6; ++phase) {
    for (int i = 0; i < 3000; ++i) {
      ASSERT_NO_FATAL_FAILURE(play(phase % 2 == 0 ? 90 : 15)) << phase << ", " << i;
    }
    ASSERT_EQ(walk(map), keysOf(model)) << phase;
    ASSERT_EQ(map.size(), model.size());
  }
  map.clear();
  EXPECT_EQ(map.first(), nullptr);
}

TEST_P(HashMapChosen, IsEmptiedInAnyOrder) {
  for (int order = 0; order < 3; ++order) {
    for (int i = 0; i < 3000; ++i) insert(randomKey());
    std::vector<ChosenKey> keys = keysOf(model);
    if (order == 1) std::reverse(keys.begin(), keys.end());
    if (order == 2) std::shuffle(keys.begin(), keys.end(), random);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(remove(keys[i]));
      if (i % 97 == 0) {
        ASSERT_EQ(walk(map), keysOf(model));
      }
    }
    EXPECT_TRUE(map.empty());
  }
}

/// The bounds at which an index is made and dropped are crossed one member at a time, back and forth.
TEST_P(HashMapChosen, KeepsItsOrderWhereAChainGrowsLongAndShortAgain) {
  for (U32 most = 2; most < 40; ++most) {
    while (map.size() < most) insert(randomKey());
    while (map.size() > most / 3) {
      ASSERT_NO_FATAL_FAILURE(remove(std::next(model.begin(), random() % model.size())->first));
      ASSERT_EQ(walk(map), keysOf(model)) << most;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Hashes, HashMapChosen,
                         testing::Values(Hashes{"oneHash", 1, 32, 0x12345678},
                                         Hashes{"lastHash", 1, 32, 0xffffffff}, Hashes{"fewHashes", 8, 0, 0},
                                         Hashes{"oneBucket", 1000, 14, 0x40000000},
                                         Hashes{"lastBucket", 1000, 16, 0xffff0000},
                                         Hashes{"halfABucket", 500, 5, 0x80000000},
                                         Hashes{"anyHash", 4000, 0, 0}),
                         [](auto const& chosen) { return chosen.param.name; });

}  // namespace
}  // namespace test
