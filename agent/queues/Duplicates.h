#pragma once

#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "runtime/Types.h"

namespace pimbsr::agent {

using Zet::U64;
using Zet::U8;

/// Finds further copies of a packet that several receive queues hold: the kernel gives all the same time, and
/// the bytes are the same.
///
/// It keeps the latest maxPackets packets; a packet that a flood pushed out of it isn't found any more.
class Duplicates {
 public:
  static constexpr std::size_t maxPackets = 16384;

  /// Notes a packet, from its IP header on, with its time; returns whether it was noted before.
  bool isSecond(U64 time, std::span<U8 const> packet) {
    std::string_view bytes(reinterpret_cast<char const*>(packet.data()), packet.size());
    bool isNew = packets_.emplace(time, std::hash<std::string_view>()(bytes)).second;
    if (packets_.size() > maxPackets) packets_.erase(packets_.begin());
    return !isNew;
  }
  void clear() { packets_.clear(); }

 private:
  std::set<std::pair<U64, std::size_t>> packets_;  ///< by time, and a hash of the bytes
};

}  // namespace pimbsr::agent
