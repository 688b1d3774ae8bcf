#include "sim/Wakeups.h"

namespace pimbsr::sim {

void Wakeups::wakeupIs(U32 node, double time) {
  if (node >= places_.size()) places_.resize(node + 1, outside);
  U32 index = places_[node];
  if (time == Kiv::never) {
    if (index != outside) remove(index);
    return;
  }
  if (index == outside) {
    index = static_cast<U32>(heap_.size());
    heap_.push_back({time, node});
  }
  sift(index, {time, node});
}

void Wakeups::remove(U32 index) {
  places_[heap_[index].node] = outside;
  Entry last = heap_.back();
  heap_.pop_back();
  if (index < heap_.size()) sift(index, last);
}

void Wakeups::place(U32 index, Entry const& entry) {
  heap_[index] = entry;
  places_[entry.node] = index;
}

/// Brings an entry from a place that is free to where it belongs.
void Wakeups::sift(U32 index, Entry const& entry) {
  for (; index > 0 && entry.before(heap_[(index - 1) / 2]); index = (index - 1) / 2) {
    place(index, heap_[(index - 1) / 2]);
  }
  for (U32 child = 2 * index + 1; child < heap_.size(); child = 2 * index + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1].before(heap_[child])) ++child;
    if (!heap_[child].before(entry)) break;
    place(index, heap_[child]);
    index = child;
  }
  place(index, entry);
}

}  // namespace pimbsr::sim
