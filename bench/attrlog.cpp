// What the attribute log costs: a setter with a log beside one with a plain reactor and one with none; and a
// change that is encoded and applied beside the same fields written and parsed by Protocol Buffers, and
// beside a copy of its bytes.

#include <benchmark/benchmark.h>

#include <cstring>
#include <span>
#include <vector>

#include "model/Status.h"
#include "runtime/NboAttrLogDemuxer.h"

#if BENCH_PROTOBUF
#include "attrlog.pb.h"
#endif

namespace {

using Routing::Pim::Bsr::Status;
using Zet::Ptr;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::NboAttrLog::Demuxer;
using Zet::NboAttrLog::FlowOut;

U64 sum = 0;

/// How many changes one flush carries.
constexpr U32 changesPerFlush = 1000;

class Discarded : public Zet::MsgChannel {
 public:
  void send(std::span<U8 const> bytes) override { sum += bytes.size(); }
};

class Reactor : public Status::NotifieeConst {
 public:
  void onBsTimeout() override { sum += notifier()->bsTimeout(); }
};

void setterAlone(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  U32 value = 0;
  for (auto _ : state) status->bsTimeoutIs(++value);
}

void setterWithReactor(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<Reactor> reactor = Zet::make<Reactor>();
  reactor->notifierIs(status);
  U32 value = 0;
  for (auto _ : state) status->bsTimeoutIs(++value);
  benchmark::DoNotOptimize(sum);
}

/// Changes an attribute over and over, and flushes its log from time to time.
void changeAndFlush(benchmark::State& state, Status& status, FlowOut& flow) {
  U32 value = 0;
  for (auto _ : state) {
    status.bsTimeoutIs(++value);
    if (value % changesPerFlush == 0) flow.flush();
  }
}

void setterWithLog(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<FlowOut> flow = Zet::make<FlowOut>(1, Zet::make<Discarded>());
  flow->rootIs<Status>(status);
  flow->flush();
  changeAndFlush(state, *status, *flow);
}

/// Feeds a copy directly.
class Applied : public Zet::MsgChannel {
 public:
  explicit Applied(Ptr<Demuxer> const& demuxer) : demuxer_(demuxer) {}
  void send(std::span<U8 const> bytes) override { demuxer_->bytes(bytes); }

 private:
  Ptr<Demuxer> demuxer_;
};

void encodeAndApply(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<Demuxer> demuxer = Zet::make<Demuxer>();
  demuxer->copyIs(1, Routing::Pim::Bsr::statusFactory("bsr"));
  Ptr<FlowOut> flow = Zet::make<FlowOut>(1, Zet::make<Applied>(demuxer));
  flow->rootIs<Status>(status);
  flow->flush();
  changeAndFlush(state, *status, *flow);
}

void bytesAlone(benchmark::State& state) {
  std::vector<U8> from(21), to(21);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

#if BENCH_PROTOBUF
void protobuf(benchmark::State& state) {
  bench::Change change, read;
  std::string bytes;
  U32 value = 0;
  for (auto _ : state) {
    change.set_flow(1);
    change.set_op(2);
    change.set_object(1);
    change.set_attribute(2);
    change.set_value(++value);
    change.SerializeToString(&bytes);
    read.ParseFromString(bytes);
    benchmark::DoNotOptimize(read.value());
  }
}
BENCHMARK(protobuf)->Name("change/protobuf");
#endif

BENCHMARK(setterAlone)->Name("log-setter/alone");
BENCHMARK(setterWithReactor)->Name("log-setter/reactor");
BENCHMARK(setterWithLog)->Name("log-setter/pimbsr");
BENCHMARK(encodeAndApply)->Name("change/pimbsr");
BENCHMARK(bytesAlone)->Name("change/memcpy");

}  // namespace
