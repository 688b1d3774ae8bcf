// A routing agent that follows the elected BSR, in as few lines as it takes: a port, RPF neighbors, a clock.

#include <host/Router.h>

#include <iostream>

#include "packet.h"

using Lanet::IntfId;
using Lanet::IpGenAddr;

struct Port : pimbsr::pim::Port {
  bool send(IntfId const&, std::span<Zet::U8 const>) override {
    return true;
  }  // your raw socket of protocol 103
  IpGenAddr primaryAddress(IntfId const&) const override { return IpGenAddr::parse("192.0.2.9"); }
  bool isOwnAddress(IpGenAddr const& address) const override { return address == primaryAddress(IntfId()); }
};

struct Rpf : Routing::Pim::PimRpfTable {
  Routing::Pim::RpfLookupResult doLookup(IpGenAddr const&, IpGenAddr const&) override {
    return {IpGenAddr::parse("192.0.2.1")};  // the neighbor on your unicast route towards that address
  }
};

int main() {
  Zet::Context context;  // your clock: seconds, never backwards
  context.nowIs(1.8e9);
  Port port;
  pimbsr::host::Router router(context, port, {.rpf = Zet::make<Rpf>()});
  router.interfaceIs(IntfId("eth0"), 1500);

  router.receive(IntfId("eth0"), bootstrapPacket());  // what your socket read, from the IP header on
  for (auto set = router.rpCandidateStatus()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      std::cout << set->prefix() << " is served by " << rp->address() << " for " << rp->holdTime() << " s\n";
    }
  }
  context.nowIs(router.nextExpiry());  // sleep until then, or until a packet comes
  router.advance();
  std::cout << "timers run; next in " << router.nextExpiry() - context.now() << " s\n";
}
