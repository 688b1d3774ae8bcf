#pragma once

#include <string>

namespace pimbsr::agent {

/// What a change command is, and how long a run of it may take.
struct ChangeOptions {
  std::string command;    ///< for a shell
  double timeLimit = 30;  ///< seconds, above 0
};

/// How a run of the change command ended.
struct ChangeEnd {
  int status = 0;         ///< the wait status of the shell
  bool timedOut = false;  ///< it took longer than the limit, and was ended for that
  bool lost = false;    ///< the process that runs it has died, with its run if there was one; another goes on
  double duration = 0;  ///< seconds
};

/// Seconds that a run takes at most: its limit, the time in which it may clean up after SIGTERM, and what the
/// system needs to start and to end its processes.
double maxRunTime(ChangeOptions const& options);

/// The life of the helper process that runs a shell command for each file that comes over the socket, and
/// answers each with a ChangeEnd. A run that exceeds its time gets SIGTERM, and SIGKILL two seconds later,
/// with all processes that it has started, those that left its process group or session too. So does a run
/// whose agent has gone without waiting for it: the next agent may begin a run of its own. Returns when the
/// other end has gone. The runs are made by a child of this process; if it dies, another is started.
void serveChanges(int socket, ChangeOptions const& options);

}  // namespace pimbsr::agent
