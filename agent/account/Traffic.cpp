#include "agent/account/Traffic.h"

namespace pimbsr::agent {

using host::MessageKind;

/// Types of PIM messages (RFC 7761 section 4.9).
static constexpr unsigned typeHello = 0;
static constexpr unsigned typeBootstrap = 4;
static constexpr unsigned typeCrpAdv = 8;

MessageKind kindOfSent(std::span<U8 const> packet) {
  std::size_t header = packet.empty() ? 0 : std::size_t{4} * (packet[0] & 0x0fu);
  if (packet.size() <= header) return MessageKind::notPim;
  switch (packet[header] & 0x0fu) {
    case typeHello:
      return MessageKind::hello;
    case typeBootstrap:
      return MessageKind::bootstrap;
    case typeCrpAdv:
      return MessageKind::crpAdv;
    default:
      return MessageKind::other;
  }
}

void Traffic::noteDuplicates(std::string_view intf, U64 packets) {
  auto at = duplicates_.find(intf);
  if (at == duplicates_.end()) at = duplicates_.emplace(intf, 0).first;
  at->second += packets;
}

U64 Traffic::duplicates(std::string_view intf) const {
  auto at = duplicates_.find(intf);
  return at == duplicates_.end() ? 0 : at->second;
}

void Traffic::forget(std::string_view intf) {
  if (auto at = byInterface_.find(intf); at != byInterface_.end()) byInterface_.erase(at);
  if (auto at = duplicates_.find(intf); at != duplicates_.end()) duplicates_.erase(at);
}

void Traffic::clear() {
  byInterface_.clear();
  duplicates_.clear();
}

PacketCounts& Traffic::counts(std::string_view intf, MessageKind kind) {
  auto at = byInterface_.find(intf);
  if (at == byInterface_.end()) at = byInterface_.emplace(intf, InterfaceCounts()).first;
  return at->second[kind];
}

void Traffic::noteReceived(std::string_view intf, host::Reception const& reception) {
  PacketCounts& kind = counts(intf, reception.kind);
  ++kind.received;
  if (reception.dropped()) ++kind.dropped;
}

void Traffic::noteSent(std::string_view intf, std::span<U8 const> packet, bool sent) {
  PacketCounts& kind = counts(intf, kindOfSent(packet));
  ++(sent ? kind.sent : kind.sendFailed);
}

}  // namespace pimbsr::agent
