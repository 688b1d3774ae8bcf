#include <gtest/gtest.h>

#include <cctype>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "cli/base/CorrectionsOption.h"
#include "cli/replay/ReplayText.h"
#include "tests/cli/CliSupport.h"

namespace pimbsr::cli {
namespace {

struct Case {
  char const* golden;
  char const* file;
  bool json = false;
  double until = 0;
  bool hasTimeline = true;  ///< in the golden document
};

/// A document without its timeline, which would be thousands of lines; ReplayJsonTest has its content.
std::string withoutTimeline(std::string const& text) {
  auto document = nlohmann::ordered_json::parse(text);
  document.erase("timeline");
  return document.dump(2) + "\n";
}

class GoldenTest : public testing::TestWithParam<Case> {};

TEST_P(GoldenTest, ReplayPrintsWhatItPrinted) {
  ReplayOptions options;
  options.file = test::sourceFile(GetParam().file);
  options.delivery.json = GetParam().json;
  options.until = GetParam().until;
  exactIs(options.router.ingress, options.router.corrections);
  test::RunResult run = test::replay(options);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.err, "");
  test::expectGolden(GetParam().golden, GetParam().hasTimeline ? run.out : withoutTimeline(run.out));
}

INSTANTIATE_TEST_SUITE_P(
    Captures, GoldenTest,
    testing::Values(Case{"replay-two-scopes.txt", "examples/two-scopes.pcap"},
                    Case{.golden = "replay-two-scopes.json",
                         .file = "examples/two-scopes.pcap",
                         .json = true,
                         .hasTimeline = false},
                    Case{"replay-two-scopes-1500.txt", "examples/two-scopes.pcap", false, 1500},
                    Case{"replay-few.txt", "tests/cli/captures/few-ethernet.pcap"},
                    Case{"replay-few.json", "tests/cli/captures/few-ethernet.pcap", true},
                    Case{"replay-few-snapped.txt", "tests/cli/captures/few-snapped.pcap"},
                    Case{"replay-time-runs-back.txt", "tests/cli/captures/time-runs-back.pcap"},
                    Case{"replay-no-pim.json", "tests/cli/captures/no-pim.pcap", true}),
    [](auto const& instance) {
      std::string name = instance.param.golden;
      for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
      return name;
    });

TEST(SummaryTest, ExceptionsInsideTheEngineAreConfessed) {
  ReplayResult result;
  std::ostringstream out;
  writeSummary(out, result);
  EXPECT_EQ(out.str().find("exceptions"), std::string::npos);
  result.exceptions = 3;
  writeSummary(out, result);
  EXPECT_NE(out.str().find("The engine caught 3 exceptions inside"), std::string::npos);
}

}  // namespace
}  // namespace pimbsr::cli
