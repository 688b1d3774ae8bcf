#pragma once

#include <chrono>

namespace pimbsr::agent {

/// The agent's clock: wall time at the start, then the monotonic clock, so that it never runs backwards when
/// the wall clock is set.
class Clock {
 public:
  using Monotonic = std::chrono::steady_clock;

  /// `rate` is the seconds of this clock in one real second; above 0, and 1 except in labs.
  explicit Clock(double rate = 1)
      : rate_(rate), startWall_(secondsOf(std::chrono::system_clock::now())), start_(Monotonic::now()) {}

  /// Seconds; since 1970 at the start.
  double now() const { return startWall_ + rate_ * secondsOf(Monotonic::now() - start_); }
  double rate() const { return rate_; }
  /// The real time of a span of this clock, seconds.
  double realSpan(double seconds) const { return seconds / rate_; }

 private:
  template <class Rep, class Period>
  static double secondsOf(std::chrono::duration<Rep, Period> span) {
    return std::chrono::duration<double>(span).count();
  }
  template <class Kind, class Span>
  static double secondsOf(std::chrono::time_point<Kind, Span> point) {
    return secondsOf(point.time_since_epoch());
  }

  double rate_;
  double startWall_;
  Monotonic::time_point start_;
};

}  // namespace pimbsr::agent
