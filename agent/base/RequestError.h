#pragma once

#include <stdexcept>

namespace pimbsr::agent {

/// An operator's request that isn't valid. The text says what was read and what would be valid.
class RequestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace pimbsr::agent
