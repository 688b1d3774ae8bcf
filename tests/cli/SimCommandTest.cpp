#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/sim/SimCommand.h"
#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::RunResult;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string const example = test::sourceFile("examples/five-routers.sim");

RunResult sim(SimOptions const& options) {
  std::ostringstream out;
  std::ostringstream err;
  int code = simulate(options, out, err);
  return {code, out.str(), err.str()};
}

/// A scenario in a file of its own, in a folder that is removed with this object.
class ScenarioFile {
 public:
  explicit ScenarioFile(std::string const& text) {
    std::string pattern = std::filesystem::temp_directory_path() / "pimbsr-sim-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    folder_ = pattern;
    std::ofstream(path()) << text;
  }
  ~ScenarioFile() { std::filesystem::remove_all(folder_); }
  ScenarioFile(ScenarioFile const&) = delete;
  ScenarioFile& operator=(ScenarioFile const&) = delete;

  std::string path() const { return folder_ + "/lan.sim"; }
  std::string const& folder() const { return folder_; }

 private:
  std::string folder_;
};

RunResult play(std::string const& text) { return sim({.file = ScenarioFile(text).path()}); }

std::string const pair =
    "link lan prefix 192.0.2.0/24\nrouter r1\nrouter r2\ninterface r1 lan 192.0.2.1\ninterface r2 lan "
    "192.0.2.2\n";

TEST(SimCommandTest, ExampleIsPlayed) {
  RunResult run = sim({.file = example, .ingress = host::standardLimits, .corrections = {}});
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.err, "");
  test::expectGolden("sim-five-routers.txt", run.out);
  std::istringstream lines(run.out);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 110u) << line;
}

TEST(SimCommandTest, RejectedConfigurationEndsTheRunAtItsStatement) {
  RunResult run = play(pair + "run 10\nat 20 timers r1 bs-timeout 5\nrun 20\nshow\n");
  EXPECT_EQ(run.code, 2);
  EXPECT_THAT(run.out, HasSubstr("> timers r1 bs-timeout 5"));
  EXPECT_THAT(run.out, testing::Not(HasSubstr("Learned state of each router")));
  EXPECT_THAT(run.err, EndsWith("lan.sim:7: bs-timeout: 5: "
                                "Config::holdTime < 12 or > 1073741823 not allowed\n"));
}

TEST(SimCommandTest, JsonHasTheSameEvents) {
  RunResult run =
      sim({.file = example, .delivery = {.json = true}, .ingress = host::standardLimits, .corrections = {}});
  EXPECT_EQ(run.code, 0);
  test::expectGolden("sim-five-routers.json", run.out);
  auto document = nlohmann::json::parse(run.out);
  EXPECT_EQ(document["routers"].size(), 5u);
  EXPECT_EQ(document["seed"], 1);
  EXPECT_EQ(document["routers"][4]["zones"][0]["bsr"]["address"], "10.0.0.2");
}

TEST(SimCommandTest, RoutersHaveTheAgentsChecksAndCorrectionsUnlessExact) {
  RunResult run = sim({.file = example});
  test::expectGolden("sim-five-routers-corrected.txt", run.out);
  EXPECT_EQ(test::command("sim " + example).out, run.out);
  EXPECT_EQ(test::command("sim --corrections all " + example).out, run.out);
  RunResult exact = sim({.file = example, .ingress = host::standardLimits, .corrections = {}});
  EXPECT_EQ(test::command("sim --exact " + example).out, exact.out);
}

TEST(SimCommandTest, CorrectionsAreNamedByTheirKeys) {
  for (host::Correction const& correction : host::corrections())
    EXPECT_EQ(test::command("sim --corrections " + std::string(correction.key->name) + " " + example).code,
              0);
  EXPECT_EQ(test::command("sim --corrections elected-only,cut-by-size " + example).code, 0);
  RunResult wrong = test::command("sim --corrections elected-only,colour " + example);
  EXPECT_EQ(wrong.code, 2);
  EXPECT_THAT(wrong.err, HasSubstr("pimbsr: --corrections: colour: "));
  EXPECT_EQ(test::command("sim --exact --corrections all " + example).code, 2);
  std::string const capture = test::sourceFile("examples/two-scopes.pcap");
  EXPECT_EQ(test::command("replay --exact " + capture).code, 0);
  EXPECT_EQ(test::command("replay --corrections none " + capture).code, 0);
}

TEST(SimCommandTest, CommandPrintsWhatItDoesInProcess) {
  RunResult run = test::command("sim --seed 7 --json --trace Pim::Bsr::IO:1 " + example);
  RunResult here =
      sim({.file = example, .delivery = {.json = true}, .seed = 7, .traces = {{"Pim::Bsr::IO", 1}}});
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, here.out);
  EXPECT_EQ(run.err, here.err);
  EXPECT_THAT(run.err, HasSubstr("  r1  Pim::Bsr::IO:1 "));
}

