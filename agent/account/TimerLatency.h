#pragma once

#include <algorithm>
#include <array>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// How late timers are served, in real seconds whatever the rate of the agent's clock.
class TimerLatency {
 public:
  /// Upper bounds of the histogram's buckets, seconds; a greater latency is in none.
  static constexpr std::array<double, 6> bounds = {0.001, 0.01, 0.02, 0.1, 1, 10};

  /// Counts timers served `late` seconds after they were due; less than 0 counts as 0.
  void note(double late) {
    late = std::max(late, 0.0);
    ++count_;
    sum_ += late;
    worst_ = std::max(worst_, late);
    for (std::size_t i = 0; i < bounds.size(); ++i) atMost_[i] += late <= bounds[i] ? 1 : 0;
  }
  void clear() { *this = {}; }

  /// How often timers were served.
  Zet::U64 count() const { return count_; }
  double sum() const { return sum_; }
  double worst() const { return worst_; }
  /// How often the latency was at most bounds[i].
  Zet::U64 atMost(std::size_t i) const { return atMost_[i]; }

 private:
  Zet::U64 count_ = 0;
  double sum_ = 0;
  double worst_ = 0;
  std::array<Zet::U64, bounds.size()> atMost_{};
};

}  // namespace pimbsr::agent
