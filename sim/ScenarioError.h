#pragma once

#include <stdexcept>

namespace pimbsr::sim {

/// A scenario that can't be followed: "FILE:LINE: what was read, and what would be valid".
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace pimbsr::sim