TEST(SimCommandTest, EverySortOfEventHasALine) {
  RunResult run = play(pair +
                       "candidate-bsr r1 global priority 9\ncandidate-rp r2 239.1.0.0/16\n"
                       "link far prefix 10.0.0.0/8\ninterface r2 far 10.0.0.1\nreport all\n"
                       "at 90 faults loss 100% on lan\nat 300 faults none\nat 400 stop r2\nat 410 crash r1\n"
                       "at 420 start r1\nat 421 start r2\nrun 500\n");
  for (char const* text :
       {"r1  elected         224.0.0.0/4       192.0.2.1     own candidacy, priority 9\n",
        "r2  follows         224.0.0.0/4       192.0.2.1     priority 9\n",
        "r1  state           224.0.0.0/4                     Elected-BSR\n",
        "r2  C-RP-Adv sent   lan               192.0.2.2     priority 192, holdtime 180 s, prefix count 1\n",
        "r1  Adv accepted    192.0.2.2         192.0.2.2     priority 192, holdtime 180 s, prefix count 1\n",
        "r2  BSM accepted    192.0.2.1         192.0.2.1     priority 9, tag 0x",
        "r1  BSM dropped     192.0.2.2         192.0.2.1     own-bsr\n",
        "r2  RP added        239.1.0.0/16      192.0.2.2     priority 192, holdtime 180 s\n",
        "r1  RP expired      239.1.0.0/16      192.0.2.2",
        "r2  BSR expired     224.0.0.0/4       192.0.2.1\n",
        "r1  neighbor        lan               192.0.2.2\n",
        "r1  neighbor gone   lan               192.0.2.2\n",
        "r1  DR              lan               192.0.2.2\n",
        "r1  DR              lan               192.0.2.1     this",
        "   Hello lost      lan                             lost\n", "      > faults loss 100% on lan\n",
        "r1  Hello sent      lan                             holdtime 105 s\n", "No-Forward"}) {
    EXPECT_THAT(run.out, HasSubstr(text));
  }
  EXPECT_THAT(run.out, HasSubstr("names this router itself as its BSR"));
}

TEST(SimCommandTest, TablesShowWhatIsAskedFor) {
  RunResult run =
      play(pair +
           "quiet all\ncandidate-bsr r1 global\ncandidate-rp r2 global priority 3\nrun 60\n"
           "show r1\nshow rp-set\nshow r2 neighbors\nshow r1 states\nshow r1 r2 counters\nshow packets\n"
           "show rp r1 239.1.1.1\nstop r2\nshow\nshow rp r2 239.1.1.1\n");
  EXPECT_EQ(run.code, 0);
  for (char const* text : {
           "router  zone         state        BSR        priority   timer  ranges  RPs\n"
           "r1      224.0.0.0/4  Elected-BSR  192.0.2.1        64  15.",
           "router  zone         group range  RP         priority  holdtime  expires in\n"
           "r1      224.0.0.0/4  224.0.0.0/4  192.0.2.2         3       180     ",
           "router  interface  link  neighbor   DR priority  DR  expires in\n"
           "r2      eth0       lan   192.0.2.1            1  no  ",
           "router  zone         machine    state        bootstrap timer  scope zone timer\n"
           "r1      224.0.0.0/4  candidate  Elected-BSR           15.",
           "router  counter",
           "router  link  Hello  BSM  C-RP-Adv  other\n",
           "r1: group 239.1.1.1 is served by 192.0.2.2 of range 224.0.0.0/4: the only RP of its range\n",
           "r2      stopped\n",
           "r2: group 239.1.1.1: the router is stopped\n",
       }) {
    EXPECT_THAT(run.out, HasSubstr(text));
  }
}

TEST(SimCommandTest, WhatCantBeReadOrFollowedEndsWith2AndPrintsNothing) {
  RunResult missing = sim({.file = "/nowhere/lan.sim"});
  EXPECT_EQ(missing.code, 2);
  EXPECT_THAT(missing.err, AllOf(StartsWith("pimbsr: "), HasSubstr("/nowhere/lan.sim")));
  ScenarioFile file(pair + "run 10\nshow\ndown lam\n");
  RunResult wrong = sim({.file = file.path()});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_EQ(wrong.out, "");
  EXPECT_EQ(wrong.err, "pimbsr: " + file.path() + ":8: there is no link 'lam'; valid are lan\n");
  for (auto const& [arguments, text] :
       {std::pair("sim", "SCENARIO"),
        {"sim --seed x FILE", "--seed: 'x' is no whole"},
        {"sim --seed -1 FILE", "'-1' is no whole number from 0 to 18446744073709551615"},
        {"sim --trace Pim:1 FILE", "there is no handle 'Pim'"}}) {
    RunResult run = test::command(arguments);
    EXPECT_EQ(run.code, 2) << arguments;
    EXPECT_THAT(run.err, HasSubstr(text)) << arguments;
  }
}

TEST(SimCommandTest, HelpNamesEveryOption) {
  RunResult run = test::command("sim --help");
  EXPECT_EQ(run.code, 0);
  for (char const* option :
       {"SCENARIO", "--json", "--seed", "--pcap", "--trace", "Exit status", "scenarios.md"}) {
    EXPECT_THAT(run.out, HasSubstr(option));
  }
  EXPECT_THAT(test::command("--help").out, HasSubstr("sim"));
}

TEST(SimCommandTest, CapturesCanBeReplayed) {
  ScenarioFile file(pair + "candidate-bsr r1 global\nrun 100\n");
  std::string links = file.folder() + "/links";
  RunResult run = test::command("sim --pcap " + links + " " + file.path());
  EXPECT_EQ(run.code, 0) << run.err;
  RunResult replay = test::replay(links + "/lan.pcap");
  EXPECT_EQ(replay.code, 0) << replay.err;
  EXPECT_THAT(replay.out, HasSubstr("BSR elected      224.0.0.0/4         192.0.2.1"));
}

TEST(SimCommandTest, WhatCantBeWrittenEndsWith1) {
  ScenarioFile file(pair + "run 1\n");
  RunResult run = sim({.file = file.path(), .pcapFolder = "/dev/null/links"});
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("/dev/null/links"), EndsWith("\n")));
  std::string line = PIMBSR_COMMAND " sim " + example + " >/dev/full 2>/dev/null";
  EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 1);
}

}  // namespace
}  // namespace pimbsr::cli
