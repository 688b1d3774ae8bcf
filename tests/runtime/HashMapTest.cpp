#include "runtime/HashMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <new>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "runtime/String8.h"
#include "tests/support/Allocations.h"

namespace {

using Zet::make;
using Zet::Ptr;
using Zet::U32;

/// A key whose hash a test chooses, so that members can be put after one another or into one another's way.
struct Place {
  U32 hash;
  int id;
  friend bool operator==(Place const& a, Place const& b) { return a.hash == b.hash && a.id == b.id; }
  friend bool operator<(Place const& a, Place const& b) { return a.id < b.id; }
};
U32 rhash(Place const& key) { return key.hash; }

template <class K>
class Member : public Zet::Keyed<K, Zet::PtrInterface> {
 public:
  explicit Member(K const& key, int* ended = nullptr)
      : Zet::Keyed<K, Zet::PtrInterface>(key), ended_(ended) {}
  ~Member() override {
    if (ended_ != nullptr) ++*ended_;
  }

 private:
  int* ended_;
};

template <class K>
using Map = Zet::HashMap<Member<K>, K>;
using Numbers = Map<U32>;

template <class K>
void add(Map<K>& map, K const& key) {
  map.insert(make<Member<K>>(key));
}

template <class K>
std::vector<K> walk(Map<K> const& map) {
  std::vector<K> keys;
  for (auto at = map.iterator(); at; ++at) keys.push_back(at.key());
  return keys;
}

std::vector<int> ids(Map<Place> const& map) {
  std::vector<int> found;
  for (Place const& place : walk(map)) found.push_back(place.id);
  return found;
}

/// What the walk over numbers must be: ascending by the reversed bits.
std::vector<U32> inOrder(std::vector<U32> keys) {
  std::sort(keys.begin(), keys.end(), [](U32 a, U32 b) { return Zet::bitReverse(a) < Zet::bitReverse(b); });
  return keys;
}

std::vector<U32> numbers(U32 count) {
  std::vector<U32> keys;
  for (U32 i = 0; i < count; ++i) keys.push_back(i * 2654435761u);
  return keys;
}

Numbers& filled(Numbers& map, std::vector<U32> const& keys) {
  for (U32 key : keys) add(map, key);
  return map;
}

// Members ---------------------------------------------------------------------------------------------

TEST(HashMap, IsEmptyAtFirst) {
  Numbers map;
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(map.first(), nullptr);
  EXPECT_EQ(map.find(1), nullptr);
  EXPECT_FALSE(map.remove(1));
  EXPECT_FALSE(map.iterator());
}

TEST(HashMap, HoldsOneReferenceToEachMember) {
  int ended = 0;
  Numbers map;
  Ptr<Member<U32>> member = make<Member<U32>>(7u, &ended);
  map.insert(member);
  EXPECT_EQ(member->references(), 2u);
  EXPECT_EQ(map.find(7), member.ptr());
  EXPECT_EQ(map.remove(7), member);
  EXPECT_EQ(member->references(), 1u);
  EXPECT_EQ(map.find(7), nullptr);
  map.insert(member);
  member = nullptr;
  EXPECT_EQ(ended, 0);
  map.clear();
  EXPECT_EQ(ended, 1);
  EXPECT_TRUE(map.empty());
}

TEST(HashMap, ReleasesItsMembersAtItsEnd) {
  int ended = 0;
  {
    Numbers map;
    for (U32 key : numbers(100)) map.insert(make<Member<U32>>(key, &ended));
  }
  EXPECT_EQ(ended, 100);
}

TEST(HashMap, AMemberHeldElsewhereOutlivesItsMap) {
  int ended = 0;
  Ptr<Member<U32>> held = make<Member<U32>>(7u, &ended);
  {
    Numbers map;
    map.insert(held);
  }
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(held->fwkKey(), 7u);
}

TEST(HashMap, CanBeFilledAgainAfterItWasCleared) {
  Numbers map;
  filled(map, numbers(50)).clear();
  EXPECT_EQ(walk(filled(map, {3, 1, 2})), inOrder({1, 2, 3}));
}

TEST(HashMap, ARemovalWithoutMemoryForASmallerTableIsDoneAndTheMapCanBeClearedAndFilledAgain) {
  Numbers map;
  std::vector<U32> const keys = numbers(5);
  for (U32 key : keys) add(map, key);
  map.remove(keys[4]);
  map.remove(keys[3]);
  {
    test::FailingAllocation failing(1);
    EXPECT_THROW(map.remove(keys[2]), std::bad_alloc);
  }
  EXPECT_EQ(walk(map), inOrder({keys[0], keys[1]}));
  map.clear();
  EXPECT_TRUE(map.empty());
  for (U32 key : keys) add(map, key);
  EXPECT_EQ(walk(map), inOrder(keys));
}

TEST(HashMap, FindsByHashFirstAndKeyNext) {
  Map<Place> map;
  add(map, Place{5, 1});
  add(map, Place{5, 3});
  EXPECT_NE(map.find({5, 1}), nullptr);
  EXPECT_NE(map.find({5, 3}), nullptr);
  EXPECT_NE(map.find({5, 1}), map.find({5, 3}));
  EXPECT_EQ(map.find({5, 2}), nullptr);
  EXPECT_EQ(map.find({6, 1}), nullptr);
}

TEST(HashMapDeathTest, AKeyThatIsThereAlreadyIsABrokenInvariant) {
  Numbers map;
  add(map, 7u);
  EXPECT_DEATH(add(map, 7u), "a new key and an unlinked member");
}

TEST(HashMapDeathTest, AMemberOfAMapCannotEnterAnother) {
  Numbers map, other;
  add(map, 7u);
  EXPECT_DEATH(other.insert(Ptr<Member<U32>>(map.find(7))), "a new key and an unlinked member");
}

// The order of a walk ---------------------------------------------------------------------------------

TEST(HashMapOrder, IsAscendingByTheBitReversedHash) {
  Numbers map;
  EXPECT_EQ(walk(filled(map, {1, 2, 3, 4, 5, 6, 7, 8})), (std::vector<U32>{8, 4, 2, 6, 1, 5, 3, 7}));
}

TEST(HashMapOrder, IsThatOfTheKeysAmongEqualHashes) {
  Map<Place> map;
  for (Place place : {Place{9, 3}, Place{9, 1}, Place{2, 7}, Place{9, 2}, Place{0xffffffff, 0}})
    add(map, place);
  EXPECT_EQ(ids(map), (std::vector<int>{7, 1, 2, 3, 0}));
}

TEST(HashMapOrder, StringsAreOrderedByTheirReversedHash) {
  Map<Zet::String8> map;
  std::vector<Zet::String8> keys{"alpha", "beta", "gamma", "delta", ""};
  for (auto const& key : keys) add(map, key);
  std::sort(keys.begin(), keys.end(), [](auto const& a, auto const& b) {
    return Zet::bitReverse(a.hash()) < Zet::bitReverse(b.hash());
  });
  EXPECT_EQ(walk(map), keys);
}

TEST(HashMapOrder, FollowsFromTheKeysAloneWhateverTheOrderOfInsertion) {
  std::vector<U32> keys = numbers(300);
  std::vector<U32> const wanted = inOrder(keys);
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    std::shuffle(keys.begin(), keys.end(), random);
    Numbers map;
    ASSERT_EQ(walk(filled(map, keys)), wanted) << round;
  }
}

