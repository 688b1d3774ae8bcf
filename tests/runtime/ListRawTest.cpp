#include "runtime/ListRaw.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using Zet::make;
using Zet::Ptr;
using Zet::U32;

struct Entry : Zet::PtrInterface, Zet::ListRawLink<Entry> {
  explicit Entry(char n, int* gone = nullptr) : name(n), ended(gone) {}
  ~Entry() override {
    if (ended != nullptr) ++*ended;
  }
  char name;
  int* ended;
};

using List = Zet::ListRaw<Entry>;
using Walk = Zet::SnapshotIterator<List>;

std::string names(List const& list) {
  std::string found;
  for (Entry* at = list.front(); at != nullptr; at = list.after(at)) found += at->name;
  return found;
}

/// A list of entries a, b, c ... with their owners.
struct Filled {
  explicit Filled(int count) {
    for (int i = 0; i < count; ++i) {
      owners.push_back(make<Entry>(static_cast<char>('a' + i)));
      list.insert(owners.back().ptr());
    }
  }
  /// What dropping the owner means to a list that counts no entry.
  void drop(int i) {
    list.remove(owners[i].ptr());
    owners[i] = nullptr;
  }
  List list;
  std::vector<Ptr<Entry>> owners;
};

/// Walks a snapshot and does something on each entry, after it was visited.
std::string walk(
    List const& list, std::function<void(char)> const& action = [](char) {}) {
  std::string visited;
  for (Walk at(list); at; ++at) {
    visited += at->name;
    action((*at).name);
  }
  return visited;
}

// ListRaw ---------------------------------------------------------------------------------------------

TEST(ListRaw, IsOnePointerAndEmptyAtFirst) {
  List list;
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.size(), 0u);
  EXPECT_EQ(list.front(), nullptr);
  EXPECT_EQ(sizeof(List), sizeof(void*));
}

TEST(ListRaw, KeepsTheOrderOfInsertionAndCountsNoReference) {
  Filled f(3);
  EXPECT_EQ(names(f.list), "abc");
  EXPECT_EQ(f.list.size(), 3u);
  for (auto const& owner : f.owners) EXPECT_EQ(owner->references(), 1u);
}

TEST(ListRaw, RemovesAnywhereAndAppendsAfterTheRest) {
  struct Case {
    std::vector<int> removed;
    char const* left;
  };
  for (Case const& c : {Case{{0}, "bcde"}, Case{{1}, "acde"}, Case{{3}, "abce"}, Case{{0, 3}, "bce"},
                        Case{{3, 2, 1, 0}, "e"}, Case{{0, 1, 2, 3}, "e"}, Case{{1, 2}, "ade"}}) {
    Filled f(4);
    for (int i : c.removed) f.list.remove(f.owners[i].ptr());
    Ptr<Entry> e = make<Entry>('e');
    f.list.insert(e.ptr());
    EXPECT_EQ(names(f.list), c.left);
  }
}

TEST(ListRaw, AnEntryThatComesBackIsLast) {
  Filled f(3);
  f.list.remove(f.owners[0].ptr());
  f.list.insert(f.owners[0].ptr());
  EXPECT_EQ(names(f.list), "bca");
}

// SnapshotIterator ------------------------------------------------------------------------------------

TEST(SnapshotIterator, WalksNothingOfAnEmptyList) {
  List list;
  EXPECT_FALSE(Walk(list));
}

TEST(SnapshotIterator, WalksInTheOrderOfInsertionHoweverLongTheListIs) {
  for (int count : {1, 3, 4, 5, 9, 20}) {
    Filled f(count);
    EXPECT_EQ(walk(f.list), names(f.list));
  }
}

TEST(SnapshotIterator, CountsItsEntriesAndReleasesEachAsItMovesOn) {
  Filled f(6);
  Walk at(f.list);
  for (auto const& owner : f.owners) EXPECT_EQ(owner->references(), 2u);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(f.owners[i]->references(), 2u) << i;
    ++at;
    EXPECT_EQ(f.owners[i]->references(), 1u) << i;
  }
  EXPECT_FALSE(at);
}

TEST(SnapshotIterator, ReleasesTheRestWhenAWalkIsLeft) {
  Filled f(6);
  {
    Walk at(f.list);
    ++at;
  }
  for (auto const& owner : f.owners) EXPECT_EQ(owner->references(), 1u);
}

TEST(SnapshotIterator, PassesOverWhatOnlyItStillHolds) {
  Filled f(8);
  auto drop = [&](char name) {
    if (name == 'b') {
      f.drop(2);
      f.drop(3);
      f.drop(5);
    }
  };
  EXPECT_EQ(walk(f.list, drop), "abegh");
  EXPECT_EQ(names(f.list), "abegh");
}

TEST(SnapshotIterator, EndsWhereAllThatIsLeftHasGone) {
  Filled f(6);
  auto drop = [&](char name) {
    if (name != 'a') return;
    for (int i = 1; i < 6; ++i) f.drop(i);
  };
  EXPECT_EQ(walk(f.list, drop), "a");
}

TEST(SnapshotIterator, AnEntryThatDropsItselfIsHeldToTheEndOfItsTurn) {
  int ended = 0;
  List list;
  Ptr<Entry> first = make<Entry>('a', &ended);
  Ptr<Entry> second = make<Entry>('b');
  list.insert(first.ptr());
  list.insert(second.ptr());
  auto drop = [&](char name) {
    if (name != 'a') return;
    list.remove(first.ptr());
    first = nullptr;
    EXPECT_EQ(ended, 0);
  };
  EXPECT_EQ(walk(list, drop), "ab");
  EXPECT_EQ(ended, 1);
}

TEST(SnapshotIterator, VisitsTheFirstWithoutTheTest) {
  Filled f(2);
  Walk at(f.list);
  f.drop(0);
  ASSERT_TRUE(at);
  EXPECT_EQ(at->references(), 1u);
  EXPECT_EQ(at->name, 'a');
}

TEST(SnapshotIterator, TheMarksOfAnEntryAreNoReferencesToIt) {
  Filled f(3);
  f.owners[1]->zetMarkedForDeletionIs(true);
  f.owners[1]->hasNotificationActiveIs(true);
  auto drop = [&](char name) {
    if (name == 'a') f.drop(1);
  };
  EXPECT_EQ(walk(f.list, drop), "ac");
}

TEST(SnapshotIterator, DoesNotVisitWhatIsAddedDuringTheWalk) {
  Filled f(2);
  Ptr<Entry> late = make<Entry>('z');
  auto insert = [&](char name) {
    if (name == 'a') f.list.insert(late.ptr());
  };
  EXPECT_EQ(walk(f.list, insert), "ab");
  EXPECT_EQ(walk(f.list), "abz");
}

TEST(SnapshotIterator, AWalkInsideAWalkSeesTheListAsItThenIs) {
  Filled f(3);
  std::string inner;
  auto nest = [&](char name) {
    if (name != 'a') return;
    f.drop(1);
    inner = walk(f.list);
  };
  EXPECT_EQ(walk(f.list, nest), "ac");
  EXPECT_EQ(inner, "ac");
}

}  // namespace
