#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace pimbsr::agent {

/// Has a shell command run with a text on its standard input, one run at a time, in a helper process that is
/// made before this one gives up its rights.
///
/// What is told while a run lasts waits for its end, and only the newest waits. No run is ever killed. The
/// helper holds no file of this process but its end of a socket pair and the standard streams, of which the
/// input is empty and the others are the command's as well. It ends with this object or process, as soon as
/// its last run has ended.
class ChangeCommand {
 public:
  /// Makes the helper. To be called before there are threads and before privileges go. Throws
  /// std::system_error if it can't be made.
  explicit ChangeCommand(std::string const& command);
  ~ChangeCommand();
  ChangeCommand(ChangeCommand const&) = delete;
  ChangeCommand& operator=(ChangeCommand const&) = delete;

  /// Has the command run with a text, at once or after the run that lasts; once the helper has gone, nothing
  /// happens. Never blocks. Returns what to tell the operator, as handleReport() does.
  std::string tell(std::string text);

  /// Can be read when handleReport() has something to do; below 0 once the helper has gone.
  int fd() const { return fd_; }
  /// Takes the reports of ended runs, and starts the next run if a text waits. Returns what to tell the
  /// operator, a line without its end; empty if all went well. If the helper has gone, says so and closes
  /// fd(), which must be polled no more.
  std::string handleReport();

  /// Whether a run lasts.
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
