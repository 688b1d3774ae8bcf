#include "host/Screen.h"

#include <algorithm>

#include "runtime/Context.h"
#include "wire/Message.h"

namespace pimbsr::host {

using Lanet::IntfId;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Routing::Pim::Intf;
using Routing::Pim::Neighbor;
using Zet::Ptr;

/// 224.0.0.13, where PIM routers listen (RFC 7761 section 4.9).
static IpAddr allPimRouters() { return IpAddr::fromHost(0xe000000d); }

void Screen::settingsIs(Screening const& settings) {
  settings_ = settings;
  quotas_.handleSettings();
}

Refusal Screen::judgeArrival(IntfId const& intfId) {
  if (settings_.packetsPerSecond == 0) return Refusal::none;
  bool taken = rateLimit_.take(intfId, settings_.packetsPerSecond, Zet::now());
  return taken ? Refusal::none : Refusal::rateLimit;
}

/// Whether a packet has no business beyond the link that it was sent on. A Hello or Bootstrap Message to a
/// unicast address has none either, but could be routed here.
static bool staysOnLink(wire::Ipv4Packet const& packet) {
  if (packet.destination.isMulticast()) return true;
  if (packet.payload.empty()) return false;
  auto type = static_cast<wire::MessageType>(packet.payload[0] & 0x0f);
  return type == wire::MessageType::hello || type == wire::MessageType::bootstrap;
}

/// A sender that is this router itself is left to those who know what that means for their message.
Refusal Screen::judgePacket(IntfId const& intfId, wire::Ipv4Packet const& packet) const {
  if (settings_.linkLocalTtl && packet.destination == allPimRouters() && packet.ttl != 1) return Refusal::ttl;
  if (!settings_.onSubnet || !staysOnLink(packet)) return Refusal::none;
  IpGenAddr source(packet.source);
  bool isAtHome = port_.isOwnAddress(source) || port_.isOnSubnet(intfId, source);
  return isAtHome ? Refusal::none : Refusal::foreignSubnet;
}

/// All addresses that are kept of an interface's neighbours.
static U64 addressesOf(Intf const& intf) {
  U64 addresses = 0;
  for (auto at = intf.neighborIterator(); at; ++at) addresses += 1 + at->secondaryCount();
  return addresses;
}

/// A neighbour's further addresses count as neighbours do, since each is kept and looked for. A Hello that
/// tells no more than is known of its sender passes at any bound.
Refusal Screen::judgeHello(IntfId const& intfId, wire::HelloMessage const& hello) const {
  if (settings_.linkLocalTtl && hello.dstAddr != IpGenAddr(allPimRouters())) return Refusal::helloDestination;
  Ptr<Intf> intf = pimStatus_.pimIntf(intfId);
  if (settings_.neighborsPerInterface == 0 || !intf || hello.holdtime == 0) return Refusal::none;
  if (port_.isOwnAddress(hello.srcAddr)) return Refusal::none;
  auto const& list = hello.addressList;
  U64 told = 1 + list.size() - static_cast<U64>(std::count(list.begin(), list.end(), hello.srcAddr));
  Ptr<Neighbor> neighbor = intf->neighbor(hello.srcAddr);
  U64 known = neighbor ? 1 + neighbor->secondaryCount() : 0;
  if (told <= known) return Refusal::none;
  bool isBeyond = addressesOf(*intf) - known + told > settings_.neighborsPerInterface;
  return isBeyond ? Refusal::neighborQuota : Refusal::none;
}

static bool isNeighbor(Intf const& intf, IpGenAddr const& address) {
  if (intf.neighbor(address)) return true;
  for (auto at = intf.neighborIterator(); at; ++at) {
    if (at->secondary(address)) return true;
  }
  return false;
}

Refusal Screen::judgeSender(IntfId const& intfId,
                            Routing::Pim::Packet::BootstrapMessage const& message) const {
  if (port_.isOwnAddress(message.srcAddr())) return Refusal::none;
  if (settings_.fromNeighbors) {
    Ptr<Intf> intf = pimStatus_.pimIntf(intfId);
    if (!intf || !isNeighbor(*intf, message.srcAddr())) return Refusal::notNeighbor;
  }
  bool isOwn = settings_.notOwnBsr && port_.isOwnAddress(message.bsrAddress());
  return isOwn ? Refusal::ownBsr : Refusal::none;
}

}  // namespace pimbsr::host
