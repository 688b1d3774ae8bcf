#include "sim/Spans.h"

#include <gmock/gmock.h>

#include "host/Machines.h"
#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace pimbsr::sim {
namespace {

using test::Script;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// Tracks ----------------------------------------------------------------------------------------------

std::string show(Track<int> const& track) {
  std::string text;
  for (auto const& span : track.spans()) text += fmt::format("{}-{}: {} ", span.start, span.end, span.value);
  return text;
}

struct Step {
  double time;
  int value;  ///< 0 for none
};

TEST(TrackTest, SpansAreNeverEmptyAndTouchingOnesDiffer) {
  std::vector<std::pair<std::vector<Step>, char const*>> const cases = {
      {{{0, 0}}, ""},
      {{{0, 1}, {5, 0}}, "0-5: 1 "},
      {{{0, 1}, {5, 2}, {7, 0}}, "0-5: 1 5-7: 2 "},
      {{{0, 1}, {5, 1}, {7, 0}}, "0-7: 1 "},
      {{{0, 1}, {3, 0}, {5, 1}, {7, 0}}, "0-3: 1 5-7: 1 "},
      {{{0, 1}, {3, 0}, {3, 1}, {7, 0}}, "0-7: 1 "},
      {{{0, 1}, {3, 2}, {3, 1}, {7, 0}}, "0-7: 1 "},
      {{{0, 1}, {3, 2}, {3, 3}, {7, 0}}, "0-3: 1 3-7: 3 "},
      {{{2, 1}, {2, 0}, {4, 0}}, ""},
  };
  for (auto const& [steps, spans] : cases) {
    Track<int> track;
    for (Step const& step : steps) {
      step.value == 0 ? track.valueDel(step.time) : track.valueIs(step.time, step.value);
    }
    EXPECT_EQ(show(track), spans);
  }
}

// Recorder --------------------------------------------------------------------------------------------

/// A run that is recorded, on links of one millisecond.
class SpanRecorderTest : public testing::Test {
 protected:
  void play(std::string const& text) {
    script_.simulation.recorderIs(&recorder_, SpanRecorder::kinds);
    script_.simulation.execute(text);
    recorder_.end(script_.simulation.network().now());
  }
  static std::vector<std::string> show(Track<bool> const& track) {
    std::vector<std::string> made;
    for (auto const& span : track.spans())
      made.push_back(fmt::format("{}-{} {}", span.start, span.end, span.value ? "up" : "down"));
    return made;
  }
  std::vector<std::string> bsrs(U32 node, std::string const& zone = "224.0.0.0/4") const {
    std::vector<std::string> made;
    for (auto const& span : recorder_.nodes()[node].zones.at(test::prefix(zone)).bsr.spans())
      made.push_back(fmt::format("{:.1f}-{:.1f} {}{}", span.start, span.end,
                                 span.value.address.stringValue().view(), span.value.own ? " own" : ""));
    return made;
  }
  std::vector<std::string> states(U32 node, std::string const& zone = "224.0.0.0/4") const {
    std::vector<std::string> made;
    for (auto const& span : recorder_.nodes()[node].zones.at(test::prefix(zone)).state.spans())
      made.push_back(fmt::format("{:.1f}-{:.1f} {}", span.start, span.end, host::nameOf(span.value)));
    return made;
  }

