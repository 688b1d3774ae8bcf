#include "agent/base/Loop.h"

#include <algorithm>
#include <cmath>
#include <system_error>
#include <utility>

namespace pimbsr::agent {

/// libuv's errors are the system's, negated.
static void check(int result, char const* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

Loop::Loop() { check(uv_loop_init(&loop_), "event loop"); }

Loop::~Loop() {
  auto close = [](uv_handle_t* handle, void*) {
    if (!uv_is_closing(handle)) uv_close(handle, nullptr);
  };
  uv_walk(&loop_, close, nullptr);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

void Loop::run() { uv_run(&loop_, UV_RUN_DEFAULT); }

// Handles: libuv keeps each until its close callback -----------------------------------------------------

struct LoopTimer::State {
  uv_timer_t handle;
  Handler handler;
};

struct LoopReader::State {
  static void onReadable(uv_poll_t* poll, int status, int events) noexcept;

  uv_poll_t handle;
  Handler handler;
};

struct LoopSignal::State {
  uv_signal_t handle;
  Handler handler;
};

/// The handler may be running, so it is deleted with the handle.
template <class State>
static void letGo(State* state) {
  auto free = [](uv_handle_t* handle) { delete static_cast<State*>(handle->data); };
  uv_close(reinterpret_cast<uv_handle_t*>(&state->handle), free);
}

LoopTimer::LoopTimer(Loop& loop, Handler handler) : state_(new State{{}, std::move(handler)}) {
  state_->handle.data = state_;
  uv_timer_init(loop.handle(), &state_->handle);
}

LoopTimer::~LoopTimer() { letGo(state_); }

void LoopTimer::startIn(double seconds) {
  constexpr double maxDelay = 100.0 * 86400;
  if (!(seconds <= maxDelay)) return stop();
  auto milliseconds = static_cast<uint64_t>(std::ceil(std::max(seconds, 0.0) * 1000));
  auto call = [](uv_timer_t* timer) noexcept { static_cast<State*>(timer->data)->handler(); };
  uv_update_time(state_->handle.loop);
  uv_timer_start(&state_->handle, call, milliseconds, 0);
}

void LoopTimer::stop() { uv_timer_stop(&state_->handle); }

bool LoopTimer::isRunning() const {
  return uv_is_active(reinterpret_cast<uv_handle_t const*>(&state_->handle)) != 0;
}

/// libuv stops polling a descriptor with a pending error, such as lost notices of the kernel. The handler
/// clears the error by reading.
void LoopReader::State::onReadable(uv_poll_t* poll, int status, int) noexcept {
  if (status < 0) uv_poll_start(poll, UV_READABLE, onReadable);
  static_cast<State*>(poll->data)->handler();
}

LoopReader::LoopReader(Loop& loop, int fd, Handler handler) : state_(new State{{}, std::move(handler)}) {
  state_->handle.data = state_;
  check(uv_poll_init(loop.handle(), &state_->handle, fd), "polling");
  check(uv_poll_start(&state_->handle, UV_READABLE, State::onReadable), "polling");
}

LoopReader::~LoopReader() { letGo(state_); }

LoopSignal::LoopSignal(Loop& loop, int signal, Handler handler) : state_(new State{{}, std::move(handler)}) {
  state_->handle.data = state_;
  check(uv_signal_init(loop.handle(), &state_->handle), "signals");
  auto call = [](uv_signal_t* arrived, int) noexcept { static_cast<State*>(arrived->data)->handler(); };
  check(uv_signal_start(&state_->handle, call, signal), "signals");
}

LoopSignal::~LoopSignal() { letGo(state_); }

}  // namespace pimbsr::agent
