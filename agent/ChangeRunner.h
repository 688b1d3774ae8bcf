#pragma once

#include <functional>
#include <memory>
#include <string>

#include "agent/account/ChangeRuns.h"
#include "agent/base/Loop.h"
#include "agent/helpers/ChangeCommand.h"

namespace pimbsr::agent {

/// Decides when the change command runs: once after the start, and once for changes close together.
class ChangeRunner {
 public:
  /// The command is null for none. `text` gives what it gets at its standard input. All outlive the runner.
  ChangeRunner(Loop& loop, ChangeCommand* command, std::function<std::string()> text);
  ChangeRunner(ChangeRunner const&) = delete;
  ChangeRunner& operator=(ChangeRunner const&) = delete;

  /// The RP set has changed: the command runs a second after the last of several changes, and five after the
  /// first at the latest.
  void changed();
  /// Hands over a change that waits, since the agent ends.
  void handOver();
  /// Waits until all runs have ended, each bounded by its limit. The service manager is to wait as long.
  void finish();

  ChangeRuns state() const;

 private:
  void run();
  void follow();
  void handleReport();
  static void logFailure(std::string const& text);

  Loop& loop_;
  ChangeCommand* command_;
  std::function<std::string()> text_;
  LoopTimer timer_;
  std::unique_ptr<LoopReader> reader_;
  ChangeCommand::Clock::time_point deadline_;
  bool hasChanged_ = false;  ///< since the command was run
};

}  // namespace pimbsr::agent
