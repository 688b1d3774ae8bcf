// What one packet of a neighbor costs while more and more other neighbors are kept: a Hello that repeats what
// is known, and a Bootstrap Message.

#include <benchmark/benchmark.h>

#include "bench/Messages.h"

namespace {

using namespace bench;
namespace wire = pimbsr::wire;

constexpr U32 linkAddress = 0x0a000000;
Lanet::IntfId const eth0("eth0");

IpAddr neighborNumber(U32 number) { return IpAddr::fromHost(linkAddress + 16 * number); }

/// The Hello of a neighbor with four secondary addresses.
std::vector<U8> helloOf(U32 number) {
  wire::HelloMessage hello{.holdtime = 0xffff, .drPriority = 1, .generationId = 7};
  for (U32 i = 1; i <= 4; ++i) hello.addressList.push_back(IpAddr::fromHost(linkAddress + 16 * number + i));
  std::vector<U8> pim;
  std::vector<U8> packet;
  wire::encodeHello(hello, pim);
  wire::Ipv4Header header{.source = neighborNumber(number), .destination = Lanet::allPimRouters};
  if (!wire::encodeIpv4(header, pim, packet)) std::abort();
  return packet;
}

/// A router that knows so many neighbors, with all checks on.
class Link {
 public:
  explicit Link(U32 neighbors) {
    router.interfaceIs(eth0, 1500, {});
    for (U32 i = 0; i < neighbors; ++i) receive(helloOf(i));
    router.ingressSettingsIs(
        {.fromNeighbors = true, .packetsPerSecond = 4'000'000'000, .neighborsPerInterface = 1'000'000});
  }
  bool receive(std::vector<U8> const& packet) { return router.receive(eth0, packet).accepted(); }

  Zet::Context context;
  Sink sink;
  pimbsr::host::Router router{context, sink, {.rpf = Zet::make<Rpf>()}};
};

/// The Hello of one neighbor, which repeats what is known.
void hello(benchmark::State& state) {
  auto const neighbors = static_cast<U32>(state.range(0));
  Link link(neighbors);
  std::vector<U8> const packet = helloOf(neighbors / 2);
  for (auto _ : state) {
    if (!link.receive(packet)) state.SkipWithError("dropped");
  }
}

/// A Bootstrap Message from a secondary address, which the gate then drops for its RPF neighbor.
void bootstrap(benchmark::State& state) {
  auto const neighbors = static_cast<U32>(state.range(0));
  Link link(neighbors);
  std::vector<U8> const known = packetsOf(1, 1).front();
  auto ip = wire::parseIpv4(known);
  std::vector<U8> packet;
  wire::Ipv4Header header{.source = IpAddr::fromHost(linkAddress + 16 * (neighbors / 2) + 4),
                          .destination = ip->destination};
  if (!wire::encodeIpv4(header, ip->payload, packet)) std::abort();
  for (auto _ : state) {
    if (link.router.receive(eth0, packet).reason != "not-rpf-neighbor") state.SkipWithError("not checked");
  }
}

BENCHMARK(hello)->Name("hello/pimbsr")->RangeMultiplier(16)->Range(1, 4096);
BENCHMARK(bootstrap)->Name("bsm-of-neighbor/pimbsr")->RangeMultiplier(16)->Range(1, 4096);

}  // namespace
