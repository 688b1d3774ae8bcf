#pragma once

#include <string>
#include <vector>

namespace pimbsr::cli {

/// An agent by its control socket.
struct NamedSocket {
  std::string name;  ///< letters, digits, "-", "_", "." and "/", 64 at most
  std::string path;
};

/// Whether a text has the form of a name. A socket that was given without one has its path, which may be any.
bool isAgentName(std::string const& text);

/// Reads NAME=SOCKET, or SOCKET, which is its own name then. Throws UsageError for an empty part, or a name
/// with other characters.
NamedSocket parseNamedSocket(std::string const& text);

/// Reads several, whose names differ. Throws UsageError too where two have the same.
std::vector<NamedSocket> parseNamedSockets(std::vector<std::string> const& texts);

}  // namespace pimbsr::cli
