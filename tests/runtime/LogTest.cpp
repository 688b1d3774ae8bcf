#include "runtime/Log.h"

#include <string>
#include <vector>

#include "tests/support/TestContext.h"

namespace test {
namespace {

using Zet::LogHandle;
using Zet::LogSeverity;
using Texts = std::vector<std::string>;

class Log : public ModelTest {
 protected:
  /// What comes through of so many messages at this time after the start.
  std::size_t through(LogHandle const& handle, int messages, double seconds) {
    context.nowIs(Zet::Context::firstTime + seconds);
    context.logs.clear();
    for (int i = 0; i < messages; ++i) Zet::log(handle, "zone");
    return context.logs.size();
  }
};

TEST_F(Log, AHandleKeepsWhatItWasMadeWith) {
  static LogHandle const handle("TEST_KEEPS", LogSeverity::warning, "f %s", "why", "what to do", 10.0, 3.0,
                                2);
  EXPECT_STREQ(handle.name(), "TEST_KEEPS");
  EXPECT_EQ(handle.severity(), LogSeverity::warning);
  EXPECT_EQ(static_cast<int>(LogSeverity::warning), 4);
  EXPECT_STREQ(handle.format(), "f %s");
  EXPECT_STREQ(handle.explanation(), "why");
  EXPECT_STREQ(handle.recommendedAction(), "what to do");
  EXPECT_EQ(handle.rateFlags(), 2);
}

TEST_F(Log, TheArgumentIsPutIntoTheFormat) {
  static LogHandle const handle("TEST_FORMAT", LogSeverity::error, "lost %s, again", "", "", 0, 0, 0);
  Zet::log(handle, "239.0.0.0/8");
  EXPECT_EQ(context.logs, (Texts{"lost 239.0.0.0/8, again"}));
}

TEST_F(Log, AnIntervalOfZeroLimitsNothing) {
  static LogHandle const handle("TEST_FREE", LogSeverity::error, "%s", "", "", 0, 0, 0);
  EXPECT_EQ(through(handle, 1000, 0), 1000u);
}

TEST_F(Log, ABurstComesThroughAndThenOnePerInterval) {
  static LogHandle const handle("TEST_BURST", LogSeverity::error, "%s", "", "", 10, 3, 0);
  EXPECT_EQ(through(handle, 5, 0), 3u);
  EXPECT_EQ(through(handle, 5, 9), 0u);
  EXPECT_EQ(through(handle, 5, 10), 1u);
  EXPECT_EQ(through(handle, 5, 32), 2u);
}

TEST_F(Log, SilenceSavesUpNoMoreThanTheBurst) {
  static LogHandle const handle("TEST_SAVES", LogSeverity::error, "%s", "", "", 10, 3, 0);
  EXPECT_EQ(through(handle, 5, 0), 3u);
  EXPECT_EQ(through(handle, 9, 100000), 3u);
}

TEST_F(Log, EachHandleAndEachContextHasItsOwnLimit) {
  static LogHandle const one("TEST_ONE", LogSeverity::error, "%s", "", "", 10, 1, 0);
  static LogHandle const two("TEST_TWO", LogSeverity::error, "%s", "", "", 10, 1, 0);
  EXPECT_EQ(through(one, 2, 0), 1u);
  EXPECT_EQ(through(two, 2, 0), 1u);
  TestContext other;
  Zet::Context::Scope scope(other);
  for (int i = 0; i < 2; ++i) Zet::log(one, "zone");
  EXPECT_EQ(other.logs.size(), 1u);
}

}  // namespace
}  // namespace test
