#pragma once

#include <memory>
#include <string>

#include "agent/RunOptions.h"
#include "agent/config/Settings.h"
#include "agent/helpers/ChangeCommand.h"
#include "agent/helpers/StateWriter.h"

namespace pimbsr::agent {

/// The processes that work for an agent: it may start none itself once it runs.
struct Helpers {
  /// Starts those that the options and the settings need. To be called before the agent opens anything: they
  /// must inherit no socket, nor be held by its filter. Throws std::system_error if the change command has no
  /// process; without a state directory the agent runs all the same.
  Helpers(RunOptions const& options, Settings const& settings);

  std::unique_ptr<ChangeCommand> changeCommand;  ///< null for none
  std::unique_ptr<StateWriter> state;            ///< null if none is configured, or it can't be used
  std::string stateError;                        ///< why it can't be used; empty if it can
};

}  // namespace pimbsr::agent
