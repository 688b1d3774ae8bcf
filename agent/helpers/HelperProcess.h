#pragma once

#include <sys/types.h>

#include <functional>

namespace pimbsr::agent {

/// An agent's end of a socket to a helper process.
struct HelperLink {
  int fd = -1;
  pid_t helper = -1;
};

/// Forks a helper process that runs `serve` with its end of a socket pair, which keeps message boundaries.
/// The helper ignores the signals that end an agent, since it ends with its agent: a service manager signals
/// both. It holds nothing but the socket and the standard streams, of which the input is empty.
///
/// To be called before there are threads and before privileges go. The helper ends with status 0 when `serve`
/// returns. `name` is that of the process, at most 15 characters. Throws std::system_error, naming it, if the
/// system has no process to give.
HelperLink startHelper(char const* name, std::function<void(int socket)> const& serve);

/// Waits until a helper has ended, at most so many seconds. Returns whether it has.
bool awaitHelper(pid_t helper, double seconds);

}  // namespace pimbsr::agent
