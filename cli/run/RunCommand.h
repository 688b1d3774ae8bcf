#pragma once

#include <iosfwd>
#include <string>

#include "agent/RunOptions.h"
#include "cli/base/Errors.h"

namespace pimbsr::cli {

/// Reads "N", seconds of the agent's clock in a second: a number from 1 to 1000. Throws UsageError.
double parseClockRate(std::string const& text);

/// Runs an agent until a signal ends it, or, where only its privileges are asked for, prints them. Errors
/// in the file, and what the system denies, are written to `err`, and the status is exitFailed.
ExitCode runAgent(agent::RunOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
