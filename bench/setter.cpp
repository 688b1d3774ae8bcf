// What a changed value costs with 0, 1 and 8 reactors to it. Each variant keeps the value, passes over an
// equal one, and notifies its reactors, each of which adds the new value to a sum.

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "model/Status.h"

#if BENCH_SIGNALS2
#include <boost/signals2/signal.hpp>
#endif
#if BENCH_SIGCPP
#include <sigc++/sigc++.h>
#endif

namespace {

using Zet::Ptr;
using Zet::U32;
using Zet::U64;

U64 sum = 0;

/// A setter as the model declares it, and notifiees.
class Entity {
 public:
  void add() {
    reactors_.push_back(Zet::make<Reactor>());
    reactors_.back()->notifierIs(status_);
  }
  void set(U32 value) { status_->bsTimeoutIs(value); }

 private:
  class Reactor : public Routing::Pim::Bsr::Status::NotifieeConst {
   public:
    void onBsTimeout() override { sum += notifier()->bsTimeout(); }
  };

  Ptr<Routing::Pim::Bsr::Status> status_ = Routing::Pim::Bsr::statusFactory("bsr");
  std::vector<Ptr<Reactor>> reactors_;
};

}  // namespace

/// Seen by the whole program, so that the compiler can't know who derives from it.
struct Listener {
  virtual ~Listener() = default;
  virtual void onValue(U32 value) = 0;
};
struct Adder : Listener {
  void onValue(U32 value) override;
};
void Adder::onValue(U32 value) { sum += value; }

namespace {

/// The least that can be done: no reactor may be added, removed or throw during the calls.
class VirtualCalls {
 public:
  void add() { listeners_.push_back(std::make_unique<Adder>()); }
  void set(U32 value) {
    if (value == value_) return;
    value_ = value;
    for (auto const& listener : listeners_) listener->onValue(value);
  }

 private:
  U32 value_ = 0;
  std::vector<std::unique_ptr<Listener>> listeners_;
};

/// A value beside a signal of one of the libraries.
template <class Signal>
class Signalled {
 public:
  void add() {
    signal_.connect([](U32 value) { sum += value; });
  }
  void set(U32 value) {
    if (value == value_) return;
    value_ = value;
    signal_(value);
  }

 private:
  U32 value_ = 0;
  Signal signal_;
};

template <class Subject>
void setter(benchmark::State& state) {
  Subject subject;
  for (int64_t i = 0; i < state.range(0); ++i) subject.add();
  U32 value = 0;
  for (auto _ : state) subject.set(++value);
  benchmark::DoNotOptimize(sum);
}

template <class Subject>
void add(char const* name) {
  benchmark::RegisterBenchmark(name, setter<Subject>)->Arg(0)->Arg(1)->Arg(8);
}

[[maybe_unused]] bool const added = [] {
  add<Entity>("setter/pimbsr");
  add<VirtualCalls>("setter/virtual-calls");
#if BENCH_SIGNALS2
  add<Signalled<boost::signals2::signal<void(U32)>>>("setter/signals2");
#endif
#if BENCH_SIGCPP
  add<Signalled<sigc::signal<void, U32>>>("setter/sigc++");
#endif
  return true;
}();

}  // namespace
