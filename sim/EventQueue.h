#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "runtime/TimerWheel.h"
#include "runtime/Types.h"

namespace pimbsr::sim {

using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// Events in virtual time: they come out in order of their times, and at one time in the order in which they
/// were put in.
template <class Event>
class EventQueue {
 public:
  /// Puts an event in, to come out at a time in seconds.
  void push(double time, Event event) {
    entries_.push_back({time, sequence_++, std::move(event)});
    std::push_heap(entries_.begin(), entries_.end(), isLater);
  }
  /// Takes the first event out; there must be one.
  Event pop() {
    std::pop_heap(entries_.begin(), entries_.end(), isLater);
    Event event = std::move(entries_.back().event);
    entries_.pop_back();
    return event;
  }

  /// Time of the first event; Kiv::never if there is none.
  double nextTime() const { return entries_.empty() ? Kiv::never : entries_.front().time; }
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    double time;
    U64 sequence;
    Event event;
  };

  static bool isLater(Entry const& a, Entry const& b) {
    return a.time > b.time || (a.time == b.time && a.sequence > b.sequence);
  }

  std::vector<Entry> entries_;
  U64 sequence_ = 0;
};

}  // namespace pimbsr::sim
