#include "cli/complete/Complete.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "agent/control/ControlProtocol.h"
#include "cli/complete/CompletePath.h"
#include "cli/show/ControlOptions.h"
#include "tests/support/FakeAgent.h"
#include "view/Interfaces.h"
#include "view/Json.h"
#include "view/Tree.h"
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

TEST(CompleteTest, TheParentOfAPathIsBeforeItsLastStep) {
  struct {
    char const* path;
    char const* parent;
  } const cases[] = {{"", ""},
                     {"sta", ""},
                     {"status/", "status"},
                     {"status/boot", "status"},
                     {"status/bsr[", "status/bsr"},
                     {"status/bsr['224.0.0.0/4", "status/bsr"},
                     {"status/bsr['224.0.0.0/4']", "status/bsr"},
                     {"status/bsr['224.0.0.0/4']/pri", "status/bsr['224.0.0.0/4']"},
                     {"a/b['x\\'[/']/c", "a/b['x\\'[/']"},
                     {"a/b['x\\", "a/b"},
                     {"a/b[7]/c", "a/b[7]"}};
  for (auto const& [path, parent] : cases) EXPECT_EQ(parentOf(path), parent) << path;
}

constexpr double aLongTime = 30;  // seconds

/// Answers with the paths of a small model, of which one collection has many members.
std::string modelAnswer(std::string const& request) {
  static constexpr int members = 7000, page = 1000;
  agent::Request const asked = agent::parseRequest(request);
  view::Tree tree;
  auto add = [&](std::string path) { tree.entries.push_back({.path = std::move(path), .type = "U32"}); };
  if (asked.path.empty()) {
    for (char const* root : {"status", "root"}) add(root);
  } else {
    add(asked.path);
  }
  if (asked.path == "status")
    for (char const* name : {"/bsTimeout", "/bootstrapRouter", "/many"}) add("status" + std::string(name));
  if (asked.path == "status/bootstrapRouter") add("status/bootstrapRouter['224.0.0.0/4']");
  if (asked.path.ends_with("']"))
    for (char const* name : {"/priority", "/ipAddr"}) add(asked.path + name);
  if (asked.path == "status/many") {
    std::size_t const digits = asked.tree.from.find_first_of("0123456789");
    int const first = asked.tree.from.empty() ? 0 : std::stoi(asked.tree.from.substr(digits));
    for (int key = first; key < first + page; ++key) add(fmt::format("status/many[{}]", key));
    if (first + page < members) tree.next = fmt::format("status/many[{}]", first + page);
  }
  return agent::answerLine(jsonOf(tree));
}

TEST(CompleteTest, APathIsContinuedByOneStepOfTheRunningModel) {
  FakeAgent agent(modelAnswer);
  Words const member = {"status/bootstrapRouter['224.0.0.0/4']"};
  struct {
    char const* begun;
    Words words;
  } const cases[] = {
      {"", {"root", "status"}},
      {"status/b", {"status/bootstrapRouter", "status/bsTimeout"}},
      {"status/bs", {"status/bsTimeout"}},
      {"status/boot", {"status/bootstrapRouter", member[0]}},  // one alone: what is in it follows
      {"status/bootstrapRouter[", {member[0], member[0] + "/ipAddr", member[0] + "/priority"}},
      {"status/bootstrapRouter['224.0.0.0/4']/p", {member[0] + "/priority"}},
      {"status/none", {}}};
  for (auto const& [begun, words] : cases)
    EXPECT_THAT(pathsFrom(Words{agent.path()}, begun, aLongTime), testing::UnorderedElementsAreArray(words))
        << begun;
}

TEST(CompleteTest, GetWatchAndShowTreeTakeAPath) {
  FakeAgent agent(modelAnswer);
  for (Words line : {Words{"get"}, Words{"watch"}, Words{"show", "tree"}}) {
    line.insert(line.end(), {"--socket", agent.path(), ""});
    EXPECT_THAT(completed(line), ElementsAre("root", "status")) << line.front();
  }
  EXPECT_THAT(completed({"get", "--socket", agent.path(), "status/bsTimeout", ""}), IsEmpty());
  EXPECT_THAT(completed({"get", "--socket", "/nowhere", "st"}), IsEmpty());
}

TEST(CompleteTest, PathsOfALargeCollectionAreBounded) {
  FakeAgent agent(modelAnswer);
  Words const words = pathsFrom(Words{agent.path()}, "status/many[6", aLongTime);
  EXPECT_THAT(words, Contains("status/many[6"));  // not all of them: a shell must not go on
  EXPECT_THAT(words, Contains("status/many[60]"));
  EXPECT_EQ(agent.requests().size(), static_cast<std::size_t>(maxPathPages));
  EXPECT_THAT(pathsFrom(Words{agent.path()}, "status/bs", aLongTime), Not(Contains("status/bs")));
}

TEST(CompleteTest, PathsAreBoundedInTimeForAllRequestsTogether) {
  FakeAgent agent([](std::string const& request) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return modelAnswer(request);
  });
  auto start = std::chrono::steady_clock::now();
  pathsFrom(Words{agent.path()}, "status/many[6", 0.3);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(800));
  EXPECT_LE(agent.requests().size(), 2u);
}

TEST(CompleteTest, AnAgentThatDoesNotAnswerIsNotWaitedForLong) {
  FakeAgent agent([](std::string const&) {
    std::this_thread::sleep_for(std::chrono::seconds(3));
    return std::string("{}\n");
  });
  auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(completed({"show", "--socket", agent.path(), "rp-set", ""}), IsEmpty());
  EXPECT_THAT(completed({"get", "--socket", agent.path(), "sta"}), IsEmpty());
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
