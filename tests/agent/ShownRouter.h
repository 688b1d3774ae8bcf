#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "agent/views/Views.h"
#include "tests/agent/ObservedRouter.h"
#include "tests/support/Answers.h"

namespace test {

/// A router of an agent whose answers are looked at; each answer is kept for the test of the schemas.
class ShownRouter : public ObservedRouter {
 protected:
  using Json = nlohmann::ordered_json;

  Json view(std::string const& what) { return kept(what, pimbsr::agent::show(observed(), what)); }
  Json viewOfGroup(std::string const& group) {
    return kept("rp", pimbsr::agent::show(observed(), "rp", addr(group).v4Addr()));
  }
  static Json kept(std::string const& what, Json answer) {
    keepAnswer("show-" + what, answer);
    return answer;
  }
  /// Expects a view as it is written here; the order of members counts.
  void expect(Json const& shown, std::string const& written) {
    EXPECT_EQ(shown.dump(1), Json::parse(written).dump(1));
  }
};

}  // namespace test
