#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "agent/helpers/ChangeHelper.h"
#include "agent/helpers/HelperProcess.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Runs a shell command with a text on its standard input, one run at a time, in a helper process that is
/// forked before this one drops its privileges.
///
/// A text given during a run waits for its end; only the newest waits. A run that exceeds its time is
/// terminated. The helper inherits its end of a socket pair and the standard streams alone; its input is
/// empty, and the command inherits its output and error streams. It ends with this object or process, and
/// terminates a run that finish() has not waited for.
class ChangeCommand {
 public:
  using Clock = std::chrono::steady_clock;

  /// How often it ran since the start.
  struct Counts {
    Zet::U64 succeeded = 0;
    Zet::U64 failed = 0;    ///< with another status than 0, or by a signal
    Zet::U64 timedOut = 0;  ///< ended since they took too long
    Zet::U64 restarts = 0;  ///< deaths of the process that runs it, after which another was started
  };
  struct Run {
    ChangeEnd end;
    Clock::time_point ended;
  };

  /// Forks the helper. To be called before threads start and privileges are dropped. Throws
  /// std::system_error.
  explicit ChangeCommand(ChangeOptions const& options);
  ~ChangeCommand();
  ChangeCommand(ChangeCommand const&) = delete;
  ChangeCommand& operator=(ChangeCommand const&) = delete;

  /// Runs the command with a text, at once or after the present run. Without effect once the helper has
  /// ended. Never blocks. Returns a line to log, as handleReport() does.
  std::string notify(std::string text);

  /// Readable when handleReport() is to be called; below 0 once the helper has ended.
  int fd() const { return link_.fd; }
  /// Takes the reports of ended runs, and starts the next run if a text waits. Returns a line to log, without
  /// its newline; empty without an error. If the helper has ended, closes fd(), which must not be polled any
  /// more.
  std::string handleReport();
  /// Hands over the text that waits, and waits until all runs have ended; each is bounded by its limit.
  /// Returns a line to log, as handleReport() does.
  std::string finish();

  /// Seconds that finish() takes at most: those of the present run, and of the one that waits.
  double maxFinishTime() const;

  /// Whether the command is running.
  bool isBusy() const { return started_ > 0; }
  /// Whether a text waits for the end of a run.
  bool isWaiting() const { return next_.has_value(); }
  /// When the present run was started.
  Clock::time_point startTime() const { return startTime_; }
  ChangeOptions const& options() const { return options_; }
  Counts const& counts() const { return counts_; }
  /// The last run that has ended; nothing before there is one.
  std::optional<Run> const& lastRun() const { return lastRun_; }
  pid_t helper() const { return link_.helper; }

 private:
  std::string start();
  std::string handleEnd(ChangeEnd const& end);
  std::string handleRestart();
  std::string startNext();
  std::string handleLoss();
  std::string describe(ChangeEnd const& end) const;

  ChangeOptions options_;
  HelperLink link_;
  int started_ = 0;                  ///< runs that were handed over and have not ended
  std::optional<std::string> next_;  ///< the text of the next run
  Clock::time_point startTime_;
  Counts counts_;
  std::optional<Run> lastRun_;
};

}  // namespace pimbsr::agent
