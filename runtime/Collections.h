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
  struct Member {
    U32 key = 0;
    Ptr<T> member;
  };

 public:
  /// Whether it has no members.
  bool empty() const { return members_.empty(); }
  /// Number of members.
  U32 size() const { return static_cast<U32>(members_.size()); }

  /// Appends and returns the key given.
  U32 enq(ValidPtr<T> const& member) {
    U32 key = members_.empty() ? 0 : members_.back().key + 1;
    members_.push_back({key, member});
    return key;
  }
  /// Puts a member at its key's place, replacing one that has the same key.
  void memberIs(U32 key, ValidPtr<T> const& member) {
    auto at = place(key);
    if (at != members_.end() && at->key == key) {
      at->member = member;
    } else {
      members_.insert(at, {key, member});
    }
  }
  /// The member with that key; null if there is none.
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
  /// Removes all members; the next key that enq() gives is 0.
  void clear() { members_.clear(); }

  /// A walk in order of the keys that holds its present member as a bookmark: members may be enqueued or
  /// removed meanwhile. The queue itself must outlive it.
  class Iterator {
   public:
    /// Begins at the member with the lowest key; at the end for an empty queue.
    explicit Iterator(LinkQueue const* queue) : queue_(queue) { moveTo(queue->members_.begin()); }
    explicit operator bool() const { return static_cast<bool>(at_.member); }
    T* operator->() const { return at_.member.ptr(); }
    T& operator*() const { return *at_.member; }
    /// The present member; null at the end.
    Ptr<T> const& ptr() const { return at_.member; }
    /// The present member's key; 0 at the end.
    U32 key() const { return at_.key; }
    Iterator& operator++() {
      moveTo(std::upper_bound(queue_->members_.begin(), queue_->members_.end(), at_.key,
                              [](U32 k, Member const& m) { return k < m.key; }));
      return *this;
    }

   private:
    void moveTo(typename std::vector<Member>::const_iterator at) {
      at_ = at != queue_->members_.end() ? *at : Member();
    }

    LinkQueue const* queue_;
    Member at_;
  };
  /// A walk from the lowest key on.
  Iterator iterator() const { return Iterator(this); }

 private:
  auto place(U32 key) {
    return std::lower_bound(members_.begin(), members_.end(), key,
                            [](Member const& m, U32 k) { return m.key < k; });
  }

  std::vector<Member> members_;
};

}  // namespace Zet
