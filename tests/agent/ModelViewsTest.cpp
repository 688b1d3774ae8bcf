#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>

#include "agent/base/RequestError.h"
#include "agent/views/Views.h"
#include "tests/agent/ObservedRouter.h"
#include "tests/support/Answers.h"

namespace test {
namespace {

using pimbsr::agent::PathValue;
using pimbsr::agent::RequestError;
using testing::HasSubstr;
using Json = nlohmann::ordered_json;

class ModelViewsTest : public ObservedRouter {
 protected:
  Json get(std::string const& path) {
    Json answer = pimbsr::agent::get(*router, path);
    keepAnswer("get", answer);
    return answer;
  }
  Json page(std::string const& path, pimbsr::agent::TreePart const& part = {}) {
    Json answer = pimbsr::agent::showTree(*router, path, part);
    keepAnswer("show-tree", answer);
    return answer;
  }
  /// Every entry of the tree of a path, page by page.
  std::vector<Json> tree(std::string const& path) {
    std::vector<Json> entries;
    pimbsr::agent::TreePart part;
    do {
      Json answer = page(path, part);
      for (Json const& entry : answer["entries"]) entries.push_back(entry);
      part.from = answer["next"].is_null() ? "" : answer["next"].get<std::string>();
    } while (!part.from.empty());
    return entries;
  }
  Json watched(std::string const& path) {
    PathValue const value = pimbsr::agent::valueAt(*router, path);
    Json line = Json::parse(pimbsr::agent::lineOf(path, value, 12.5));
    keepAnswer("watch-path", line);
    return line;
  }
  std::string errorOf(std::string const& path) {
    try {
      return get(path).dump();
    } catch (RequestError const& error) {
      return error.what();
    }
  }
};

TEST_F(ModelViewsTest, APathIsShownWithTypeValueAndUnit) {
  EXPECT_EQ(get("status/bsTimeout").dump(),
            R"({"path":"status/bsTimeout","type":"U32","value":"130","unit":"s"})");
  EXPECT_EQ(get("status/af").dump(),
            R"({"path":"status/af","type":"Lanet::AddressFamily","value":"'ipv4'","unit":null})");
}

TEST_F(ModelViewsTest, AWrongPathIsExplained) {
  EXPECT_THAT(errorOf("status/bsTimeuot"),
              testing::AllOf(HasSubstr("column 8"), HasSubstr("bsTimeout"), HasSubstr("'pimbsr show tree'")));
  EXPECT_THROW(page("nothing"), RequestError);
  EXPECT_THROW(page("status", {.from = "root"}), RequestError);
}

TEST_F(ModelViewsTest, GetTakesEveryPathOfTheTreeOfARouterThatLeads) {
  lead();
  helloFromNeighbor();
  std::set<std::string> types;
  for (Json const& entry : tree("")) {
    EXPECT_EQ(pimbsr::agent::get(*router, entry["path"]), entry);
    types.insert(entry["type"]);
  }
  for (char const* type :
       {"Routing::Pim::Bsr::Status", "Routing::Pim::Bsr::BsrCandidateSm", "Routing::Pim::Bsr::PimBsrSm",
        "Routing::Pim::Bsr::ConfigSm", "Routing::Pim::Status", "Routing::Pim::Bsr::Config"})
    EXPECT_TRUE(types.contains(type)) << type;
}

TEST_F(ModelViewsTest, ALargeTreeComesInPages) {
  for (int n = 0; n < 400; ++n)
    router->status()->crpIs(addr("10." + std::to_string(n / 200) + "." + std::to_string(n % 200) + ".1"));
  Json const first = page("status/crp");
  EXPECT_EQ(first["entries"].size(), 1000u);
  EXPECT_TRUE(first["next"].is_string());
  std::set<std::string> paths;
  std::size_t members = 0;
  for (Json const& entry : tree("status/crp")) {
    EXPECT_TRUE(paths.insert(entry["path"]).second) << entry["path"];
    members += entry["type"] == "Routing::Pim::Bsr::RpCandidate";
  }
  EXPECT_EQ(members, 400u);
}

TEST_F(ModelViewsTest, DepthBoundsTheStepsBelowThePath) {
  EXPECT_EQ(page("status", {.depth = 0})["entries"].size(), 1u);
  Json const shallow = page("", {.depth = 1});
  EXPECT_TRUE(shallow["next"].is_null());
  for (Json const& entry : shallow["entries"]) {
    std::string const path = entry["path"];
    EXPECT_LE(std::count(path.begin(), path.end(), '/'), 1) << path;
  }
}

TEST_F(ModelViewsTest, AWatchedValueHasTheTimeAndANameThatIsGoneItsReason) {
  EXPECT_EQ(watched("status/bsTimeout").dump(),
            R"({"time":12.5,"path":"status/bsTimeout","value":"130","unit":"s"})");
  std::string const path = "status/crp['10.9.9.9']/address";
  EXPECT_EQ(watched(path)["value"], nullptr);
  EXPECT_THAT(watched(path)["missing"].get<std::string>(), HasSubstr("has no member '10.9.9.9'"));
  router->status()->crpIs(addr("10.9.9.9"));
  EXPECT_EQ(watched(path)["value"], "'10.9.9.9'");
}

}  // namespace
}  // namespace test
