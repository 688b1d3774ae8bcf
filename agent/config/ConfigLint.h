#pragma once

#include <vector>

#include "agent/config/ConfigFile.h"

namespace pimbsr::agent {

/// The warnings for a configuration, in the order of the file: values that are valid and unwise, or have no
/// effect yet, with the reason, and the remarks of the reading. Of a file with errors, those of its valid
/// parts.
std::vector<ConfigFinding> lint(ConfigReading const& reading);

}  // namespace pimbsr::agent
