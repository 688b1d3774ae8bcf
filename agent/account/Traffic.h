#pragma once

#include <array>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "host/Reception.h"

namespace pimbsr::agent {

using Zet::U64;
using Zet::U8;

/// Packets of one kind on one interface.
struct PacketCounts {
  U64 received = 0;  ///< with those dropped
  U64 dropped = 0;
  U64 sent = 0;
  U64 sendFailed = 0;  ///< not accepted by the kernel

  bool operator==(PacketCounts const&) const = default;
};

/// Packets of one interface, by kind.
using InterfaceCounts = std::map<host::MessageKind, PacketCounts>;

/// Counts packets by interface and kind. Interfaces are those that speak PIM; an advertisement sent by the
/// unicast route to its BSR is counted under the empty name.
class Traffic {
 public:
  void noteReceived(std::string_view intf, host::Reception const& reception);
  /// Notes one packet, from its IP header on, that was given to the kernel.
  void noteSent(std::string_view intf, std::span<U8 const> packet, bool sent);
  /// Notes packets from an address of the interface that another system sent.
  void noteDuplicates(std::string_view intf, U64 packets);
  /// How many were noted.
  U64 duplicates(std::string_view intf) const;
  /// Forgets the counts of an interface that is gone.
  void forget(std::string_view intf);
  /// Sets all counts back to 0.
  void clear();

  /// Counts by interface; one without any packet since the start isn't there.
  std::map<std::string, InterfaceCounts, std::less<>> const& byInterface() const { return byInterface_; }

 private:
  PacketCounts& counts(std::string_view intf, host::MessageKind kind);

  std::map<std::string, InterfaceCounts, std::less<>> byInterface_;
  std::map<std::string, U64, std::less<>> duplicates_;  ///< by interface; those with any
};

/// The kind of an IPv4 packet that this router made; notPim for one without PIM.
host::MessageKind kindOfSent(std::span<U8 const> packet);

}  // namespace pimbsr::agent
