#include "cli/capture/LinkLayer.h"

#include <pcap/pcap.h>

#include "wire/Reader.h"

namespace pimbsr::cli {

using wire::Reader;

namespace {

constexpr Zet::U16 typeIpv4 = 0x0800;
constexpr Zet::U16 typeIpv6 = 0x86dd;

bool isVlanTag(Zet::U16 type) { return type == 0x8100 || type == 0x88a8 || type == 0x9100; }

/// The IP packet that follows an EtherType.
IpPacket ofEtherType(Zet::U16 type, Reader in) {
  while (isVlanTag(type) && in.ok()) {
    in.bytes(2);
    type = in.u16();
  }
  if (!in.ok()) return {};
  if (type == typeIpv4) return {4, in.rest()};
  if (type == typeIpv6) return {6, in.rest()};
  return {};
}

IpPacket ofEthernet(Reader in) {
  in.bytes(12);
  Zet::U16 type = in.u16();
  return ofEtherType(type, in);
}

IpPacket ofCooked(Reader in) {
  in.bytes(14);
  Zet::U16 type = in.u16();
  return ofEtherType(type, in);
}

IpPacket ofCooked2(Reader in) {
  Zet::U16 type = in.u16();
  in.bytes(18);
  return ofEtherType(type, in);
}

IpPacket ofRaw(Reader in) {
  std::span<U8 const> bytes = in.rest();
  int version = in.u8() >> 4;
  return version == 4 || version == 6 ? IpPacket{version, bytes} : IpPacket{};
}

IpPacket ofIpv4(Reader in) { return {4, in.rest()}; }

IpPacket ofIpv6(Reader in) { return {6, in.rest()}; }

/// The address family of BSD loopback is in the byte order of the capturing host or, in the newer form,
/// in network order. Its number for IPv6 differs from system to system.
IpPacket ofLoopback(Reader in) {
  U32 family = in.u32();
  if (!in.ok()) return {};
  if (family > 0xffff) family = __builtin_bswap32(family);
  if (family == 2) return {4, in.rest()};
  bool isIpv6 = family == 10 || family == 24 || family == 28 || family == 30;
  return isIpv6 ? IpPacket{6, in.rest()} : IpPacket{};
}

struct LinkType {
  int number;
  IpPacket (*read)(Reader frame);
};

constexpr LinkType linkTypes[] = {
    {DLT_EN10MB, ofEthernet}, {DLT_LINUX_SLL, ofCooked}, {DLT_LINUX_SLL2, ofCooked2}, {DLT_RAW, ofRaw},
    {DLT_IPV4, ofIpv4},       {DLT_IPV6, ofIpv6},        {DLT_NULL, ofLoopback},      {DLT_LOOP, ofLoopback},
};

LinkType const* linkTypeOf(int number) {
  for (LinkType const& one : linkTypes) {
    if (one.number == number) return &one;
  }
  return nullptr;
}

}  // namespace

bool isLinkTypeKnown(int linkType) { return linkTypeOf(linkType) != nullptr; }

std::string knownLinkTypes() {
  return "Ethernet (EN10MB), Linux cooked (LINUX_SLL, LINUX_SLL2), raw IP (RAW, IPV4, IPV6) and BSD loopback "
         "(NULL, LOOP)";
}

IpPacket ipPacketOf(int linkType, std::span<U8 const> frame) {
  LinkType const* known = linkTypeOf(linkType);
  return known != nullptr ? known->read(Reader(frame)) : IpPacket{};
}

}  // namespace pimbsr::cli
