#include "model/PrefixTrie.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <optional>
#include <random>
#include <set>
#include <utility>

namespace Routing {

static void PrintTo(PrefixTrie::Prefix const& prefix, std::ostream* out) {
  *out << std::hex << std::setw(8) << std::setfill('0') << prefix.bits << std::dec << '/'
       << int{prefix.length};
}

namespace {

using Prefix = PrefixTrie::Prefix;
using Match = PrefixTrie::Match;

Prefix const everything{0, 0};
Prefix const ten{0x0a000000, 8};
Prefix const tenOne{0x0a010000, 16};
Prefix const tenTwo{0x0a020000, 16};
Prefix const tenOneHost{0x0a010101, 32};

std::optional<Prefix> found(Match const& match) {
  return match.found ? std::optional(match.prefix) : std::nullopt;
}

/// What the trie answers, computed by looking at every member.
class NaiveTrie {
 public:
  bool insert(Prefix prefix) { return members_.emplace(prefix.length, prefix.bits).second; }
  bool erase(Prefix prefix) { return members_.erase({prefix.length, prefix.bits}) == 1; }
  bool contains(Prefix prefix) const { return members_.contains({prefix.length, prefix.bits}); }
  std::size_t size() const { return members_.size(); }

  /// The longest member that covers `prefix` and isn't longer than `longest`.
  std::optional<Prefix> cover(Prefix prefix, int longest) const {
    std::optional<Prefix> best;
    for (auto const& [length, bits] : members_) {
      bool covers = length <= longest && (length == 0 || (bits ^ prefix.bits) >> (32 - length) == 0);
      if (covers) best = Prefix{bits, static_cast<U8>(length)};
    }
    return best;
  }

 private:
  std::set<std::pair<int, U32>> members_;
};

/// Prefixes of which many cover each other: few lengths' worth of set bits, at both ends of the word.
class PrefixSource {
 public:
  explicit PrefixSource(unsigned seed) : random_(seed) {}
  U32 below(U32 bound) { return static_cast<U32>(random_() % bound); }
  Prefix next() {
    U32 bits = below(4) << 30 | below(4) << 15 | below(4);
    U32 length = below(33);
    return {length == 0 ? 0 : bits & ~U32{0} << (32 - length), static_cast<U8>(length)};
  }

