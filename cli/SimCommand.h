#pragma once

#include <iosfwd>

#include "cli/Errors.h"
#include "cli/SimOptions.h"

namespace pimbsr::cli {

/// Plays a scenario and writes what its routers believe, and when. A scenario that can't be read or followed
/// gives exitUsage before anything is written, and output that can't be written exitFailed, each with one
/// line to `err`; so do lines of trace.
ExitCode simulate(SimOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
