#pragma once

#include <string>

namespace pimbsr::agent {

/// The text of a file. Throws std::system_error, naming the path, if it can't be read or is longer than
/// `longest` bytes.
std::string readFile(std::string const& path, std::size_t longest);

/// Replaces a file as a whole: whoever reads it finds the former text or this one. Throws std::system_error,
/// naming the path.
void replaceFile(std::string const& path, std::string const& text);

}  // namespace pimbsr::agent