 private:
  std::mt19937 random_;
};

TEST(PrefixTrie, EmptyTrieFindsNothing) {
  PrefixTrie trie;
  EXPECT_EQ(trie.size(), 0u);
  EXPECT_FALSE(trie.contains(everything));
  EXPECT_FALSE(trie.longestMatch(everything).found);
  EXPECT_FALSE(trie.longestMatch(tenOneHost).found);
  EXPECT_FALSE(trie.parent(tenOneHost).found);
  EXPECT_FALSE(trie.erase(ten));
}

TEST(PrefixTrie, InsertAndEraseReportWhetherTheyChangedTheSet) {
  PrefixTrie trie;
  EXPECT_TRUE(trie.insert(ten));
  EXPECT_FALSE(trie.insert(ten));
  EXPECT_EQ(trie.size(), 1u);
  EXPECT_FALSE(trie.erase(tenOne));
  EXPECT_TRUE(trie.erase(ten));
  EXPECT_FALSE(trie.erase(ten));
  EXPECT_EQ(trie.size(), 0u);
}

TEST(PrefixTrie, LongestMatchIsTheLongestCoverItselfIncluded) {
  PrefixTrie trie;
  for (Prefix member : {ten, tenOne, tenOneHost}) trie.insert(member);
  EXPECT_EQ(found(trie.longestMatch(tenOneHost)), tenOneHost);
  EXPECT_EQ(found(trie.longestMatch({0x0a010102, 32})), tenOne);
  EXPECT_EQ(found(trie.longestMatch(tenOne)), tenOne);
  EXPECT_EQ(found(trie.longestMatch(tenTwo)), ten);
  EXPECT_EQ(found(trie.longestMatch({0x0a000000, 7})), std::nullopt);
  EXPECT_EQ(found(trie.longestMatch({0x0b000000, 8})), std::nullopt);
}

TEST(PrefixTrie, ParentIsTheLongestCoverThatIsShorter) {
  PrefixTrie trie;
  for (Prefix member : {ten, tenOne, tenOneHost}) trie.insert(member);
  EXPECT_EQ(found(trie.parent(tenOneHost)), tenOne);
  EXPECT_EQ(found(trie.parent(tenOne)), ten);
  EXPECT_EQ(found(trie.parent(tenTwo)), ten);
  EXPECT_EQ(found(trie.parent(ten)), std::nullopt);
}

TEST(PrefixTrie, ThePrefixOfLengthZeroCoversEverythingAndHasNoParent) {
  PrefixTrie trie;
  EXPECT_TRUE(trie.insert(everything));
  EXPECT_EQ(found(trie.longestMatch(tenOneHost)), everything);
  EXPECT_EQ(found(trie.longestMatch(everything)), everything);
  EXPECT_EQ(found(trie.parent({0x80000000, 1})), everything);
  EXPECT_EQ(found(trie.parent(everything)), std::nullopt);
}

TEST(PrefixTrie, ABranchIsNoMember) {
  PrefixTrie trie;
  trie.insert(tenOne);
  trie.insert(tenTwo);
  Prefix branch{0x0a000000, 14};
  EXPECT_FALSE(trie.contains(branch));
  EXPECT_FALSE(trie.erase(branch));
  EXPECT_FALSE(trie.longestMatch({0x0a030000, 16}).found);
  EXPECT_TRUE(trie.insert(branch));
  EXPECT_EQ(trie.size(), 3u);
  EXPECT_EQ(found(trie.longestMatch({0x0a030000, 16})), branch);
}

TEST(PrefixTrie, ErasingAMemberAboveOthersKeepsThem) {
  PrefixTrie trie;
  for (Prefix member : {ten, tenOne, tenTwo, tenOneHost}) trie.insert(member);
  EXPECT_TRUE(trie.erase(tenOne));
  EXPECT_TRUE(trie.erase(ten));
  EXPECT_EQ(found(trie.longestMatch(tenOneHost)), tenOneHost);
  EXPECT_EQ(found(trie.longestMatch(tenTwo)), tenTwo);
  EXPECT_FALSE(trie.parent(tenOneHost).found);
}

TEST(PrefixTrie, ErasingTakesTheBranchesAwayThatItLeavesIdle) {
  PrefixTrie trie;
  trie.insert(tenOne);
  trie.insert(tenTwo);
  EXPECT_EQ(trie.nodes(), 3u);
  trie.erase(tenTwo);
  EXPECT_EQ(trie.nodes(), 1u);
  trie.erase(tenOne);
  EXPECT_EQ(trie.nodes(), 0u);
}

TEST(PrefixTrie, AnswersLikeALookAtEveryMember) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    PrefixSource source(seed);
    PrefixTrie trie;
    NaiveTrie naive;
    for (int step = 0; step < 1000; ++step) {
      Prefix prefix = source.next();
      // Later steps rather erase, so that the trie grows and empties.
      if (source.below(1000) > static_cast<U32>(step)) {
        ASSERT_EQ(trie.insert(prefix), naive.insert(prefix));
      } else {
        ASSERT_EQ(trie.erase(prefix), naive.erase(prefix));
      }
      ASSERT_EQ(trie.size(), naive.size());
      ASSERT_LE(trie.nodes(), 2 * trie.size());
      Prefix asked = source.next();
      ASSERT_EQ(trie.contains(asked), naive.contains(asked));
      ASSERT_EQ(found(trie.longestMatch(asked)), naive.cover(asked, asked.length));
      ASSERT_EQ(found(trie.parent(asked)), naive.cover(asked, asked.length - 1));
    }
  }
}

}  // namespace
}  // namespace Routing
