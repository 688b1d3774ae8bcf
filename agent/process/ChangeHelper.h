#pragma once

#include <string>

namespace pimbsr::agent {

/// Sends an open file over a Unix socket, as the text of one run. Returns whether it was sent.
bool sendFile(int socket, int file);

/// The main function of the helper process: runs a shell command for each file received over the socket, and
/// replies with the wait status of the run, an int. Ends the process when the other end has closed.
[[noreturn]] void serveChanges(int socket, std::string const& command);

}  // namespace pimbsr::agent
