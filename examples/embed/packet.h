#pragma once

#include <wire/Wire.h>

#include <vector>

/// A Bootstrap Message as a neighbor would send it: BSR 198.51.100.1 with one RP for all groups.
inline std::vector<Zet::U8> bootstrapPacket() {
  namespace Packet = Routing::Pim::Packet;
  auto group = Zet::make<Packet::BootstrapGroupData>(Lanet::IpGenPrefix::parse("224.0.0.0/4"));
  group->rpCountIs(1);
  group->fragRpCountIs(1);
  group->rpListIs(Lanet::IpGenAddr::parse("203.0.113.1"))->rpHoldtimeIs(100);
  auto message = Zet::make<Packet::BootstrapMessage>();
  message->bsrAddressIs(Lanet::IpGenAddr::parse("198.51.100.1"));
  message->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  message->groupRpData()->groupDataEnq(group);
  std::vector<Zet::U8> pim;
  std::vector<Zet::U8> packet;
  pimbsr::wire::Ipv4Header header{.source = Lanet::IpAddr::parse("192.0.2.1"),
                                  .destination = Lanet::IpAddr::parse("224.0.0.13")};
  bool encoded =
      pimbsr::wire::encodeBootstrap(*message, pim) && pimbsr::wire::encodeIpv4(header, pim, packet);
  return encoded ? packet : std::vector<Zet::U8>();
}
