#pragma once

#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/base/LogRecord.h"

namespace pimbsr::agent {

/// Whether JOURNAL_STREAM names an open file: then the journal reads it, and a "<n>" in front of a line is
/// its priority.
bool isJournalStream(int fd);

/// A line as a datagram of the journal's native protocol: a field for each thing that is known of it.
std::string journalDatagram(LogRecord const& record);

/// The socket at which the journal takes lines with their fields.
class JournalSocket {
 public:
  static constexpr char const* standardPath = "/run/systemd/journal/socket";

  explicit JournalSocket(std::string path = standardPath) : path_(std::move(path)) {}

  /// Sends a line without waiting. Returns false if the journal didn't take it.
  bool send(LogRecord const& record) noexcept;

 private:
  void open();

  std::string path_;
  FileDescriptor socket_;
};

}  // namespace pimbsr::agent
