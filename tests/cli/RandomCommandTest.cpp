#include "cli/sim/RandomCommand.h"

#include <gmock/gmock.h>

#include <sstream>

#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using test::RunResult;

RunResult random(RandomOptions const& options) {
  std::ostringstream out;
  std::ostringstream err;
  int code = simulateRandom(options, out, err);
  return {code, out.str(), err.str()};
}

TEST(RandomCommandTest, LastLineSumsUp) {
  RunResult run = random({.trials = 2, .fewest = 4, .most = 6, .firstSeed = 3});
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.out,
              testing::MatchesRegex("2 random networks of 4 to 6 routers from seed 3, [0-9]+ events: "
                                    "all agreed.\n"));
}

TEST(RandomCommandTest, TheFirstOfAllFailuresIsExplainedAndTheCommandFails) {
  RandomOptions options{.trials = 6, .fewest = 5, .most = 5};
  options.ingress.rps = 1;  // fewer than most of these networks have
  RunResult run = random(options);
  EXPECT_EQ(run.code, exitFailed);
  EXPECT_THAT(run.out, testing::ContainsRegex("^Seed [1-6] with 5 routers is not as it must be:\n  "));
  EXPECT_THAT(run.out, testing::ContainsRegex("\n  healed: r[0-4] misses RP "));
  EXPECT_THAT(run.out, testing::HasSubstr("\nIts scenario\nstorm-limit "));
  EXPECT_THAT(run.out, testing::HasSubstr("\nIts course\n"));
  EXPECT_EQ(run.out.find("Seed "), run.out.rfind("Seed ")) << "one is explained";
  EXPECT_THAT(run.out, testing::ContainsRegex(" events: [2-6] failed, of seed [1-6](, [1-6])+\\.\n$"))
      << "all are listed";
}

TEST(RandomCommandTest, SameSeedsGiveTheSameCourse) {
  RandomOptions options{.trials = 2, .fewest = 4, .most = 6};
  EXPECT_EQ(random(options).out, random(options).out);
  RunResult other = random({.trials = 2, .fewest = 4, .most = 6, .firstSeed = 100});
  EXPECT_NE(random(options).out, other.out);
}

TEST(RandomCommandTest, RoutersAreANumberOrASpan) {
  struct Case {
    char const* text;
    Zet::U32 fewest;
    Zet::U32 most;
  };
  for (Case const& c : {Case{"2", 2, 2}, {"2000", 2000, 2000}, {"10-50", 10, 50}, {"7-7", 7, 7}}) {
    RandomOptions options;
    parseRouters(c.text, options);
    EXPECT_EQ(options.fewest, c.fewest) << c.text;
    EXPECT_EQ(options.most, c.most) << c.text;
  }
}

TEST(RandomCommandTest, TextThatIsNoNumberOfRoutersIsRejected) {
  for (char const* text :
       {"", "1", "2001", "10-", "-10", "50-10", "10-2001", "1-10", "10-20-30", "ten", "+5"}) {
    RandomOptions options;
    EXPECT_THROW(parseRouters(text, options), UsageError) << text;
  }
}

TEST(RandomCommandTest, TrialsAreAtLeastOne) {
  EXPECT_EQ(parseTrials("1000"), 1000u);
  for (char const* text : {"", "0", "-1", "1000001", "1e3", "many"})
    EXPECT_THROW(parseTrials(text), UsageError) << text;
}

TEST(RandomCommandTest, RandomTakesThePlaceOfAScenario) {
  for (char const* arguments : {"sim", "sim --random 1 examples/five-routers.sim", "sim --random 1 --json",
                                "sim --routers 5", "sim --random 0", "sim --random 1 --routers 1"}) {
    RunResult run = test::command(arguments);
    EXPECT_EQ(run.code, 2) << arguments;
    EXPECT_NE(run.err, "") << arguments;
  }
}

}  // namespace
}  // namespace pimbsr::cli
