#pragma once

#include <string>

namespace pimbsr::agent {

/// How an agent is to run, besides what its configuration file says.
struct RunOptions {
  std::string file;             ///< the configuration file
  std::string changeCommand;    ///< gets the RP set on its standard input after a change; empty for none
  double changeTimeLimit = 30;  ///< seconds that a run of it may take, above 0
  double clockRate = 1;         ///< seconds of the agent's clock in a second; 1 but in labs
  bool sandbox = true;          ///< filter system calls; off for debuggers and sanitizers alone
  bool privilegeCheck = false;  ///< print the privileges after the start, and end
};

}  // namespace pimbsr::agent