TEST(HashMapOrder, HoldsAtEverySizeAsTheTableGrowsAndShrinks) {
  std::vector<U32> const keys = numbers(600);
  std::vector<U32> held;
  Numbers map;
  for (U32 key : keys) {
    add(map, key);
    held.push_back(key);
    ASSERT_EQ(walk(map), inOrder(held)) << map.size();
  }
  for (U32 key : keys) {
    map.remove(key);
    held.erase(held.begin());
    ASSERT_EQ(walk(map), inOrder(held)) << map.size();
  }
  EXPECT_TRUE(map.empty());
}

TEST(HashMapOrder, HoldsWhereAllHashesAreEqualAsTheTableGrowsAndShrinks) {
  Map<Place> map;
  std::vector<int> wanted;
  for (int i = 0; i < 100; ++i) {
    add(map, Place{0x80000000, (i * 37) % 100});
    wanted.push_back(i);
  }
  EXPECT_EQ(ids(map), wanted);
  for (int i = 0; i < 90; ++i) map.remove({0x80000000, i});
  wanted.erase(wanted.begin(), wanted.begin() + 90);
  EXPECT_EQ(ids(map), wanted);
}

// Bookmarks -------------------------------------------------------------------------------------------

/// Walks five members and changes the map while it is at the third.
template <class Action>
std::vector<int> walkWith(Map<Place>& map, Action action) {
  for (int i = 0; i < 5; ++i) add(map, Place{static_cast<U32>(i) << 29, i});
  std::vector<int> seen;
  for (auto at = map.iterator(); at; ++at) {
    seen.push_back(at.key().id);
    if (at.key().id == 2) action();
  }
  return seen;
}

