#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/base/Errors.h"

namespace CLI {
class App;
}

namespace pimbsr::cli {

/// The words that may complete a command line, in alphabetical order: subcommands, options, views, trace
/// handles, and from the running agent its zones, its interfaces and the paths of its model. `words` are
/// those after the command's name, without quotes of the shell, the last one begun and perhaps empty. None
/// where a file name follows, or nothing fits; an agent that doesn't answer has none.
std::vector<std::string> completionsOf(CLI::App const& app, std::vector<std::string> const& words);

/// Writes them, one in a line: what `pimbsr __complete WORDS...` does for the completion of shells.
ExitCode complete(CLI::App const& app, std::vector<std::string> const& words, std::ostream& out,
                  std::ostream& err);

}  // namespace pimbsr::cli
