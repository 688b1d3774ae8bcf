#pragma once

namespace pimbsr::agent {

/// The version of the project; the build reads it from here.
inline constexpr char const* version = "0.1.0";

}  // namespace pimbsr::agent
