#include "agent/base/Log.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <utility>

#include "agent/base/JournalSocket.h"
#include "agent/base/LogLimit.h"

namespace pimbsr::agent {

namespace {

/// Only what fits into a pipe at once is sure not to wait; longer lines are cut.
constexpr std::size_t maxLineLength = 4000;

bool canWrite() {
  pollfd stream{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  return poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0;
}

/// The standard error stream, or the journal that reads it.
class StandardSink final : public LogSink {
 public:
  void write(LogRecord const& record) noexcept override {
    bool isJournal = isJournalStream(STDERR_FILENO);
    if (isJournal && lost_ == 0 && journal_.send(record)) {
      ++counts_.written;
      return;
    }
    fmt::memory_buffer line;
    if (lost_ != 0) add(line, isJournal, LogPriority::warning, fmt::format("{} lines were lost here", lost_));
    add(line, isJournal, record.event.priority, record.text);
    bool written = canWrite() && ::write(STDERR_FILENO, line.data(), line.size()) >= 0;
    lost_ = written ? 0 : lost_ + 1;
    ++(written ? counts_.written : counts_.lost);
  }
  LogCounts counts() const { return counts_; }

 private:
  static void add(fmt::memory_buffer& line, bool isJournal, LogPriority priority, std::string_view text) {
    if (isJournal) fmt::format_to(std::back_inserter(line), "<{}>", static_cast<int>(priority));
    fmt::format_to(std::back_inserter(line), "pimbsr: {}\n", text.substr(0, maxLineLength));
  }

  JournalSocket journal_;
  unsigned long lost_ = 0;  ///< lines since one was written
  LogCounts counts_;        ///< without those that were held back
};

StandardSink& standardSink() {
  static StandardSink sink;
  return sink;
}

LogSink* chosen = nullptr;

Zet::U64 suppressed = 0;

LogSink& sink() { return chosen != nullptr ? *chosen : standardSink(); }

LogLimit& limit() {
  static LogLimit limit;
  return limit;
}

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

LogSink* logSinkIs(LogSink* sink) { return std::exchange(chosen, sink); }

void log(LogRecord record) noexcept {
  if (record.text.empty()) return;
  if (auto passed = limit().take(std::move(record), seconds())) {
    sink().write(*passed);
  } else {
    ++suppressed;
  }
}

void logEvent(LogEvent const& event, std::string_view text) noexcept {
  log({.event = event, .subject = {}, .text = std::string(text)});
}

void logLine(std::string_view text) noexcept { logEvent(logEvents::note, text); }

void logTrace(std::string_view text) noexcept {
  sink().write({.event = logEvents::trace, .subject = {}, .text = std::string(text)});
}

LogCounts logCounts() {
  LogCounts counts = standardSink().counts();
  counts.suppressed = suppressed;
  return counts;
}

bool logHoldsBack() { return limit().holdsBack(); }

void flushLog() noexcept {
  for (LogRecord const& record : limit().takeDue(seconds())) sink().write(record);
}

void endLog() noexcept {
  for (LogRecord const& record : limit().takeAll(seconds())) sink().write(record);
}

}  // namespace pimbsr::agent