  Script script_;
  SpanRecorder recorder_;
};

TEST_F(SpanRecorderTest, RoutersAndLinksAreUpOrDownFromTheirStatementOn) {
  play(test::row(2) +
       "router late stopped\nat 10 down l1\nat 20 up l1\nat 20 stop r1\nat 30 crash r2\nat 40 start r1\n"
       "at 40 start late\nrun 50");
  EXPECT_THAT(show(recorder_.links()[0]), ElementsAre("0-10 up", "10-20 down", "20-50 up"));
  EXPECT_THAT(show(recorder_.nodes()[0].running), ElementsAre("0-20 up", "20-40 down", "40-50 up"));
  EXPECT_THAT(show(recorder_.nodes()[1].running), ElementsAre("0-30 up", "30-50 down"));
  EXPECT_THAT(show(recorder_.nodes()[2].running), ElementsAre("0-40 down", "40-50 up"));
}

TEST_F(SpanRecorderTest, WhatIsMadeLaterHasNoSpanBefore) {
  play("run 10\nlink lan prefix 192.0.2.0/24\nrouter r1\nrun 10");
  EXPECT_THAT(show(recorder_.links()[0]), ElementsAre("10-20 up"));
  EXPECT_THAT(show(recorder_.nodes()[0].running), ElementsAre("10-20 up"));
}

TEST_F(SpanRecorderTest, BsrAndStateEndWithTheirRouterAndStartAnew) {
  play(test::row(1) + "candidate-bsr r1 global\nat 200 crash r1\nat 400 start r1\nrun 500");
  std::vector<std::string> claims = states(0);
  ASSERT_EQ(claims.size(), 4u);
  EXPECT_THAT(claims[0], StartsWith("0.0-"));
  EXPECT_THAT(claims[1], testing::EndsWith("-200.0 Elected-BSR"));
  EXPECT_THAT(claims[2], StartsWith("400.0-"));
  EXPECT_THAT(claims[3], testing::EndsWith("-500.0 Elected-BSR"));
  ASSERT_EQ(bsrs(0).size(), 2u);
  EXPECT_THAT(bsrs(0)[0], testing::EndsWith("-200.0 10.0.0.1 own"));
  EXPECT_THAT(bsrs(0)[1], testing::EndsWith("-500.0 10.0.0.1 own"));
}

TEST_F(SpanRecorderTest, AnotherRouterFollowsABsrUntilItExpires) {
  play(test::row(2) + "candidate-bsr r1 global\nat 200 crash r1\nrun 400");
  ASSERT_EQ(bsrs(1).size(), 1u);
  auto const& span = recorder_.nodes()[1].zones.at(test::prefix("224.0.0.0/4")).bsr.spans()[0];
  // The last message came at most 60 seconds before the crash, and lasts 130 seconds.
  EXPECT_GE(span.end, 270);
  EXPECT_LE(span.end, 330.01);
  EXPECT_FALSE(span.value.own);
}

TEST_F(SpanRecorderTest, SpanEndsWhereAnotherBsrIsFollowedAndGoesOnWhereItsPriorityChanges) {
  play(test::row(2) +
       "candidate-bsr r1 global priority 10\nrun 100\ncandidate-bsr r1 global priority 20\nrun 100\n"
       "candidate-bsr r2 global priority 30\nrun 100");
  std::vector<std::string> seen = bsrs(0);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_THAT(seen[0], testing::EndsWith(" 10.0.0.1 own"));
  EXPECT_THAT(seen[1], testing::EndsWith("-300.0 10.0.0.2"));
  EXPECT_EQ(recorder_.nodes()[0].zones.begin()->second.bsr.spans()[0].end,
            recorder_.nodes()[0].zones.begin()->second.bsr.spans()[1].start);
}

TEST_F(SpanRecorderTest, StateEndsWithTheCandidacy) {
  play(test::row(1) + "candidate-bsr r1 global\nat 100 no candidate-bsr r1 global\nrun 200");
  EXPECT_THAT(states(0).back(), testing::EndsWith("-100.0 Elected-BSR"));
  EXPECT_THAT(bsrs(0).back(), testing::EndsWith("-100.0 10.0.0.1 own"));
}

TEST_F(SpanRecorderTest, ABsrThatIsStillKnownGoesOnAfterTheCandidacy) {
  play(test::row(2) +
       "candidate-bsr r1 global priority 100\ncandidate-bsr r2 global priority 50\nrun 100\n"
       "no candidate-bsr r2 global\nrun 100");
  EXPECT_THAT(states(1).back(), testing::EndsWith("-100.0 Candidate-BSR"));
  EXPECT_THAT(bsrs(1).back(), testing::EndsWith("-200.0 10.0.0.1"));
}

TEST_F(SpanRecorderTest, ScenarioThatReportsNothingIsRecordedAllTheSame) {
  play("quiet all\n" + test::row(1) + "candidate-bsr r1 239.1.0.0/16\nrun 100");
  EXPECT_THAT(script_.diary.lines, IsEmpty());
  EXPECT_FALSE(states(0, "239.1.0.0/16").empty());
  EXPECT_FALSE(bsrs(0, "239.1.0.0/16").empty());
}

TEST_F(SpanRecorderTest, RecorderChangesNothingOfWhatIsReported) {
  std::string text = test::row(3) +
                     "candidate-bsr r1 global priority 10\ncandidate-bsr r3 global priority 20\n"
                     "candidate-rp r2 global\nfaults loss 20%\nreport all\nat 300 crash r3\nrun 600";
  play(text);
  EXPECT_EQ(script_.diary.lines, Script(text).diary.lines);
}

}  // namespace
}  // namespace pimbsr::sim
