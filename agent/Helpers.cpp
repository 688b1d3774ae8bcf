#include "agent/Helpers.h"

#include <filesystem>
#include <system_error>

#include "agent/HistoryKeeper.h"

namespace pimbsr::agent {

Helpers::Helpers(RunOptions const& options, Settings const& settings) {
  ChangeOptions change{.command = options.changeCommand, .timeLimit = options.changeTimeLimit};
  if (!change.command.empty()) changeCommand = std::make_unique<ChangeCommand>(change);
  // A privilege check may be asked for beside an agent that runs.
  if (settings.stateDirectory.empty() || options.privilegeCheck) return;
  try {
    state = std::make_unique<StateWriter>(
        StateWriterOptions{.folder = std::filesystem::absolute(settings.stateDirectory),
                           .files = {HistoryKeeper::fileName},
                           .sandbox = options.sandbox});
  } catch (std::system_error const& error) {
    stateError = error.what();
  }
}

}  // namespace pimbsr::agent
