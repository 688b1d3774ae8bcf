// Bytes -> wire -> admission -> gates -> machines: a sequence of packets, with time passing between them,
// must neither end the process nor let an exception out of a handler, whatever the bytes are. It is played
// twice: to a router that follows, and to one that is a candidate BSR and RP and speaks Hello.
//
// The input is read as steps: one byte of control, then a packet. The control byte's low bits say how many
// seconds pass first, its high bit that the step is a bare wait; a 16-bit length and the PIM message follow.

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "host/Router.h"
#include "runtime/Assert.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace {

using Lanet::IpGenAddr;
using Zet::U8;

class Port : public pimbsr::pim::Port {
 public:
  bool send(Lanet::IntfId const&, std::span<U8 const> packet) override {
    ZET_ASSERT(pimbsr::wire::parseIpv4(packet), "what is sent can be read");
    return true;
  }
  IpGenAddr primaryAddress(Lanet::IntfId const&) const override { return own; }
  bool isOwnAddress(IpGenAddr const& address) const override { return address == own; }

 private:
  IpGenAddr own = IpGenAddr::parse("192.0.2.9");
};

/// Any source is the RPF neighbor, so that the input reaches the machines.
class Rpf : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(IpGenAddr const&, IpGenAddr const&) override { return {neighbor}; }
  IpGenAddr neighbor = IpGenAddr::parse("192.0.2.1");
};

/// Quiet, and counts what a handler lets out.
class Context : public Zet::Context {
 public:
  void trace(Zet::TraceLine const&) override {}
};

constexpr U8 crpAdvType = 8;

/// The message of one step with its checksum put right, in an IP packet; an advertisement is for the router
/// itself.
std::vector<U8> packetOf(std::span<U8 const> message) {
  std::vector<U8> pim(message.begin(), message.end());
  if (pim.size() >= 4) {
    pim[2] = pim[3] = 0;
    Zet::U16 sum = pimbsr::wire::checksum(pim);
    pim[2] = static_cast<U8>(sum >> 8);
    pim[3] = static_cast<U8>(sum);
  }
  std::vector<U8> packet;
  bool isAdv = !pim.empty() && (pim[0] & 0x0f) == crpAdvType;
  pimbsr::wire::Ipv4Header header{.source = Lanet::IpAddr::parse("192.0.2.1"),
                                  .destination = Lanet::IpAddr::parse(isAdv ? "192.0.2.9" : "224.0.0.13")};
  if (!pimbsr::wire::encodeIpv4(header, pim, packet)) packet.clear();
  return packet;
}

void runTo(pimbsr::host::Router& router, double end) {
  while (router.nextExpiry() <= end) {
    router.context().nowIs(router.nextExpiry());
    router.advance();
  }
  router.context().nowIs(end);
}

/// A candidate BSR of the global and of a scoped zone, with an RP in each and a border.
void lead(pimbsr::host::Router& router, Lanet::IntfId const& intfId) {
  IpGenAddr own = IpGenAddr::parse("192.0.2.9");
  router.interfaceIs(intfId, 576, {});
  router.routeIs({own.v4Addr(), 32}, {.type = Slosh::Fib::RouteType::local});
  for (char const* zone : {"224.0.0.0/4", "239.192.0.0/14"}) {
    auto range = Lanet::IpGenPrefix::parse(zone);
    router.candidateBsrIs(range, {.address = own, .intfId = intfId});
    router.candidateRpIs(range, {.address = own, .intfId = intfId});
  }
  router.borderIs(Lanet::IpGenPrefix::parse("239.255.0.0/16"), intfId, true);
}

void play(std::span<U8 const> rest, bool leads) {
  Context context;
  Port port;
  pimbsr::host::Router router(context, port, {.rpf = Zet::make<Rpf>()});
  Lanet::IntfId eth0("eth0");
  router.interfaceIs(eth0, 576);
  router.pimStatus()->pimIntf(eth0)->neighborIs(IpGenAddr::parse("192.0.2.1"));
  if (leads) lead(router, eth0);

  for (int steps = 0; steps < 64 && !rest.empty(); ++steps) {
    U8 control = rest[0];
    rest = rest.subspan(1);
    runTo(router, context.now() + (control & 0x7f));
    if ((control & 0x80) != 0 || rest.size() < 2) continue;
    std::size_t length = std::min<std::size_t>(rest[0] << 8 | rest[1], rest.size() - 2);
    router.receive(eth0, packetOf(rest.subspan(2, length)));
    rest = rest.subspan(2 + length);
  }
  // Long enough for all that a follower keeps to run out; a leader goes on for ever.
  runTo(router, context.now() + (leads ? 400 : 3000));
  ZET_ASSERT(context.notificationExceptions() == 0, "no handler let an exception out");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  for (bool leads : {false, true}) play({data, size}, leads);
  return 0;
}
