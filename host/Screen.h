#pragma once

#include "host/Quotas.h"
#include "host/RateLimit.h"
#include "host/Refusal.h"
#include "host/Screening.h"
#include "model/Pim.h"
#include "pim/Port.h"
#include "wire/Wire.h"

namespace pimbsr::host {

/// Refuses what a router on a real network must not believe or can't afford, as far as its settings say. The
/// questions are asked in the order in which they stand here, as soon as a packet is read far enough.
class PIMBSR_API Screen {
 public:
  /// The machines, PIM's status and the port are used for as long as this object is.
  Screen(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
         Routing::Pim::Status const& pimStatus, pim::Port const& port, Screening const& settings)
      : pimStatus_(pimStatus), port_(port), settings_(settings), quotas_(root, gate, settings_) {}
  Screen(Screen const&) = delete;
  Screen& operator=(Screen const&) = delete;

  /// Replaces the settings. What stands beyond a lowered bound stays until it ends by itself.
  void settingsIs(Screening const& settings);
  Screening const& settings() const { return settings_; }

  /// Judges that a packet arrived at all, before anything of it is read.
  Refusal judgeArrival(Lanet::IntfId const& intfId);
  /// Judges a packet by its IP header.
  Refusal judgePacket(Lanet::IntfId const& intfId, wire::Ipv4Packet const& packet) const;
  /// Judges a Hello that would reach the interface's Hello machine.
  Refusal judgeHello(Lanet::IntfId const& intfId, wire::HelloMessage const& hello) const;
  /// Judges a Bootstrap Message by its sender (RFC 5059 section 3.1.3) and its BSR.
  Refusal judgeSender(Lanet::IntfId const& intfId,
                      Routing::Pim::Packet::BootstrapMessage const& message) const;
  /// Judges a message by what it would make the router keep. An advertisement must be for this router.
  Refusal judgeCost(Routing::Pim::Packet::BootstrapMessage const& message) { return quotas_.judge(message); }
  Refusal judgeCost(Routing::Pim::Packet::CrpAdvMessage const& message) { return quotas_.judge(message); }

  /// To be called when an interface has gone.
  void forget(Lanet::IntfId const& intfId) { rateLimit_.forget(intfId); }

 private:
  Routing::Pim::Status const& pimStatus_;
  pim::Port const& port_;
  Screening settings_;
  RateLimit rateLimit_;
  Quotas quotas_;
};

}  // namespace pimbsr::host
