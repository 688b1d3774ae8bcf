#pragma once

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>

#include "runtime/Assert.h"
#include "runtime/Bits.h"
#include "runtime/ChainIndex.h"
#include "runtime/Meter.h"
#include "runtime/Occupancy.h"
#include "runtime/Ptr.h"

namespace Zet {

template <class V, class K>
class HashMap;

/// Mixin of a counted object that is a member of a HashMap: its key, its bucket link and its stored hash.
template <class K, class Base>
class Keyed : public Base {
 public:
  using Key = K;         ///< type of the key
  using ZetBase = Base;  ///< what the object is besides

  /// The key, fixed for the object's life.
  K const& fwkKey() const { return zetKey_; }

 protected:
  /// Fixes the key; the other arguments go to Base. The object is in no map yet.
  template <class... Args>
  explicit Keyed(K const& key, Args&&... args)
      : Base(std::forward<Args>(args)...), zetNext_(this), zetHash_(rhash(key)), zetKey_(key) {}

 private:
  template <class V, class K2>
  friend class HashMap;

  bool isLinked() const { return zetNext_ != this; }

  Keyed* zetNext_;  ///< next member of the bucket; this object itself while it is in no map
  U32 zetHash_;
  K zetKey_;
};

/// Chained hash table of counted members, keyed by the member's own key; it holds one reference to each.
/// K has a total order: of two keys that are not equal, one is less.
///
/// The high bits of a member's bit-reversed hash pick its bucket, and a bucket's chain is kept in order, so
/// that a walk visits members in ascending order of the hash, and of the key among equal hashes: the order
/// follows from the keys alone, whatever the history of insertions and however the table was resized. Find,
/// insert and remove cost one short chain; a resize splits or joins neighboring chains.
///
/// The hash is known and peers choose keys, so a chain may be as long as the map is large. A long chain has
/// an index, and a large table knows which buckets are in use: each operation and each step of a walk costs
/// O(log n) for any keys, with the cost of a resize shared among the operations that led to it.
template <class V, class K>
class HashMap {
 public:
  HashMap() : one_(none) {}
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() { clear(); }

  /// Number of members.
  U32 size() const { return size_; }
  /// Whether it has no members.
  bool empty() const { return size_ == 0; }

  /// The member with that key, or null. It stays the map's; hold it by Ptr over anything that may remove it.
  V* find(K const& key) const {
    U32 hash = rhash(key);
    Slot slot = *bucket(hash);
    if (isIndexed(slot)) return findIndexed(slot, hash, key);
    V* at = chain(slot);
    while (at != nullptr && link(at).zetHash_ < hash) at = next(at);
    while (at != nullptr && link(at).zetHash_ == hash && !(at->fwkKey() == key)) at = next(at);
    return at != nullptr && link(at).zetHash_ == hash ? at : nullptr;
  }

  /// Links a member whose key isn't in the map yet.
  void insert(Ptr<V> const& member) {
    V* m = member.ptr();
    ZET_ASSERT(!link(m).isLinked(), "a new key and an unlinked member");
    Slot& slot = *bucket(link(m).zetHash_);
    if (isIndexed(slot)) {
      insertIndexed(slot, m);
    } else {
      insertPlain(slot, m);
    }
    m->newRef();
    ++size_;
    if (size_ > buckets()) grow();
  }

  /// Unlinks the member with that key and hands it to the caller; null if there is none.
  Ptr<V> remove(K const& key) {
    V* m = find(key);
    if (m == nullptr) return nullptr;
    Slot& slot = *bucket(link(m).zetHash_);
    if (slot == slotOf(m)) return removeHead(slot, m);
    if (isIndexed(slot)) {
      eraseIndexed(slot, m);
    } else {
      V* before = chain(slot);
      while (next(before) != m) before = next(before);
      nextIs(before, next(m));
    }
    return release(m);
  }

  /// Drops all members; for a map whose owner goes.
  void clear() {
    while (!empty()) {
      for (Iterator at = iterator(); at; ++at) drop(at.ptr().ptr());
    }
    while (bits_ != 0) shrink();
  }

  /// The first member of the walk, or null.
  V* first() const { return size_ == 0 ? nullptr : firstFrom(0); }

  /// The member after `member` in the walk, or null. `member` may have left the map meanwhile: the walk then
  /// goes on after the place that it had.
  V* after(V const* member) const {
    if (!link(member).isLinked()) return firstAbove(link(member).zetHash_, member->fwkKey());
    V* n = next(member);
    return n != nullptr ? n : firstFrom(bucketIndex(link(member).zetHash_) + 1);
  }

