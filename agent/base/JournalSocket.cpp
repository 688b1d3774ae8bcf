#include "agent/base/JournalSocket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace pimbsr::agent {

bool isJournalStream(int fd) {
  char const* named = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (named == nullptr || fstat(fd, &status) < 0) return false;
  return fmt::format("{}:{}", status.st_dev, status.st_ino) == named;
}

/// A value with a line end goes with its length in front, least significant byte first.
static void addField(std::string& datagram, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  datagram += name;
  if (value.find('\n') == value.npos) {
    datagram += '=';
  } else {
    datagram += '\n';
    for (unsigned i = 0; i < 8; ++i) datagram += static_cast<char>(value.size() >> (8 * i) & 0xff);
  }
  datagram.append(value) += '\n';
}

std::string journalDatagram(LogRecord const& record) {
  std::string datagram;
  addField(datagram, "MESSAGE", record.text);
  addField(datagram, "PRIORITY", fmt::to_string(static_cast<int>(record.event.priority)));
  addField(datagram, "MESSAGE_ID", record.event.messageId);
  addField(datagram, "SYSLOG_IDENTIFIER", "pimbsr");
  addField(datagram, "PIMBSR_EVENT", record.event.name);
  for (auto const& [name, value] : record.subject) addField(datagram, "PIMBSR_" + std::string(name), value);
  return datagram;
}

void JournalSocket::open() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, path_.data(), path_.size());
  socket_ = FileDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket_) return;
  if (connect(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0)
    socket_ = FileDescriptor();
}

/// A journal that was restarted has another socket at the path.
bool JournalSocket::send(LogRecord const& record) noexcept {
  std::string datagram = journalDatagram(record);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!socket_) open();
    if (!socket_) return false;
    ssize_t sent = ::send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(datagram.size())) return true;
    socket_ = FileDescriptor();
  }
  return false;
}

}  // namespace pimbsr::agent
