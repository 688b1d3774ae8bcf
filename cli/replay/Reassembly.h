#pragma once

#include <optional>
#include <vector>

#include "wire/Wire.h"

namespace pimbsr::cli {

using Zet::U16;
using Zet::U32;
using Zet::U8;

/// Puts fragmented IPv4 packets of PIM together, as the kernel of a receiving host does (RFC 791 section
/// 3.2). Packets are distinguished by source, destination and identification. Fragments may come in any
/// order, and twice.
///
/// A packet never becomes complete if one of its fragments is missing, overlaps another one with other bounds
/// or other bytes (RFC 5722), or reaches beyond the longest packet. It stays until its time is over, so that
/// its other fragments make no new one.
class Reassembly {
 public:
  static constexpr std::size_t maxPackets = 64;  ///< incomplete ones that are kept
  static constexpr double maxAge = 30;           ///< seconds from the first fragment to arrive

  /// An incomplete packet that is given up.
  struct Lost {
    double time = 0;             ///< when, in seconds
    std::vector<U8> fragment{};  ///< the fragment that arrived first
  };

  /// Takes a fragment at a time in seconds, which never runs back. It is one that wire::parseIpv4 drops as
  /// ipFragment. Gives the packet that it completes, with a header without options; empty if there is
  /// none.
  std::vector<U8> add(double time, wire::Bytes fragment);
  /// Removes and gives the oldest incomplete packet, if its time is over at `time` or more than maxPackets
  /// are kept.
  std::optional<Lost> takeLost(double time);
  /// Removes the oldest incomplete packet, and gives the fragment of it that arrived first.
  std::optional<std::vector<U8>> takeOldest();

 private:
  /// A fragment as its header describes it.
  struct Fragment;
  /// An incomplete packet.
  struct Packet {
    explicit Packet(double time, Fragment const& fragment, wire::Bytes bytes);

    bool matches(Fragment const& fragment) const;
    void put(Fragment const& fragment);
    bool contradicts(Fragment const& fragment) const;
    void copy(Fragment const& fragment);
    bool isComplete() const { return !isBroken && size != 0 && held == size; }

    double time;            ///< of its first fragment
    std::vector<U8> first;  ///< that fragment
    wire::Ipv4Header header;
    std::vector<U8> payload{};
    std::vector<bool> blocks{};  ///< which units of 8 bytes of the payload are held
    std::size_t held = 0;        ///< bytes of the payload
    std::size_t size = 0;        ///< of the whole payload; 0 while its last fragment is missing
    bool isBroken = false;       ///< it can't become complete
  };

  Packet& packetOf(double time, Fragment const& fragment, wire::Bytes bytes);

  std::vector<Packet> packets_;  ///< in the order of their first fragments
};

}  // namespace pimbsr::cli
