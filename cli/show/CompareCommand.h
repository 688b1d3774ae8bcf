#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/base/Errors.h"
#include "cli/base/NamedSocket.h"
#include "view/Comparison.h"

namespace CLI {
class App;
}

namespace pimbsr::cli {

/// What `pimbsr compare` is asked to do.
struct CompareOptions {
  std::vector<std::string> agents;  ///< each as parseNamedSocket() reads it
  bool json = false;
};

/// Asks an agent for what compare() needs. One that doesn't answer, or not understandably, has an error.
view::AgentState stateOf(NamedSocket const& from);

/// Writes which agents agree, as tables or as JSON: exitOk if all answer and agree, else exitFailed;
/// exitUsage for a wrong argument, which is a line to `err`.
ExitCode compareAgents(CompareOptions const& options, std::ostream& out, std::ostream& err);

/// Adds the command; `options` is filled when `app` parses, and outlives it. Returns it for a callback.
CLI::App& addCompare(CLI::App& app, CompareOptions& options);

}  // namespace pimbsr::cli
