#pragma once

#include <iosfwd>

#include "cli/base/Errors.h"
#include "cli/web/WebOptions.h"

namespace CLI {
class App;
}

namespace pimbsr::cli {

/// Serves pages until SIGTERM or SIGINT. exitUsage for a wrong argument, exitFailed where it can't listen;
/// each is a line to `err`.
ExitCode serveWeb(WebOptions const& options, std::ostream& out, std::ostream& err);

/// Adds the command; `options` is filled when `app` parses, and outlives it.
CLI::App& addWeb(CLI::App& app, WebOptions& options);

}  // namespace pimbsr::cli
