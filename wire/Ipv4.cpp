#include <cstddef>

#include "wire/Checksum.h"
#include "wire/Wire.h"
#include "wire/Writer.h"

namespace pimbsr::wire {

namespace {

constexpr std::size_t minHeaderSize = 20;
constexpr std::size_t checksumAt = 10;
constexpr U8 versionAndMinLength = 0x45;
constexpr U8 protocolPim = 103;
constexpr U16 dontFragment = 0x4000;
constexpr U16 reservedFlag = 0x8000;

// The fields of the fixed header in their order on the wire.
struct Fields {
  explicit Fields(Reader& in)
      : versionAndLength(in.u8()),
        tos(in.u8()),
        totalLength(in.u16()),
        identification(in.u16()),
        flagsAndOffset(in.u16()),
        ttl(in.u8()),
        protocol(in.u8()),
        headerChecksum(in.u16()),
        source(Lanet::IpAddr::fromHost(in.u32())),
        destination(Lanet::IpAddr::fromHost(in.u32())) {}

  U8 version() const { return versionAndLength >> 4; }
  std::size_t headerSize() const { return std::size_t{4} * (versionAndLength & 0x0f); }
  bool isFragment() const { return (flagsAndOffset & ~(dontFragment | reservedFlag)) != 0; }

  U8 versionAndLength;
  U8 tos;
  U16 totalLength;
  U16 identification;
  U16 flagsAndOffset;
  U8 ttl;
  U8 protocol;
  U16 headerChecksum;
  Lanet::IpAddr source;
  Lanet::IpAddr destination;
};

}  // namespace

Outcome<Ipv4Packet> parseIpv4(Bytes packet) {
  Reader in(packet);
  Fields const ip(in);
  if (!in.ok()) return DropReason::truncated;
  std::size_t headerSize = ip.headerSize();
  if (ip.version() != 4 || headerSize < minHeaderSize) return DropReason::ipHeader;
  if (ip.protocol != protocolPim) return DropReason::ipProtocol;
  if (ip.totalLength < headerSize) return DropReason::ipHeader;
  if (headerSize > packet.size()) return DropReason::truncated;
  if (ip.headerChecksum != 0 && checksum(packet.first(headerSize)) != 0) return DropReason::ipHeader;
  if (ip.isFragment()) return DropReason::ipFragment;
  if (ip.totalLength > packet.size()) return DropReason::truncated;
  Bytes payload = packet.first(ip.totalLength).subspan(headerSize);
  return Ipv4Packet{ip.source, ip.destination, ip.ttl, ip.tos, payload};
}

bool encodeIpv4(Ipv4Header const& header, Bytes payload, std::vector<U8>& out) {
  out.clear();
  std::size_t size = minHeaderSize + payload.size();
  if (size > maxPacketLength) return false;
  Writer writer(out);
  writer.u8(versionAndMinLength);
  writer.u8(header.tos);
  writer.u16(static_cast<U16>(size));
  writer.u16(header.identification);
  writer.u16(
      0);  // may be fragmented on its way: an advertisement of many prefixes exceeds the usual link's packet
  writer.u8(header.ttl);
  writer.u8(protocolPim);
  writer.u16(0);
  writer.u32(header.source.hostWord());
  writer.u32(header.destination.hostWord());
  writer.u16At(checksumAt, checksum(out));
  out.insert(out.end(), payload.begin(), payload.end());
  return true;
}

}  // namespace pimbsr::wire
