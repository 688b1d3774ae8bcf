#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

namespace pimbsr::cli {

/// Whether a stream is the standard output, that a terminal, and the environment permits colors there:
/// neither NO_COLOR is set to anything nor TERM is "dumb".
bool takesColor(std::ostream const& out);

/// The same of what is known already; null for a variable that is not set.
bool takesColor(bool isTerminal, char const* noColor, char const* term);

/// Whether a stream is the standard output and a terminal that can be erased: TERM is not "dumb".
bool takesRefresh(std::ostream const& out);

/// A text of tables with headings in bold, and what needs attention in red. Without the escape sequences it
/// is the same.
std::string colored(std::string_view text);

}  // namespace pimbsr::cli
