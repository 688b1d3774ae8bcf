#pragma once

#include <utility>

#include "runtime/Assert.h"
#include "runtime/Bits.h"
#include "runtime/Ptr.h"

namespace Zet {

template <class V, class K>
class HashMap;

/// Mixin of a counted object that is a member of a HashMap: its key, its bucket link and its stored hash.
template <class K, class Base>
class Keyed : public Base {
 public:
  using Key = K;
  using ZetBase = Base;

  /// The key, fixed for the object's life.
  K const& fwkKey() const { return zetKey_; }

 protected:
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
///
/// The high bits of a member's bit-reversed hash pick its bucket, and a bucket's chain is kept in order, so
/// that a walk visits members in ascending order of the hash, and of the key among equal hashes: the order
/// follows from the keys alone, whatever the history of insertions and however the table was resized. Find,
/// insert and remove cost one short chain; a resize splits or joins neighbouring chains.
template <class V, class K>
class HashMap {
 public:
  HashMap() : one_(nullptr) {}
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() { clear(); }

  U32 size() const { return size_; }
  bool empty() const { return size_ == 0; }

  /// The member with that key, or null. It stays the map's; hold it by Ptr over anything that may remove it.
  V* find(K const& key) const {
    U32 hash = rhash(key);
    V* at = *bucket(hash);
    while (at != nullptr && link(at).zetHash_ < hash) at = next(at);
    while (at != nullptr && link(at).zetHash_ == hash && !(at->fwkKey() == key)) at = next(at);
    return at != nullptr && link(at).zetHash_ == hash ? at : nullptr;
  }

  /// Links a member whose key isn't in the map yet.
  void insert(Ptr<V> const& member) {
    V* m = member.ptr();
    V** slot = bucket(link(m).zetHash_);
    V* before = nullptr;
    for (V* at = *slot; at != nullptr && precedes(at, link(m).zetHash_, m->fwkKey()); at = next(at))
      before = at;
    V* after = before == nullptr ? *slot : next(before);
    ZET_ASSERT(!link(m).isLinked() && (after == nullptr || !hasKey(after, m)),
               "a new key and an unlinked member");
    nextIs(m, after);
    if (before == nullptr) {
      *slot = m;
    } else {
      nextIs(before, m);
    }
    m->newRef();
    ++size_;
    if (size_ > buckets()) grow();
  }

  /// Unlinks the member with that key and hands it to the caller; null if there is none.
  Ptr<V> remove(K const& key) {
    V* m = find(key);
    if (m == nullptr) return nullptr;
    V** slot = bucket(link(m).zetHash_);
    if (*slot == m) {
      *slot = next(m);
    } else {
      V* before = *slot;
      while (next(before) != m) before = next(before);
      nextIs(before, next(m));
    }
    Ptr<V> removed = release(m);
    --size_;
    if (bits_ != 0 && size_ <= buckets() / 4) shrink();
    return removed;
  }

  /// Drops all members; for a map whose owner goes.
  void clear() {
    while (!empty()) {
      for (Iterator at = iterator(); at; ++at) remove(at.key());
    }
    while (bits_ != 0) shrink();
  }

  /// The first member of the walk, or null.
  V* first() const { return size_ == 0 ? nullptr : firstFrom(0); }

  /// The member behind `member` in the walk, or null. `member` may have left the map meanwhile: the walk then
  /// goes on behind the place where it stood.
  V* after(V const* member) const {
    if (!link(member).isLinked()) return firstAbove(link(member).zetHash_, member->fwkKey());
    V* n = next(member);
    return n != nullptr ? n : firstFrom(bucketIndex(link(member).zetHash_) + 1);
  }

  /// The first member at or behind the place of `key`, or null.
  V* firstNotBefore(K const& key) const {
    V* found = find(key);
    return found != nullptr ? found : firstAbove(rhash(key), key);
  }

  /// A walk that holds the member on which it stands as a bookmark: members may come and go meanwhile, the
  /// one that it stands on included, and none is visited twice. The map itself must outlive it.
  class Iterator {
   public:
    Iterator() = default;
    Iterator(HashMap const* map, V* at) : map_(map), at_(at) {}
    explicit operator bool() const { return static_cast<bool>(at_); }
    V* operator->() const { return at_.ptr(); }
    V& operator*() const { return *at_; }
    Ptr<V> const& ptr() const { return at_; }
    K const& key() const { return at_->fwkKey(); }
    Iterator& operator++() {
      at_ = Ptr<V>(map_->after(at_.ptr()));
      return *this;
    }

