#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/LogRecord.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Limits the lines of the log by kind and subject, so that a flood about one subject hides no line about
/// another: `burst` lines at once, then one each `interval`; and all lines of a kind together in the same
/// way, so that a stranger who chooses the subjects gains nothing. Kinds of one group, such as "up" and
/// "down", count as one. The last line that was held back is let out when its subject has its next turn, with
/// its age and the number of those before it.
///
/// A kind has `maxSubjects` subjects; what is about others shares one limit, until a subject had no line for
/// so long that it starts anew. Each line costs O(log n).
class LogLimit {
 public:
  static constexpr double burst = 5;
  static constexpr double interval = 10;  ///< seconds
  static constexpr double kindBurst = 50;
  static constexpr double kindInterval = 1;  ///< seconds
  static constexpr std::size_t maxSubjects = 256;

  /// Takes a line at a time in seconds, which never runs backwards. Returns it if it may be written now.
  std::optional<LogRecord> take(LogRecord record, double now);
  /// Lines that were held back and may be written now, in the order in which they were logged, each with its
  /// age and the number of lines before it that are not written.
  std::vector<LogRecord> takeDue(double now);
  /// The same for all that are held back.
  std::vector<LogRecord> takeAll(double now);
  /// Whether lines are held back.
  bool holdsBack() const { return !held_.empty(); }

 private:
  using Key = std::pair<std::string_view, std::string>;  ///< kind and subject
  struct Tokens {
    double count = 0;
    double filled = 0;
  };
  struct Bucket {
    Tokens tokens{.count = burst};
    Zet::U64 suppressed = 0;
    double since = 0;  ///< time of the first line that was suppressed
    double at = 0;     ///< time of the last of them
    LogRecord last;    ///< the last of them
  };
  struct Kind {
    Tokens tokens{.count = kindBurst};
    std::set<std::pair<double, std::string>> byUse;  ///< subjects by their last line
  };

  Key keyOf(LogRecord const& record, double now);
  bool makeRoom(Kind& kind, std::string_view name, double now);
  std::vector<Key> heldByAge() const;
  static bool takeToken(Bucket& bucket, Kind& kind, double now);
  static LogRecord summed(Bucket& bucket, double now);

  std::map<Key, Bucket> buckets_;
  std::map<std::string_view, Kind> kinds_;
  std::set<Key> held_;
};

}  // namespace pimbsr::agent
