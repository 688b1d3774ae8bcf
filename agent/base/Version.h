#pragma once

namespace pimbsr::agent {

/// The version of this program, that of the project.
inline constexpr char const* version = "0.1.0";

}  // namespace pimbsr::agent
