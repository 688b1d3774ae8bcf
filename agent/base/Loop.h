#pragma once

#include <uv.h>

#include <functional>
#include <memory>

namespace pimbsr::agent {

/// The event loop of a process, and what is hung into it. A handler runs to its end before the next one; an
/// exception that leaves one ends the process, since nobody could answer for what stands then.
class Loop {
 public:
  Loop();
  /// Closes what is still hung into it.
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

/// Calls a handler once, when its time is over.
class LoopTimer {
 public:
  LoopTimer(Loop& loop, Handler handler);
  ~LoopTimer();
  LoopTimer(LoopTimer const&) = delete;
  LoopTimer& operator=(LoopTimer const&) = delete;

  /// Arms or re-arms it: it goes off no sooner than in so many seconds, and at most a millisecond later than
  /// the machine can; at once for what is past, and never for more than 100 days.
  void startIn(double seconds);
  void stop();
  bool isRunning() const;

 private:
  struct State;
  State* state_;  ///< goes once the loop has let go of it
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

/// Calls a handler at each arrival of a signal.
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
