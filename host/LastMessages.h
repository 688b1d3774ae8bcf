#pragma once

#include <map>

#include "model/Packet.h"
#include "model/Status.h"
#include "runtime/MeteredLess.h"

namespace Routing::Pim::Bsr {
class PimBsrSm;
}

namespace pimbsr::host {

/// How the last Bootstrap Message of a zone's BSR reached this router.
struct LastMessage {
  Lanet::IntfId intfId;      ///< the interface on which it was received
  Lanet::IpGenAddr sender;   ///< the neighbor that sent it
  Zet::U16 fragmentTag = 0;  ///< the same in all fragments of one message (RFC 5059 section 4.1)
  bool forward = true;       ///< its No-Forward bit is clear
  double time = 0;           ///< when it was received, on the clock of Zet::now()
};

/// Notes from where each zone is learned.
class PIMBSR_API LastMessages {
 public:
  /// The last message of each zone.
  using ByZone = std::map<Lanet::IpGenPrefix, LastMessage, Zet::Meter::Less>;

  /// The root machine is read for as long as this object is used.
  explicit LastMessages(Routing::Pim::Bsr::PimBsrSm const& root) : root_(root) {}

  /// To be called for a Bootstrap Message that the gate has accepted; one that its zone's machine does not
  /// follow is not noted. The sender is that of the packet, since a message that was forwarded has lost its
  /// source. O(log n) of the zones; once per zone that has ended, O(n).
  void note(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& sender,
            Routing::Pim::Packet::BootstrapMessage const& message);
  /// The last one of a zone; null where none was received since the zone was forgotten. Valid until the next
  /// change.
  LastMessage const* find(Lanet::IpGenPrefix const& zone) const;
  /// Drops the note of a zone, if there is one.
  void forget(Lanet::IpGenPrefix const& zone) { byZone_.erase(zone); }
  /// Those of all zones, of which some may have ended.
  ByZone const& byZone() const { return byZone_; }

 private:
  void dropEnded();

  Routing::Pim::Bsr::PimBsrSm const& root_;
  ByZone byZone_;
};

}  // namespace pimbsr::host
