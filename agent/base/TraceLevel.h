#pragma once

#include <string>
#include <vector>

namespace pimbsr::agent {

/// A trace handle that is off.
inline constexpr int traceOff = -1;

/// Names of all trace handles of the engine.
std::vector<std::string> traceHandles();
/// Puts a handle on from level 0 up to and including `level` (0 to 9), or off. A name that is no handle is
/// left alone.
void traceLevelIs(std::string const& handle, int level);

}  // namespace pimbsr::agent
