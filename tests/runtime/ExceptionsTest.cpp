#include "runtime/Exceptions.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <type_traits>

#include "runtime/Assert.h"
#include "runtime/Model.h"

namespace {

/// The text with which `raise` raises an E, and only an E.
template <class E, class Raise>
std::string raised(Raise raise) {
  static_assert(std::is_base_of_v<Zet::Exception, E>);
  try {
    raise();
  } catch (E const& e) {
    return e.what();
  } catch (...) {
    return "another exception";
  }
  return "no exception";
}

TEST(Exceptions, OfTheModelCarryTheTextAsItIs) {
  EXPECT_EQ(raised<Zet::RangeException>([] { Zet::throwRangeException("a > 3 not allowed"); }),
            "a > 3 not allowed");
  EXPECT_EQ(raised<Zet::InternalException>([] { Zet::throwInternalException("broken"); }), "broken");
  EXPECT_EQ(raised<Zet::NameInUseException>([] { Zet::throwNameInUseException("taken"); }), "taken");
}

TEST(Exceptions, OfReflectionNameWhatWasRejected) {
  EXPECT_EQ(raised<Zet::TypeException>([] { Zet::throwTypeException("A::B"); }),
            "not an object of type A::B");
  EXPECT_EQ(raised<Zet::UnknownArgException>([] { Zet::throwUnknownArgException("x"); }),
            "unknown argument: x");
  EXPECT_EQ(raised<Zet::UnknownAttrException>([] { Zet::throwUnknownAttrException("x"); }),
            "unknown attribute: x");
  EXPECT_EQ(raised<Zet::BadIndexAttrException>([] { Zet::throwBadIndexAttrException("x"); }),
            "attribute x takes no index");
  EXPECT_EQ(
      raised<Zet::OpNotSupportedException>([] { Zet::throwOpNotSupportedException("x", "write", false); }),
      "attribute x does not support write");
  EXPECT_EQ(
      raised<Zet::OpNotSupportedException>([] { Zet::throwOpNotSupportedException("x", "write", true); }),
      "attempting to modify a const instance");
}

TEST(Exceptions, AreCaughtByTheLibrarysBase) {
  try {
    Zet::throwRangeException("text");
    FAIL() << "no exception";
  } catch (std::exception const& e) {
    EXPECT_STREQ(e.what(), "text");
  }
}

TEST(Exceptions, TheMutatorOfNestedReactorsEndsItsTextWithAStrayQuote) {
  auto raise = [] { Zet::throwNullReactor("Routing::Pim::Bsr::PimBsrSm", "pimIntf"); };
  EXPECT_EQ(raised<Zet::RangeException>(raise),
            "null _pimIntf parameter to mutator for Routing::Pim::Bsr::PimBsrSm::pimIntf not allowed\"");
}

TEST(Exceptions, ReinstantiatingReportsTheAttributeAndTheValueThatTheMemberWasMadeWith) {
  EXPECT_EQ(raised<Zet::NameInUseException>([] { Zet::checkSameArgument("bsTimer", 4, 5); }),
            "Reinstantiating the pointer interface where constructor parameter attribute _bsTimer has a "
            "different value of 4");
  EXPECT_EQ(raised<Zet::NameInUseException>([] { Zet::checkSameArgument("bsTimer", 4, 4); }), "no exception");
}

// Assertions ------------------------------------------------------------------------------------------

TEST(Assertion, EvaluatesItsConditionOnce) {
  int evaluated = 0;
  ZET_ASSERT(++evaluated == 1, "once");
  EXPECT_EQ(evaluated, 1);
}

TEST(AssertionDeathTest, PrintsItsTextAndEndsTheProcess) {
  EXPECT_DEATH(ZET_ASSERT(1 + 1 == 3, "sums hold"), "ExceptionsTest.cpp:[0-9]+: assertion failed: sums hold");
}

TEST(AssertionDeathTest, CallsTheHookOfTheHostBeforeTheEnd) {
  auto hook = [](char const* text, char const*, int) { std::fprintf(stderr, "host heard: %s\n", text); };
  Zet::AssertHook former = Zet::assertHookIs(hook);
  EXPECT_DEATH(ZET_ASSERT(false, "sums hold"), "host heard: sums hold");
  EXPECT_EQ(Zet::assertHookIs(former), static_cast<Zet::AssertHook>(hook));
}

}  // namespace
