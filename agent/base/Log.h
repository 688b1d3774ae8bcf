#pragma once

#include <string_view>

namespace pimbsr::agent {

/// Writes a line, "pimbsr: " before it, to the standard error stream, which is the journal under a service
/// manager. Nothing of it throws or waits: a line that nobody takes at once is lost, and how many were is
/// told when one gets through again. An empty text writes nothing.
void logLine(std::string_view text) noexcept;

}  // namespace pimbsr::agent
