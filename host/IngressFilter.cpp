#include "host/IngressFilter.h"

#include "wire/Message.h"

namespace pimbsr::host {

using Lanet::allPimRouters;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Zet::Ptr;

IngressFilter::IngressFilter(Routing::Pim::Bsr::PimBsrSm const& root,
                             Routing::Pim::Bsr::BootstrapMessageSm& gate, pim::NeighborTable& neighbors,
                             pim::Port const& port, IngressSettings const& settings)
    : neighbors_(neighbors),
      port_(port),
      settings_(settings),
      budgets_(neighbors, settings_),
      quotas_(root, gate, settings_) {
  neighbors_.maxAddressesIs(settings.neighborsPerInterface);
}

void IngressFilter::settingsIs(IngressSettings const& settings) {
  settings_ = settings;
  neighbors_.maxAddressesIs(settings.neighborsPerInterface);
  quotas_.handleSettings();
}

/// Of a PIM message of one byte at least.
static wire::MessageType typeOf(wire::Bytes pim) { return static_cast<wire::MessageType>(pim[0] & 0x0f); }

/// Whether a packet has no business beyond the link that it was sent on. A Hello or Bootstrap Message to a
/// unicast address has none either, but could be routed here.
static bool staysOnLink(wire::Ipv4Packet const& packet) {
  if (packet.destination.isMulticast()) return true;
  if (packet.payload.empty()) return false;
  wire::MessageType type = typeOf(packet.payload);
  return type == wire::MessageType::hello || type == wire::MessageType::bootstrap;
}

/// A sender that is this router itself is left to those who know what that means for their message.
DropReason IngressFilter::validateHeader(IntfId const& intfId, wire::Ipv4Packet const& packet) const {
  if (settings_.linkLocalTtl && packet.destination == allPimRouters && packet.ttl != 1)
    return DropReason::ttl;
  if (!settings_.onSubnet || !staysOnLink(packet)) return DropReason::none;
  IpGenAddr source(packet.source);
  bool isOnLink = port_.isOwnAddress(source) || port_.isOnSubnet(intfId, source);
  return isOnLink ? DropReason::none : DropReason::foreignSubnet;
}

Arrival IngressFilter::arrival(IntfId const& intfId, wire::Ipv4Packet const& packet) const {
  Arrival arrival{.source = packet.source,
                  .header = validateHeader(intfId, packet),
                  .cost = Budgets::costOf(packet.payload.size())};
  bool isRest = arrival.header != DropReason::none && packet.destination.isMulticast();
  if (!isRest) arrival.senderClass = budgets_.classOf(intfId, packet);
  return arrival;
}

DropReason IngressFilter::validateLength(wire::Bytes pim) const {
  if (settings_.bsmBytes == 0 || pim.size() <= settings_.bsmBytes) return DropReason::none;
  bool isBootstrap = typeOf(pim) == wire::MessageType::bootstrap;
  return isBootstrap ? DropReason::bsmTooLong : DropReason::none;
}

/// A goodbye Hello and one of this router itself add no neighbor.
DropReason IngressFilter::validateHello(IntfId const& intfId, wire::HelloMessage const& hello) const {
  if (settings_.linkLocalTtl && hello.dstAddr != IpGenAddr(allPimRouters))
    return DropReason::helloDestination;
  Ptr<pim::LinkNeighbors> link = neighbors_.link(intfId);
  if (!link || hello.holdtime == 0 || port_.isOwnAddress(hello.srcAddr)) return DropReason::none;
  return link->displacedBy(hello) ? DropReason::none : DropReason::neighborQuota;
}

DropReason IngressFilter::validateSender(IntfId const& intfId,
                                         Routing::Pim::Packet::BootstrapMessage const& message) const {
  if (port_.isOwnAddress(message.srcAddr())) return DropReason::none;
  bool isNeighbor = !settings_.fromNeighbors || !neighbors_.owner(intfId, message.srcAddr()).isEmpty();
  if (!isNeighbor) return DropReason::notNeighbor;
  bool isOwn = settings_.notOwnBsr && port_.isOwnAddress(message.bsrAddress());
  return isOwn ? DropReason::ownBsr : DropReason::none;
}

}  // namespace pimbsr::host
