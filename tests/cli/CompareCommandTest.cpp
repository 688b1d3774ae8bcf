#include "cli/show/CompareCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/control/ControlProtocol.h"
#include "tests/support/FakeAgent.h"

namespace pimbsr::cli {
namespace {

using Json = nlohmann::ordered_json;
using test::FakeAgent;
using testing::HasSubstr;
using testing::StartsWith;

/// The answers of an agent that follows a BSR, or none if it is empty.
FakeAgent::Answer answers(std::string const& bsr, std::string const& digest) {
  return [=](std::string const& request) {
    std::string what = Json::parse(request)["what"];
    Json result = {{what, Json::array()}};
    if (what == "bsr") {
      Json zone = Json::parse(R"({"zone": "224.0.0.0/4", "scoped": false, "candidate": false,
        "state": "Accept Any", "bsr": null, "bootstrapTimer": null, "scopeZoneTimer": null,
        "nextMessage": null, "ranges": 1, "rps": 2})");
      zone["digest"] = digest;
      if (!bsr.empty())
        zone["bsr"] = {{"address", bsr}, {"priority", 64},    {"hashMaskLen", 30},
                       {"own", false},   {"uptime", nullptr}, {"expiresIn", 100}};
      result = {{"zones", Json::array({zone})}};
    }
    return agent::answerLine(result);
  };
}

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

Outcome compared(CompareOptions const& options) {
  std::ostringstream out;
  std::ostringstream err;
  int code = compareAgents(options, out, err);
  return {code, out.str(), err.str()};
}

TEST(CompareCommandTest, AgentsThatAgreeGive0) {
  FakeAgent one(answers("10.0.1.1", "7f8c5d15"));
  FakeAgent other(answers("10.0.1.1", "7f8c5d15"));
  Outcome run = compared({.agents = {"r1=" + one.path(), "r2=" + other.path()}});
  EXPECT_EQ(run.code, exitOk);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, R"(Zone 224.0.0.0/4: all agree
  router  BSR       priority  ranges  RPs  digest    agrees  why not
  r1      10.0.1.1        64       1    2  7f8c5d15  A
  r2      10.0.1.1        64       1    2  7f8c5d15  A
)");
}

TEST(CompareCommandTest, AgentsThatDisagreeOrAreSilentGive1) {
  FakeAgent one(answers("10.0.1.1", "7f8c5d15"));
  FakeAgent other(answers("", "6f592f5a"));
  Outcome run = compared({.agents = {"r1=" + one.path(), "r2=" + other.path(), "r3=/nowhere/x.sock"}});
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(run.out, StartsWith(R"(Zone 224.0.0.0/4: not all agree
  router  BSR       priority  ranges  RPs  digest    agrees  why not
  r1      10.0.1.1        64       1    2  7f8c5d15  A
  r2      none             -       1    2  6f592f5a  B       no BSR: no neighbor

Agents that do not answer
  router  error
  r3      )"));
}

TEST(CompareCommandTest, JsonHasAllOfIt) {
  FakeAgent one(answers("10.0.1.1", "7f8c5d15"));
  Outcome run = compared({.agents = {one.path()}, .json = true});
  EXPECT_EQ(run.code, exitOk);
  Json read = Json::parse(run.out);
  EXPECT_EQ(read["agree"], true);
  EXPECT_EQ(read["zones"][0]["routers"][0]["router"], one.path());
  EXPECT_EQ(read["zones"][0]["routers"][0]["digest"], "7f8c5d15");
}

TEST(CompareCommandTest, WrongArgumentsAreExplained) {
  struct Case {
    std::vector<std::string> agents;
    char const* text;
  };
  Case const cases[] = {{{""}, "this one is empty"},
                        {{"r1="}, "is not NAME=SOCKET"},
                        {{"=x"}, "is not NAME=SOCKET"},
                        {{"r 1=x"}, "is not NAME=SOCKET"},
                        {{"r1=x", "r1=y"}, "two agents are called 'r1'"}};
  for (Case const& c : cases) {
    Outcome run = compared({.agents = c.agents});
    EXPECT_EQ(run.code, exitUsage) << c.text;
    EXPECT_THAT(run.err, HasSubstr(c.text));
    EXPECT_EQ(run.out, "");
  }
}

TEST(CompareCommandTest, AnswerOfAnotherVersionIsAnError) {
  FakeAgent one(agent::answerLine(Json::parse(R"({"moods": []})")));
  Outcome run = compared({.agents = {"r1=" + one.path()}});
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(run.out, HasSubstr("is not understood"));
}

}  // namespace
}  // namespace pimbsr::cli
