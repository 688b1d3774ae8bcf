#pragma once

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

/// Severity of a log message, by the numbers of RFC 5424: lower is more severe.
enum class LogSeverity : U8 {
  emergency = 0,
  alert = 1,
  critical = 2,
  error = 3,
  warning = 4,
  notice = 5,
  informational = 6,
  debug = 7
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

  char const* name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  char const* format() const { return format_; }
  char const* explanation() const { return explanation_; }
  char const* recommendedAction() const { return recommendedAction_; }
  double interval() const { return interval_; }
  double burst() const { return burst_; }
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
