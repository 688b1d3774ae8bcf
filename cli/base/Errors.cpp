#include "cli/base/Errors.h"

#include <ostream>

namespace pimbsr::cli {

ExitCode finish(std::ostream& out, std::ostream& err) {
  if (out.flush()) return exitOk;
  err << "pimbsr: cannot write the output\n";
  return exitFailed;
}

}  // namespace pimbsr::cli
