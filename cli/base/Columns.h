#pragma once

#include <fmt/format.h>

#include <string>

#include "host/Observer.h"
#include "model/Lanet.h"

namespace pimbsr::cli {

/// The text of a network value; "-" for the unset one.
template <Lanet::NetworkValue Value>
std::string textOf(Value const& value) {
  Zet::String8 text = value.stringValue();
  return text.empty() ? "-" : std::string(text.view());
}

/// A time in seconds as printed everywhere.
inline std::string textOfTime(double seconds) { return fmt::format("{:.3f}", seconds); }

/// One line of the timeline.
struct TimelineRow {
  std::string time;     ///< seconds; empty for what the line above caused
  std::string event;    ///< what happened
  std::string where;    ///< sender, zone or group range
  std::string who;      ///< BSR or RP
  std::string details;  ///< the rest, as a sentence
};

/// The row as text with a line's end; columns are aligned, and what another line caused is set in.
std::string lineOf(TimelineRow const& row);
/// The row of a change; `time` as in TimelineRow. A router that is no candidate loses a BSR by its expiry
/// alone.
TimelineRow rowOf(host::Change const& change, std::string const& time);

}  // namespace pimbsr::cli
