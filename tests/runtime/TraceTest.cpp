#include "runtime/Trace.h"

#include <sstream>
#include <string>

#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using testing_support::rangeError;
using Zet::TraceHandle;

/// A source whose handle is off, and operands that record whether they were evaluated.
class Trace : public ModelTest {
 protected:
  Trace() { handle().enabledIs(false); }
  ~Trace() override {
    Zet::coverageStream_ = nullptr;
    handle().enabledIs(false);
    for (int n = 0; n < TraceHandle::levels; ++n) handle().levelIs(n, true);
  }
  static TraceHandle& handle() { return TraceHandle::handle("Test::Trace"); }

  int built = 0;
  int operand() { return ++built; }
  void trace8() { ZET_TRACE(source, 8, "state is " << operand()); }
  void trace4() { ZET_TRACE(source, 4, "message " << operand()); }
  void entry() { ZET_TRACE_ENTRY(source); }

  Zet::TraceSource const source{"Test::Trace", "TestSm"};
};

TEST_F(Trace, AHandleIsMadeOncePerName) {
  EXPECT_EQ(&TraceHandle::handle("Test::Trace"), &handle());
  EXPECT_NE(&TraceHandle::handle("Test::Other"), &handle());
  EXPECT_STREQ(handle().name(), "Test::Trace");
  EXPECT_EQ(&source.handle, &handle());
}

TEST_F(Trace, AllHandlesAreListedByName) {
  TraceHandle::handle("Test::Other");
  std::string former;
  int found = 0;
  for (TraceHandle* h : TraceHandle::handles()) {
    EXPECT_LT(former, h->name());
    former = h->name();
    found += former == "Test::Other" || former == "Test::Trace";
  }
  EXPECT_EQ(found, 2);
}

TEST_F(Trace, ANewHandleIsOffWithAllItsLevelsOn) {
  TraceHandle& fresh = TraceHandle::handle("Test::Fresh");
  EXPECT_FALSE(fresh.enabled());
  for (int n = 0; n < TraceHandle::levels; ++n) {
    EXPECT_TRUE(fresh.level(n)) << n;
    EXPECT_FALSE(fresh.wants(n)) << n;
  }
}

TEST_F(Trace, WantsALevelWhenBothTheMasterAndTheLevelAreOn) {
  for (bool master : {false, true}) {
    for (bool level : {false, true}) {
      handle().enabledIs(master);
      handle().levelIs(8, level);
      EXPECT_EQ(handle().wants(8), master && level);
      EXPECT_EQ(handle().wants(7), master);
    }
  }
}

TEST_F(Trace, HasTenLevels) {
  for (int n : {-1, 10, 32}) {
    EXPECT_EQ(rangeError([&] { handle().levelIs(n, true); }), "TraceHandle::level < 0 or > 9 not allowed")
        << n;
  }
  handle().enabledIs(true);
  for (int n : {0, 9}) {
    handle().levelIs(n, false);
    EXPECT_FALSE(handle().wants(n));
    handle().levelIs(n, true);
    EXPECT_TRUE(handle().wants(n));
  }
}

TEST_F(Trace, BuildsNoTextThatIsNotRequested) {
  trace8();
  handle().enabledIs(true);
  handle().levelIs(8, false);
  trace8();
  EXPECT_EQ(built, 0);
  EXPECT_TRUE(context.traces.empty());
}

TEST_F(Trace, ALineNamesItsSource) {
  handle().enabledIs(true);
  trace8();
  ASSERT_EQ(context.traces.size(), 1u);
  Zet::TraceLine const& line = context.traces[0];
  EXPECT_STREQ(line.handle, "Test::Trace");
  EXPECT_STREQ(line.traceName, "trace");
  EXPECT_EQ(line.level, 8);
  EXPECT_FALSE(line.coverage);
  EXPECT_STREQ(line.function, "trace8");
  EXPECT_GT(line.line, 0);
  EXPECT_STREQ(line.sourceBlock, "TestSm");
  EXPECT_EQ(line.text, "state is 1");
}

TEST_F(Trace, TheEntryOfAFunctionIsItsSignatureAtLevelNine) {
  handle().enabledIs(true);
  handle().levelIs(9, true);
  entry();
  ASSERT_EQ(context.traces.size(), 1u);
  EXPECT_EQ(context.traces[0].level, 9);
  EXPECT_NE(context.traces[0].text.find("void"), std::string::npos);
  EXPECT_NE(context.traces[0].text.find("Trace::entry()"), std::string::npos) << context.traces[0].text;
}

TEST_F(Trace, TheCoverageStreamHasEveryTextBuiltAndTheContextOnlyWhatIsEnabled) {
  std::ostringstream stream;
  Zet::coverageStream_ = &stream;
  trace8();
  EXPECT_EQ(stream.str(), "state is 1\n");
  EXPECT_TRUE(context.traces.empty());
  handle().enabledIs(true);
  handle().levelIs(8, false);
  trace8();
  trace4();
  EXPECT_EQ(stream.str(), "state is 1\nstate is 2\nmessage 3\n");
  ASSERT_EQ(context.traces.size(), 1u);
  EXPECT_EQ(context.traces[0].text, "message 3");
  EXPECT_FALSE(context.traces[0].coverage);
}

TEST_F(Trace, TraceHelperTakesTheTextAsItIsInTheStream) {
  std::ostringstream text;
  text << "by hand " << 7;
  Zet::traceHelper("Test::Trace", "entry", text, 3, false, "f", 12, "Block");
  ASSERT_EQ(context.traces.size(), 1u);
  EXPECT_EQ(context.tracedAs("by hand 7"), "Test::Trace 3 Block");
  Zet::traceHelper("Test::Trace", "entry", text, 3, true, "f", 12, "Block");
  EXPECT_EQ(context.traces.size(), 1u) << "a line for coverage alone reached the context";
}

}  // namespace
}  // namespace test
