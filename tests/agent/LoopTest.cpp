#include "agent/base/Loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <limits>
#include <memory>
#include <vector>

#include "agent/base/Clock.h"

namespace test {
namespace {

using pimbsr::agent::Clock;
using pimbsr::agent::Loop;
using pimbsr::agent::LoopReader;
using pimbsr::agent::LoopSignal;
using pimbsr::agent::LoopTimer;

TEST(LoopTest, TimersGoOffOnceInTheirOrderAndNotBeforeTheirTime) {
  Loop loop;
  std::vector<int> order;
  auto start = std::chrono::steady_clock::now();
  LoopTimer late(loop, [&] {
    order.push_back(2);
    loop.stop();
  });
  LoopTimer soon(loop, [&] { order.push_back(1); });
  late.startIn(0.012);
  soon.startIn(-5);
  loop.run();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(12));
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_FALSE(soon.isRunning());
}

TEST(LoopTest, TimerThatIsStoppedOrNeverDueDoesNotGoOff) {
  Loop loop;
  bool fired = false;
  LoopTimer stopped(loop, [&] { fired = true; });
  LoopTimer never(loop, [&] { fired = true; });
  LoopTimer end(loop, [&] { loop.stop(); });
  stopped.startIn(0);
  stopped.stop();
  never.startIn(0);
  never.startIn(std::numeric_limits<double>::infinity());
  end.startIn(0.003);
  loop.run();
  EXPECT_FALSE(fired);
}

TEST(LoopTest, ReaderIsCalledWhileThereIsSomethingToRead) {
  Loop loop;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::string text;
  LoopReader reader(loop, ends[0], [&] {
    char byte = 0;
    if (read(ends[0], &byte, 1) == 1) text += byte;
    if (text.size() == 3) loop.stop();
  });
  ASSERT_EQ(write(ends[1], "abc", 3), 3);
  loop.run();
  EXPECT_EQ(text, "abc");
  close(ends[0]);
  close(ends[1]);
}

TEST(LoopTest, HandlerMayTakeDownWhatCalledIt) {
  Loop loop;
  std::unique_ptr<LoopTimer> timer;
  timer = std::make_unique<LoopTimer>(loop, [&] {
    loop.stop();
    timer = nullptr;
  });
  timer->startIn(0);
  loop.run();
  EXPECT_EQ(timer, nullptr);
}

TEST(LoopTest, SignalCallsItsHandlerInsideTheLoop) {
  Loop loop;
  int count = 0;
  LoopSignal hangup(loop, SIGHUP, [&] {
    ++count;
    loop.stop();
  });
  raise(SIGHUP);
  EXPECT_EQ(count, 0);
  loop.run();
  EXPECT_EQ(count, 1);
}

TEST(ClockTest, RateMakesTimePassFasterFromWallTimeOn) {
  double wall = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  Clock fast(1000);
  EXPECT_NEAR(fast.now(), wall, 50);
  double first = fast.now();
  auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(5)) {
  }
  EXPECT_GE(fast.now() - first, 5);
  EXPECT_EQ(fast.realSpan(30), 0.03);
}

}  // namespace
}  // namespace test
