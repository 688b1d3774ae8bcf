#include "wire/Address.h"

#include "runtime/Assert.h"

namespace pimbsr::wire {

using Routing::Pim::Packet::GroupFlags;

namespace {

constexpr U8 familyIpv4 = 1;
constexpr U8 nativeEncoding = 0;
constexpr U8 bidirFlag = 0x80;
constexpr U8 scopedFlag = 0x01;
constexpr U8 maxLength = 32;

bool isIpv4(Lanet::AddressFamily family) { return family == Lanet::AddressFamily::ipv4; }

// Family and encoding type, which open every encoded address.
ReadError readKind(Reader& in) {
  U8 family = in.u8();
  U8 encoding = in.u8();
  if (!in.ok()) return DropReason::truncated;
  if (family != familyIpv4) return DropReason::addressFamily;
  if (encoding != nativeEncoding) return DropReason::encoding;
  return {};
}

}  // namespace

bool isRouterAddress(Lanet::IpGenAddr const& address) {
  if (!isIpv4(address.af())) return false;
  U32 host = address.v4Addr().hostWord();
  return host != 0 && host >> 24 != 127 && host < Lanet::firstGroup.hostWord();
}

bool isGroupRange(Lanet::IpGenPrefix const& range) {
  return isIpv4(range.af()) && range.length() >= Lanet::allGroups().length() &&
         range.address().v4Addr().isMulticast();
}

ReadError readUnicast(Reader& in, DropReason notUnicast, Lanet::IpGenAddr& address) {
  if (ReadError error = readKind(in)) return error;
  address = Lanet::IpGenAddr(Lanet::IpAddr::fromHost(in.u32()));
  if (!in.ok()) return DropReason::truncated;
  if (!isRouterAddress(address)) return notUnicast;
  return {};
}

ReadError readGroup(Reader& in, Lanet::IpGenPrefix& range, GroupFlags& flags) {
  if (ReadError error = readKind(in)) return error;
  U8 flagByte = in.u8();
  U8 length = in.u8();
  U32 host = in.u32();
  if (!in.ok()) return DropReason::truncated;
  if (length > maxLength) return DropReason::prefixLength;
  Lanet::IpAddr address = Lanet::IpAddr::fromHost(host);
  if (length < Lanet::allGroups().length() || !address.isMulticast()) return DropReason::groupNotMulticast;
  flags = GroupFlags(flagByte & (bidirFlag | scopedFlag));
  range = Lanet::IpGenPrefix(Lanet::IpGenAddr(address), length);
  return {};
}

void writeUnicast(Writer& out, Lanet::IpGenAddr const& address) {
  ZET_ASSERT(isRouterAddress(address), "only a router's address is written as a unicast address");
  out.u8(familyIpv4);
  out.u8(nativeEncoding);
  out.u32(address.v4Addr().hostWord());
}

void writeGroup(Writer& out, Lanet::IpGenPrefix const& range, GroupFlags flags) {
  ZET_ASSERT(isGroupRange(range), "only a group range is written as a group address");
  out.u8(familyIpv4);
  out.u8(nativeEncoding);
  out.u8(flags.value & (bidirFlag | scopedFlag));
  out.u8(static_cast<U8>(range.length()));
  out.u32(range.address().v4Addr().hostWord());
}

}  // namespace pimbsr::wire
