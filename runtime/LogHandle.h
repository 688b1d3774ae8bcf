#pragma once

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

/// Severity of a log message, by the numbers of RFC 5424: lower is more severe.
enum class LogSeverity : U8 {
  emergency = 0,      ///< nothing works any more
  alert = 1,          ///< an operator must act at once
  critical = 2,       ///< a main function has failed
  error = 3,          ///< an operation has failed
  warning = 4,        ///< an error may follow
  notice = 5,         ///< normal, but rare
  informational = 6,  ///< normal
  debug = 7           ///< of use to a developer alone
};

/// One message of the system log, made once at start and of static life.
class PIMBSR_API LogHandle {
 public:
  /// `format` is printf's with one %s for the argument. The rate limit lets `burst` messages through at once
  /// and one more every `interval` seconds; an `interval` of 0 limits nothing. `rateFlags` is kept for the
  /// host.
  LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
            char const* recommendedAction, double interval, double burst, U8 rateFlags)
      : name_(name),
        severity_(severity),
        format_(format),
        explanation_(explanation),
        recommendedAction_(recommendedAction),
        interval_(interval),
        burst_(burst),
        rateFlags_(rateFlags) {}
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;

  /// Name of the message, for the host's own log.
  char const* name() const { return name_; }
  /// How severe it is.
  LogSeverity severity() const { return severity_; }
  /// The text, with one %s for the argument.
  char const* format() const { return format_; }
  /// What has happened, for an operator.
  char const* explanation() const { return explanation_; }
  /// What an operator may do about it.
  char const* recommendedAction() const { return recommendedAction_; }
  /// Seconds after which one more message may pass; 0 is no limit.
  double interval() const { return interval_; }
  /// Messages that pass at once; without meaning if there is no limit.
  double burst() const { return burst_; }
  /// The host's own flags; the runtime doesn't read them.
  U8 rateFlags() const { return rateFlags_; }

 private:
  char const* name_;
  LogSeverity severity_;
  char const* format_;
  char const* explanation_;
  char const* recommendedAction_;
  double interval_;
  double burst_;
  U8 rateFlags_;
};

}  // namespace Zet
