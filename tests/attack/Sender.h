#pragma once

#include <span>
#include <string>

#include "runtime/Types.h"
#include "tests/attack/Frames.h"

/// Sends frames along an interface at an exact pace.
namespace attack {

/// What was sent, and how well the pace was kept.
struct Sent {
  U64 packets = 0;
  U64 bytes = 0;             ///< with Ethernet headers
  double seconds = 0;        ///< from the first to the last
  double worstLateness = 0;  ///< seconds by which the system woke this process too late at most
};

/// How many packets are due by a time. A rate of 0 is no limit: a whole batch is always due.
class Pacer {
 public:
  /// Packets in a second, and the most that are due at once after a delay.
  Pacer(double rate, U64 batch) : rate_(rate), batch_(batch) {}

  /// Packets that are due `elapsed` seconds after the start, at most a batch. They count as sent.
  U64 take(double elapsed);
  /// Seconds after the start at which the next packet is due; 0 without a rate.
  double next() const { return rate_ == 0 ? 0 : static_cast<double>(sent_) / rate_; }

 private:
  double rate_;
  U64 batch_;
  U64 sent_ = 0;
};

/// Sends the frames in turn for so many seconds, or at most `max` of them (0 is no bound), along an
/// interface of this network namespace. Without frames it sends nothing and measures the lateness of the
/// system. Throws std::system_error.
Sent send(std::string const& interface, std::span<Frame const> frames, double rate, double seconds, U64 max);

}  // namespace attack
