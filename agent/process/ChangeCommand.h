#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace pimbsr::agent {

/// Runs a shell command with a text on its standard input, one run at a time, in a helper process that is
/// forked before this one drops its privileges.
///
/// A text given during a run waits for its end; only the newest waits. No run is ever killed. The helper
/// inherits its end of a socket pair and the standard streams alone; its input is empty, and the command
/// inherits its output and error streams. It ends with this object or process, once its last run has ended.
class ChangeCommand {
 public:
  /// Forks the helper. To be called before threads start and privileges are dropped. Throws
  /// std::system_error.
  explicit ChangeCommand(std::string const& command);
  ~ChangeCommand();
  ChangeCommand(ChangeCommand const&) = delete;
  ChangeCommand& operator=(ChangeCommand const&) = delete;

  /// Runs the command with a text, at once or after the present run. Without effect once the helper has
  /// ended. Never blocks. Returns a line to log, as handleReport() does.
  std::string notify(std::string text);

  /// Readable when handleReport() is to be called; below 0 once the helper has ended.
  int fd() const { return fd_; }
  /// Takes the reports of ended runs, and starts the next run if a text waits. Returns a line to log, without
  /// its newline; empty without an error. If the helper has ended, closes fd(), which must not be polled any
  /// more.
  std::string handleReport();

  /// Whether the command is running.
  bool isBusy() const { return busy_; }
  pid_t helper() const { return helper_; }

 private:
  std::string start();
  std::string handleEnd(int status);
  std::string handleLoss();

  std::string command_;
  int fd_ = -1;
  pid_t helper_ = -1;
  bool busy_ = false;
  std::optional<std::string> next_;  ///< the text of the next run
};

}  // namespace pimbsr::agent
