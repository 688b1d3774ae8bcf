#pragma once

#include <string_view>
#include <vector>

namespace fuzz {

/// Something that the corpus of a fuzz target must reach. The replay build plays each file as it is, and
/// fails if these have not reached every goal of the target: a corpus that reaches nothing finds nothing.
///
/// Goals are objects of static lifetime; the process has one list of them.
class Goal {
 public:
  /// The name says what is reached; it outlives the goal.
  explicit Goal(std::string_view name) : name_(name) { all().push_back(this); }
  Goal(Goal const&) = delete;
  Goal& operator=(Goal const&) = delete;

  void reachedIf(bool isReached) { isReached_ |= isReached; }
  bool isReached() const { return isReached_; }
  std::string_view name() const { return name_; }

  /// The goals of the target; none if it has none.
  static std::vector<Goal*>& all() {
    static std::vector<Goal*> goals;
    return goals;
  }

 private:
  std::string_view name_;
  bool isReached_ = false;
};

}  // namespace fuzz
