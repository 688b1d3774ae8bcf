#pragma once

#include <optional>
#include <string>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// How a run of the change command ended.
struct EndedRun {
  double ago = 0;       ///< seconds since its end
  double duration = 0;  ///< seconds
  int status = 0;       ///< wait status
  bool timedOut = false;
};

/// How the change command fares; durations are in real time.
struct ChangeRuns {
  std::string command;   ///< empty for none
  double timeLimit = 0;  ///< seconds
  std::optional<double> runningFor;
  bool waiting = false;  ///< a change waits to be handed over
  Zet::U64 succeeded = 0;
  Zet::U64 failed = 0;
  Zet::U64 timedOut = 0;
  Zet::U64 helperRestarts = 0;  ///< deaths of the process that runs it, after which another was started
  bool helperEnded = false;     ///< it has ended, so that the command doesn't run any more
  std::optional<EndedRun> last;
};

}  // namespace pimbsr::agent
