// What a stored RP takes: its entity, its mirror for PIM, its timer and its reactors, with its share of the
// range that holds it. It is counted as the allocator does, chunk headers included.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "bench/Messages.h"

namespace {

using namespace bench;

std::size_t bytesInUse() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// The time is that of learning the RPs; the bytes are the counter.
void storedRp(benchmark::State& state) {
  constexpr U32 count = 10'000;
  auto const packets = packetsOf(count, static_cast<U32>(state.range(0)));
  double bytes = 0;
  for (auto _ : state) {
    Station station(1);
    // The zone and its machine, and the message that is kept of it, are on both sides.
    station.receiveAll({packets.front()});
    U32 const before = station.rps();
    std::size_t const inUse = bytesInUse();
    station.receiveAll(packets);
    station.receiveAll({packets.front(), packets.front()});
    bytes = static_cast<double>(bytesInUse() - inUse) / (station.rps() - before);
    if (station.rps() != count) state.SkipWithError("not all stored");
  }
  state.counters["bytes"] = bytes;
}

BENCHMARK(storedRp)->Name("stored-rp/pimbsr")->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
