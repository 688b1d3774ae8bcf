#pragma once

#include <string>

namespace pimbsr::cli {

/// Why a wrong `pimbsr show WHAT SUBJECT` is wrong, in the words of the command, and what is valid; empty if
/// the error is another one. An absent subject is empty.
std::string showErrorOf(std::string const& what, std::string const& subject);

/// The same of `pimbsr clear WHAT SUBJECT`.
std::string clearErrorOf(std::string const& what, std::string const& subject);

}  // namespace pimbsr::cli
