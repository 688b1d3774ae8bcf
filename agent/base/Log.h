#pragma once

#include <string_view>

#include "agent/base/LogEvents.h"
#include "agent/base/LogRecord.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Takes the lines of the log.
class LogSink {
 public:
  virtual ~LogSink() = default;
  /// Never throws nor waits: a line that isn't taken at once is lost.
  virtual void write(LogRecord const& record) noexcept = 0;
};

/// Sets where the log goes, and returns what it was; null, as at the start, is the standard error stream.
/// One for a process.
LogSink* logSinkIs(LogSink* sink);

/// Logs a line, limited by its kind and subject (LogLimit). Nothing of it throws or waits. An empty text logs
/// nothing.
///
/// On the standard error stream a line begins with "pimbsr: ". Where the stream is the journal's, the line
/// goes to the journal with its fields, or with its priority in front if that fails. A line that is not taken
/// at once is lost, and the next one reports how many were.
void log(LogRecord record) noexcept;
/// The same for what is about nothing else.
void logEvent(LogEvent const& event, std::string_view text) noexcept;
/// The same for a note.
void logLine(std::string_view text) noexcept;
/// Logs a line of trace, which has no limit.
void logTrace(std::string_view text) noexcept;

/// Counts of lines since the start of the process; traces are in them.
struct LogCounts {
  Zet::U64 written = 0;
  Zet::U64 suppressed = 0;  ///< held back; the last of a subject is written later, and counts as written too
  Zet::U64 lost = 0;        ///< not taken by the standard error stream nor the journal
};
LogCounts logCounts();

/// Whether lines were held back that are to be written later, by flushLog().
bool logHoldsBack();
/// Writes those lines that were held back and whose time has come.
void flushLog() noexcept;
/// Writes all that were held back; for the end of the process.
void endLog() noexcept;

}  // namespace pimbsr::agent