Place at(int i) { return {static_cast<U32>(i) << 29, i}; }

TEST(HashMapWalk, GoesOnFromTheNextWhenThePresentOneIsDeleted) {
  Map<Place> map;
  EXPECT_EQ(walkWith(map, [&] { map.remove(at(2)); }), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(ids(map), (std::vector<int>{0, 1, 3, 4}));
}

TEST(HashMapWalk, PassesOverTheNextWhenThatIsDeleted) {
  Map<Place> map;
  EXPECT_EQ(walkWith(map, [&] { map.remove(at(3)); }), (std::vector<int>{0, 1, 2, 4}));
}

TEST(HashMapWalk, GoesOnAfterBothWhenThisAndTheNextAreDeleted) {
  Map<Place> map;
  auto both = [&] {
    map.remove(at(2));
    map.remove(at(3));
  };
  EXPECT_EQ(walkWith(map, both), (std::vector<int>{0, 1, 2, 4}));
}

TEST(HashMapWalk, EndsWhenAllAreDeleted) {
  Map<Place> map;
  EXPECT_EQ(walkWith(map, [&] { map.clear(); }), (std::vector<int>{0, 1, 2}));
}

TEST(HashMapWalk, DoesNotVisitAgainAKeyThatWasDeletedAndMadeAnew) {
  Map<Place> map;
  auto replace = [&] {
    map.remove(at(2));
    add(map, at(2));
  };
  EXPECT_EQ(walkWith(map, replace), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(HashMapWalk, VisitsMembersAddedAheadAndNotThoseAddedBefore) {
  Map<Place> map;
  auto insert = [&] {
    add(map, Place{(3u << 29) + 1, 30});
    add(map, Place{1, 10});
  };
  EXPECT_EQ(walkWith(map, insert), (std::vector<int>{0, 1, 2, 3, 30, 4}));
}

TEST(HashMapWalk, KeepsItsPlaceAmongEqualHashes) {
  Map<Place> map;
  for (int i = 0; i < 6; ++i) add(map, Place{4, i});
  std::vector<int> seen;
  for (auto here = map.iterator(); here; ++here) {
    seen.push_back(here.key().id);
    if (here.key().id == 1) {
      for (int i = 0; i < 4; ++i) map.remove({4, i});
    }
  }
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 4, 5}));
}

TEST(HashMapWalk, VisitsNoneTwiceWhileTheTableGrowsAndShrinksUnderIt) {
  Numbers map;
  std::vector<U32> const keys = numbers(64);
  filled(map, keys);
  std::vector<U32> const wanted = inOrder(keys);
  std::vector<U32> seen;
  U32 extra = 1;
  for (auto here = map.iterator(); here; ++here) {
    seen.push_back(here.key());
    U32 const reversed = Zet::bitReverse(here.key());
    // After the walk: hundreds come, so that the table grows, and go again.
    std::vector<U32> after;
    for (int i = 0; i < 300; ++i) {
      U32 key = Zet::bitReverse(static_cast<U32>((extra += 7919) % (std::uint64_t{reversed} + 1)));
      if (map.find(key) != nullptr) continue;
      add(map, key);
      after.push_back(key);
    }
    map.remove(here.key());
    for (U32 key : after) map.remove(key);
  }
  EXPECT_EQ(seen, wanted);
  EXPECT_TRUE(map.empty());
}

