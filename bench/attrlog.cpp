// What the attribute log costs: a setter with a log beside one with a plain reactor and one with none; a
// setter of a class that has a log, but none attached, beside one of a class for which none is made; and a
// change that is encoded, and one that is applied, beside the same fields written and parsed by Protocol
// Buffers, and beside a copy of its bytes. Ours pay for the setter too, theirs for the message alone.

#include <benchmark/benchmark.h>

#include <cstring>
#include <span>
#include <vector>

#include "model/IO.h"
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

using Routing::Pim::IO::MessageInfo;
static_assert(Status::zetHasAttrLogInterface());
static_assert(!MessageInfo::zetHasAttrLogInterface());

/// A value of 32 bits of a class that has a log.
struct WithLog {
  using Class = Status;
  class Reactor : public Status::NotifieeConst {
   public:
    void onBsTimeout() override { sum += notifier()->bsTimeout(); }
  };
  static void set(Status& object, U32 value) { object.bsTimeoutIs(value); }
  static Ptr<Status> make() { return Routing::Pim::Bsr::statusFactory("bsr"); }
};

/// The same of a class that has no log: the generator makes no adapter for it.
struct WithoutLog {
  using Class = MessageInfo;
  class Reactor : public MessageInfo::NotifieeConst {
   public:
    void onCount() override { sum += notifier()->count(); }
  };
  static void set(MessageInfo& object, U32 value) { object.countIs(value); }
  static Ptr<MessageInfo> make() { return Routing::Pim::IO::messageInfoFactory(); }
};

/// A setter with no log attached, and with so many reactors.
template <class Kind, int reactorCount>
void setterUnlogged(benchmark::State& state) {
  Ptr<typename Kind::Class> object = Kind::make();
  std::vector<Ptr<typename Kind::Reactor>> reactors;
  for (int i = 0; i < reactorCount; ++i) {
    reactors.push_back(Zet::make<typename Kind::Reactor>());
    reactors.back()->notifierIs(Ptr<typename Kind::Class const>(object));
  }
  U32 value = 0;
  for (auto _ : state) {
    Kind::set(*object, ++value);
    benchmark::ClobberMemory();
  }
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

/// Also what encoding a change costs, with the setter that notifies the log.
void setterWithLog(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<FlowOut> flow = Zet::make<FlowOut>(1, Zet::make<Discarded>());
  flow->rootIs<Status>(status);
  flow->flush();
  changeAndFlush(state, *status, *flow);
}

/// Keeps what is sent.
class Kept : public Zet::MsgChannel {
 public:
  void send(std::span<U8 const> bytes) override { kept.insert(kept.end(), bytes.begin(), bytes.end()); }
  std::vector<U8> kept;
};

/// The changes of one flush are made outside the measured time.
void apply(benchmark::State& state) {
  Ptr<Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<Status> copy = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<Demuxer> demuxer = Zet::make<Demuxer>();
  demuxer->copyIs(1, copy);
  Ptr<Kept> channel = Zet::make<Kept>();
  Ptr<FlowOut> flow = Zet::make<FlowOut>(1, channel);
  flow->rootIs<Status>(status);
  U32 value = 0;
  auto flush = [&] {
    channel->kept.clear();
    flow->flush();
    return std::span<U8 const>(channel->kept);
  };
  demuxer->bytes(flush());
  while (state.KeepRunningBatch(changesPerFlush)) {
    state.PauseTiming();
    for (U32 i = 0; i < changesPerFlush; ++i) status->bsTimeoutIs(++value);
    std::span<U8 const> const bytes = flush();
    state.ResumeTiming();
    demuxer->bytes(bytes);
  }
  if (copy->bsTimeout() != value) state.SkipWithError("the copy is not equal");
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
/// Writes all fields of a change.
void encode(bench::Change& change, U32 value, std::string& bytes) {
  change.set_flow(1);
  change.set_op(2);
  change.set_object(1);
  change.set_attribute(2);
  change.set_value(value);
  change.SerializeToString(&bytes);
}

void protobufEncode(benchmark::State& state) {
  bench::Change change;
  std::string bytes;
  U32 value = 0;
  for (auto _ : state) {
    encode(change, ++value, bytes);
    benchmark::DoNotOptimize(bytes.data());
  }
}

void protobufParse(benchmark::State& state) {
  bench::Change change, read;
  std::string bytes;
  encode(change, 0x12345678, bytes);
  for (auto _ : state) {
    read.ParseFromString(bytes);
    benchmark::DoNotOptimize(read.value());
  }
}
BENCHMARK(protobufEncode)->Name("change-encoded/protobuf");
BENCHMARK(protobufParse)->Name("change-applied/protobuf");
#endif

BENCHMARK(setterUnlogged<WithLog, 0>)->Name("log-setter/alone");
BENCHMARK(setterUnlogged<WithLog, 1>)->Name("log-setter/reactor");
BENCHMARK(setterWithLog)->Name("log-setter/pimbsr");
BENCHMARK(setterUnlogged<WithLog, 0>)->Name("no-log-setter/pimbsr/0");
BENCHMARK(setterUnlogged<WithLog, 1>)->Name("no-log-setter/pimbsr/1");
BENCHMARK(setterUnlogged<WithoutLog, 0>)->Name("no-log-setter/class-without-log/0");
BENCHMARK(setterUnlogged<WithoutLog, 1>)->Name("no-log-setter/class-without-log/1");
BENCHMARK(setterWithLog)->Name("change-encoded/pimbsr");
BENCHMARK(bytesAlone)->Name("change-encoded/memcpy");
BENCHMARK(apply)->Name("change-applied/pimbsr");
BENCHMARK(bytesAlone)->Name("change-applied/memcpy");

}  // namespace
