#pragma once

#include <map>
#include <span>
#include <vector>

#include "host/IngressSettings.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Keeps all fragments of the message that a zone's machine keeps for new neighbors: the machine keeps the
/// last one alone. Fragments of one message have one tag and come within BS_Min_Interval, the least time
/// between two messages of a BSR (RFC 5059 section 5).
class PIMBSR_API BsmPieces {
 public:
  using Message = Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>;

  /// Both are read for as long as this object is. What is kept of a zone is bounded by IngressSettings::rps.
  BsmPieces(Routing::Pim::Bsr::PimBsrSm const& root, IngressSettings const& settings)
      : root_(root), settings_(settings) {}

  /// To be called for a Bootstrap Message that the gate has accepted.
  void handleAccepted(Message const& message);
  /// All fragments of a message that its zone's machine keeps, this one among them; none if it came whole.
  std::span<Message const> fragmentsOf(Message const& kept) const;
  /// Forgets what is kept of a zone.
  void forget(Lanet::IpGenPrefix const& zone) { kept_.erase(zone); }
  /// Forgets everything.
  void clear() { kept_.clear(); }

 private:
  struct Kept {
    std::vector<Message> fragments;
    double lastAt = 0;
    U32 records = 0;  ///< group records and RPs in them
  };

  Message lastOf(Lanet::IpGenPrefix const& zone) const;
  void dropEnded();
  static bool continues(Kept const& kept, Message const& message);

  Routing::Pim::Bsr::PimBsrSm const& root_;
  IngressSettings const& settings_;
  std::map<Lanet::IpGenPrefix, Kept> kept_;  ///< by zone
};

}  // namespace pimbsr::host
