#include "agent/process/ChangeHelper.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace pimbsr::agent {

namespace {

/// A message of one byte with a file descriptor as ancillary data.
class FileMessage {
 public:
  FileMessage() {
    header_.msg_iov = &part_;
    header_.msg_iovlen = 1;
    header_.msg_control = control_.data();
    header_.msg_controllen = control_.size();
  }
  FileMessage(FileMessage const&) = delete;
  FileMessage& operator=(FileMessage const&) = delete;

  void fileIs(int file) {
    cmsghdr* rights = CMSG_FIRSTHDR(&header_);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof file);
    std::memcpy(CMSG_DATA(rights), &file, sizeof file);
  }
  /// Below 0 without one.
  int file() {
    int file = -1;
    cmsghdr* rights = CMSG_FIRSTHDR(&header_);
    if (rights != nullptr && rights->cmsg_type == SCM_RIGHTS)
      std::memcpy(&file, CMSG_DATA(rights), sizeof file);
    return file;
  }
  msghdr* header() { return &header_; }

 private:
  char byte_ = 0;
  iovec part_{&byte_, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
  msghdr header_{};
};

/// The descriptor of the socket in the helper: next to the standard streams.
constexpr int socketPlace = 3;

constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGTERM, SIGPIPE};

void closeAllBut(int socket) {
  if (socket != socketPlace) dup2(socket, socketPlace);
  close_range(socketPlace + 1, UINT_MAX, 0);
  fcntl(socketPlace, F_SETFD, FD_CLOEXEC);
  int none = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(none, STDIN_FILENO);
  close(none);
}

[[noreturn]] void execute(int file, std::string const& command) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int number : endingSignals) std::signal(number, SIG_DFL);
  dup2(file, STDIN_FILENO);
  execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
  _exit(127);
}

/// The wait status; that of a shell which can't start its command if fork() fails.
int run(int file, std::string const& command) {
  int status = 126 << 8;
  pid_t child = fork();
  if (child == 0) execute(file, command);
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

bool sendFile(int socket, int file) {
  FileMessage message;
  message.fileIs(file);
  return sendmsg(socket, message.header(), MSG_NOSIGNAL | MSG_DONTWAIT) == 1;
}

/// The helper ignores the signals that end an agent: it ends when its agent does, and must still run the
/// command if both are signaled by their common name.
void serveChanges(int socket, std::string const& command) {
  for (int number : endingSignals) std::signal(number, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);
  prctl(PR_SET_NAME, "pimbsr-changes");
  unsetenv("NOTIFY_SOCKET");
  closeAllBut(socket);
  while (true) {
    FileMessage message;
    ssize_t got = recvmsg(socketPlace, message.header(), MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) _exit(0);
    int file = message.file();
    int status = run(file, command);
    close(file);
    if (send(socketPlace, &status, sizeof status, MSG_NOSIGNAL) != sizeof status) _exit(0);
  }
}

}  // namespace pimbsr::agent
