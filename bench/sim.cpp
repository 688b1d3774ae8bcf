// A simulated hour of a large domain: routers of degree 3 (a ring and random chords), 20 candidate BSRs and
// 50 candidate RPs, with all their Hellos, Bootstrap Messages and advertisements; with the engine alone and
// with all corrections.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sys/resource.h>

#include <iterator>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "sim/Random.h"
#include "sim/Simulation.h"

namespace {

using pimbsr::sim::Rng;
using Zet::U32;

class Domain {
 public:
  explicit Domain(U32 routers) : routers_(routers) {
    for (U32 router = 0; router < routers_; ++router)
      line("router r{} loopback 10.{}.{}.{}", router, router >> 16, router >> 8 & 255, router & 255);
    for (U32 router = 0; router < routers_; ++router) join(router, (router + 1) % routers_);
    drawChords();
    for (U32 i = 0; i < 20; ++i) line("candidate-bsr r{} global priority {}", i * routers_ / 20, 50 + i);
    for (U32 i = 0; i < 50; ++i)
      line("candidate-rp r{} 239.{}.0.0/16 priority {}", (i * routers_ / 50 + 7) % routers_, i % 25, i);
  }
  std::string const& text() const { return text_; }

 private:
  template <class... Args>
  void line(fmt::format_string<Args...> form, Args&&... args) {
    fmt::format_to(std::back_inserter(text_), form, std::forward<Args>(args)...);
    text_ += '\n';
  }
  void join(U32 a, U32 b) {
    std::string prefix = fmt::format("172.{}.{}.", 16 + (links_ >> 14), links_ >> 6 & 255);
    U32 host = (links_ & 63) * 4;
    line("link l{} prefix {}{}/30", links_, prefix, host);
    line("interface r{} l{} {}{}", a, links_, prefix, host + 1);
    line("interface r{} l{} {}{}", b, links_, prefix, host + 2);
    ++links_;
  }
  /// One chord for each router, to any other; a few fall beside a link of the ring.
  void drawChords() {
    std::vector<U32> order(routers_);
    std::iota(order.begin(), order.end(), 0);
    Rng random(1);
    for (U32 i = routers_; i > 1; --i) std::swap(order[i - 1], order[random.below(i)]);
    for (U32 i = 0; i + 1 < routers_; i += 2) join(order[i], order[i + 1]);
  }

  U32 routers_;
  U32 links_ = 0;
  std::string text_;
};

void hour(benchmark::State& state, pimbsr::host::CorrectionSettings const& corrections) {
  Domain const domain(static_cast<U32>(state.range(0)));
  pimbsr::sim::Report silent;
  for (auto _ : state) {
    pimbsr::sim::Simulation simulation(1, silent, 0);
    simulation.network().correctionsAre(corrections);
    simulation.execute(domain.text());
    simulation.execute("run 3600");
    state.counters["events"] = static_cast<double>(simulation.network().events());
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

BENCHMARK_CAPTURE(hour, exact, {})
    ->Name("simulated-hour/pimbsr")
    ->Arg(100)
    ->Arg(300)
    ->Arg(1000)
    ->Arg(3000)
    ->Unit(benchmark::kSecond)
    ->Iterations(1);

BENCHMARK_CAPTURE(hour, corrected, pimbsr::host::allCorrections)
    ->Name("simulated-hour/corrected")
    ->Arg(100)
    ->Arg(300)
    ->Unit(benchmark::kSecond)
    ->Iterations(1);

}  // namespace
