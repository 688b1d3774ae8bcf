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

/// Lets one allocation by operator new or new[] fail in the lifetime of this object: the one of this number,
/// counted from 1.
class FailingAllocation {
 public:
  explicit FailingAllocation(int number);
  ~FailingAllocation();
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;
  /// Whether it has failed.
  bool hasFailed() const;
};

}  // namespace test
