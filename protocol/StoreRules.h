#pragma once

#include "model/Packet.h"
#include "runtime/PtrInterface.h"

namespace Routing::Pim::Bsr {

/// What a host has the machines do with RP sets in place of their own rules. Each call comes from inside a
/// handler and must not write to the status tree, but for the set that PIM reads.
class PIMBSR_API StoreRules : public Zet::PtrInterface {
 public:
  /// Whether the RPs of a record that stay are taken before those that it withdraws.
  virtual bool takesWithdrawalsLast() const = 0;
  /// A record that withdraws RPs and has others was taken in that order.
  virtual void handleWithdrawnLast() = 0;

  /// The RP set of a zone is cleared next, since the zone's elected BSR changes.
  virtual void handleElection(Lanet::IpGenPrefix const& zone) = 0;
  /// Whether a group range, or an RP of it, stays in the set that PIM reads though its zone's set loses it.
  virtual bool keeps(Lanet::IpGenPrefix const& range) const = 0;
  virtual bool keeps(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const = 0;
  /// An RP of a zone's set was written to the set that PIM reads.
  virtual void handleMirrored(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) = 0;
  /// This router has sent a message as the BSR of a zone.
  virtual void handleOriginated(Lanet::IpGenPrefix const& zone, Packet::BootstrapMessage const& message) = 0;
};

}  // namespace Routing::Pim::Bsr
