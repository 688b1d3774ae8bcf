#include "cli/base/LimitOption.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "agent/config/ConfigKeys.h"
#include "cli/base/Errors.h"
#include "cli/replay/ReplayOptions.h"
#include "cli/sim/SimCommand.h"
#include "host/Limits.h"
#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

using host::IngressSettings;
using host::standardLimits;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(LimitOptionTest, EveryLimitOfTheFileCanBeSet) {
  std::size_t keys = 0;
  for (agent::ConfigKey const& key : agent::configKeys()) keys += key.section == "limits";
  EXPECT_EQ(keys, host::limits().size());
  for (host::Limit const& limit : host::limits()) {
    IngressSettings limits = standardLimits;
    parseLimit(std::string(limit.name) + "=0", limits);
    EXPECT_EQ(limits.*limit.value, 0u);
    parseLimit(std::string(limit.name) + "=7", limits);
    EXPECT_EQ(limits.*limit.value, 7u);
    limits.*limit.value = standardLimits.*limit.value;
    EXPECT_EQ(limits, standardLimits) << limit.name;
  }
}

TEST(LimitOptionTest, StandardLimitsAreTheDefaultsOfTheFileAndOfEveryProgram) {
  for (host::Limit const& limit : host::limits())
    EXPECT_EQ(std::to_string(standardLimits.*limit.value), limit.key->fallback);
  IngressSettings limits;
  copyLimits(SimOptions().ingress, limits);
  EXPECT_EQ(limits, standardLimits);
  copyLimits(ReplayOptions().router.ingress, limits);
  EXPECT_EQ(limits, standardLimits);
  EXPECT_EQ(host::RouterOptions().ingress, IngressSettings());
}

TEST(LimitOptionTest, NoneTakesAllBoundsAwayAndLeavesTheChecks) {
  IngressSettings limits = standardLimits;
  limits.onSubnet = true;
  parseLimit("none", limits);
  EXPECT_EQ(limits, (IngressSettings{.onSubnet = true}));
  parseLimit("rps=5", limits);
  EXPECT_EQ(limits.rps, 5u);
}

TEST(LimitOptionTest, WrongTextIsExplained) {
  struct Case {
    std::string text;
    std::string error;
  };
  Case const cases[] = {
      {"", "--limit: '' is neither KEY=N nor none"},
      {"rps", "--limit: 'rps' is neither KEY=N nor none"},
      {"rp=5", "--limit: rp: "},
      {"=5", "--limit: : "},
      {"rps=", "--limit: rps: '' is not valid; valid is a whole number from 0 to 4294967295"},
      {"rps=-1", "--limit: rps: '-1' is not valid"},
      {"rps=5 ", "--limit: rps: '5 ' is not valid"},
      {"rps=4294967296", "--limit: rps: '4294967296' is not valid"},
      {"rps-per-range=256", "rps-per-range: '256' is not valid; valid is a whole number from 0 to 255"},
  };
  for (Case const& one : cases) {
    IngressSettings limits = standardLimits;
    EXPECT_THAT([&] { parseLimit(one.text, limits); }, ThrowsMessage<UsageError>(HasSubstr(one.error)));
    EXPECT_EQ(limits, standardLimits) << one.text;
  }
}

TEST(LimitOptionTest, CommandsTakeLimitsAndRejectWrongOnes) {
  std::string const scenario = test::sourceFile("examples/five-routers.sim");
  EXPECT_EQ(test::command("sim --limit rps-per-range=1 --limit rps=0 " + scenario).code, 0);
  EXPECT_EQ(test::command("sim --limit none " + scenario).code, 0);
  test::RunResult wrong = test::command("sim --limit colour=1 " + scenario);
  EXPECT_EQ(wrong.code, 2);
  EXPECT_THAT(wrong.err, HasSubstr("pimbsr: --limit: colour: "));
  EXPECT_EQ(test::command("sim --random 1 --limit rps=1").code, 2);
  std::string const capture = test::sourceFile("examples/two-scopes.pcap");
  EXPECT_EQ(test::command("replay --limit none " + capture).out, test::command("replay " + capture).out);
  EXPECT_THAT(test::command("replay --limit rps=1 " + capture).out, HasSubstr("rp-quota"));
}

/// A BSR and a stranger's advertisements in a range that may hold one RP.
TEST(LimitOptionTest, SimulatedRoutersKeepToTheLimits) {
  std::string const path = testing::TempDir() + "limits.sim";
  std::ofstream(path) << "link lan prefix 192.0.2.0/24\nrouter r1\ninterface r1 lan 192.0.2.1\n"
                         "candidate-bsr r1 global\nrun 200\n"
                         "inject lan crp-adv from 192.0.2.7 to 192.0.2.1\n"
                         "inject lan crp-adv from 192.0.2.8 to 192.0.2.1\nrun 1\n";
  EXPECT_THAT(test::command("sim --limit rps-per-range=1 " + path).out, HasSubstr("range-full"));
  EXPECT_THAT(test::command("sim " + path).out, testing::Not(HasSubstr("range-full")));
}

}  // namespace
}  // namespace pimbsr::cli
