#include "cli/show/ControlCommands.h"

#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "agent/config/Settings.h"
#include "agent/control/ControlProtocol.h"
#include "cli/show/ControlOptions.h"
#include "cli/show/ShowTables.h"
#include "tests/cli/CliSupport.h"
#include "tests/support/Answers.h"
#include "tests/support/FakeAgent.h"
#include "view/All.h"
#include "view/Json.h"

namespace pimbsr::cli {
namespace {

using Json = nlohmann::ordered_json;
using agent::answerLine;
using agent::errorLine;
using test::FakeAgent;
using test::RunResult;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Runs the command of a command line, as main() would.
RunResult runLine(std::string const& line) {
  CLI::App app("", "pimbsr");
  ControlOptions options;
  addControlCommands(app, options);
  try {
    app.parse(line);
  } catch (CLI::ParseError const& error) {
    std::ostringstream out;
    std::ostringstream err;
    int code = app.exit(error, out, err) == 0 ? exitOk : exitUsage;
    return {code, out.str(), err.str()};
  }
  std::ostringstream out;
  std::ostringstream err;
  int code = options.run(out, err);
  return {code, out.str(), err.str()};
}

RunResult runAt(FakeAgent const& agent, std::string const& line) {
  return runLine(line + " --socket " + agent.path());
}

/// What the environment says while it lives.
class SocketVariable {
 public:
  explicit SocketVariable(std::string const& path) { setenv("PIMBSR_SOCKET", path.c_str(), 1); }
  ~SocketVariable() { unsetenv("PIMBSR_SOCKET"); }
};

// Requests --------------------------------------------------------------------------------------------

TEST(ControlCommandsTest, EachCommandSendsItsRequest) {
  struct Case {
    char const* line;
    char const* request;
  };
  Case const cases[] = {
      {"show config --json", R"({"command":"show","what":"config"})"},
      {"show --json rp 239.1.1.1", R"({"command":"show","what":"rp","group":"239.1.1.1"})"},
      {"show rp-set 239.1.0.0/16 --json", R"({"command":"show","what":"rp-set","prefix":"239.1.0.0/16"})"},
      {"show rp-set 239.1.2.3 --json", R"({"command":"show","what":"rp-set","prefix":"239.1.2.3/32"})"},
      {"get status/bsTimeout", R"({"command":"get","path":"status/bsTimeout"})"},
      {"get --json root/pimIntf['a/b']", R"({"command":"get","path":"root/pimIntf['a/b']"})"},
      {"show tree", R"({"command":"show","what":"tree"})"},
      {"show tree status --depth 2", R"({"command":"show","what":"tree","path":"status","depth":2})"},
      {"clear drops", R"({"command":"clear","what":"drops"})"},
      {"clear bsr", R"({"command":"clear","what":"bsr"})"},
      {"clear rp-set 239.1.0.0/16", R"({"command":"clear","what":"rp-set","zone":"239.1.0.0/16"})"},
      {"clear neighbors eth0", R"({"command":"clear","what":"neighbors","interface":"eth0"})"},
      {"reload", R"({"command":"reload"})"},
      {"trace Pim::Bsr::IO 0", R"({"command":"trace","handle":"Pim::Bsr::IO","level":0})"},
      {"trace Pim::Bsr::IO off", R"({"command":"trace","handle":"Pim::Bsr::IO","level":"off"})"},
      {"metrics", R"({"command":"metrics"})"},
  };
  for (Case const& c : cases) {
    FakeAgent agent(answerLine(
        Json::parse(R"({"applied":true,"errors":[],"warnings":[],"needsRestart":[],"text":"t","path":"p",
                        "type":"t","value":"v","unit":null,"entries":[],"next":null})")));
    RunResult run = runAt(agent, c.line);
    EXPECT_EQ(run.code, 0) << c.line << run.err;
    EXPECT_EQ(run.err, "") << c.line;
    EXPECT_THAT(agent.requests(), ElementsAre(c.request));
  }
}

TEST(ControlCommandsTest, RequestWithAnErrorIsExplainedAndNotSent) {
  struct Case {
    char const* line;
    char const* text;
  };
  Case const cases[] = {
      {"show", "WHAT is required"},
      {"show rps", "there is nothing 'rps' to show; valid are bsr, rp-set, "},
      {"show rps", ", all\n"},
      {"show rp", "'show rp' needs a multicast group such as 239.1.1.1"},
      {"show rp 10.1.1.1", "'10.1.1.1' is no multicast group; valid is one such as 239.1.1.1"},
      {"show bsr 239.1.0.0/16", "'show bsr' takes nothing more; '239.1.0.0/16' is too much"},
      {"show bsr 239.1.1.1 more", "more"},
      {"show rp-set 10.0.0.0/8", "'10.0.0.0/8' is no zone, group range or group; valid is"},
      {"show rp-set foo", "'foo' is no zone, group range or group"},
      {"show all 239.1.1.1", "'show all' takes nothing more"},
      {"show bsr --watch 0", "--watch"},
      {"show bsr --depth 1", R"("depth" is given for "bsr"; valid is to give it for "tree" alone)"},
      {"show tree --depth 25", R"("depth" is 25; valid is a whole number from 0 to 24)"},
      {"show tree --depth all", R"("depth" is "all")"},
      {"get", "PATH is required"},
      {"get a b", "b"},
      {"watch a b", "b"},
      {"clear", "WHAT is required"},
      {"clear rp", "nothing 'rp' to clear; valid are counters, drops, history, bsr, rp-set, neighbors"},
      {"clear bsr 10.0.0.0/8", "'10.0.0.0/8' is no zone; valid is one such as 239.1.0.0/16, or none for all"},
      {"clear drops eth-r2", "'clear drops' takes nothing more; 'eth-r2' is too much"},
      {"trace", "HANDLE is required"},
      {"trace Zet", "LEVEL is required"},
      {"trace Zet 10", R"("level" is 10; valid is a whole number from 0 to 9, or "off")"},
      {"trace Zet on", R"("level" is "on")"},
      {"reload now", "now"},
      {"metrics --json", "--json"},
      {"watch --socket", "--socket"},
  };
  for (Case const& c : cases) {
    FakeAgent agent(answerLine(Json::object()));
    SocketVariable variable(agent.path());
    RunResult run = runLine(c.line);
    EXPECT_EQ(run.code, exitUsage) << c.line;
    EXPECT_EQ(run.out, "") << c.line;
    EXPECT_THAT(run.err, HasSubstr(c.text)) << c.line;
    EXPECT_THAT(agent.requests(), IsEmpty());
  }
}

TEST(ControlCommandsTest, AgentThatDeniesOrIsNotThereGives1) {
  FakeAgent agent(errorLine("there is no trace handle 'Zot'"));
  RunResult denied = runAt(agent, "trace Zot 8");
  EXPECT_EQ(denied.code, exitFailed);
  EXPECT_EQ(denied.out, "");
  EXPECT_EQ(denied.err, "pimbsr: there is no trace handle 'Zot'\n");
  RunResult lonely = runLine("show bsr --socket /tmp/no/such/socket");
  EXPECT_EQ(lonely.code, exitFailed);
  EXPECT_THAT(lonely.err, StartsWith("pimbsr: there is no /tmp/no/such/socket: is pimbsr running?"));
}

TEST(ControlCommandsTest, AnswerOfAnotherVersionIsReportedAsSuch) {
  for (char const* line : {"show neighbors", "reload", "metrics"}) {
    FakeAgent agent(answerLine({{"text", 1}}));
    RunResult run = runAt(agent, line);
    EXPECT_EQ(run.code, exitFailed) << line;
    EXPECT_THAT(run.err, HasSubstr("is it of this version?")) << line;
  }
}

TEST(ControlCommandsTest, OutputThatCannotBeWrittenGives1) {
  FakeAgent agent(answerLine({{"text", "metric 1\n"}}));
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  std::ostringstream err;
  EXPECT_EQ(metrics(agent.path(), out, err), exitFailed);
  EXPECT_EQ(err.str(), "pimbsr: cannot write the output\n");
}

// The socket ------------------------------------------------------------------------------------------

TEST(ControlCommandsTest, TheSocketIsTheOneGivenElseThatOfTheEnvironmentElseTheDefault) {
  EXPECT_EQ(controlSocket(""), agent::Settings{}.controlSocket);
  EXPECT_EQ(controlSocket("/given"), "/given");
  {
    SocketVariable variable("/from/environment");
    EXPECT_EQ(controlSocket(""), "/from/environment");
    EXPECT_EQ(controlSocket("/given"), "/given");
  }
  SocketVariable empty("");
  EXPECT_EQ(controlSocket(""), agent::Settings{}.controlSocket);
}

TEST(ControlCommandsTest, AnAgentIsFoundByTheEnvironment) {
  FakeAgent agent(answerLine({{"text", "metric 1\n"}}));
  SocketVariable variable(agent.path());
  EXPECT_EQ(runLine("metrics").out, "metric 1\n");
}

// Output ----------------------------------------------------------------------------------------------

TEST(ControlCommandsTest, ShowWritesTablesOrJson) {
  Json view{{"neighbors", Json::array()}};
  FakeAgent agent(answerLine(view));
  std::ostringstream tables;
  writeShow(tables, "neighbors", view);
  EXPECT_EQ(runAt(agent, "show neighbors").out, tables.str());
  EXPECT_EQ(runAt(agent, "show neighbors --json").out, view.dump(2) + "\n");
}

/// Entries of the tree, one path each, as an answer.
std::string pageOf(std::vector<std::string> const& paths, Json const& next) {
  Json entries = Json::array();
  for (std::string const& path : paths)
    entries.push_back(
        {{"path", path}, {"type", "U32"}, {"value", "7"}, {"unit", path == "a" ? Json("s") : Json()}});
  return answerLine({{"entries", entries}, {"next", next}});
}

TEST(ControlCommandsTest, ATreeIsAskedForPageByPage) {
  auto answer = [](std::string const& request) {
    return request.find("from") == request.npos ? pageOf({"a", "a/b"}, "a/c") : pageOf({"a/c"}, nullptr);
  };
  FakeAgent agent(answer);
  EXPECT_EQ(runAt(agent, "show tree a").out, "a = 7 s\na/b = 7\na/c = 7\n");
  EXPECT_THAT(agent.requests(), ElementsAre(R"({"command":"show","what":"tree","path":"a"})",
                                            R"({"command":"show","what":"tree","path":"a","from":"a/c"})"));
  Json whole = Json::parse(runAt(agent, "show tree a --json").out);
  EXPECT_EQ(whole["entries"].size(), 3u);
  EXPECT_EQ(whole["next"], nullptr);
}

TEST(ControlCommandsTest, ATreeThatDoesNotGoOnIsAnError) {
  FakeAgent agent(pageOf({"a"}, "a/b"));
  RunResult run = runAt(agent, "show tree");
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(run.err, HasSubstr("the same part of the tree twice"));
}

TEST(ControlCommandsTest, GetWritesTheValueWithItsUnitOrJson) {
  Json entry{{"path", "a"}, {"type", "U32"}, {"value", "7"}, {"unit", "s"}};
  FakeAgent agent(answerLine(entry));
  EXPECT_EQ(runAt(agent, "get a").out, "7 s\n");
  EXPECT_EQ(runAt(agent, "get a --json").out, entry.dump(2) + "\n");
}

TEST(ControlCommandsTest, WatchOfAPathWritesTimeAndValueOrJson) {
  std::string const lines = R"({"time":0.5,"path":"a","value":"7","unit":"s"})"
                            "\n"
                            R"({"time":1,"path":"a","value":null,"unit":null,"missing":"column 1: none"})"
                            "\n";
  FakeAgent agent(answerLine(Json::object()) + lines);
  RunResult run = runAt(agent, "watch a");
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(run.out,
              testing::MatchesRegex("19[0-9-]+ [0-9:]+  7 s\n19[0-9-]+ [0-9:]+  gone: column 1: none\n"));
  EXPECT_EQ(runAt(agent, "watch a --json").out, lines);
  EXPECT_THAT(agent.requests(), testing::Each(R"({"command":"watch","path":"a"})"));
}

TEST(ControlCommandsTest, WatchWritesEachLineUntilTheAgentEnds) {
  FakeAgent agent(answerLine(Json::object()) + "{\"n\":1}\n{\"n\":2}\n");
  RunResult run = runAt(agent, "watch");
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_EQ(run.out, "{\"n\":1}\n{\"n\":2}\n");
  EXPECT_THAT(run.err, HasSubstr("has ended"));
  EXPECT_THAT(agent.requests(), ElementsAre(R"({"command":"watch"})"));
}

/// Takes a number of bytes and then no more.
class ShortBuffer : public std::streambuf {
 public:
  explicit ShortBuffer(std::streamsize space) : space_(space) {}
  /// What was taken by strings.
  std::string const& text() const { return text_; }

 private:
  std::streamsize xsputn(char const* bytes, std::streamsize count) override {
    std::streamsize taken = std::min(count, space_);
    text_.append(bytes, static_cast<std::size_t>(taken));
    space_ -= taken;
    return taken;
  }
  int overflow(int byte) override { return space_-- > 0 ? byte : traits_type::eof(); }

  std::streamsize space_;
  std::string text_;
};

TEST(ControlCommandsTest, AllHasEachViewThatNeedsNothingMore) {
  view::All given{.version = {.version = "1.2.3"}, .config = {.settings = Json::object()}};
  Json const all = jsonOf(given);
  std::map<std::string, Json> answers;
  for (auto const& [member, view] : all.items()) {
    std::string what;  // the member with hyphens
    for (char c : member) what += std::isupper(c) == 0 ? std::string(1, c) : std::string("-") + char(c + 32);
    answers[what] = view;
  }
  FakeAgent agent([&](std::string const& line) {
    agent::Request request = agent::parseRequest(line);
    return answerLine(answers.at(request.command == agent::Command::version ? "version" : request.what));
  });
  RunResult run = runAt(agent, "show all --json");
  EXPECT_EQ(run.code, exitOk) << run.err;
  EXPECT_EQ(Json::parse(run.out), jsonOf(given));
  test::keepAnswer("show-all", Json::parse(run.out));
  test::keepAnswer("version", Json::parse(run.out)["version"]);
  std::set<std::string> const needMore = {"rp", "tree"};
  for (std::string_view what : agent::viewNames())
    EXPECT_EQ(answers.contains(std::string(what)), !needMore.contains(std::string(what))) << what;
  EXPECT_EQ(agent.requests().size(), answers.size());
}

TEST(ControlCommandsTest, AViewIsRepeatedUntilTheOutputEnds) {
  FakeAgent agent(answerLine(Json::parse(R"({"zones": []})")));
  ShortBuffer buffer(40);
  std::ostream out(&buffer);
  std::ostringstream err;
  EXPECT_EQ(show({.socket = agent.path(), .what = "bsr", .watch = 1}, out, err), exitFailed);
  EXPECT_EQ(err.str(), "pimbsr: cannot write the output\n");
  EXPECT_EQ(agent.requests().size(), 2u);
}

TEST(ControlCommandsTest, RpSetWithoutAMatchIsOfWhatWasAsked) {
  FakeAgent agent(answerLine(Json::parse(R"({"zones": []})")));
  EXPECT_EQ(runAt(agent, "show rp-set").out, "No RP is known in any zone.\n");
  EXPECT_EQ(runAt(agent, "show rp-set 239.1.0.0/16").out,
            "No RP is known for 239.1.0.0/16: neither in a zone of that name nor in a range around or within "
            "it.\n");
}

TEST(ControlCommandsTest, TablesThatAreRepeatedEraseATerminalAlsoWithoutColor) {
  FakeAgent agent(answerLine(Json::parse(R"({"zones": []})")));
  for (bool json : {false, true}) {
    std::ostringstream text;
    ShortBuffer buffer(40);
    std::ostream out(&buffer);
    std::ostringstream err;
    show({.socket = agent.path(), .what = "bsr", .json = json, .watch = 1, .refresh = true}, out, err);
    EXPECT_EQ(buffer.text().find("\x1b[H\x1b[J") != std::string::npos, !json) << buffer.text();
  }
}

TEST(ControlCommandsTest, ColorIsOfTablesAlone) {
  FakeAgent agent(answerLine(Json::parse(R"({"zones": []})")));
  std::ostringstream table, json, err;
  show({.socket = agent.path(), .what = "bsr", .color = true}, table, err);
  EXPECT_EQ(table.str(), "\x1b[1mNo BSR is known in any zone.\x1b[0m\n");
  show({.socket = agent.path(), .what = "bsr", .json = true, .color = true}, json, err);
  EXPECT_THAT(json.str(), testing::Not(HasSubstr("\x1b")));
}

TEST(ControlCommandsTest, WatchEndsOnceItsLinesCannotBeWritten) {
  std::string endless;
  for (int n = 0; n < 1000; ++n) endless += "{\"n\":1}\n";
  FakeAgent agent(answerLine(Json::object()) + endless);
  ShortBuffer buffer(20);
  std::ostream out(&buffer);
  std::ostringstream err;
  EXPECT_EQ(watch({.socket = agent.path()}, out, err), exitFailed);
  EXPECT_EQ(err.str(), "pimbsr: cannot write the output\n");
}

TEST(ControlCommandsTest, ClearAndTraceSayWhatWasDone) {
  FakeAgent agent(answerLine(Json::object()));
  EXPECT_EQ(runAt(agent, "clear history").out, "history cleared\n");
  EXPECT_EQ(runAt(agent, "clear bsr 239.0.0.0/8").out, "bsr of 239.0.0.0/8 cleared\n");
  EXPECT_EQ(runAt(agent, "clear neighbors eth0").out, "neighbors on eth0 cleared\n");
  EXPECT_EQ(runAt(agent, "trace Zet 8").out, "Zet: on up to level 8, on the agent's standard error\n");
  EXPECT_EQ(runAt(agent, "trace Zet off").out, "Zet: off\n");
}

TEST(ControlCommandsTest, ReloadWritesWarningsAndWhatTakesEffectAtTheNextStart) {
  FakeAgent agent(answerLine({{"applied", true},
                              {"errors", Json::array()},
                              {"warnings", {"pimbsr.toml:3:1: warning: hash mask length 0"}},
                              {"needsRestart", {"control.socket", "state.directory"}}}));
  RunResult run = runAt(agent, "reload");
  EXPECT_EQ(run.code, exitOk);
  EXPECT_EQ(run.out,
            "control.socket takes effect at the next start\n"
            "state.directory takes effect at the next start\n"
            "the configuration file was read again and is followed\n");
  EXPECT_EQ(run.err, "pimbsr.toml:3:1: warning: hash mask length 0\n");
}

TEST(ControlCommandsTest, ReloadOfAFileWithErrorsWritesAll) {
  FakeAgent agent(answerLine({{"applied", false},
                              {"errors", {"pimbsr.toml:3:1: error: one", "pimbsr.toml: error: two"}},
                              {"warnings", Json::array()},
                              {"needsRestart", Json::array()}}));
  RunResult run = runAt(agent, "reload");
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "pimbsr.toml:3:1: error: one\npimbsr.toml: error: two\n"
            "pimbsr: the configuration file is rejected; the former configuration stays in use\n");
}

TEST(ControlCommandsTest, OnlyTheDefaultSocketHasAReadOnlyOneToFallBackTo) {
  agent::Settings const defaults;
  EXPECT_THAT(readingSockets(""), testing::ElementsAre(defaults.controlSocket, defaults.readOnlySocket));
  EXPECT_THAT(readingSockets("/given"), testing::ElementsAre("/given"));
  SocketVariable variable("/from/environment");
  EXPECT_THAT(readingSockets(""), testing::ElementsAre("/from/environment"));
}

// Help ------------------------------------------------------------------------------------------------

TEST(ControlCommandsTest, HelpNamesEveryViewAndWhatMayBeCleared) {
  std::string show = runLine("show --help").out;
  for (std::string_view what : agent::viewNames())
    EXPECT_THAT(show, HasSubstr("\n  " + std::string(what) + " "));
  std::string clear = runLine("clear --help").out;
  for (std::string_view what : agent::clearNames())
    EXPECT_THAT(clear, HasSubstr("\n  " + std::string(what) + " "));
}

TEST(ControlCommandsTest, HelpHasTheSocketAnExampleAndTheExitStatus) {
  for (std::string const command : {"show", "get", "watch", "clear", "reload", "trace", "metrics"}) {
    RunResult run = runLine(command + " --help");
    EXPECT_EQ(run.code, exitOk);
    EXPECT_THAT(run.out, AllOf(HasSubstr("--socket PATH"), HasSubstr(agent::Settings{}.controlSocket),
                               HasSubstr("\n  pimbsr " + command), HasSubstr("Exit status: ")))
        << command;
  }
}

}  // namespace
}  // namespace pimbsr::cli