  /// The first member at or after the place of `key`, or null.
  V* firstNotBefore(K const& key) const {
    V* found = find(key);
    return found != nullptr ? found : firstAbove(rhash(key), key);
  }

  /// A walk that holds its current member as a bookmark: members may come and go meanwhile, the current one
  /// included, and none is visited twice. The map itself must outlive it.
  class Iterator {
   public:
    Iterator() = default;
    /// Begins at a member of the map; null is the end.
    Iterator(HashMap const* map, V* at) : map_(map), at_(at) {}
    explicit operator bool() const { return static_cast<bool>(at_); }
    V* operator->() const { return at_.ptr(); }
    V& operator*() const { return *at_; }
    /// The present member; null at the end.
    Ptr<V> const& ptr() const { return at_; }
    /// The present member's key; not to be asked at the end.
    K const& key() const { return at_->fwkKey(); }
    Iterator& operator++() {
      at_ = Ptr<V>(map_->after(at_.ptr()));
      return *this;
    }

   private:
    HashMap const* map_ = nullptr;
    Ptr<V> at_;
  };

  /// A walk over all members.
  Iterator iterator() const { return Iterator(this, first()); }
  /// A walk from the place of `key` on, whether a member has that key or not.
  Iterator iteratorFrom(K const& key) const { return Iterator(this, firstNotBefore(key)); }

 private:
  static auto& link(V* v) { return static_cast<Keyed<K, typename V::ZetBase>&>(*v); }
  static auto const& link(V const* v) { return static_cast<Keyed<K, typename V::ZetBase> const&>(*v); }
  static V* next(V const* v) {
    Meter::visit();
    return static_cast<V*>(link(v).zetNext_);
  }
  static void nextIs(V* v, V* n) { link(v).zetNext_ = n; }
  static bool precedes(V const* a, U32 hash, K const& key) {
    return link(a).zetHash_ < hash || (link(a).zetHash_ == hash && a->fwkKey() < key);
  }

  static bool hasKey(V const* a, V const* b) {
    return link(a).zetHash_ == link(b).zetHash_ && a->fwkKey() == b->fwkKey();
  }

  // Buckets ---------------------------------------------------------------------------------------------

  /// What a bucket holds: the head of its chain, or the chain's index, whose lowest bit is set.
  using Slot = U64;

  /// The members on both sides of a place in a chain; null where the chain ends.
  struct Gap {
    V* before;
    V* after;
  };

  static bool isIndexed(Slot slot) { return (slot & 1) != 0; }
  static V* chain(Slot slot) { return reinterpret_cast<V*>(static_cast<std::uintptr_t>(slot)); }
  static Slot slotOf(V* head) { return reinterpret_cast<std::uintptr_t>(head); }
  static ChainIndex* indexOf(Slot slot) {
    return reinterpret_cast<ChainIndex*>(static_cast<std::uintptr_t>(slot - 1));
  }
  static V* head(Slot slot) {
    return isIndexed(slot) ? static_cast<V*>(indexOf(slot)->first()) : chain(slot);
  }
  static V* last(Slot slot) {
    if (isIndexed(slot)) return static_cast<V*>(indexOf(slot)->last());
    V* at = chain(slot);
    while (next(at) != nullptr) at = next(at);
    return at;
  }

  U32 buckets() const { return 1u << bits_; }
  U32 bucketIndex(U32 hash) const { return bits_ == 0 ? 0 : hash >> (32 - bits_); }
  Slot* bucket(U32 hash) const {
    Meter::visit();
    return bits_ == 0 ? &one_ : &many_[hash >> (32 - bits_)];
  }

  /// The first member from a bucket on, or null. In an ordinary table it is a few buckets away at most.
  V* firstFrom(U32 index) const {
    if (bits_ == 0) return index == 0 ? head(one_) : nullptr;
    U32 const end = hasOccupancy(bits_) ? std::min(index + nearBuckets, buckets()) : buckets();
    for (; index < end; ++index) {
      Meter::visit();
      if (many_[index] != none) return head(many_[index]);
    }
    return index < buckets() ? firstFarFrom(index) : nullptr;
  }

  [[gnu::noinline]] V* firstFarFrom(U32 index) const {
    U32 const used = occupancy(many_, bits_).next(index);
    return used == Occupancy::none ? nullptr : head(many_[used]);
  }

