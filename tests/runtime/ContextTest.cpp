#include "runtime/Context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <thread>

#include "runtime/Log.h"

namespace {

using Zet::Context;

TEST(Context, AClockStartsFarFromZero) {
  Context context;
  EXPECT_EQ(context.now(), 1e9);
  Context::Scope scope(context);
  EXPECT_EQ(Zet::now(), 1e9);
}

TEST(Context, TheClockNeverRunsBackwards) {
  Context context;
  Context::Scope scope(context);
  context.nowIs(2e9);
  EXPECT_EQ(Zet::now(), 2e9);
  for (double time : {1e9, 0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    context.nowIs(time);
    EXPECT_EQ(Zet::now(), 2e9);
  }
}

TEST(Context, AScopeEntersAContextAndLeavesToTheFormerOne) {
  Context outer, inner;
  Context::Scope first(outer);
  EXPECT_EQ(&Context::current(), &outer);
  {
    Context::Scope second(inner);
    EXPECT_EQ(&Context::current(), &inner);
  }
  EXPECT_EQ(&Context::current(), &outer);
}

TEST(Context, EachThreadHasAPlainOneOfItsOwn) {
  Context* here = &Context::current();
  EXPECT_EQ(&Context::current(), here);
  Context* there = nullptr;
  double time = 0;
  std::thread([&] {
    there = &Context::current();
    time = Zet::now();
  }).join();
  EXPECT_NE(there, here);
  EXPECT_EQ(time, 1e9);
}

TEST(Context, RandomNumbersAreTheSequenceOfTheLibraryBySeed) {
  Context context;
  context.srand(7);
  int first = context.rand();
  int second = context.rand();
  std::srand(7);
  EXPECT_EQ(first, std::rand());
  EXPECT_EQ(second, std::rand());
}

TEST(Context, CountsTheExceptionsThatWereCaught) {
  Context context;
  EXPECT_EQ(context.notificationExceptions(), 0u);
  context.notificationExceptionsInc();
  EXPECT_EQ(context.notificationExceptions(), 1u);
}

TEST(Context, WritesTraceAndLogToTheErrorStreamUnlessAHostTakesThem) {
  Context context;
  Context::Scope scope(context);
  testing::internal::CaptureStderr();
  context.trace({"Pim::Bsr::Sm", "trace", 8, false, "f", 1, "PimBsrSm", "a text"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "1000000000.000000 Pim::Bsr::Sm 8 PimBsrSm: a text\n");
  static Zet::LogHandle const handle("TEST_LOG", Zet::LogSeverity::error, "%s", "", "", 0, 0, 0);
  testing::internal::CaptureStderr();
  Zet::log(handle, "an argument");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "1000000000.000000 %3-TEST_LOG: an argument\n");
}

}  // namespace
