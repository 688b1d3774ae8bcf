#include "agent/helpers/ChangeHelper.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>

#include "agent/base/FileDescriptor.h"
#include "agent/helpers/FileMessage.h"

namespace pimbsr::agent {

namespace {

using Clock = std::chrono::steady_clock;

/// Seconds from SIGTERM to SIGKILL.
constexpr double grace = 2;
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

/// Waits until a child has ended, at most so many seconds. Returns whether it has.
bool awaitEnd(pid_t child, double seconds, int& status) {
  sigset_t const signals = childSignal();
  Clock::time_point start = Clock::now();
  while (true) {
    if (waitpid(child, &status, WNOHANG) == child) return true;
    double left = seconds - secondsSince(start);
    if (left <= 0) return false;
    double whole = std::floor(left);
    timespec wait{.tv_sec = static_cast<time_t>(whole), .tv_nsec = static_cast<long>((left - whole) * 1e9)};
    sigtimedwait(&signals, nullptr, &wait);
  }
}

/// Ends a run with all processes of its group.
void end(pid_t child, int& status) {
  kill(-child, SIGTERM);
  bool hasEnded = awaitEnd(child, grace, status);
  kill(-child, SIGKILL);
  if (!hasEnded) waitpid(child, &status, 0);
}

/// No fork handler runs: that of libuv would close descriptors by their numbers, which mean other files here.
ChangeEnd run(int file, ChangeOptions const& options) {
  Clock::time_point start = Clock::now();
  ChangeEnd run{.status = noProcess};
  pid_t child = _Fork();
  if (child == 0) execute(file, options.command);
  if (child < 0) return run;
  setpgid(child, child);  // whichever of both is first
  run.timedOut = !awaitEnd(child, options.timeLimit, run.status);
  if (run.timedOut) end(child, run.status);
  run.duration = secondsSince(start);
  return run;
}

}  // namespace

void serveChanges(int socket, ChangeOptions const& options) {
  sigset_t const signals = childSignal();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  while (true) {
    char byte = 0;
    FileMessage message(&byte, sizeof byte);
    if (message.receive(socket) <= 0) return;
    FileDescriptor file(message.file());
    ChangeEnd ended = run(file.get(), options);
    send(socket, &ended, sizeof ended, MSG_NOSIGNAL);
  }
}

}  // namespace pimbsr::agent
