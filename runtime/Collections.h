#pragma once

#include <algorithm>
#include <map>
#include <vector>

#include "runtime/HashMap.h"
#include "runtime/Ptr.h"

namespace Zet {

/// Array of any length, from index 0.
template <class T>
using DynArray = std::vector<T>;

/// Map in ascending order of its keys.
template <class K, class V>
using RbTreeMap = std::map<K, V>;

/// Queue of counted members in ascending order of an unsigned number, their key. Enqueuing without a key
/// appends: the key is one above the last.
template <class T>
class LinkQueue {
 public:
  bool empty() const { return members_.empty(); }
  U32 size() const { return static_cast<U32>(members_.size()); }

  /// Appends and returns the key given.
  U32 enq(Ptr<T> const& member) {
    U32 key = members_.empty() ? 0 : members_.back().key + 1;
    members_.push_back({key, member});
    return key;
  }
  /// Puts a member at its key's place, replacing one that has the same key.
  void memberIs(U32 key, Ptr<T> const& member) {
    auto at = place(key);
    if (at != members_.end() && at->key == key) {
      at->member = member;
    } else {
      members_.insert(at, {key, member});
    }
  }
  Ptr<T> member(U32 key) const {
    auto at = const_cast<LinkQueue*>(this)->place(key);
    return at != members_.end() && at->key == key ? at->member : Ptr<T>();
  }
  /// The member with the lowest key; null when empty.
  Ptr<T> first() const { return members_.empty() ? Ptr<T>() : members_.front().member; }
  /// Removes the member with that key; false if there is none.
  bool del(U32 key) {
    auto at = place(key);
    if (at == members_.end() || at->key != key) return false;
    members_.erase(at);
    return true;
  }
  void clear() { members_.clear(); }

  /// A walk in order of the keys. Members may be enqueued or removed meanwhile.
  class Iterator {
   public:
    explicit Iterator(LinkQueue const* queue) : queue_(queue) {}
    explicit operator bool() const { return index_ < queue_->members_.size(); }
    T* operator->() const { return queue_->members_[index_].member.ptr(); }
    T& operator*() const { return *operator->(); }
    Ptr<T> const& ptr() const { return queue_->members_[index_].member; }
    U32 key() const { return queue_->members_[index_].key; }
    Iterator& operator++() {
      ++index_;
      return *this;
    }

   private:
    LinkQueue const* queue_;
    std::size_t index_ = 0;
  };
  Iterator iterator() const { return Iterator(this); }

 private:
  struct Member {
    U32 key;
    Ptr<T> member;
  };
  auto place(U32 key) {
    return std::lower_bound(members_.begin(), members_.end(), key,
                            [](Member const& m, U32 k) { return m.key < k; });
  }

  std::vector<Member> members_;
};

}  // namespace Zet
