#pragma once

#include <string>

#include "host/IngressSettings.h"

namespace pimbsr::cli {

/// --limit: "KEY=N" sets the bound that the configuration file calls limits.KEY, within the range of that key
/// and 0 for no bound; "none" takes all bounds away. Throws UsageError, with what would be valid, for another
/// text.
void parseLimit(std::string const& text, host::IngressSettings& limits);

}  // namespace pimbsr::cli
