#pragma once

namespace test {

/// Number of allocations that this process has made. Asking for it counts them from the start of the process.
int allocationCount();

/// Number of allocations that an action makes.
template <class Action>
int allocationsOf(Action const& action) {
  int const before = allocationCount();
  action();
  return allocationCount() - before;
}

}  // namespace test
