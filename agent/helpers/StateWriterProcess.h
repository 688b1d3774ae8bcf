#pragma once

#include <string>
#include <vector>

namespace pimbsr::agent {

/// How a writer of state files works.
struct StateWriterOptions {
  std::string folder;              ///< absolute path of the state directory; made if it isn't there
  std::vector<std::string> files;  ///< names of the files in it that it writes
  bool sandbox = true;             ///< it gives up its privileges and filters its system calls
};

/// The life of a writer, in a process of its own: it takes records from the socket and writes each before it
/// takes the next, and syncs a file within a second after that. It locks `state.lock` in the directory
/// against other writers, and waits for a lock that the writer of an agent holds which has ended. The process
/// that writes is a child of this one and has no privileges; if it dies, another is started. Returns when the
/// other end has closed the socket and all that was sent is written.
void serveState(int socket, StateWriterOptions const& options);

}  // namespace pimbsr::agent
