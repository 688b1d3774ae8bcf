#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "agent/base/Version.h"
#include "host/Configuration.keys.h"
#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::RunResult;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string const example = test::sourceFile("examples/two-scopes.pcap");

TEST(CommandTest, VersionIsPrinted) {
  RunResult run = test::command("--version");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, std::string("pimbsr ") + pimbsr::agent::version + "\n");
}

TEST(CommandTest, HelpNamesEveryOption) {
  EXPECT_THAT(test::command("--help").out, AllOf(HasSubstr("Bootstrap Router"), HasSubstr("replay")));
  RunResult run = test::command("replay --help");
  EXPECT_EQ(run.code, 0);
  for (char const* option :
       {"FILE", "--json", "--until", "--bs-timeout", "--sz-timeout", "--rpf", "--trace", "Exit status"}) {
    EXPECT_THAT(run.out, HasSubstr(option));
  }
}

TEST(CommandTest, HelpNamesThePagesForOperators) {
  std::string const help = test::command("--help").out;
  for (std::string const page : {"docs/operations.md", "docs/troubles.md"}) {
    EXPECT_THAT(help, HasSubstr(page));
    EXPECT_TRUE(std::filesystem::exists(test::sourceFile(page))) << page;
  }
}

TEST(CommandTest, HelpHasTheDeclaredRangesAndDefaults) {
  std::string help = test::command("replay --help").out;
  for (host::ConfigKey const& key : {host::TimeoutsKeys::bsTimeout, host::TimeoutsKeys::szTimeout}) {
    EXPECT_THAT(help, HasSubstr(fmt::format("{} to {}", key.least, key.most)));
    EXPECT_THAT(help, HasSubstr(fmt::format("(default {})", key.fallback)));
  }
  EXPECT_THAT(help, HasSubstr(fmt::format("0 to {}", maxUntil)));
}

TEST(CommandTest, ReplayPrintsWhatItDoesInProcess) {
  RunResult run = test::command("replay " + example);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.out, test::replay(example).out);
  EXPECT_EQ(run.err, "");
}

TEST(CommandTest, EveryOptionReachesTheReplay) {
  ReplayOptions options;
  options.file = example;
  options.delivery.json = true;
  options.until = 60.5;
  options.router.bsTimeout = 40;
  options.router.szTimeout = 120;
  parseRpf("198.51.100.1=192.0.2.2", options);
  parseRpf("198.51.100.3=192.0.2.2", options);
  options.traces = {parseTraceRequest("Pim::Bsr::IO:1"), parseTraceRequest("Pim::Bsr::NonCandidateSm:8")};
  RunResult here = test::replay(options);
  RunResult there = test::command(
      "replay --json --until 60.5 --bs-timeout 40 --sz-timeout 120 --rpf 198.51.100.1=192.0.2.2 "
      "--rpf 198.51.100.3=192.0.2.2 --trace Pim::Bsr::IO:1 --trace Pim::Bsr::NonCandidateSm:8 " +
      example);
  EXPECT_EQ(there.code, 0);
  EXPECT_EQ(there.out, here.out);
  EXPECT_EQ(there.err, here.err);
  EXPECT_NE(here.err, "");
}

TEST(CommandTest, RepeatableOptionTakesOneValueAtATime) {
  RunResult run = test::command("replay --rpf 198.51.100.1=192.0.2.1 --trace Zet:1 " + example);
  EXPECT_EQ(run.code, 0) << run.err;
}

TEST(CommandTest, WrongArgumentsEndWith2AndSayWhatIsValid) {
  struct Case {
    char const* arguments;
    char const* text;
  };
  Case const cases[] = {
      {"", "a subcommand is required"},
      {"play", "play"},
      {"replay", "FILE"},
      {"replay --colour FILE", "--colour"},
      {"replay one two", "two"},
      {"replay --until", "--until"},
      {"replay --until soon FILE", "--until: 'soon' is no number of seconds from 0 to 4294967295"},
      {"replay --bs-timeout 11 FILE",
       "--bs-timeout: '11' is no whole number of seconds from 12 to 1073741823"},
      {"replay --sz-timeout 119 FILE", "no whole number of seconds from 120 to 4294967295"},
      {"replay --hold-time 60 FILE", "--hold-time is now called --bs-timeout"},
      {"replay --zone-timeout 600 FILE", "--zone-timeout is now called --sz-timeout"},
      {"replay --rpf 198.51.100.1 FILE", "no BSR=NEIGHBOR"},
      {"replay --trace Pim:3 FILE", "there is no handle 'Pim'; handles are "},
      {"run --on-change true --on-change-timeout nan",
       "--on-change-timeout: 'nan' is no number from 1 to 3600"},
      {"run --on-change true --on-change-timeout inf",
       "--on-change-timeout: 'inf' is no number from 1 to 3600"},
      {"run --on-change true --on-change-timeout 0.9", "'0.9' is no number from 1 to 3600"},
      {"run --on-change-timeout 5", "--on-change-timeout requires --on-change"},
      {"run --on-change ''", "--on-change: the command is empty; leave the option out for none"},
      {"run --clock-rate 1001", "--clock-rate: '1001' is no number from 1 to 1000"},
      {"replay --trace Zet FILE", "no HANDLE:LEVEL with a level from 0 to 9"},
  };
  for (Case const& one : cases) {
    RunResult run = test::command(one.arguments);
    EXPECT_EQ(run.code, 2) << one.arguments;
    EXPECT_EQ(run.out, "") << one.arguments;
    EXPECT_THAT(run.err, HasSubstr(one.text)) << one.arguments;
  }
}

TEST(CommandTest, ErrorEndsWith1) {
  RunResult run = test::command("replay " + test::capture("zero-bytes.pcap"));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.err, StartsWith("pimbsr: "));
}

TEST(CommandTest, FullDeviceEndsWith1) {
  std::string line = PIMBSR_COMMAND " replay " + example + " >/dev/full 2>/dev/null";
  EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 1);
}

TEST(ExamplesTest, CapturesAreWhatTheirScriptWrites) {
  std::string script = "python3 -B " + test::sourceFile("examples/make_capture.py") + " --check";
  EXPECT_EQ(std::system(script.c_str()), 0);
}

}  // namespace
}  // namespace pimbsr::cli
