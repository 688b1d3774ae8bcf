#pragma once

#include "host/Budgets.h"
#include "host/IngressSettings.h"
#include "host/Quotas.h"
#include "model/DropReason.h"
#include "pim/NeighborTable.h"
#include "pim/Port.h"
#include "wire/Wire.h"

namespace pimbsr::host {

/// What the IP header of a packet says of it.
struct Arrival {
  SenderClass senderClass = SenderClass::rest;
  Lanet::IpAddr source;                  ///< unset if there was no header to read
  DropReason header = DropReason::none;  ///< why the packet is dropped by its header
  U32 cost = 1;                          ///< as of Budgets::costOf()
};

/// Drops what a router on a real network must not accept or can't afford, as far as its settings say. The
/// checks are made in the order in which they are declared here, as soon as a packet is read far enough.
class PIMBSR_INTERNAL IngressFilter {
 public:
  /// The machines, the neighbors and the port are used for as long as this object is. The settings bound the
  /// neighbors.
  IngressFilter(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
                pim::NeighborTable& neighbors, pim::Port const& port, IngressSettings const& settings);
  IngressFilter(IngressFilter const&) = delete;
  IngressFilter& operator=(IngressFilter const&) = delete;

  /// Replaces the settings. Entries beyond a lowered bound stay until they end by themselves.
  void settingsIs(IngressSettings const& settings);
  IngressSettings const& settings() const { return settings_; }

  /// Validates a packet by its IP header. A packet that fails is charged to the rest: one with a forged
  /// address of a neighbor costs the neighbor nothing.
  Arrival arrival(Lanet::IntfId const& intfId, wire::Ipv4Packet const& packet) const;
  /// Charges a packet to the budget of its sender; a packet without a readable IP header is of the rest.
  DropReason charge(Lanet::IntfId const& intfId, Arrival const& arrival) {
    return budgets_.charge(intfId, arrival.senderClass, arrival.source, arrival.cost);
  }
  /// Validates the length of a Bootstrap Message before it is decoded; other messages have none.
  DropReason validateLength(wire::Bytes pim) const;
  /// To be called for a charged packet that turned out malformed.
  void handleMalformed(Lanet::IntfId const& intfId, Arrival const& arrival) {
    budgets_.handleMalformed(intfId, arrival.senderClass);
  }
  /// To be called for an advertisement that was accepted.
  void noteAdvertisement(Routing::Pim::Packet::CrpAdvMessage const& message) {
    budgets_.noteAdvertiser(message.srcAddr(), message.holdtime());
  }
  Budgets const& budgets() const { return budgets_; }
  /// Whether Budgets::steadyAdvertisers() has changed since the last call.
  bool takeAdvertisersChanged() { return budgets_.takeAdvertisersChanged(); }
  /// Validates a Hello that would reach the interface's HelloSm, which makes room for it in a full table.
  DropReason validateHello(Lanet::IntfId const& intfId, wire::HelloMessage const& hello) const;
  /// Validates a Bootstrap Message by its sender (RFC 5059 section 3.1.3) and its BSR.
  DropReason validateSender(Lanet::IntfId const& intfId,
                            Routing::Pim::Packet::BootstrapMessage const& message) const;
  /// Kept RPs count in the bound of RPs and make room for others; null, as at first, for none.
  void holdOverIs(HoldOver* holdOver) { quotas_.holdOverIs(holdOver); }
  /// Validates a message by what it would make the router keep. An advertisement must be for this router.
  Quotas::Verdict validateCost(Routing::Pim::Packet::BootstrapMessage& message) {
    return quotas_.validate(message);
  }
  DropReason validateCost(Routing::Pim::Packet::CrpAdvMessage const& message, PreferredRps const& preferred) {
    return quotas_.validate(message, preferred);
  }

  /// To be called when an interface has gone.
  void forget(Lanet::IntfId const& intfId) { budgets_.forget(intfId); }

 private:
  DropReason validateHeader(Lanet::IntfId const& intfId, wire::Ipv4Packet const& packet) const;

  pim::NeighborTable& neighbors_;
  pim::Port const& port_;
  IngressSettings settings_;
  Budgets budgets_;
  Quotas quotas_;
};

}  // namespace pimbsr::host
