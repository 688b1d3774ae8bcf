// What a change of configuration costs: one rule of a long access list, and a start over a Status that
// survived.

#include <benchmark/benchmark.h>

#include <memory>

#include "bench/Messages.h"
#include "host/ConfigTree.h"

namespace {

using namespace bench;
using pimbsr::host::AccessList;
using pimbsr::host::ConfigTree;
using pimbsr::host::Configuration;
namespace Bsr = Routing::Pim::Bsr;

Acl::IpRuleConfig permitting(IpGenPrefix const& range) {
  Acl::IpFilter filter;
  filter.source = range.v4Prefix().address();
  filter.sourceMask = IpAddr::fromHost(~U32{0} << (32 - range.length()));
  return {Acl::Action::permit, filter};
}

/// Counts what is heard of a router's candidacies.
class Heard : public Bsr::Status::Notifiee {
 public:
  void onCbsr(IpGenPrefix const&) override { ++changes; }
  U64 changes = 0;
};

/// A router that follows a configuration; its interfaces all have the same address.
struct Configured {
  explicit Configured(ConfigTree& tree, Ptr<Bsr::Status> const& status = nullptr)
      : router(context, sink,
               {.config = tree.config(),
                .clearConfig = tree.clearConfig(),
                .accessLists = tree.accessLists(),
                .status = status}) {}

  Zet::Context context;
  Sink sink;
  pimbsr::host::Router router;
};

/// Ranges that don't touch, so that each rule is a prefix of its own.
AccessList listOf(U32 rules) {
  AccessList list;
  for (U32 i = 0; i < rules; ++i) list[i] = permitting(rangeNumber(2 * i));
  return list;
}

/// One rule is written anew with another range; exactly the two prefixes that changed may be heard of.
void oneRule(benchmark::State& state) {
  auto const rules = static_cast<U32>(state.range(0));
  ConfigTree tree;
  Configured configured(tree);
  configured.router.interfaceIs(Lanet::IntfId("eth0"), 1500);
  Configuration wanted;
  wanted.accessLists["scopes"] = listOf(rules);
  wanted.candidateBsrs["eth0"].lists["scopes"] = {};
  if (!tree.apply(configured.context, wanted).empty()) return state.SkipWithError("rejected");
  Zet::Context::Scope scope(configured.context);
  auto heard = Zet::make<Heard>();
  heard->notifierIs(configured.router.status());
  auto version = tree.accessLists()->acl("scopes")->currCfg();
  U64 written = 0;
  for (auto _ : state) {
    Acl::UniqueId const id(1'000'000 + written);
    tree.accessLists()->acl("scopes")->ipRuleByIdIs(
        id, permitting(rangeNumber(written % 2 == 0 ? 900'000 : 900'002)));
    version->ruleBySequenceIs(0, id);
    ++written;
  }
  if (heard->changes != 2 * written) state.SkipWithError("more heard than changed");
  state.counters["notified"] = static_cast<double>(heard->changes) / static_cast<double>(written);
}

/// So many interfaces with ten group ranges each, at a restart of the machines.
void restart(benchmark::State& state) {
  auto const interfaces = static_cast<U32>(state.range(0));
  ConfigTree tree;
  auto configured = std::make_unique<Configured>(tree);
  Configuration wanted;
  for (U32 i = 0; i < interfaces; ++i) {
    std::string const name = "eth" + std::to_string(i);
    for (U32 j = 0; j < 10; ++j) wanted.borders[name].groups[rangeNumber(10 * i + j)] = {};
  }
  if (!tree.apply(configured->context, wanted).empty()) return state.SkipWithError("rejected");
  Ptr<Bsr::Status> status = configured->router.status();
  for (auto _ : state) {
    state.PauseTiming();
    configured = nullptr;
    state.ResumeTiming();
    configured = std::make_unique<Configured>(tree, status);
  }
  if (status->bsBorderCount() != 10 * interfaces) state.SkipWithError("not kept");
}

BENCHMARK(oneRule)
    ->Name("one-rule-of-a-list/pimbsr")
    ->RangeMultiplier(10)
    ->Range(100, 10'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(restart)
    ->Name("start-over-status/pimbsr")
    ->Arg(250)
    ->Arg(500)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
