#pragma once

#include <string>
#include <vector>

namespace pimbsr::agent {

/// A trace handle that is off.
inline constexpr int traceOff = -1;

/// Names of all trace handles of the engine.
std::vector<std::string> traceHandles();
/// Enables a handle for levels 0 to `level` (0 to 9), or disables it (traceOff). Without effect for an
/// unknown name.
void traceLevelIs(std::string const& name, int level);

}  // namespace pimbsr::agent
