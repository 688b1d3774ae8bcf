#include "cli/base/Tracing.h"

#include <gmock/gmock.h>

#include <string>

#include "cli/base/Errors.h"
#include "runtime/Trace.h"

namespace pimbsr::cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;
using Zet::TraceHandle;

std::string const gate = "Pim::Bsr::IO";

/// The levels at which a handle writes, as digits.
std::string levels(std::string const& name) {
  std::string all;
  for (int level = 0; level < TraceHandle::levels; ++level) {
    if (TraceHandle::handle(name).wants(level)) all += static_cast<char>('0' + level);
  }
  return all;
}

TEST(TracingTest, WishIsAHandleAndALevel) {
  TraceRequest request = parseTraceRequest("Pim::Bsr::IO:4");
  EXPECT_EQ(request.handle, gate);
  EXPECT_EQ(request.level, 4);
}

TEST(TracingTest, RequestThatCannotBeFollowedIsRejectedWithAllHandles) {
  struct Case {
    char const* text;
    char const* error;
  };
  Case const cases[] = {
      {"", "no HANDLE:LEVEL"},
      {"4", "no HANDLE:LEVEL"},
      {"Pim::Bsr::IO", "no HANDLE:LEVEL with a level from 0 to 9"},
      {"Pim::Bsr::IO:", "no HANDLE:LEVEL"},
      {"Pim::Bsr::IO:10", "no HANDLE:LEVEL"},
      {"Pim::Bsr::IO:-1", "no HANDLE:LEVEL"},
      {"Pim::Bsr::IO:x", "no HANDLE:LEVEL"},
      {"Pim::Bsr:4", "there is no handle 'Pim::Bsr'"},
      {":4", "there is no handle ''"},
  };
  for (Case const& one : cases) {
    EXPECT_THAT([&] { parseTraceRequest(one.text); },
                ThrowsMessage<UsageError>(AllOf(HasSubstr(one.error), HasSubstr("Pim::Bsr::IO"),
                                                HasSubstr("Pim::Bsr::NonCandidateSm"))))
        << one.text;
  }
}

TEST(TracingTest, RequestPutsItsLevelAndTheLowerOnesOnWhileItLives) {
  EXPECT_EQ(levels(gate), "");
  {
    Tracing tracing({{gate, 4}});
    EXPECT_EQ(levels(gate), "01234");
    EXPECT_EQ(levels("Pim::Bsr::Sm"), "");
  }
  EXPECT_EQ(levels(gate), "");
  TraceHandle::handle(gate).enabledIs(true);
  EXPECT_EQ(levels(gate), "0123456789") << "levels are left as they were";
  TraceHandle::handle(gate).enabledIs(false);
}

TEST(TracingTest, HighestLevelCountsOfSeveralWishesForAHandle) {
  Tracing tracing({{gate, 8}, {gate, 1}});
  EXPECT_EQ(levels(gate), "012345678");
}

}  // namespace
}  // namespace pimbsr::cli
