#pragma once

#include <vector>

#include "runtime/Meter.h"
#include "runtime/Ptr.h"

namespace Zet {

/// Link of an object that is in at most one ListRaw.
template <class T>
struct ListRawLink {
  T* next = nullptr;      ///< null in the last entry
  T* previous = nullptr;  ///< in the first entry it is the last one; null outside of a list
};

/// Plain list of the notifiees of one notifier, in order of insertion. It holds no references, one pointer is
/// all its size, and inserting and removing cost the same however long it is. T derives from ListRawLink<T>.
template <class T>
class ListRaw {
 public:
  ListRaw() = default;
  ListRaw(ListRaw const&) = delete;
  ListRaw& operator=(ListRaw const&) = delete;

  /// Whether it has no entries.
  bool empty() const { return head_ == nullptr; }
  /// The first entry; null when empty.
  T* front() const { return head_; }
  /// The entry after `entry`, null after the last.
  T* after(T const* entry) const {
    Meter::visit();
    return entry->ListRawLink<T>::next;
  }
  /// Counts by a walk.
  U32 size() const {
    U32 n = 0;
    for (T* at = head_; at != nullptr; at = after(at)) ++n;
    return n;
  }

  /// Appends an entry, which must be in no list.
  void insert(T* entry) {
    ListRawLink<T>& link = *entry;
    link.next = nullptr;
    if (head_ == nullptr) {
      head_ = entry;
      link.previous = entry;
      return;
    }
    T* last = linkOf(head_).previous;
    linkOf(last).next = entry;
    link.previous = last;
    linkOf(head_).previous = entry;
  }

  /// Removes an entry, which must be in this list.
  void remove(T* entry) {
    ListRawLink<T>& link = *entry;
    T* next = link.next;
    if (next != nullptr) linkOf(next).previous = link.previous;
    if (entry == head_) {
      head_ = next;
    } else {
      linkOf(link.previous).next = next;
      if (next == nullptr) linkOf(head_).previous = link.previous;
    }
    link = {};
  }

 private:
  static ListRawLink<T>& linkOf(T* entry) { return *entry; }

  T* head_ = nullptr;  ///< its `previous` is the last entry
};

/// A walk over a copy of a list. The copy counts its entries, so that none is destroyed during the walk; an
/// entry after the first that only the copy still holds when the walk reaches it is passed over.
template <class L>
class SnapshotIterator;

/// The walk over a ListRaw.
template <class T>
class SnapshotIterator<ListRaw<T>> {
 public:
  /// Copies the list and begins at its first entry.
  explicit SnapshotIterator(ListRaw<T> const& list) {
    for (T* at = list.front(); at != nullptr; at = list.after(at)) add(at);
  }
  SnapshotIterator(SnapshotIterator const&) = delete;
  SnapshotIterator& operator=(SnapshotIterator const&) = delete;
  ~SnapshotIterator() {
    for (; index_ < size_; ++index_) entry(index_)->deleteRef();
  }

  explicit operator bool() const { return index_ < size_; }
  T& operator*() const { return *entry(index_); }
  T* operator->() const { return entry(index_); }

  SnapshotIterator& operator++() {
    do {
      entry(index_)->deleteRef();
      ++index_;
    } while (index_ < size_ && entry(index_)->references() == 1);
    return *this;
  }

 private:
  static constexpr U32 inlineEntries = 8;

  void add(T* at) {
    at->newRef();
    if (size_ < inlineEntries) {
      inline_[size_] = at;
    } else {
      more_.push_back(at);
    }
    ++size_;
  }
  T* entry(U32 i) const { return i < inlineEntries ? inline_[i] : more_[i - inlineEntries]; }

  T* inline_[inlineEntries];  ///< each entry from index_ on is counted
  std::vector<T*> more_;
  U32 size_ = 0;
  U32 index_ = 0;
};

}  // namespace Zet
