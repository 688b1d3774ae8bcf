#pragma once

#include <cstdlib>
#include <iostream>
#include <span>
#include <vector>

#include "host/Router.h"
#include "wire/Wire.h"

/// Routers and Bootstrap Messages as the benchmarks need them.
namespace bench {

using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// One range of a message, with the RPs from number `firstRp` on.
struct Range {
  IpGenPrefix prefix;
  U32 firstRp = 0;
  U8 rps = 0;
};

/// Range number `n` of length /24, outside 239.0.0.0/8 for n below 983040.
inline IpGenPrefix rangeNumber(U32 n) { return Lanet::Prefix(IpAddr::fromHost(0xe0000000 + (n << 8)), 24); }

inline constexpr U32 neighborAddress = 0xc0000201;  // 192.0.2.1
inline constexpr U32 bsrAddress = 0xc6336401;       // 198.51.100.1
inline constexpr U32 ownAddress = 0xc0000209;       // 192.0.2.9

/// One range of a message with any RPs, by their addresses in host byte order, at most 255.
struct NamedRange {
  IpGenPrefix prefix;
  std::vector<U32> rps;
};

/// A message of the BSR with those ranges, as an IPv4 packet from the neighbor; a BSR draws another tag for
/// each message.
inline std::vector<U8> packetOf(std::vector<NamedRange> const& ranges, U16 tag = 0) {
  namespace Packet = Routing::Pim::Packet;
  auto message = Zet::make<Packet::BootstrapMessage>();
  message->forwardIs(true);
  message->fragmentTagIs(tag);
  message->hashMaskLenIs(30);
  message->bsrPriorityIs(10);
  message->bsrAddressIs(IpAddr::fromHost(bsrAddress));
  message->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  for (NamedRange const& range : ranges) {
    auto group = Zet::make<Packet::BootstrapGroupData>(range.prefix);
    group->rpCountIs(static_cast<U8>(range.rps.size()));
    group->fragRpCountIs(static_cast<U8>(range.rps.size()));
    for (U32 rp : range.rps) group->rpListIs(IpAddr::fromHost(rp))->rpHoldtimeIs(40000);
    message->groupRpData()->groupDataEnq(group);
  }
  std::vector<U8> pim;
  std::vector<U8> packet;
  pimbsr::wire::Ipv4Header header{.source = IpAddr::fromHost(neighborAddress),
                                  .destination = Lanet::allPimRouters};
  if (!pimbsr::wire::encodeBootstrap(*message, pim) || !pimbsr::wire::encodeIpv4(header, pim, packet))
    std::abort();
  return packet;
}

/// The same with the RPs of each range by number.
inline std::vector<U8> packetOf(std::vector<Range> const& ranges, U16 tag = 0) {
  std::vector<NamedRange> named;
  for (Range const& range : ranges) {
    NamedRange& last = named.emplace_back(NamedRange{range.prefix, {}});
    for (U32 i = 0; i < range.rps; ++i) last.rps.push_back(0x0a000001 + range.firstRp + i);
  }
  return packetOf(named, tag);
}

/// Packets of at most 100 RPs each that together name `count` RPs, so many to a range, from range and RP
/// number 0 on.
inline std::vector<std::vector<U8>> packetsOf(U32 count, U32 rpsPerRange, U16 tag = 0) {
  std::vector<std::vector<U8>> packets;
  std::vector<Range> ranges;
  U32 inPacket = 0;
  for (U32 rp = 0; rp < count; rp += rpsPerRange) {
    ranges.push_back({rangeNumber(rp / rpsPerRange), rp, static_cast<U8>(rpsPerRange)});
    inPacket += rpsPerRange;
    if (inPacket + rpsPerRange <= 100 && rp + rpsPerRange < count) continue;
    packets.push_back(packetOf(ranges, tag));
    ranges.clear();
    inPacket = 0;
  }
  return packets;
}

/// Takes what is sent and drops it.
class Sink : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const> packet) override {
    bytes += packet.size();
    ++packets;
    return true;
  }
  IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return IpAddr::fromHost(ownAddress); }
  bool isOwnAddress(IpGenAddr const& address) const override {
    return address == IpGenAddr(IpAddr::fromHost(ownAddress));
  }

  U64 bytes = 0;
  U64 packets = 0;
};

/// A Candidate-RP-Advertisement of at most 255 ranges, as an IPv4 packet for this router.
inline std::vector<U8> advertisementOf(std::span<IpGenPrefix const> ranges, U32 rp) {
  namespace Packet = Routing::Pim::Packet;
  auto message = Zet::make<Packet::CrpAdvMessage>();
  message->rpAddressIs(IpAddr::fromHost(rp));
  message->holdtimeIs(40000);
  message->prefixCountIs(static_cast<U8>(ranges.size()));
  message->groupDataIs(Zet::make<Packet::CrpGroupData>());
  for (IpGenPrefix const& range : ranges) message->groupData()->groupInfoIs(range);
  std::vector<U8> pim;
  std::vector<U8> packet;
  pimbsr::wire::Ipv4Header header{.source = IpAddr::fromHost(neighborAddress),
                                  .destination = IpAddr::fromHost(ownAddress)};
  if (!pimbsr::wire::encodeCrpAdv(*message, pim) || !pimbsr::wire::encodeIpv4(header, pim, packet))
    std::abort();
  return packet;
}

/// The neighbor is the way to everything.
class Rpf : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(IpGenAddr const&, IpGenAddr const&) override {
    return {IpAddr::fromHost(neighborAddress)};
  }
};

/// A router with so many interfaces, each with a neighbor, on which messages arrive one millisecond after
/// the other.
class Station {
 public:
  explicit Station(int interfaces) {
    for (int i = 0; i < interfaces; ++i) {
      Lanet::IntfId const intfId(("eth" + std::to_string(i)).c_str());
      router.interfaceIs(intfId, 1500);
      router.pimStatus()->pimIntf(intfId)->neighborIs(IpAddr::fromHost(neighborAddress));
    }
  }

  /// Takes a packet and does what a host does then; false if it was dropped.
  bool receive(std::vector<U8> const& packet) {
    context.nowIs(context.now() + 1e-3);
    pimbsr::host::Reception const reception = router.receive(intfId_, packet);
    if (router.nextExpiry() <= context.now()) router.advance();
    return reception.kind == pimbsr::host::MessageKind::bootstrap && reception.accepted();
  }
  void receiveAll(std::vector<std::vector<U8>> const& packets) {
    for (auto const& packet : packets) {
      if (!receive(packet)) std::abort();
    }
  }
  /// Takes an advertisement, which must be accepted, right after the message before.
  void hear(std::vector<U8> const& packet) {
    context.nowIs(context.now() + 1e-6);
    if (!router.receive(intfId_, packet).accepted()) std::abort();
  }
  /// Makes this router the elected BSR of all groups.
  void becomeBsr() {
    router.candidateBsrIs(Lanet::allGroups(), {.address = IpAddr::fromHost(ownAddress), .intfId = intfId_});
    context.nowIs(router.nextExpiry());
    router.advance();
  }
  /// The RPs that PIM reads.
  U32 rps() const {
    U32 count = 0;
    for (auto set = router.rpCandidateStatus()->crpSetIterator(); set; ++set) count += set->rpCount();
    return count;
  }

  Zet::Context context;
  Sink sink;
  pimbsr::host::Router router{context, sink, {.rpf = Zet::make<Rpf>()}};

 private:
  Lanet::IntfId const intfId_{"eth0"};
};

}  // namespace bench
