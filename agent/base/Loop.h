#pragma once

#include <uv.h>

#include <functional>
#include <memory>

namespace pimbsr::agent {

/// The event loop of a process with its timers, readers and signals. A handler runs to its end before the
/// next one; an exception that leaves one ends the process, since the state would be inconsistent.
class Loop {
 public:
  Loop();
  /// Closes all remaining handles.
  ~Loop();
  Loop(Loop const&) = delete;
  Loop& operator=(Loop const&) = delete;

  /// Serves events until stop() is called.
  void run();
  void stop() { uv_stop(&loop_); }
  uv_loop_t* handle() { return &loop_; }

 private:
  uv_loop_t loop_;
};

using Handler = std::function<void()>;

/// Calls a handler once, when it expires.
class LoopTimer {
 public:
  LoopTimer(Loop& loop, Handler handler);
  ~LoopTimer();
  LoopTimer(LoopTimer const&) = delete;
  LoopTimer& operator=(LoopTimer const&) = delete;

  /// Starts or restarts the timer: it expires in `seconds`, rounded up to a millisecond; at once for 0 or
  /// less, and never for more than 100 days.
  void startIn(double seconds);
  void stop();
  bool isRunning() const;

 private:
  struct State;
  State* state_;  ///< deleted once the loop has closed the handle
};

/// Calls a handler whenever a file descriptor can be read. The descriptor is not owned and outlives it.
class LoopReader {
 public:
  LoopReader(Loop& loop, int fd, Handler handler);
  ~LoopReader();
  LoopReader(LoopReader const&) = delete;
  LoopReader& operator=(LoopReader const&) = delete;

 private:
  struct State;
  State* state_;
};

/// Calls a handler for each signal received.
class LoopSignal {
 public:
  LoopSignal(Loop& loop, int signal, Handler handler);
  ~LoopSignal();
  LoopSignal(LoopSignal const&) = delete;
  LoopSignal& operator=(LoopSignal const&) = delete;

 private:
  struct State;
  State* state_;
};

}  // namespace pimbsr::agent
