#include "cli/complete/Complete.h"

#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "agent/control/ControlProtocol.h"
#include "cli/show/ControlOptions.h"
#include "tests/support/FakeAgent.h"
#include "view/Interfaces.h"
#include "view/Json.h"
#include "view/Zones.h"

namespace pimbsr::cli {
namespace {

using Json = nlohmann::ordered_json;
using test::FakeAgent;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Words = std::vector<std::string>;

Words completed(Words const& words) {
  CLI::App app("", "pimbsr");
  ControlOptions options;
  addControlCommands(app, options);
  return completionsOf(app, words);
}

TEST(CompleteTest, SubcommandsAreCompleted) {
  EXPECT_THAT(completed({""}),
              ElementsAre("clear", "compare", "get", "metrics", "reload", "show", "trace", "watch"));
  EXPECT_THAT(completed({}), Contains("show"));
  EXPECT_THAT(completed({"sh"}), ElementsAre("show"));
  EXPECT_THAT(completed({"x"}), IsEmpty());
}

TEST(CompleteTest, ViewsWhatCanBeClearedAndTraceHandlesAreCompleted) {
  EXPECT_THAT(completed({"show", "rp"}), ElementsAre("rp", "rp-set"));
  EXPECT_THAT(completed({"show", ""}), Contains("all"));
  for (std::string_view what : agent::clearNames())
    EXPECT_THAT(completed({"clear", ""}), Contains(std::string(what)));
  EXPECT_THAT(completed({"trace", "Pim::Bsr::IO"}), ElementsAre("Pim::Bsr::IO"));
  EXPECT_THAT(completed({"trace", "Pim::Bsr::IO", "o"}), ElementsAre("off"));
  EXPECT_THAT(completed({"trace", "Pim::Bsr::IO", "8", ""}), IsEmpty());
}

TEST(CompleteTest, OptionsAreCompletedAndTheirValuesAreLeftToTheShell) {
  EXPECT_THAT(completed({"show", "bsr", "--"}),
              ElementsAre("--depth", "--help", "--json", "--socket", "--watch"));
  EXPECT_THAT(completed({"show", "--js"}), ElementsAre("--json"));
  EXPECT_THAT(completed({"show", "--socket", ""}), IsEmpty());
  EXPECT_THAT(completed({"show", "--socket", "/x", "bs"}), ElementsAre("bsr"));
  EXPECT_THAT(completed({"show", "--json", "bs"}), ElementsAre("bsr"));
}

TEST(CompleteTest, ZonesAndInterfacesAreThoseOfTheRunningAgent) {
  view::Bsr bsr;
  for (char const* zone : {"239.1.0.0/16", "224.0.0.0/4"})
    bsr.zones.emplace_back().zone = Lanet::IpGenPrefix::parse(zone);
  view::Interfaces interfaces;
  for (char const* name : {"eth0", "eth1"}) interfaces.interfaces.emplace_back().interface = name;
  FakeAgent agent(
      [answers = std::map<std::string, Json>{{"bsr", jsonOf(bsr)}, {"interfaces", jsonOf(interfaces)}}](
          std::string const& request) {
        return agent::answerLine(answers.at(agent::parseRequest(request).what));
      });
  auto at = [&](Words words) {
    words.insert(words.begin() + 1, {"--socket", agent.path()});
    return completed(words);
  };
  EXPECT_THAT(at({"show", "rp-set", ""}), ElementsAre("224.0.0.0/4", "239.1.0.0/16"));
  EXPECT_THAT(at({"clear", "bsr", "239"}), ElementsAre("239.1.0.0/16"));
  EXPECT_THAT(at({"clear", "neighbors", ""}), ElementsAre("eth0", "eth1"));
  EXPECT_THAT(at({"clear", "drops", ""}), IsEmpty());
  EXPECT_THAT(completed({"show", "--socket=" + agent.path(), "rp-set", "239"}), ElementsAre("239.1.0.0/16"));
  EXPECT_THAT(completed({"show", "--socket", "/nowhere", "rp-set", ""}), IsEmpty()) << "no agent answers";
}

TEST(CompleteTest, AnAgentThatDoesNotAnswerIsNotWaitedForLong) {
  FakeAgent agent([](std::string const&) {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    return std::string("{}\n");
  });
  auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(completed({"show", "--socket", agent.path(), "rp-set", ""}), IsEmpty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(CompleteTest, AnAnswerThatIsNotUnderstoodGivesNothing) {
  for (char const* answer : {R"({"ok":false,"error":"no"})", "[]", "{}"}) {
    FakeAgent agent(std::string(answer) + "\n");
    EXPECT_THAT(completed({"show", "--socket", agent.path(), "rp-set", ""}), IsEmpty()) << answer;
  }
}

}  // namespace
}  // namespace pimbsr::cli
