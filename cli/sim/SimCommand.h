#pragma once

#include <iosfwd>

#include "cli/base/Errors.h"
#include "cli/sim/SimOptions.h"

namespace pimbsr::cli {

/// Plays a scenario and writes what its routers learn, and when. A scenario that can't be read gives
/// exitUsage before anything is written, one with a configuration that its router rejects gives it when it
/// gets there, and output that can't be written gives exitFailed, each with one line to `err`; lines of trace
/// go there too.
ExitCode simulate(SimOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
