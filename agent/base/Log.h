#pragma once

#include <string_view>

namespace pimbsr::agent {

/// Writes a line with the prefix "pimbsr: " to the standard error stream, which is the journal under a
/// service manager. Never throws or blocks: a line that can't be written at once is lost, and the next line
/// written is preceded by one with the number lost. An empty text writes nothing.
void logLine(std::string_view text) noexcept;

}  // namespace pimbsr::agent
