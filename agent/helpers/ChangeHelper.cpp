#include "agent/helpers/ChangeHelper.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <new>
#include <set>
#include <thread>
#include <utility>

#include "agent/base/FileDescriptor.h"
#include "agent/helpers/FileMessage.h"

namespace pimbsr::agent {

namespace {

using Clock = std::chrono::steady_clock;

/// Seconds from SIGTERM to SIGKILL.
constexpr double grace = 2;
/// Seconds in which the system starts a run, ends its processes, and starts another runner for one that died.
constexpr double overhead = 1;
/// Time between the death of a process that makes the runs and the next one.
constexpr std::chrono::milliseconds restartDelay{500};
/// The status of a shell that can't start its command, for where there is no process to be had.
constexpr int noProcess = 126 << 8;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A run has a process group of its own, so that all of it can be ended.
[[noreturn]] void execute(int file, std::string const& command) {
  setpgid(0, 0);
  for (int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE}) std::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  dup2(file, STDIN_FILENO);
  execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
  _exit(127);
}

/// SIGCHLD, which waits to be taken while it is blocked.
sigset_t childSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGCHLD);
  return signals;
}

// Processes ---------------------------------------------------------------------------------------------

/// The children of this process, orphans among its descendants too.
std::set<pid_t> children() {
  std::set<pid_t> found;
  std::ifstream list("/proc/thread-self/children");
  for (pid_t child = 0; list >> child;) found.insert(child);
  return found;
}

/// Ends the children that are not among the former ones, and then theirs, which become children of this
/// process. The rounds are bounded against a run that forks faster than it is ended.
void endOthers(std::set<pid_t> const& former) {
  for (int round = 0; round < 100; ++round) {
    bool isAny = false;
    for (pid_t child : children()) {
      if (former.contains(child)) continue;
      isAny = true;
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
    if (!isAny) return;
  }
}

void reapOrphans() {
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

// Runs --------------------------------------------------------------------------------------------------

enum class Waiting { ended, late, abandoned };

/// What the process that makes the runs shares with the one that follows it up.
struct Shared {
  pid_t run = 0;  ///< the process group of the present run; 0 for none
};

class RunMaker {
 public:
  RunMaker(int socket, ChangeOptions const& options, Shared& shared)
      : socket_(socket), options_(options), shared_(shared) {
    sigset_t const signals = childSignal();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    ended_ = FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  }

  /// Serves until the agent has gone.
  void serve() {
    while (true) {
      char byte = 0;
      FileMessage message(&byte, sizeof byte);
      if (message.receive(socket_) <= 0) return;
      FileDescriptor file(message.file());
      ChangeEnd ended = run(file.get());
      if (send(socket_, &ended, sizeof ended, MSG_NOSIGNAL) != sizeof ended) return;
    }
  }

 private:
  ChangeEnd run(int file);
  Waiting await(pid_t child, double seconds, int agent, int& status) const;
  void end(pid_t child, std::set<pid_t> const& former, int& status) const;

  int socket_;
  ChangeOptions const& options_;
  Shared& shared_;
  FileDescriptor ended_;  ///< readable once a child has ended
};

/// Waits until a child has ended, at most so many seconds, or until the agent has gone from its socket;
/// below 0 for no such look.
Waiting RunMaker::await(pid_t child, double seconds, int agent, int& status) const {
  Clock::time_point start = Clock::now();
  while (true) {
    signalfd_siginfo signal;
    while (read(ended_.get(), &signal, sizeof signal) > 0) {
    }
    if (waitpid(child, &status, WNOHANG) == child) return Waiting::ended;
    double left = seconds - secondsSince(start);
    if (left <= 0) return Waiting::late;
    std::array<pollfd, 2> sources{pollfd{ended_.get(), POLLIN, 0}, pollfd{agent, 0, 0}};
    poll(sources.data(), sources.size(), static_cast<int>(std::ceil(std::min(left, 3600.0) * 1000)));
    if ((sources[1].revents & (POLLHUP | POLLERR)) != 0) return Waiting::abandoned;
  }
}

/// Ends a run with all that it has started.
void RunMaker::end(pid_t child, std::set<pid_t> const& former, int& status) const {
  kill(-child, SIGTERM);
  bool hasEnded = await(child, grace, -1, status) == Waiting::ended;
  kill(-child, SIGKILL);
  if (!hasEnded) waitpid(child, &status, 0);
  endOthers(former);
}

/// No fork handler runs: that of libuv would close descriptors by their numbers, which mean other files here.
ChangeEnd RunMaker::run(int file) {
  Clock::time_point start = Clock::now();
  std::set<pid_t> const former = children();
  ChangeEnd run{.status = noProcess};
  pid_t child = _Fork();
  if (child == 0) execute(file, options_.command);
  if (child < 0) return run;
  setpgid(child, child);  // whichever of both is first
  shared_.run = child;
  Waiting waiting = await(child, options_.timeLimit, socket_, run.status);
  run.timedOut = waiting == Waiting::late;
  if (waiting != Waiting::ended) end(child, former, run.status);
  shared_.run = 0;
  run.duration = secondsSince(start);
  reapOrphans();
  return run;
}

/// Waits for the process that makes the runs. Orphans of runs are children of this process then.
int awaitRunner(pid_t runner) {
  int status = -1;
  while (true) {
    int one = 0;
    pid_t ended = waitpid(-1, &one, 0);
    if (ended == runner) status = one;
    if (ended == runner || (ended < 0 && errno != EINTR)) return status;
  }
}

/// Returns whether the runner has done all. Without this process nothing follows it up, so that it ends too.
bool makeRuns(int socket, ChangeOptions const& options, Shared& shared) {
  pid_t runner = _Fork();
  if (runner == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    RunMaker(socket, options, shared).serve();
    _exit(0);
  }
  if (runner > 0 && awaitRunner(runner) == 0) return true;
  if (shared.run != 0) kill(-std::exchange(shared.run, 0), SIGKILL);
  return false;
}

}  // namespace

double maxRunTime(ChangeOptions const& options) { return options.timeLimit + grace + overhead; }

void serveChanges(int socket, ChangeOptions const& options) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return;
  Shared& shared = *new (memory) Shared;
  ChangeEnd const lost{.lost = true};
  while (!makeRuns(socket, options, shared)) {
    std::this_thread::sleep_for(restartDelay);
    if (send(socket, &lost, sizeof lost, MSG_NOSIGNAL) != sizeof lost) return;
  }
}

}  // namespace pimbsr::agent
