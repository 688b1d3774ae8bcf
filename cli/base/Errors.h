#pragma once

#include <iosfwd>
#include <stdexcept>

namespace pimbsr::cli {

/// What the program ends with.
enum ExitCode : int { exitOk = 0, exitFailed = 1, exitUsage = 2 };

/// An argument that can't be followed. The text names the option and says what would be valid.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Ends a command whose output is written: exitOk, or exitFailed with a line to `err` if it can't be written.
ExitCode finish(std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
