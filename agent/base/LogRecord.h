#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pimbsr::agent {

/// How urgent a line of the log is, as syslog numbers it (RFC 5424 section 6.2.1).
enum class LogPriority : int { error = 3, warning = 4, notice = 5, info = 6, debug = 7 };

/// A kind of event that is logged.
struct LogEvent {
  std::string_view name;  ///< stable; PIMBSR_EVENT in the journal
  LogPriority priority = LogPriority::info;
  std::string_view messageId;  ///< MESSAGE_ID in the journal: 32 hexadecimal digits; empty for none
  /// What it shares its limit with, so that the last line of "up" and "down" is written last; empty for none.
  std::string_view group = {};
};

/// One line of the log.
struct LogRecord {
  LogEvent event;
  /// What it is about, such as {"ZONE", "239.1.0.0/16"}: fields of the journal without their "PIMBSR_". With
  /// the kind they are what limits are kept for; the text is, if there are none.
  std::vector<std::pair<std::string_view, std::string>> subject;
  std::string text;
};

}  // namespace pimbsr::agent