TEST(HashMapWalk, HoldsItsPresentMember) {
  int ended = 0;
  Numbers map;
  map.insert(make<Member<U32>>(1u, &ended));
  auto here = map.iterator();
  map.clear();
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(here->fwkKey(), 1u);
  ++here;
  EXPECT_EQ(ended, 1);
  EXPECT_FALSE(here);
}

TEST(HashMapWalk, CanStartAtAKeyOrAfterItsPlace) {
  Map<Place> map;
  for (int i = 0; i < 5; ++i) add(map, at(i));
  EXPECT_EQ(map.iteratorFrom(at(3)).key().id, 3);
  map.remove(at(3));
  EXPECT_EQ(map.iteratorFrom(at(3)).key().id, 4);
  map.remove(at(4));
  EXPECT_FALSE(map.iteratorFrom(at(3)));
}

// Against the library's own map -----------------------------------------------------------------------

struct ReversedLess {
  bool operator()(U32 a, U32 b) const { return Zet::bitReverse(a) < Zet::bitReverse(b); }
};
using Model = std::map<U32, Member<U32>*, ReversedLess>;

void expectSame(Numbers const& map, Model const& model) {
  std::vector<U32> wanted;
  for (auto const& [key, member] : model) wanted.push_back(key);
  ASSERT_EQ(walk(map), wanted);
  ASSERT_EQ(map.size(), model.size());
}

void step(Numbers& map, Model& model, U32 key, bool grow) {
  auto known = model.find(key);
  ASSERT_EQ(map.find(key), known == model.end() ? nullptr : known->second);
  if (grow && known == model.end()) {
    Ptr<Member<U32>> member = make<Member<U32>>(key);
    map.insert(member);
    model[key] = member.ptr();
  } else if (!grow) {
    ASSERT_EQ(static_cast<bool>(map.remove(key)), known != model.end());
    model.erase(key);
  }
}

TEST(HashMapProperty, BehavesAsAMapOrderedByTheReversedHash) {
  std::mt19937 random(20241);
  Numbers map;
  Model model;
  for (int phase = 0; phase < 12; ++phase) {
    // Phases that mostly insert and phases that mostly remove drive the table through all its sizes.
    std::bernoulli_distribution grow(phase % 2 == 0 ? 0.8 : 0.15);
    for (int i = 0; i < 500; ++i) {
      step(map, model, random() % 700, grow(random));
      if (i % 50 == 0) expectSame(map, model);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(HashMapProperty, AWalkWithRandomChangesVisitsEachSurvivorOnceInOrder) {
  std::mt19937 random(77);
  for (int round = 0; round < 200; ++round) {
    Numbers map;
    std::set<U32> there, untouched;
    for (int i = 0; i < 60; ++i) there.insert(random() % 500);
    for (U32 key : there) add(map, key);
    untouched = there;
    std::vector<U32> seen;
    for (auto here = map.iterator(); here; ++here) {
      seen.push_back(here.key());
      for (int i = 0; i < 3; ++i) {
        U32 key = random() % 500;
        untouched.erase(key);
        if (!map.remove(key)) add(map, key);
      }
    }
    ASSERT_TRUE(std::is_sorted(seen.begin(), seen.end(), ReversedLess())) << round;
    std::set<U32> const once(seen.begin(), seen.end());
    ASSERT_EQ(once.size(), seen.size()) << "a member was visited twice in round " << round;
    ASSERT_TRUE(std::includes(once.begin(), once.end(), untouched.begin(), untouched.end())) << round;
  }
}

}  // namespace
