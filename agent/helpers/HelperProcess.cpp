#include "agent/helpers/HelperProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

namespace pimbsr::agent {

/// The place of the socket in the helper: next to the standard streams.
static constexpr int socketPlace = 3;

static void closeAllBut(int socket) {
  if (socket != socketPlace) dup2(socket, socketPlace);
  close_range(socketPlace + 1, UINT_MAX, 0);
  fcntl(socketPlace, F_SETFD, FD_CLOEXEC);
  int none = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(none, STDIN_FILENO);
  close(none);
}

static void becomeHelper(int socket, char const* name) {
  for (int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE}) std::signal(number, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  prctl(PR_SET_NAME, name);
  unsetenv("NOTIFY_SOCKET");
  closeAllBut(socket);
}

[[noreturn]] static void fail(int error, char const* name) {
  throw std::system_error(error, std::generic_category(), std::string("helper process ") + name);
}

HelperLink startHelper(char const* name, std::function<void(int socket)> const& serve) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) fail(errno, name);
  pid_t helper = fork();
  int error = errno;
  if (helper == 0) {
    becomeHelper(ends[1], name);
    serve(socketPlace);
    _exit(0);
  }
  close(ends[1]);
  if (helper > 0) return {.fd = ends[0], .helper = helper};
  close(ends[0]);
  fail(error, name);
}

bool awaitHelper(pid_t helper, double seconds) {
  using Clock = std::chrono::steady_clock;
  auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (true) {
    pid_t ended = waitpid(helper, nullptr, WNOHANG);
    if (ended == helper || (ended < 0 && errno == ECHILD)) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace pimbsr::agent
