#include "pim/IoManager.h"

#include "wire/Wire.h"

namespace pimbsr::pim {

namespace Packet = Routing::Pim::Packet;
using Zet::Ptr;

/// TTL of an advertisement, which may travel many hops; the kernel's usual start value.
static constexpr U8 unicastTtl = 64;

Ptr<Routing::Pim::IO::PamManager> makePamManager() {
  auto manager = Routing::Pim::IO::pamManagerFactory();
  manager->txMessageInfoIs(Routing::Pim::IO::messageInfoFactory());
  manager->txPamCounterIs(Routing::Pim::IO::pamCounterFactory());
  return manager;
}

IoManager::IoManager(Ptr<Routing::Pim::IO::PamManager> const& manager, Port& port)
    : manager_(manager), port_(port) {
  notifierIs(manager->txMessageInfo());
}

void IoManager::onCount() {
  bool sent = false;
  if (auto bsm = notifier()->bootstrapMessage()) {
    sent = rewriter_ == nullptr ? sendBootstrap(*bsm) : rewriteBootstrap(bsm);
  } else if (auto adv = notifier()->crpAdvMessage()) {
    sent = sendCrpAdv(*adv);
  }
  if (sent) manager_->txPamCounter()->txCountInc(1);
}

/// A message that is not to leave counts as sent, since nothing failed.
bool IoManager::rewriteBootstrap(BsmRewriter::Message const& message) {
  bool sent = true;
  for (BsmRewriter::Message const& one : rewriter_->messagesFor(notifier()->intfId(), message))
    sent = sendBootstrap(*one) && sent;
  return sent;
}

bool IoManager::sendBootstrap(Packet::BootstrapMessage const& message) {
  Lanet::IntfId intfId = notifier()->intfId();
  Lanet::IpGenAddr source = port_.primaryAddress(intfId);
  if (source.isEmpty() || !wire::encodeBootstrap(message, payload_)) return false;
  wire::Ipv4Header header{.source = source.v4Addr(), .destination = Lanet::allPimRouters};
  return wire::encodeIpv4(header, payload_, packet_) && port_.send(intfId, packet_);
}

bool IoManager::sendCrpAdv(Packet::CrpAdvMessage const& message) {
  if (!wire::encodeCrpAdv(message, payload_)) return false;
  wire::Ipv4Header header{
      .source = message.srcAddr().v4Addr(), .destination = message.dstAddr().v4Addr(), .ttl = unicastTtl};
  return wire::encodeIpv4(header, payload_, packet_) && port_.send(notifier()->intfId(), packet_);
}

}  // namespace pimbsr::pim