  /// Puts a member into a chain without an index, which gets one if it is long then.
  void insertPlain(Slot& slot, V* m) {
    U32 passed = 0;
    V* before = nullptr;
    V* after = chain(slot);
    for (; after != nullptr && precedes(after, link(m).zetHash_, m->fwkKey()); ++passed) {
      before = after;
      after = next(after);
    }
    requireNew(after, m);
    nextIs(m, after);
    if (before != nullptr) {
      nextIs(before, m);
    } else {
      if (slot == none) occupy(link(m).zetHash_);
      slot = slotOf(m);
    }
    if (isLong(m, passed)) slot = indexed(chain(slot));
  }

  static void requireNew(V* after, V* m) {
    ZET_ASSERT(after == nullptr || !hasKey(after, m), "a new key and an unlinked member");
  }

  /// The members on both sides of the place of a key.
  static Gap locate(Slot slot, U32 hash, K const& key) {
    if (isIndexed(slot)) return gapOf(slot, indexOf(slot)->find(placeOf(hash, key)));
    Gap gap{nullptr, chain(slot)};
    while (gap.after != nullptr && precedes(gap.after, hash, key)) {
      gap.before = gap.after;
      gap.after = next(gap.after);
    }
    return gap;
  }

  V* firstAbove(U32 hash, K const& key) const {
    V* at = locate(*bucket(hash), hash, key).after;
    if (at != nullptr && link(at).zetHash_ == hash && at->fwkKey() == key) at = next(at);
    return at != nullptr ? at : firstFrom(bucketIndex(hash) + 1);
  }

  /// Hands an unlinked member to the caller.
  Ptr<V> release(V* m) {
    link(m).zetNext_ = &link(m);
    Ptr<V> held(m);
    m->deleteRef();
    --size_;
    if (bits_ != 0 && size_ <= buckets() / 4) shrink();
    return held;
  }

  /// Removes the first member of a chain without an index.
  Ptr<V> removeHead(Slot& slot, V* m) {
    slot = slotOf(next(m));
    if (slot == none) vacate(link(m).zetHash_);
    return release(m);
  }

  /// Removes a member at which a walk is. Where the walk removes all, that is the first of its chain, and its
  /// key need not be hashed again.
  void drop(V* m) {
    Slot& slot = *bucket(link(m).zetHash_);
    if (slot == slotOf(m)) {
      removeHead(slot, m);
    } else {
      remove(m->fwkKey());
    }
  }

  // Indexes of long chains ------------------------------------------------------------------------------

  static constexpr U32 maxPlain = 8;    ///< members of a chain without an index
  static constexpr U32 minIndexed = 5;  ///< members of a chain that keeps its index

  static bool isKeyBefore(void const* member, void const* key) {
    return static_cast<V const*>(member)->fwkKey() < *static_cast<K const*>(key);
  }
  static ChainIndex::Place placeOf(U32 hash, K const& key) { return {hash, &key, isKeyBefore}; }
  static Gap gapOf(Slot slot, ChainIndex::Neighbors const& neighbors) {
    auto* before = static_cast<V*>(neighbors.before);
    auto* after = static_cast<V*>(neighbors.after);
    if (after == nullptr) after = before != nullptr ? next(before) : head(slot);
    return {before, after};
  }

  [[gnu::noinline]] static V* findIndexed(Slot slot, U32 hash, K const& key) {
    V* at = locate(slot, hash, key).after;
    return at != nullptr && link(at).zetHash_ == hash && at->fwkKey() == key ? at : nullptr;
  }

  [[gnu::noinline]] static void insertIndexed(Slot slot, V* m) {
    Gap gap = gapOf(slot, indexOf(slot)->insert(placeOf(link(m).zetHash_, m->fwkKey()), m));
    requireNew(gap.after, m);
    nextIs(m, gap.after);
    if (gap.before != nullptr) nextIs(gap.before, m);
  }

  /// Unlinks a member of a chain with an index, and drops an index that has become short.
  [[gnu::noinline]] static void eraseIndexed(Slot& slot, V* m) {
    V* before = locate(slot, link(m).zetHash_, m->fwkKey()).before;
    if (before != nullptr) nextIs(before, next(m));
    indexOf(slot)->erase(placeOf(link(m).zetHash_, m->fwkKey()), m);
    if (indexOf(slot)->size() >= minIndexed) return;
    V* first = head(slot);
    delete indexOf(slot);
    slot = slotOf(first);
  }

  /// Whether a chain has more members than one without an index may have; `passed` of them come before `at`.
  static bool isLong(V* at, U32 passed = 0) {
    for (; at != nullptr; at = next(at), ++passed) {
      if (passed == maxPlain) return true;
    }
    return false;
  }

