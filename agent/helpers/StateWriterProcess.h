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

/// Takes records from the socket and writes each before it takes the next, and syncs a file within a second
/// after that. Returns when the other end has closed the socket and all that was sent is written.
///
/// Three processes do that. This one only starts the writer. The writer locks `state.lock` in the directory
/// against other writers, and waits for a lock that the writer of an agent holds which has ended. Its child
/// writes, and has no privileges. Whichever of the two dies is started again: the child after half a second,
/// the writer after half a second at first and a minute at most. The socket keeps the records meanwhile.
void serveState(int socket, StateWriterOptions const& options);

}  // namespace pimbsr::agent
