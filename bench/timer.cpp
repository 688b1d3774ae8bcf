// Timers beside those of event loops: re-arming each for a later time while the clock moves on, and a whole
// life, from arming to expiry. The loops never sleep here, and read no clock between two timers.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "runtime/TimerWheel.h"

#if BENCH_LIBEVENT
#include <event2/event.h>
#include <event2/event_struct.h>
#endif
#if BENCH_LIBUV
#include <uv.h>
#endif

namespace {

using Zet::Ptr;
using Zet::U64;

/// Timers that are to expire are armed for the time up to this, in seconds.
constexpr int span = 60;
constexpr double holdTime = 150;

U64 fired = 0;

// A set has `count` timers, stopped at first, and these members:
//   within(body)   calls body, within which timers are armed
//   arm(i, time)   arms a timer for `time` seconds from the start of the set, whatever it is set to
//   settle()       does what a host does after each event: asks when the next timer is due
//   rewind()       moves the start of the set back, so that what is armed then is due by expireAll()
//   expireAll()    fires all timers in order of time

class Wheel {
 public:
  explicit Wheel(std::size_t count) : timers_(count) {
    for (auto& timer : timers_) {
      timer = Zet::make<Timer>();
      timer->notifierIs(wheel_);
    }
  }
  template <class Body>
  void within(Body const& body) {
    body();
  }
  void arm(std::size_t i, double time) { timers_[i]->timeMinIs(start_ + time); }
  void settle() { benchmark::DoNotOptimize(wheel_->nextExpiry()); }
  void rewind() {}
  void expireAll() {
    start_ += span;
    wheel_->advance(start_);
  }

 private:
  class Timer : public Kiv::TimerWheel::NotifieeConst {
   public:
    void onTime() override { ++fired; }
  };

  double start_ = 1e9;
  Ptr<Kiv::TimerWheel> wheel_ = Zet::make<Kiv::TimerWheel>();
  std::vector<Ptr<Timer>> timers_;
};

#if BENCH_LIBEVENT
/// Times are relative to the present, which the loop reads once for the length of a callback.
class Libevent {
 public:
  explicit Libevent(std::size_t count) : timers_(count) {
    auto expire = [](evutil_socket_t, short, void*) { ++fired; };
    for (event& timer : timers_) evtimer_assign(&timer, base_, expire, nullptr);
  }
  ~Libevent() {
    for (event& timer : timers_) event_del(&timer);
    event_base_free(base_);
  }
  template <class Body>
  void within(Body const& body) {
    auto call = [](evutil_socket_t, short, void* given) { (*static_cast<Body const*>(given))(); };
    event_base_once(base_, -1, EV_TIMEOUT, call, const_cast<Body*>(&body), nullptr);
    event_base_loop(base_, EVLOOP_ONCE | EVLOOP_NONBLOCK);
  }
  void arm(std::size_t i, double time) {
    auto const whole = static_cast<time_t>(time);
    timeval const after{whole - rewound_,
                        static_cast<suseconds_t>((time - static_cast<double>(whole)) * 1e6)};
    event_add(&timers_[i], &after);
  }
  void settle() {}
  void rewind() { rewound_ = span; }
  void expireAll() { event_base_loop(base_, EVLOOP_NONBLOCK); }

 private:
  event_base* base_ = event_base_new();
  time_t rewound_ = 0;
  std::vector<event> timers_;
};
#endif

#if BENCH_LIBUV
/// Times are relative to the time that the loop has noted, in milliseconds.
class Libuv {
 public:
  explicit Libuv(std::size_t count) : timers_(count) {
    uv_loop_init(&loop_);
    for (uv_timer_t& timer : timers_) uv_timer_init(&loop_, &timer);
  }
  ~Libuv() {
    for (uv_timer_t& timer : timers_) uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
    uv_run(&loop_, UV_RUN_NOWAIT);
    uv_loop_close(&loop_);
  }
  template <class Body>
  void within(Body const& body) {
    body();
  }
  void arm(std::size_t i, double time) {
    auto expire = [](uv_timer_t*) { ++fired; };
    uv_timer_start(&timers_[i], expire, static_cast<U64>(time * 1e3), 0);
  }
  void settle() {}
  void rewind() { loop_.time = uv_now(&loop_) - U64{span} * 1000; }
  void expireAll() { uv_run(&loop_, UV_RUN_NOWAIT); }

 private:
  uv_loop_t loop_;
  std::vector<uv_timer_t> timers_;
};
#endif

std::vector<std::size_t> shuffled(int64_t count) {
  std::vector<std::size_t> order(static_cast<std::size_t>(count));
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  return order;
}

/// Per timer: a refresh every 60 seconds of what lives for 150, each timer in its turn and a hundred by one
/// event.
template <class Set>
void rearm(benchmark::State& state) {
  std::vector<std::size_t> const order = shuffled(state.range(0));
  Set set(order.size());
  double const step = 60 / static_cast<double>(order.size());
  double time = holdTime;
  std::size_t at = 0;
  auto next = [&] {
    set.arm(order[at], time += step);
    if (++at == order.size()) at = 0;
  };
  set.within([&] {
    for (std::size_t i = 0; i < order.size(); ++i) next();
    int refreshed = 0;
    for (auto _ : state) {
      next();
      if (++refreshed % 100 == 0) set.settle();
    }
  });
}

/// Per timer: all are armed at random times, then expire.
template <class Set>
void life(benchmark::State& state) {
  auto const count = static_cast<std::size_t>(state.range(0));
  Set set(count);
  std::vector<double> times(count);
  std::mt19937 random(1);
  for (double& time : times) time = std::uniform_real_distribution<>(0, span - 1)(random);
  U64 const before = fired;
  while (state.KeepRunningBatch(state.range(0))) {
    set.rewind();
    set.within([&] {
      for (std::size_t i = 0; i < count; ++i) set.arm(i, times[i]);
    });
    set.expireAll();
  }
  if (fired - before != static_cast<U64>(state.iterations()))
    state.SkipWithError("not every timer fired once");
}

template <class Set>
void add(std::string const& variant) {
  auto withSizes = [](benchmark::internal::Benchmark* one) {
    return one->RangeMultiplier(10)->Range(10, 1'000'000);
  };
  withSizes(benchmark::RegisterBenchmark(("rearm/" + variant).c_str(), rearm<Set>));
  withSizes(benchmark::RegisterBenchmark(("arm-expire/" + variant).c_str(), life<Set>));
}

[[maybe_unused]] bool const added = [] {
  add<Wheel>("pimbsr");
#if BENCH_LIBEVENT
  add<Libevent>("libevent");
#endif
#if BENCH_LIBUV
  add<Libuv>("libuv");
#endif
  return true;
}();

}  // namespace
