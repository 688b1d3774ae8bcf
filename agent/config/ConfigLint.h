#pragma once

#include <vector>

#include "agent/config/ConfigFile.h"

namespace pimbsr::agent {

/// What is legal in a configuration and unwise, or not yet of any use, with the reason; and the remarks of
/// the reading. In the order of the file. Of a file with faults, what can be said of the rest.
std::vector<ConfigFinding> lint(ConfigReading const& reading);

}  // namespace pimbsr::agent
