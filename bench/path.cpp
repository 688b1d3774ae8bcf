// The receive path of a Bootstrap Message, from the bytes in to the bytes out on each interface:
// read, admitted, checked by the gate, handled by its zone's machine, sent on, stored, mirrored for PIM.
// Messages repeat what is known, as they do all day.

#include <benchmark/benchmark.h>

#include "bench/Messages.h"

namespace {

using namespace bench;

constexpr U32 rpsPerMessage = 100;

/// Per RP record.
void path(benchmark::State& state, pimbsr::host::CorrectionSettings const& corrections) {
  Station station(static_cast<int>(state.range(0)));
  station.router.correctionsAre(corrections);
  // One after the other: a message with the tag of the last one would be a fragment of it.
  std::vector<U8> const packets[] = {packetsOf(rpsPerMessage, 10, 1).front(),
                                     packetsOf(rpsPerMessage, 10, 2).front()};
  U32 round = 0;
  for (auto _ : state) {
    if (!station.receive(packets[round++ % 2])) state.SkipWithError("dropped");
  }
  if (station.sink.packets != static_cast<U64>(state.iterations() * state.range(0)))
    state.SkipWithError("not sent on");
}

/// The same message read, and written for each interface.
void codec(benchmark::State& state) {
  namespace wire = pimbsr::wire;
  std::vector<U8> const packet = packetsOf(rpsPerMessage, 10).front();
  Sink sink;
  std::vector<U8> pim;
  std::vector<U8> out;
  for (auto _ : state) {
    auto ip = wire::parseIpv4(packet);
    auto message = wire::decodeBootstrap(ip->payload, ip->source, ip->destination);
    for (int64_t i = 0; i < state.range(0); ++i) {
      bool const written =
          wire::encodeBootstrap(**message, pim) &&
          wire::encodeIpv4({.source = IpAddr::fromHost(ownAddress), .destination = Lanet::allPimRouters}, pim,
                           out);
      if (!written || !sink.send({}, out)) state.SkipWithError("not written");
    }
  }
}

BENCHMARK_CAPTURE(path, exact, {})->Name("path/pimbsr")->RangeMultiplier(2)->Range(1, 32);
BENCHMARK_CAPTURE(path, corrected, pimbsr::host::allCorrections)
    ->Name("path/corrected")
    ->RangeMultiplier(2)
    ->Range(1, 32);
BENCHMARK(codec)->Name("path/codec")->RangeMultiplier(2)->Range(1, 32);

// The receive path of an advertisement ----------------------------------------------------------------

/// An advertisement of the first so many ranges.
std::vector<U8> advertisementOf(U32 ranges, U32 rp = neighborAddress) {
  std::vector<IpGenPrefix> all;
  for (U32 i = 0; i < ranges; ++i) all.push_back(rangeNumber(i));
  return bench::advertisementOf(all, rp);
}

/// Per range, at the elected BSR: read, admitted, checked by the gate, matched to its zone, stored.
void advertisementPath(benchmark::State& state, pimbsr::host::IngressSettings const& limits) {
  auto const ranges = static_cast<U32>(state.range(0));
  Station station(1);
  station.becomeBsr();
  station.router.ingressSettingsIs(limits);
  std::vector<U8> const packet = advertisementOf(ranges);
  station.router.receive(Lanet::IntfId("eth0"), packet);
  if (station.rps() != ranges) state.SkipWithError("not stored");
  for (auto _ : state) {
    station.context.nowIs(station.context.now() + 1e-6);
    station.router.receive(Lanet::IntfId("eth0"), packet);
  }
}

/// A newcomer to a range that is full of RPs of its own priority.
void droppedAdvertisement(benchmark::State& state) {
  Station station(1);
  station.becomeBsr();
  station.router.ingressSettingsIs({.rpsPerRange = 255});
  for (U32 rp = 0; rp < 255; ++rp) {
    station.router.receive(Lanet::IntfId("eth0"), advertisementOf(1, 0x0a000000 + rp));
  }
  std::vector<U8> const packet = advertisementOf(1);
  for (auto _ : state) {
    station.context.nowIs(station.context.now() + 1e-6);
    if (station.router.receive(Lanet::IntfId("eth0"), packet).accepted()) state.SkipWithError("accepted");
  }
}

/// The same advertisement read alone.
void advertisementCodec(benchmark::State& state) {
  namespace wire = pimbsr::wire;
  std::vector<U8> const packet = advertisementOf(static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    auto ip = wire::parseIpv4(packet);
    auto message = wire::decodeCrpAdv(ip->payload, ip->source, ip->destination);
    benchmark::DoNotOptimize(message);
  }
}

constexpr pimbsr::host::IngressSettings rpBounds = {
    .rangesPerZone = 4096, .rpsPerRange = 255, .rpsPerSender = 64, .rangesPerSender = 1024};

BENCHMARK_CAPTURE(advertisementPath, unbounded, pimbsr::host::IngressSettings())
    ->Name("crp-path/pimbsr")
    ->Arg(1)
    ->Arg(16)
    ->Arg(255);
BENCHMARK_CAPTURE(advertisementPath, bounded, rpBounds)
    ->Name("crp-path/rp-bounds")
    ->Arg(1)
    ->Arg(16)
    ->Arg(255);
BENCHMARK(droppedAdvertisement)->Name("crp-path/dropped");
BENCHMARK(advertisementCodec)->Name("crp-path/codec")->Arg(1)->Arg(16)->Arg(255);

// A message while others lie still --------------------------------------------------------------------

/// The RPs of the message in a range of their own, or in one range with all that lie still.
enum class Place { own, among };

template <Place place>
void still(benchmark::State& state) {
  Station station(1);
  auto const others = static_cast<U32>(state.range(0));
  IpGenPrefix const ownRange = Lanet::Prefix(IpAddr::fromHost(0xef000000), 8);
  if (place == Place::own) {
    station.receiveAll(packetsOf(others, 10));
  } else {
    for (U32 rp = 0; rp < others; rp += 10) station.receiveAll({packetOf({{ownRange, rp, 10}})});
  }
  // In among the others by their hash, which no order of addresses shows in.
  std::vector<U8> const packet = packetOf({{ownRange, 1'000'000, rpsPerMessage}});
  station.receiveAll({packet});
  if (station.rps() != others + rpsPerMessage) state.SkipWithError("not all stored");
  for (auto _ : state) {
    if (!station.receive(packet)) state.SkipWithError("dropped");
  }
}

BENCHMARK(still<Place::own>)->Name("still-own-range/pimbsr")->RangeMultiplier(10)->Range(10, 100'000);
BENCHMARK(still<Place::among>)->Name("still-among/pimbsr")->RangeMultiplier(10)->Range(10, 100'000);

}  // namespace
