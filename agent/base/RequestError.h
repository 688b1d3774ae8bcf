#pragma once

#include <stdexcept>

namespace pimbsr::agent {

/// A request of an operator that can't be followed. The text says what was read and what would be valid.
class RequestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace pimbsr::agent
