// Longest match beside the usual answer without a trie: the prefixes sorted in one vector per length,
// searched from the longest length on.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "model/PrefixTrie.h"

namespace {

using Routing::PrefixTrie;
using Zet::U32;
using Zet::U8;
using Prefix = PrefixTrie::Prefix;

U32 masked(U32 bits, U8 length) { return length == 0 ? 0 : bits & ~U32{0} << (32 - length); }

class SortedVectors {
 public:
  void insert(Prefix prefix) { lengths_[prefix.length].push_back(prefix.bits); }
  void finish() {
    for (auto& prefixes : lengths_) std::sort(prefixes.begin(), prefixes.end());
  }
  PrefixTrie::Match longestMatch(Prefix prefix) const {
    for (U8 length = prefix.length; length <= 32; --length) {
      auto const& prefixes = lengths_[length];
      U32 const bits = masked(prefix.bits, length);
      if (std::binary_search(prefixes.begin(), prefixes.end(), bits)) return {true, {bits, length}};
    }
    return {};
  }

 private:
  std::array<std::vector<U32>, 33> lengths_;
};

class Trie {
 public:
  void insert(Prefix prefix) { trie_.insert(prefix); }
  void finish() {}
  PrefixTrie::Match longestMatch(Prefix prefix) const { return trie_.longestMatch(prefix); }

 private:
  PrefixTrie trie_;
};

/// Prefixes of 8 to 32 bits, all lengths alike.
std::vector<Prefix> prefixes(int64_t count) {
  std::mt19937 random(1);
  std::vector<Prefix> made;
  for (int64_t i = 0; i < count; ++i) {
    auto const length = static_cast<U8>(8 + random() % 25);
    made.push_back({masked(static_cast<U32>(random()), length), length});
  }
  return made;
}

/// Host addresses, each within one of the prefixes.
std::vector<Prefix> questions(std::vector<Prefix> const& covered) {
  std::mt19937 random(2);
  std::vector<Prefix> made;
  for (int i = 0; i < 1 << 16; ++i) {
    Prefix const& under = covered[random() % covered.size()];
    U32 const host = static_cast<U32>(random()) & ~masked(~U32{0}, under.length);
    made.push_back({under.bits | host, 32});
  }
  return made;
}

template <class Table>
void longestMatch(benchmark::State& state) {
  Table table;
  std::vector<Prefix> const all = prefixes(state.range(0));
  for (Prefix prefix : all) table.insert(prefix);
  table.finish();
  std::vector<Prefix> const asked = questions(all);
  std::size_t at = 0;
  for (auto _ : state) {
    PrefixTrie::Match match = table.longestMatch(asked[at]);
    benchmark::DoNotOptimize(match);
    if (!match.found) state.SkipWithError("an address within a prefix was not found");
    if (++at == asked.size()) at = 0;
  }
}

BENCHMARK(longestMatch<Trie>)->Name("longest-match/pimbsr")->RangeMultiplier(10)->Range(10, 1'000'000);
BENCHMARK(longestMatch<SortedVectors>)
    ->Name("longest-match/sorted-vectors")
    ->RangeMultiplier(10)
    ->Range(10, 1'000'000);

}  // namespace
