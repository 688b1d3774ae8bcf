// The collections of the model beside the containers one would take instead. A map holds counted objects, as
// the status tree does: ours links the object itself, the others hold a counted pointer to it by its key. All
// hash alike.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/Lanet.h"
#include "runtime/HashMap.h"

#if BENCH_ABSL
#include <absl/container/btree_map.h>
#include <absl/container/node_hash_map.h>
#endif

namespace {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::U32;
using Zet::U64;

template <class K>
using Member = Zet::ValueMember<U64, K>;

template <class K>
struct Hash {
  std::size_t operator()(K const& key) const { return key.hash(); }
};

template <class K>
class Ours {
 public:
  using Key = K;
  void insert(Ptr<Member<K>> const& member) { map_.insert(member); }
  U64 find(K const& key) const { return map_.find(key)->value; }
  /// Holds its present member, so that any member may be removed meanwhile.
  U64 walk() const {
    U64 sum = 0;
    for (auto at = map_.iterator(); at; ++at) sum += at->value;
    return sum;
  }
  U64 orderedWalk() const { return walk(); }

 private:
  Zet::ValueMap<U64, K> map_;
};

template <class Map>
class Theirs {
 public:
  using Key = typename Map::key_type;
  void insert(Ptr<Member<Key>> const& member) { map_.emplace(member->fwkKey(), member); }
  U64 find(Key const& key) const { return map_.find(key)->second->value; }
  U64 walk() const {
    U64 sum = 0;
    for (auto const& [key, member] : map_) sum += member->value;
    return sum;
  }
  /// In an order that follows from the keys alone, which a hash table has to be sorted for.
  U64 orderedWalk() const {
    if constexpr (!requires { typename Map::hasher; }) return walk();
    std::vector<std::pair<Key, Member<Key>*>> sorted;
    sorted.reserve(map_.size());
    for (auto const& [key, member] : map_) sorted.emplace_back(key, member.ptr());
    std::sort(sorted.begin(), sorted.end());
    U64 sum = 0;
    for (auto const& [key, member] : sorted) sum += member->value;
    return sum;
  }

 private:
  Map map_;
};

/// Addresses as a network of many sites numbers its RPs.
template <class K>
K keyOf(U32 number);

template <>
IpGenAddr keyOf(U32 number) {
  return Lanet::IpAddr::fromHost(0x0a000000 + number * 5);
}

template <>
IpGenPrefix keyOf(U32 number) {
  return Lanet::Prefix(Lanet::IpAddr::fromHost(0xe0000000 + (number << 8)), 24);
}

template <class K>
std::vector<Ptr<Member<K>>> members(int64_t count) {
  std::vector<Ptr<Member<K>>> made;
  for (U32 i = 0; i < count; ++i) made.push_back(Zet::make<Member<K>>(keyOf<K>(i), i));
  std::shuffle(made.begin(), made.end(), std::mt19937(1));
  return made;
}

/// Per key: keys come from an array of their own, in another order than that of insertion.
template <class Map>
void find(benchmark::State& state) {
  using Key = typename Map::Key;
  Map map;
  std::vector<Key> keys;
  for (auto const& member : members<Key>(state.range(0))) {
    map.insert(member);
    keys.push_back(member->fwkKey());
  }
  std::shuffle(keys.begin(), keys.end(), std::mt19937(2));
  std::size_t at = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[at]));
    if (++at == keys.size()) at = 0;
  }
}

/// Per member: filling an empty map and dropping it, without making the objects.
template <class Map>
void insert(benchmark::State& state) {
  auto const made = members<typename Map::Key>(state.range(0));
  while (state.KeepRunningBatch(state.range(0))) {
    Map map;
    for (auto const& member : made) map.insert(member);
  }
}

/// Per member: a walk over all.
template <class Map, U64 (Map::*walkOf)() const>
void walk(benchmark::State& state) {
  Map map;
  for (auto const& member : members<typename Map::Key>(state.range(0))) map.insert(member);
  while (state.KeepRunningBatch(state.range(0))) benchmark::DoNotOptimize((map.*walkOf)());
}

template <class Map>
void add(std::string const& key, std::string const& variant) {
  auto withSizes = [&](char const* what, void (*run)(benchmark::State&)) {
    std::string const name = key + what + variant;
    benchmark::RegisterBenchmark(name.c_str(), run)->Arg(10)->Arg(1000)->Arg(100'000);
  };
  withSizes("-find/", find<Map>);
  withSizes("-insert/", insert<Map>);
  withSizes("-walk/", walk<Map, &Map::walk>);
  withSizes("-ordered-walk/", walk<Map, &Map::orderedWalk>);
}

template <class K>
void addAll(std::string const& key) {
  using Value = Ptr<Member<K>>;
  add<Ours<K>>(key, "pimbsr");
  add<Theirs<std::unordered_map<K, Value, Hash<K>>>>(key, "unordered_map");
#if BENCH_ABSL
  add<Theirs<absl::btree_map<K, Value>>>(key, "btree_map");
  add<Theirs<absl::node_hash_map<K, Value, Hash<K>>>>(key, "node_hash_map");
#endif
}

[[maybe_unused]] bool const added = [] {
  addAll<IpGenAddr>("address");
  addAll<IpGenPrefix>("prefix");
  return true;
}();

}  // namespace
