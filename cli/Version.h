#pragma once

namespace pimbsr::cli {

/// The version of this program, that of the project.
inline constexpr char const* version = "0.1.0";

}  // namespace pimbsr::cli
