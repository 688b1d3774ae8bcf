#include "agent/base/LogLimit.h"

#include <gmock/gmock.h>

#include <string>

#include "agent/base/LogEvents.h"

namespace test {
namespace {

using pimbsr::agent::LogLimit;
using pimbsr::agent::LogRecord;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace logEvents = pimbsr::agent::logEvents;

LogRecord changed(std::string const& zone, std::string const& text = "changed") {
  return {.event = logEvents::bsrChanged, .subject = {{"ZONE", zone}}, .text = text};
}

class LogLimitTest : public testing::Test {
 protected:
  /// How many of so many lines pass at one time.
  int passed(int count, std::string const& zone, double now) {
    int passed = 0;
    for (int i = 0; i < count; ++i) passed += limit.take(changed(zone), now) ? 1 : 0;
    return passed;
  }

  LogLimit limit;
};

TEST_F(LogLimitTest, FloodPassesABurstAndThenALineEachInterval) {
  EXPECT_EQ(passed(9000, "224.0.0.0/4", 100), 5);
  EXPECT_TRUE(limit.holdsBack());
  EXPECT_THAT(limit.takeDue(109), IsEmpty());
  EXPECT_THAT(limit.takeDue(110), SizeIs(1));
  EXPECT_FALSE(limit.holdsBack());
  EXPECT_EQ(passed(9000, "224.0.0.0/4", 111), 0);
  EXPECT_THAT(limit.takeDue(120), SizeIs(1));
}

TEST_F(LogLimitTest, LineThatWasHeldBackLastIsWrittenWithTheNumberOfOthers) {
  for (int i = 0; i < 10; ++i) limit.take(changed("224.0.0.0/4", "now " + std::to_string(i)), 100);
  std::vector<LogRecord> due = limit.takeDue(110);
  ASSERT_THAT(due, SizeIs(1));
  EXPECT_EQ(due[0].text, "now 9 (10 s ago; 4 lines before this one were suppressed in 1 s)");
  EXPECT_EQ(due[0].event.name, "bsr-changed");
  for (int i = 0; i < 1; ++i) limit.take(changed("224.0.0.0/4", "alone"), 111);
  EXPECT_EQ(limit.takeDue(130).at(0).text, "alone (19 s ago)");
}

TEST_F(LogLimitTest, FloodAboutOneSubjectHidesNoOther) {
  passed(9000, "224.0.0.0/4", 100);
  EXPECT_EQ(passed(1, "239.1.0.0/16", 100), 1);
  LogRecord emptied = changed("224.0.0.0/4");
  emptied.event = logEvents::rpSetEmptied;
  EXPECT_TRUE(limit.take(emptied, 100)) << "another kind";
}

TEST_F(LogLimitTest, LinesWithoutASubjectAreLimitedByTheirText) {
  auto note = [](std::string const& text) {
    return LogRecord{.event = logEvents::note, .subject = {}, .text = text};
  };
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(limit.take(note("one"), 100));
  EXPECT_FALSE(limit.take(note("one"), 100));
  EXPECT_TRUE(limit.take(note("other"), 100));
}

TEST_F(LogLimitTest, SubjectsThatAStrangerChoosesDoNotSumUp) {
  int lines = 0;
  for (int i = 0; i < 9000; ++i) lines += passed(1, "zone " + std::to_string(i), 100);
  EXPECT_EQ(lines, 50);
  EXPECT_THAT(limit.takeDue(110), SizeIs(10)) << "one more each second";
  LogRecord emptied = changed("zone 0");
  emptied.event = logEvents::rpSetEmptied;
  EXPECT_TRUE(limit.take(emptied, 110)) << "another kind";
}

TEST_F(LogLimitTest, SubjectsBeyondTheBoundShareOneLimit) {
  for (int i = 0; i < 256; ++i) passed(1, "zone " + std::to_string(i), 100);
  int lines = 0;
  for (int i = 0; i < 20; ++i) lines += passed(1, "other " + std::to_string(i), 149);
  EXPECT_EQ(lines, 5);
  EXPECT_EQ(passed(1, "zone 0", 149), 1) << "known ones keep their own";
}

TEST_F(LogLimitTest, SubjectThatWasIdleMakesRoom) {
  for (int i = 0; i < 256; ++i) EXPECT_EQ(passed(1, "zone " + std::to_string(i), 100 + i), 1);
  EXPECT_EQ(passed(9, "zone 255", 356), 4) << "it has a limit of its own";
  EXPECT_EQ(passed(9, "new", 356), 5) << "in place of zone 0";
  EXPECT_EQ(passed(9, "newer", 356), 5) << "in place of zone 1";
}

TEST_F(LogLimitTest, StateOfNowIsWrittenLastWithItsAge) {
  LogRecord up{.event = logEvents::neighborUp, .subject = {{"NEIGHBOR", "10.0.0.1"}}, .text = "up"};
  LogRecord down{.event = logEvents::neighborDown, .subject = up.subject, .text = "down"};
  for (int i = 0; i < 10; ++i) {
    limit.take(up, 100 + i * 0.1);
    limit.take(down, 100 + i * 0.1);
  }
  for (int i = 0; i < 5; ++i) limit.take(changed("239.1.0.0/16"), 103);
  limit.take(changed("239.1.0.0/16", "later"), 104);
  std::vector<std::string> texts;
  for (LogRecord const& record : limit.takeDue(115)) texts.push_back(record.text);
  EXPECT_THAT(texts, ElementsAre("down (14 s ago; 14 lines before this one were suppressed in 1 s)",
                                 "later (11 s ago)"));
}

TEST_F(LogLimitTest, AllThatIsHeldBackIsWrittenAtTheEnd) {
  passed(9, "224.0.0.0/4", 100);
  passed(9, "239.1.0.0/16", 100);
  EXPECT_THAT(limit.takeAll(101), SizeIs(2));
  EXPECT_FALSE(limit.holdsBack());
}

}  // namespace
}  // namespace test
