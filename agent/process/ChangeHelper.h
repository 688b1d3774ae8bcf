#pragma once

#include <string>

namespace pimbsr::agent {

/// Sends an open file over a Unix socket, as the text of one run. Returns whether that was done.
bool sendFile(int socket, int file);

/// The life of the helper process that runs a shell command for each file that comes over the socket, and
/// answers each with the wait status of the run, an int. Ends the process when the other end has gone.
[[noreturn]] void serveChanges(int socket, std::string const& command);

}  // namespace pimbsr::agent