  [[gnu::noinline]] static Slot indexed(V* first) {
    auto* index = new ChainIndex;
    for (V* at = first; at != nullptr; at = next(at)) index->append(link(at).zetHash_, at);
    return reinterpret_cast<std::uintptr_t>(index) | 1u;
  }

  // Tables ----------------------------------------------------------------------------------------------

  static constexpr U32 nearBuckets = 8;  ///< buckets that a search looks at before it asks the occupancy
  static constexpr bool hasOccupancy(U32 bits) { return bits > 6; }
  /// The words of the occupancy follow the buckets of a table.
  static Occupancy occupancy(Slot* table, U32 bits) { return {table + (std::size_t{1} << bits), bits}; }
  static Slot* makeTable(U32 bits) {
    return new Slot[(std::size_t{1} << bits) + (hasOccupancy(bits) ? Occupancy::words(bits) : 0)];
  }

  void occupy(U32 hash) {
    if (hasOccupancy(bits_)) occupancy(many_, bits_).set(bucketIndex(hash));
  }
  void vacate(U32 hash) {
    if (hasOccupancy(bits_)) occupancy(many_, bits_).clear(bucketIndex(hash));
  }

  /// Puts a new table whose buckets are written in place of the present one.
  void replace(Slot* table, U32 bits) {
    if (hasOccupancy(bits)) occupancy(table, bits).fill(table);
    if (bits_ != 0) delete[] many_;
    many_ = table;
    bits_ = bits;
  }

  /// Splits each chain at the first member whose next hash bit is set.
  void grow() {
    if (bits_ == maxBits) return;
    U32 const bits = bits_ + 1;
    Slot* table = makeTable(bits);
    for (U32 i = 0; i < buckets(); ++i) {
      std::tie(table[2 * i], table[2 * i + 1]) =
          split(bits_ == 0 ? one_ : many_[i], (2 * i + 1) << (32 - bits));
    }
    replace(table, bits);
  }

  /// Joins neighboring chains.
  void shrink() {
    U32 const bits = bits_ - 1;
    if (bits == 0) {
      Slot const joined = join(many_[0], many_[1]);
      delete[] many_;
      one_ = joined;
      bits_ = 0;
      return;
    }
    Slot* table = makeTable(bits);
    for (U32 i = 0; i < 1u << bits; ++i) table[i] = join(many_[2 * i], many_[2 * i + 1]);
    replace(table, bits);
  }

  /// The last member of a bucket whose hash is below a boundary, or null.
  static V* lastBelow(Slot slot, U32 boundary) {
    if (isIndexed(slot)) {
      auto isNever = [](void const*, void const*) { return false; };
      return static_cast<V*>(indexOf(slot)->find({boundary, nullptr, isNever}).before);
    }
    V* before = nullptr;
    for (V* at = chain(slot); at != nullptr && link(at).zetHash_ < boundary; at = next(at)) before = at;
    return before;
  }

  /// The buckets into which one splits: hashes below the boundary, and the others. A chain that stays whole
  /// keeps its index.
  static std::pair<Slot, Slot> split(Slot slot, U32 boundary) {
    V* before = lastBelow(slot, boundary);
    if (before == nullptr) return {none, slot};
    V* rest = next(before);
    if (rest == nullptr) return {slot, none};
    V* first = head(slot);
    nextIs(before, nullptr);
    if (!isIndexed(slot)) return {slotOf(first), slotOf(rest)};
    delete indexOf(slot);
    return {bucketOf(first), bucketOf(rest)};
  }

  static Slot join(Slot low, Slot high) {
    if (low == none || high == none) return low | high;
    V* first = head(low);
    nextIs(last(low), head(high));
    if (isIndexed(low)) delete indexOf(low);
    if (isIndexed(high)) delete indexOf(high);
    return bucketOf(first);
  }

  static Slot bucketOf(V* first) { return isLong(first) ? indexed(first) : slotOf(first); }

  static constexpr U32 maxBits = 28;
  static constexpr Slot none = 0;

  union {
    mutable Slot one_;  ///< the only bucket while bits_ is 0
    Slot* many_;        ///< 2 to the power of bits_ buckets, and their occupancy if there are many
  };
  U32 size_ = 0;
  U32 bits_ = 0;
};

/// Member of a collection of plain values.
template <class V, class K>
class ValueMember final : public Keyed<K, PtrInterface> {
 public:
  /// Copies key and value.
  ValueMember(K const& key, V const& v) : Keyed<K, PtrInterface>(key), value(v) {}
  V value;  ///< may be changed in place
};

/// A collection of plain values V by key K.
template <class V, class K>
using ValueMap = HashMap<ValueMember<V, K>, K>;

}  // namespace Zet
