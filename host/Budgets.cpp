#include "host/Budgets.h"

#include "host/Limits.h"
#include "runtime/Context.h"
#include "wire/Message.h"

namespace pimbsr::host {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Zet::Ptr;

void NeighborBuckets::onNeighbor(IpGenAddr const& address) {
  buckets_.isPresentIs(address, notifier()->neighbor(address) != nullptr);
}

/// Version 2 in the upper half of the first byte, the type in the lower (RFC 7761 section 4.9).
static bool isHello(wire::Bytes pim) {
  return !pim.empty() && pim[0] == (0x20 | static_cast<U8>(wire::MessageType::hello));
}

/// The class is not looked for where nothing is charged.
SenderClass Budgets::classOf(IntfId const& intfId, wire::Ipv4Packet const& packet) const {
  if (!hasLimits(settings_)) return SenderClass::rest;
  if (!packet.destination.isMulticast()) return SenderClass::advertiser;
  if (!neighbors_.owner(intfId, packet.source).isEmpty()) return SenderClass::neighbor;
  return isHello(packet.payload) ? SenderClass::unknownHello : SenderClass::rest;
}

Budgets::Link& Budgets::link(IntfId const& intfId) {
  return links_.try_emplace(intfId, Zet::now()).first->second;
}

DropReason Budgets::charge(IntfId const& intfId, SenderClass senderClass, Lanet::IpAddr source, U32 cost) {
  if (!hasLimits(settings_)) return DropReason::none;
  switch (senderClass) {
    case SenderClass::neighbor:
      return chargeNeighbor(intfId, source, cost);
    case SenderClass::unknownHello: {
      bool taken = link(intfId).unknownHello.take(settings_.hellosPerSecond, Zet::now(), cost);
      return taken ? DropReason::none : DropReason::helloRateLimit;
    }
    case SenderClass::advertiser:
      return chargeAdvertiser(source, cost);
    case SenderClass::rest:
      break;
  }
  return chargeRest(link(intfId), cost);
}

DropReason Budgets::chargeRest(Link& link, U32 cost) {
  bool taken = link.rest.take(settings_.packetsPerSecond, Zet::now(), cost);
  return taken ? DropReason::none : DropReason::rateLimit;
}

/// An interface that was deleted and made again is another object, and its neighbors are others.
NeighborBuckets& Budgets::neighborBuckets(Link& link, Ptr<Routing::Pim::Intf const> const& intf) {
  bool isSame = link.neighbors && link.neighbors->notifier() == intf;
  if (!isSame) link.neighbors = Zet::make<NeighborBuckets>(intf);
  return *link.neighbors;
}

/// All addresses of a neighbor share a bucket.
DropReason Budgets::chargeNeighbor(IntfId const& intfId, IpGenAddr const& source, U32 cost) {
  if (settings_.packetsPerSecond == 0) return DropReason::none;
  Ptr<pim::LinkNeighbors> neighbors = neighbors_.link(intfId);
  NeighborBuckets& buckets = neighborBuckets(link(intfId), neighbors->notifier());
  TokenBucket& bucket = buckets.bucket(neighbors->owner(source), Zet::now());
  bool taken = bucket.take(settings_.packetsPerSecond, Zet::now(), cost);
  return taken ? DropReason::none : DropReason::neighborRateLimit;
}

/// A sender whose advertisement was accepted has a grant of its own, and what it sends beyond that competes
/// with unknown senders: a flood from either displaces no renewal of another sender.
DropReason Budgets::chargeAdvertiser(IpGenAddr const& source, U32 cost) {
  if (settings_.advertisementsPerSecond == 0 || advertisers_.take(source, Zet::now(), cost))
    return DropReason::none;
  bool taken = advertisements_.take(settings_.advertisementsPerSecond, Zet::now(), cost);
  return taken ? DropReason::none : DropReason::advertisementRateLimit;
}

void Budgets::handleMalformed(IntfId const& intfId, SenderClass senderClass) {
  if (senderClass != SenderClass::unknownHello || settings_.hellosPerSecond == 0) return;
  Link& link = this->link(intfId);
  if (chargeRest(link, 1) == DropReason::none) link.unknownHello.giveBack();
}

void Budgets::noteAdvertiser(IpGenAddr const& sender, U16 holdtime) {
  if (settings_.advertisementsPerSecond != 0)
    advertisers_.note(sender, holdtime, Zet::now(), settings_.advertisementSenders);
}

bool Budgets::takeAdvertisersChanged() { return advertisers_.takeSteadyChanged(Zet::now()); }

}  // namespace pimbsr::host
