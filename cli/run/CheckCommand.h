#pragma once

#include <iosfwd>
#include <string>

#include "cli/base/Errors.h"

namespace pimbsr::cli {

/// Reads a configuration file and prints every error as "FILE:LINE:COLUMN: error: TEXT" and what is legal and
/// unwise as a warning, in the order of the file; or all of it as one JSON document, in which line and column
/// of what concerns the whole file are null. exitOk if the file may
/// be run, which "FILE: configuration OK" says, and exitFailed if it has an error or can't be read.
ExitCode checkConfig(std::string const& file, bool json, std::ostream& out, std::ostream& err);

/// Writes a configuration file anew, with the keys that it calls by former names called by their names of
/// now; comments and layout stay, as do owner and mode of the file. Then checks it. exitFailed, with a line
/// to `err`, if it can't be written.
ExitCode rewriteConfig(std::string const& file, bool json, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
