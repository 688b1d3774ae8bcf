#include "cli/run/RunCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <ostream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "agent/Daemon.h"
#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/process/InterfaceClaims.h"
#include "agent/process/Privileges.h"

namespace pimbsr::cli {

static void writeFindings(agent::ConfigReading const& reading, char const* kind,
                          std::vector<agent::ConfigFinding> const& findings, std::ostream& err) {
  for (agent::ConfigFinding const& finding : findings)
    err << fmt::format("{}: {}: {}\n", agent::textOf(reading.file, finding.at), kind, finding.text);
}

static void claimAll(agent::InterfaceClaims& claims, agent::Settings const& settings) {
  std::vector<std::string> conflicts = agent::claimInterfaces(claims, settings);
  if (!conflicts.empty()) throw std::runtime_error(fmt::format("{}", fmt::join(conflicts, "; ")));
}

/// The interfaces come first: a second agent with the same file must not wait for the state directory.
static void serve(agent::RunOptions const& options, agent::Settings const& settings, std::ostream& out) {
  agent::InterfaceClaims claims;
  // A privilege check may be asked for beside an agent that runs.
  if (!options.privilegeCheck) claimAll(claims, settings);
  agent::Helpers helpers(options, settings);
  agent::Daemon daemon(options, settings, helpers, claims);
  if (options.privilegeCheck) {
    out << agent::privilegesHeld();
  } else {
    daemon.run();
  }
}

ExitCode runAgent(agent::RunOptions const& options, std::ostream& out, std::ostream& err) {
  agent::ConfigReading reading = agent::readConfigFile(options.file);
  writeFindings(reading, "error", reading.errors, err);
  if (!reading.isSound()) return exitFailed;
  writeFindings(reading, "warning", agent::lint(reading), err);
  try {
    serve(options, reading.settings, out);
  } catch (std::runtime_error const& error) {  // errors of the system, too
    err << "pimbsr: " << error.what() << '\n';
    return exitFailed;
  }
  return finish(out, err);
}

}  // namespace pimbsr::cli
