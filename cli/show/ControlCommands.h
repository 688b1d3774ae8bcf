#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/base/Errors.h"

namespace pimbsr::cli {

/// What `pimbsr show` is asked to do.
struct ShowOptions {
  std::string socket;  ///< as in controlSocket()
  std::string what;    ///< one of agent::viewNames(), or "all"
  /// Of "rp" a multicast group; of "rp-set" perhaps a zone, a group range or a group; of "tree" perhaps a
  /// path; else empty.
  std::string subject;
  std::string depth;  ///< of "tree": a number of steps; empty for all
  bool json = false;
  int watch = 0;         ///< seconds after which it is shown again, until the output ends; 0 for once
  bool color = false;    ///< the output is a terminal that takes colors
  bool refresh = false;  ///< the output is a terminal that can be erased
};

/// What `pimbsr get` and `pimbsr watch` are asked to do.
struct PathOptions {
  std::string socket;  ///< as in controlSocket()
  std::string path;    ///< a path of the model; of `watch` empty for the changes of the learned state
  bool json = false;   ///< changes are JSON in any case
};

/// What `pimbsr clear` is asked to do.
struct ClearOptions {
  std::string socket;
  std::string what;     ///< one of agent::clearNames()
  std::string subject;  ///< of "bsr" and "rp-set" a zone, of "neighbors" an interface; empty for all
};

/// What `pimbsr trace` is asked to do.
struct TraceOptions {
  std::string socket;
  std::string handle;
  std::string level;  ///< 0 to 9, or off
};

/// The socket to use: the one given, else that of PIMBSR_SOCKET in the environment, else the default.
std::string controlSocket(std::string const& given);

/// The sockets to try, in turn, for a request that only reads: the one of controlSocket(), and where that is
/// the default, the default read-only one too.
std::vector<std::string> readingSockets(std::string const& given);

// Each asks the running agent and writes what it answers to `out`. A request with an error gives exitUsage
// and is not sent; an agent that can't be reached, or denies it, gives exitFailed. Each error is a line to
// `err`.

/// Writes one view of the agent, or all, as tables or as JSON; once, or again and again. A tree is asked for
/// page by page.
ExitCode show(ShowOptions const& options, std::ostream& out, std::ostream& err);
/// Writes what a path of the model names.
ExitCode get(PathOptions const& options, std::ostream& out, std::ostream& err);
/// Writes a line for each change, or for each value of a path, until `out` takes no more or the agent ends:
/// exitFailed.
ExitCode watch(PathOptions const& options, std::ostream& out, std::ostream& err);
ExitCode clear(ClearOptions const& options, std::ostream& out, std::ostream& err);
/// Has the configuration file read again. With errors in it, all go to `err`: exitFailed.
ExitCode reload(std::string const& socket, std::ostream& out, std::ostream& err);
ExitCode trace(TraceOptions const& options, std::ostream& out, std::ostream& err);
/// Writes the metrics as the agent's text.
ExitCode metrics(std::string const& socket, std::ostream& out, std::ostream& err);

}  // namespace pimbsr::cli
