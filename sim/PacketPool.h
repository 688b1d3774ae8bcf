#pragma once

#include <deque>
#include <span>
#include <vector>

#include "sim/EventQueue.h"

namespace pimbsr::sim {

using Bytes = std::span<U8 const>;

/// The packets on their way. One buffer serves all receivers of a packet, and is used again once the last of
/// them has it, so that a steady state allocates nothing.
class PacketPool {
 public:
  using Handle = U32;

  /// Copies a packet; the caller holds it.
  Handle add(Bytes packet) {
    if (free_.empty()) {
      free_.push_back(static_cast<Handle>(slots_.size()));
      slots_.emplace_back();
    }
    Handle handle = free_.back();
    free_.pop_back();
    slots_[handle].bytes.assign(packet.begin(), packet.end());
    slots_[handle].holders = 1;
    return handle;
  }
  void hold(Handle handle) { ++slots_[handle].holders; }
  void release(Handle handle) {
    if (--slots_[handle].holders == 0) free_.push_back(handle);
  }

  /// The bytes, which stay where they are while the packet is held.
  Bytes bytes(Handle handle) const { return slots_[handle].bytes; }
  /// Number of packets that are held.
  std::size_t held() const { return slots_.size() - free_.size(); }

 private:
  struct Slot {
    std::vector<U8> bytes;
    U32 holders = 0;
  };

  std::deque<Slot> slots_;
  std::vector<Handle> free_;
};

}  // namespace pimbsr::sim
