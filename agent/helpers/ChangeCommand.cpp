#include "agent/helpers/ChangeCommand.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "agent/base/FileDescriptor.h"
#include "agent/helpers/FileMessage.h"

namespace pimbsr::agent {

ChangeCommand::ChangeCommand(ChangeOptions const& options)
    : options_(options),
      link_(startHelper("pimbsr-changes", [&options](int socket) { serveChanges(socket, options); })) {}

ChangeCommand::~ChangeCommand() {
  if (link_.fd >= 0) close(link_.fd);
}

std::string ChangeCommand::notify(std::string text) {
  if (link_.fd < 0) return {};
  next_ = std::move(text);
  return isBusy() ? std::string() : start();
}

/// The text travels as a file in memory, handed over as a whole, so that nothing waits for its reader.
std::string ChangeCommand::start() {
  std::string text = std::exchange(next_, std::nullopt).value_or("");
  FileDescriptor file(memoryFile("rp-set", text.data(), text.size()));
  char byte = 0;
  FileMessage message(&byte, sizeof byte);
  if (file) message.fileIs(file.get());
  if (!file || !message.send(link_.fd))
    return fmt::format("the change command could not be started: {}", std::generic_category().message(errno));
  if (started_++ == 0) startTime_ = Clock::now();
  return {};
}

std::string ChangeCommand::handleReport() {
  while (link_.fd >= 0) {
    ChangeEnd end;
    ssize_t got = recv(link_.fd, &end, sizeof end, MSG_DONTWAIT);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) break;
    if (got != sizeof end) return handleLoss();
    if (std::string text = handleEnd(end); !text.empty()) return text;
  }
  return {};
}

static bool hasSucceeded(ChangeEnd const& end) { return !end.timedOut && end.status == 0; }

std::string ChangeCommand::describe(ChangeEnd const& end) const {
  std::string command = fmt::format("the change command '{}'", options_.command);
  if (end.timedOut)
    return fmt::format("{} was terminated since it took longer than {} s", command, options_.timeLimit);
  if (WIFSIGNALED(end.status))
    return fmt::format("{} was terminated by signal {} ({})", command, WTERMSIG(end.status),
                       strsignal(WTERMSIG(end.status)));
  return fmt::format("{} ended with status {}", command, WEXITSTATUS(end.status));
}

std::string ChangeCommand::startNext() { return next_ && !isBusy() ? start() : std::string(); }

/// A run that was lost is no end of one, since nothing is known of it.
std::string ChangeCommand::handleRestart() {
  bool wasBusy = started_ > 0;
  if (wasBusy) --started_;
  ++counts_.restarts;
  startTime_ = Clock::now();
  startNext();
  return fmt::format("the helper of the change command has died{}; another goes on",
                     wasBusy ? " during a run" : "");
}

std::string ChangeCommand::handleEnd(ChangeEnd const& end) {
  if (end.lost) return handleRestart();
  if (started_ > 0) --started_;
  startTime_ = Clock::now();
  lastRun_ = {.end = end, .ended = startTime_};
  ++(hasSucceeded(end) ? counts_.succeeded : end.timedOut ? counts_.timedOut : counts_.failed);
  std::string error = startNext();
  return hasSucceeded(end) ? error : describe(end);
}

std::string ChangeCommand::handleLoss() {
  close(link_.fd);
  link_.fd = -1;
  started_ = 0;
  next_.reset();
  awaitHelper(link_.helper, 0);
  return "the helper of the change command has ended; the command doesn't run any more";
}

double ChangeCommand::maxFinishTime() const {
  return (started_ + (isWaiting() ? 1 : 0)) * maxRunTime(options_);
}

std::string ChangeCommand::finish() {
  std::string text = next_ ? start() : std::string();
  while (isBusy()) {
    pollfd waiting{.fd = link_.fd, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, -1) < 0) break;  // a signal ends the waiting
    if (std::string ended = handleReport(); !ended.empty()) text = ended;
  }
  return text;
}

}  // namespace pimbsr::agent
