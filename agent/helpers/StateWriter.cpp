#include "agent/helpers/StateWriter.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "agent/base/FileDescriptor.h"
#include "agent/helpers/FileMessage.h"
#include "runtime/Assert.h"

namespace pimbsr::agent {

/// Milliseconds for which a start waits for a former writer, whose patience is shorter.
static constexpr int lockWait = 3000;
/// Seconds for which an end waits for the last writes.
static constexpr double endWait = 0.5;

StateWriter::StateWriter(StateWriterOptions const& options)
    : options_(options),
      link_(startHelper("pimbsr-starter", [&options](int socket) { serveState(socket, options); })) {
  awaitLock();
}

StateWriter::~StateWriter() {
  if (link_.fd < 0) return;
  close();
  awaitHelper(link_.helper, endWait);
}

void StateWriter::close() {
  ::close(link_.fd);
  link_.fd = -1;
}

void StateWriter::awaitLock() {
  pollfd waiting{.fd = link_.fd, .events = POLLIN, .revents = 0};
  poll(&waiting, 1, lockWait);
  StateReport report =
      takeReport().value_or(StateReport{.kind = StateReport::Kind::unusable, .error = ETIMEDOUT});
  isWaiting_ = report.kind == StateReport::Kind::waiting;
  if (isWaiting_ || report.kind == StateReport::Kind::ready) return;
  if (link_.fd >= 0) close();
  bool isLocked = report.error == EWOULDBLOCK;
  throw std::system_error(report.error, std::generic_category(),
                          options_.folder + (isLocked ? ": another agent uses it" : ""));
}

bool StateWriter::isSent(bool sent) {
  ++(sent ? counts_.records : counts_.lost);
  return sent;
}

bool StateWriter::append(std::size_t file, std::string_view text) {
  ZET_ASSERT(text.size() <= maxStateAppend, "a text that an append holds");
  if (link_.fd < 0) return isSent(false);
  StateRecord record{
      .kind = StateRecord::Kind::append, .file = static_cast<U32>(file), .number = lastNumber() + 1};
  message_.resize(sizeof record + text.size());
  std::memcpy(message_.data(), &record, sizeof record);
  std::memcpy(message_.data() + sizeof record, text.data(), text.size());
  return isSent(FileMessage(message_.data(), message_.size()).send(link_.fd));
}

bool StateWriter::replace(std::size_t file, std::string_view text) {
  FileDescriptor content(memoryFile("state", text.data(), text.size()));
  if (link_.fd < 0 || !content) return isSent(false);
  StateRecord record{
      .kind = StateRecord::Kind::replace, .file = static_cast<U32>(file), .number = lastNumber() + 1};
  FileMessage message(&record, sizeof record);
  message.fileIs(content.get());
  return isSent(message.send(link_.fd));
}

std::optional<StateReport> StateWriter::takeReport() {
  if (link_.fd < 0) return std::nullopt;
  StateReport report;
  ssize_t got = 0;
  do {
    got = recv(link_.fd, &report, sizeof report, MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  if (got < 0 && errno == EAGAIN) return std::nullopt;
  if (got != sizeof report) {
    close();
    awaitHelper(link_.helper, 0);
    return StateReport{.kind = StateReport::Kind::unusable, .error = EPIPE};
  }
  if (report.kind == StateReport::Kind::ready) isWaiting_ = false;
  if (report.kind == StateReport::Kind::failed) ++counts_.failures;
  if (report.kind == StateReport::Kind::restarted) ++counts_.restarts;
  return report;
}

}  // namespace pimbsr::agent
