#pragma once

#include <functional>
#include <iosfwd>

#include "cli/show/CompareCommand.h"
#include "cli/show/ControlCommands.h"

namespace CLI {
class App;
}

namespace pimbsr::cli {

/// What the commands to a running agent were given, and the one that was chosen.
struct ControlOptions {
  ShowOptions show;
  PathOptions get;
  PathOptions watch;
  ClearOptions clear;
  std::string reloadSocket;
  TraceOptions trace;
  std::string metricsSocket;
  CompareOptions compare;
  /// Runs the command that was chosen; empty if none was.
  std::function<ExitCode(std::ostream& out, std::ostream& err)> run;
};

/// Adds show, get, watch, clear, reload, trace, metrics and compare. `options` is filled when `app` parses,
/// and outlives it.
void addControlCommands(CLI::App& app, ControlOptions& options);

}  // namespace pimbsr::cli
