#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/helpers/HelperProcess.h"
#include "agent/helpers/StateRecords.h"
#include "agent/helpers/StateWriterProcess.h"

namespace pimbsr::agent {

/// Has the files of a state directory written by a process of their own, over a bounded socket: what was
/// handed over is written also if this process is killed, within a second on the disk, and a disk that hangs
/// or is full delays nothing here.
class StateWriter {
 public:
  /// How records fared since the start.
  struct Counts {
    Zet::U64 records = 0;   ///< handed over
    Zet::U64 lost = 0;      ///< not handed over: the socket was full, or the writer has gone
    Zet::U64 failures = 0;  ///< writes and syncs that failed
    Zet::U64 restarts = 0;  ///< deaths of a process of the writer, after which another was started

    bool operator==(Counts const&) const = default;
  };

  /// Starts the writer and waits until it holds the lock of the directory, at most some seconds: a former
  /// writer finishes before that. One whose agent was killed may take longer, and isWaiting() then. To be
  /// called before there are threads and before privileges go. Throws
  /// std::system_error, naming the directory, if there is no process, or the directory can't be used.
  explicit StateWriter(StateWriterOptions const& options);
  /// Lets the writer end once it has written all, and waits for that half a second at most.
  ~StateWriter();
  StateWriter(StateWriter const&) = delete;
  StateWriter& operator=(StateWriter const&) = delete;

  /// Whether the writer of an agent that has ended still holds the lock. A report that it is `ready` ends
  /// that; nothing is to be read or handed over before.
  bool isWaiting() const { return isWaiting_; }
  /// The number of the record that was handed over last, as in reports; 0 before the first.
  Zet::U64 lastNumber() const { return counts_.records; }

  /// Hands over text for the end of a file, at most maxStateAppend bytes. Never blocks. Returns false if it
  /// was not taken, which is counted.
  bool append(std::size_t file, std::string_view text);
  /// Hands over the text that replaces a file as a whole; whoever reads the file finds the former text or
  /// this one. Never blocks. Returns false if it was not taken, which is counted.
  bool replace(std::size_t file, std::string_view text);

  /// Can be read when there are reports; below 0 once the writer has gone.
  int fd() const { return link_.fd; }
  /// The next report, if there is one. A writer that has gone is reported as `unusable` once; fd() must be
  /// polled no more then.
  std::optional<StateReport> takeReport();

  StateWriterOptions const& options() const { return options_; }
  Counts const& counts() const { return counts_; }
  pid_t process() const { return link_.helper; }

 private:
  bool isSent(bool sent);
  void awaitLock();
  void close();

  StateWriterOptions options_;
  HelperLink link_;
  Counts counts_;
  std::vector<char> message_;
  bool isWaiting_ = false;
};

}  // namespace pimbsr::agent
