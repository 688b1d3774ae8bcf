#pragma once

#include <iosfwd>
#include <string>

#include "agent/RunOptions.h"
#include "cli/base/Errors.h"

namespace pimbsr::cli {

/// Runs an agent until a signal ends it, or, where only its privileges are asked for, prints them. Errors
/// in the file, and what the system denies, are written to `err`, and the status is exitFailed.
ExitCode runAgent(agent::RunOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
