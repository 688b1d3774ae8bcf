#pragma once

#include <vector>

#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// When the timers of each router are due next: one entry per router, in a heap that knows the place of each,
/// so that moving one costs little however many routers there are.
class Wakeups {
 public:
  /// Sets when router number `node` is to wake up, replacing what was set; Kiv::never for not at all. At one
  /// time, the router with the lowest number comes first.
  void wakeupIs(U32 node, double time);

  /// Time of the first wakeup; Kiv::never if there is none.
  double nextTime() const { return heap_.empty() ? Kiv::never : heap_.front().time; }
  /// The router that wakes up then; there must be one.
  U32 nextNode() const { return heap_.front().node; }

 private:
  struct Entry {
    double time;
    U32 node;
    bool before(Entry const& other) const {
      return time < other.time || (time == other.time && node < other.node);
    }
  };
  static constexpr U32 outside = ~U32{0};

  void remove(U32 index);
  void place(U32 index, Entry const& entry);
  void sift(U32 index, Entry const& entry);

  std::vector<Entry> heap_;
  std::vector<U32> places_;  ///< index in the heap by router
};

}  // namespace pimbsr::sim
