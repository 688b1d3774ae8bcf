#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "agent/RunOptions.h"
#include "cli/base/Errors.h"

namespace CLI {
class App;
}

namespace pimbsr::cli {

/// What `run` and `check` were given, and which of the two was chosen.
struct RunChoice {
  agent::RunOptions run;
  std::string checkFile;
  bool checkJson = false;
  bool checkRewrite = false;
  /// Runs the command that was chosen; empty if none was.
  std::function<ExitCode(std::ostream& out, std::ostream& err)> chosen;
};

/// Adds run and check. `choice` is filled when `app` parses, and outlives it.
void addRunCommands(CLI::App& app, RunChoice& choice);

}  // namespace pimbsr::cli
