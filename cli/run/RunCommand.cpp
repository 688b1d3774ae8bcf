#include "cli/run/RunCommand.h"

#include <fmt/format.h>

#include <ostream>
#include <system_error>
#include <vector>

#include "agent/Daemon.h"
#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/process/Privileges.h"

namespace pimbsr::cli {

static void writeFindings(agent::ConfigReading const& reading, char const* kind,
                          std::vector<agent::ConfigFinding> const& findings, std::ostream& err) {
  for (agent::ConfigFinding const& finding : findings)
    err << fmt::format("{}: {}: {}\n", agent::textOf(reading.file, finding.at), kind, finding.text);
}

static void serve(agent::RunOptions const& options, agent::Settings const& settings, std::ostream& out) {
  agent::Helpers helpers(options, settings);
  agent::Daemon daemon(options, settings, helpers);
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
