#pragma once

#include <string>

namespace pimbsr::agent {

/// The text of a file. Throws std::system_error, naming the path, if it can't be read or is longer than
/// `maxLength` bytes.
std::string readFile(std::string const& path, std::size_t maxLength);

/// Replaces a file atomically: a reader finds the former text or the new one. Throws std::system_error,
/// naming the path.
void replaceFile(std::string const& path, std::string const& text);

}  // namespace pimbsr::agent
