#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "tests/agent/InChild.h"

namespace test {
namespace {

/// Sets a variable of the environment while it lives.
class Variable {
 public:
  explicit Variable(char const* name) : name_(name) {
    if (char const* value = std::getenv(name)) former_ = value;
  }
  ~Variable() { set(former_ ? former_->c_str() : nullptr); }

  /// Null takes it away.
  void set(char const* value) { value != nullptr ? setenv(name_, value, 1) : unsetenv(name_); }

 private:
  char const* name_;
  std::optional<std::string> former_;
};

TEST(RequiredTest, ALabIsRequiredByAnyValueButNoneAnEmptyOneAndZero) {
  Variable variable("PIMBSR_LAB_REQUIRED");
  struct Row {
    char const* value;
    bool isRequired;
  };
  for (auto const& [value, isRequired] :
       {Row{nullptr, false}, Row{"", false}, Row{"0", false}, Row{"1", true}, Row{"yes", true}}) {
    variable.set(value);
    EXPECT_EQ(isLabRequired(), isRequired) << (value != nullptr ? value : "unset");
    EXPECT_EQ(isRoot(), isRequired || geteuid() == 0);
  }
}

}  // namespace
}  // namespace test
