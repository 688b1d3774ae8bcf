#include "agent/process/ChangeCommand.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "agent/process/ChangeHelper.h"

namespace pimbsr::agent {

static std::string errorText() { return std::generic_category().message(errno); }

/// SOCK_SEQPACKET keeps message boundaries and reports when the other end has closed.
ChangeCommand::ChangeCommand(std::string const& command) : command_(command) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw std::system_error(errno, std::generic_category(), "helper of the change command");
  helper_ = fork();
  if (helper_ == 0) serveChanges(ends[1], command);
  int error = errno;
  close(ends[1]);
  fd_ = ends[0];
  if (helper_ > 0) return;
  close(fd_);
  throw std::system_error(error, std::generic_category(), "helper of the change command");
}

ChangeCommand::~ChangeCommand() {
  if (fd_ >= 0) close(fd_);
}

std::string ChangeCommand::notify(std::string text) {
  if (fd_ < 0) return {};
  next_ = std::move(text);
  return busy_ ? std::string() : start();
}

static bool writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return lseek(file, 0, SEEK_SET) == 0;
}

/// The text is passed as a file in memory, so that neither process waits for the command to read it.
std::string ChangeCommand::start() {
  int file = memfd_create("rp-set", MFD_CLOEXEC);
  busy_ = file >= 0 && writeAll(file, *next_) && sendFile(fd_, file);
  std::string error;
  if (!busy_) error = fmt::format("the change command could not be started: {}", errorText());
  if (file >= 0) close(file);
  next_.reset();
  return error;
}

std::string ChangeCommand::handleReport() {
  while (fd_ >= 0) {
    int status = 0;
    ssize_t got = recv(fd_, &status, sizeof status, MSG_DONTWAIT);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) break;
    if (got != sizeof status) return handleLoss();
    if (std::string text = handleEnd(status); !text.empty()) return text;
  }
  return {};
}

std::string ChangeCommand::handleEnd(int status) {
  busy_ = false;
  std::string error = next_ ? start() : std::string();
  if (WIFSIGNALED(status))
    return fmt::format("the change command '{}' was terminated by signal {} ({})", command_, WTERMSIG(status),
                       strsignal(WTERMSIG(status)));
  if (WEXITSTATUS(status) == 0) return error;
  return fmt::format("the change command '{}' ended with status {}", command_, WEXITSTATUS(status));
}

std::string ChangeCommand::handleLoss() {
  close(fd_);
  fd_ = -1;
  busy_ = false;
  next_.reset();
  waitpid(helper_, nullptr, WNOHANG);
  return "the helper of the change command has ended; the command doesn't run any more";
}

}  // namespace pimbsr::agent
