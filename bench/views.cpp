// How long `pimbsr show bsr` keeps an agent that has learned thousands of RPs: its zones are walked for it,
// and their digests made. Timers wait meanwhile.

#include <benchmark/benchmark.h>

#include "bench/Messages.h"
#include "host/Views.h"
#include "view/Digest.h"

namespace {

using namespace bench;
using pimbsr::host::ZoneView;

/// A router that has learned the RPs, 100 in each range.
void zones(benchmark::State& state) {
  Station station(1);
  station.receiveAll(packetsOf(static_cast<U32>(state.range(0)), 100));
  if (station.rps() != state.range(0)) state.SkipWithError("not all stored");
  for (auto _ : state) benchmark::DoNotOptimize(pimbsr::host::zonesOf(station.router));
}

void digest(benchmark::State& state) {
  Station station(1);
  station.receiveAll(packetsOf(static_cast<U32>(state.range(0)), 100));
  std::vector<ZoneView> zones = pimbsr::host::zonesOf(station.router);
  for (auto _ : state) {
    for (ZoneView const& zone : zones) benchmark::DoNotOptimize(pimbsr::view::digestOf(zone, 0));
  }
}

BENCHMARK(zones)->Arg(1000)->Arg(16'000)->Unit(benchmark::kMillisecond);
BENCHMARK(digest)->Arg(1000)->Arg(16'000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
