#pragma once

#include <iosfwd>

#include "cli/base/Errors.h"
#include "cli/replay/ReplayOptions.h"

namespace pimbsr::cli {

/// Plays a capture and writes what a router learned. Errors go to `err` as one line each, as do lines of
/// trace; exitFailed if the capture can't be read to its end or `out` can't be written.
ExitCode replay(ReplayOptions const& options, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