   private:
    HashMap const* map_ = nullptr;
    Ptr<V> at_;
  };

  Iterator iterator() const { return Iterator(this, first()); }
  Iterator iteratorFrom(K const& key) const { return Iterator(this, firstNotBefore(key)); }

 private:
  static auto& link(V* v) { return static_cast<Keyed<K, typename V::ZetBase>&>(*v); }
  static auto const& link(V const* v) { return static_cast<Keyed<K, typename V::ZetBase> const&>(*v); }
  static V* next(V const* v) { return static_cast<V*>(link(v).zetNext_); }
  static void nextIs(V* v, V* n) { link(v).zetNext_ = n; }
  static bool precedes(V const* a, U32 hash, K const& key) {
    return link(a).zetHash_ < hash || (link(a).zetHash_ == hash && a->fwkKey() < key);
  }

  static bool hasKey(V const* a, V const* b) {
    return link(a).zetHash_ == link(b).zetHash_ && a->fwkKey() == b->fwkKey();
  }

  U32 buckets() const { return 1u << bits_; }
  U32 bucketIndex(U32 hash) const { return bits_ == 0 ? 0 : hash >> (32 - bits_); }
  V** bucket(U32 hash) const { return bits_ == 0 ? &one_ : &many_[hash >> (32 - bits_)]; }

  V* firstFrom(U32 index) const {
    if (bits_ == 0) return index == 0 ? one_ : nullptr;
    for (; index < buckets(); ++index) {
      if (many_[index] != nullptr) return many_[index];
    }
    return nullptr;
  }

  V* firstAbove(U32 hash, K const& key) const {
    V* at = *bucket(hash);
    while (at != nullptr && (precedes(at, hash, key) || at->fwkKey() == key)) at = next(at);
    return at != nullptr ? at : firstFrom(bucketIndex(hash) + 1);
  }

  Ptr<V> release(V* m) {
    link(m).zetNext_ = &link(m);
    Ptr<V> held(m);
    m->deleteRef();
    return held;
  }

  /// Splits each chain at the first member whose next hash bit is set.
  void grow() {
    if (bits_ == maxBits) return;
    V** table = new V*[2 * buckets()];
    for (U32 i = 0; i < buckets(); ++i) {
      V* chain = bits_ == 0 ? one_ : many_[i];
      V* last = nullptr;
      V* at = chain;
      while (at != nullptr && (link(at).zetHash_ >> (31 - bits_) & 1u) == 0) {
        last = at;
        at = next(at);
      }
      table[2 * i] = last == nullptr ? nullptr : chain;
      table[2 * i + 1] = at;
      if (last != nullptr) nextIs(last, nullptr);
    }
    if (bits_ != 0) delete[] many_;
    many_ = table;
    ++bits_;
  }

  /// Joins neighbouring chains.
  void shrink() {
    V** table = bits_ == 1 ? nullptr : new V*[buckets() / 2];
    V* joined = nullptr;
    for (U32 i = 0; i < buckets(); i += 2) {
      joined = many_[i];
      if (joined == nullptr) {
        joined = many_[i + 1];
      } else {
        V* last = joined;
        while (next(last) != nullptr) last = next(last);
        nextIs(last, many_[i + 1]);
      }
      if (table != nullptr) table[i / 2] = joined;
    }
    delete[] many_;
    --bits_;
    if (bits_ == 0) {
      one_ = joined;
    } else {
      many_ = table;
    }
  }

  static constexpr U32 maxBits = 28;

  union {
    mutable V* one_;  ///< the only bucket while bits_ is 0
    V** many_;        ///< 2 to the power of bits_ buckets
  };
  U32 size_ = 0;
  U32 bits_ = 0;
};

/// Member of a collection of plain values.
template <class V, class K>
class ValueMember final : public Keyed<K, PtrInterface> {
 public:
  ValueMember(K const& key, V const& v) : Keyed<K, PtrInterface>(key), value(v) {}
  V value;
};

template <class V, class K>
using ValueMap = HashMap<ValueMember<V, K>, K>;

}  // namespace Zet
