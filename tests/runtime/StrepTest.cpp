#include "runtime/Strep.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "runtime/Exceptions.h"
#include "tests/support/RangeError.h"

namespace {

using testing_support::rangeError;
using testing_support::rangeErrorOf;
using Zet::needString;
using Zet::S32;
using Zet::S64;
using Zet::skipWhiteSpace;
using Zet::StrepPos;
using Zet::strepToValue;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::valueToStrep;

/// The column after `token` read from `text`.
long columnAfter(String8 const& text, char const* token) {
  StrepPos cur = text.begin();
  needString(cur, text.end(), token);
  return cur.column();
}

TEST(Strep, WhiteSpaceIsSkippedOfEveryKind) {
  String8 text(" \t\n\r\v\fx ");
  StrepPos cur = text.begin();
  skipWhiteSpace(cur, text.end());
  EXPECT_EQ(cur.column(), 6);
  skipWhiteSpace(cur, text.end());
  EXPECT_EQ(cur.column(), 6);
  String8 blank("  ");
  cur = blank.begin();
  skipWhiteSpace(cur, blank.end());
  EXPECT_TRUE(cur == blank.end());
}

TEST(Strep, OtherControlCharactersAreNoWhiteSpace) {
  for (char const* text : {"\b", "\x0e", "\x1f"}) {
    String8 control(text);
    StrepPos cur = control.begin();
    skipWhiteSpace(cur, control.end());
    EXPECT_EQ(cur.column(), 0) << static_cast<int>(*text);
  }
}

TEST(NeedString, ABlankInATokenMeansOptionalWhiteSpace) {
  EXPECT_EQ(columnAfter("Value(", " Value"), 5);
  EXPECT_EQ(columnAfter(" \n Value(", " Value"), 8);
  EXPECT_EQ(columnAfter(":3", " : "), 1);
  EXPECT_EQ(columnAfter("  :  3", " : "), 5);
  EXPECT_EQ(columnAfter("}", "} "), 1);
}

TEST(NeedString, AMissingTokenIsNamedWithItsColumn) {
  EXPECT_EQ(rangeError([] { columnAfter("  Valve", " Value"); }), "needed \" Value\" at column 5");
  EXPECT_EQ(rangeError([] { columnAfter("Val", " Value"); }), "needed \" Value\" at column 3");
  EXPECT_EQ(rangeError([] { columnAfter("", "{"); }), "needed \"{\" at column 0");
  EXPECT_EQ(rangeError([] { columnAfter(" {", "{"); }), "needed \"{\" at column 0");
}

TEST(Strep, StringsAreQuotedWithEscapesAndReadBack) {
  struct Case {
    std::string_view value;
    std::string_view text;
  };
  Case cases[] = {{"", "''"},           {"eth0", "'eth0'"},          {"it's", "'it\\'s'"},
                  {"\\", "'\\\\'"},     {"a\nb", "'a\nb'"},          {"\\'", "'\\\\\\''"},
                  {"\"q\"", "'\"q\"'"}, {{"a\0b", 3}, {"'a\0b'", 5}}};
  for (Case const& c : cases) {
    EXPECT_EQ(valueToStrep(String8(c.value)).view(), c.text);
    EXPECT_EQ(strepToValue<String8>(c.text).view(), c.value);
    EXPECT_EQ(strepToValue<Zet::Name>(c.text).view(), c.value);
  }
}

TEST(Strep, MalformedStringsAreRejected) {
  EXPECT_EQ(rangeErrorOf<String8>(""), "needed a string in single quotes at column 0");
  EXPECT_EQ(rangeErrorOf<String8>("abc"), "needed a string in single quotes at column 0");
  EXPECT_EQ(rangeErrorOf<String8>("'abc"), "needed a closing quote at column 4");
  EXPECT_EQ(rangeErrorOf<String8>("'a\\'"), "needed a closing quote at column 4");
  EXPECT_EQ(rangeErrorOf<String8>("'a\\n'"), "needed a quote or backslash after a backslash at column 3");
  EXPECT_EQ(rangeErrorOf<String8>("'a\\"), "needed a quote or backslash after a backslash at column 3");
}

template <class T>
void expectRoundTrip(T value, char const* text) {
  EXPECT_EQ(valueToStrep(value), text);
  EXPECT_EQ(strepToValue<T>(text), value);
}

TEST(Strep, WholeNumbersOfEveryWidthGoBothWays) {
  expectRoundTrip<U8>(0, "0");
  expectRoundTrip<U8>(255, "255");
  expectRoundTrip<U16>(65535, "65535");
  expectRoundTrip<U32>(4294967295u, "4294967295");
  expectRoundTrip<U64>(std::numeric_limits<U64>::max(), "18446744073709551615");
  expectRoundTrip<S32>(std::numeric_limits<S32>::min(), "-2147483648");
  expectRoundTrip<S64>(std::numeric_limits<S64>::min(), "-9223372036854775808");
  expectRoundTrip<S64>(std::numeric_limits<S64>::max(), "9223372036854775807");
}

TEST(Strep, ASignMayPrecedeDigits) {
  EXPECT_EQ(strepToValue<S64>("+5"), 5);
  EXPECT_EQ(strepToValue<S64>("-5"), -5);
  EXPECT_EQ(strepToValue<U32>("+5"), 5u);
  EXPECT_EQ(strepToValue<U32>("007"), 7u);
}

TEST(Strep, WhatIsNoNumberIsRejected) {
  for (char const* text : {"", "-", "+", "+-5", "-+5", "+x", "x", " 5", "'5'"}) {
    EXPECT_EQ(rangeErrorOf<S64>(text), "needed a number at column 0") << text;
  }
  EXPECT_EQ(rangeErrorOf<U64>("-5"), "needed a number at column 0");
}

TEST(Strep, NumbersBeyondTheirWidthAreRejected) {
  EXPECT_EQ(rangeErrorOf<S64>("9223372036854775808"), "number beyond 64 bits at column 0");
  EXPECT_EQ(rangeErrorOf<S64>("-9223372036854775809"), "number beyond 64 bits at column 0");
  EXPECT_EQ(rangeErrorOf<U64>("18446744073709551616"), "number beyond 64 bits at column 0");
  EXPECT_EQ(rangeErrorOf<U8>("256"), "256 is no unsigned number of 8 bits");
  EXPECT_EQ(rangeErrorOf<U16>("65536"), "65536 is no unsigned number of 16 bits");
  EXPECT_EQ(rangeErrorOf<U32>("4294967296"), "4294967296 is no unsigned number of 32 bits");
  EXPECT_EQ(rangeErrorOf<S32>("-2147483649"), "-2147483649 is no signed number of 32 bits");
  EXPECT_EQ(rangeErrorOf<S32>("2147483648"), "2147483648 is no signed number of 32 bits");
}

TEST(Strep, BoolsAreTrueAndFalse) {
  expectRoundTrip(true, "True");
  expectRoundTrip(false, "False");
  for (char const* text : {"", "true", "1", "Tru", "'True'"}) {
    EXPECT_EQ(rangeErrorOf<bool>(text), "needed True or False at column 0") << text;
  }
}

// A pointer converts to bool, so without care its text would be "True".
TEST(Strep, ACharacterArrayIsWrittenAsAString) { EXPECT_EQ(valueToStrep("eth0"), "'eth0'"); }

TEST(Strep, DoublesReadBackAsTheSameNumber) {
  double const inf = std::numeric_limits<double>::infinity();
  for (double value : {0.0, 1.0, -2.5, 0.1, 1.0 / 3, 1e300, 5e-324, 1732000000.123456, inf, -inf,
                       std::numeric_limits<double>::max()}) {
    EXPECT_EQ(strepToValue<double>(valueToStrep(value)), value);
  }
  EXPECT_EQ(valueToStrep(0.1), "0.1");
  EXPECT_EQ(valueToStrep(60.0), "60");
  EXPECT_TRUE(std::isnan(strepToValue<double>(valueToStrep(std::nan("")))));
  EXPECT_TRUE(std::signbit(strepToValue<double>(valueToStrep(-0.0))));
}

TEST(Strep, WhatIsNoDoubleIsRejected) {
  EXPECT_EQ(rangeErrorOf<double>(""), "needed a number at column 0");
  EXPECT_EQ(rangeErrorOf<double>("x"), "needed a number at column 0");
  EXPECT_EQ(rangeErrorOf<double>("1e999"), "number beyond 64 bits at column 0");
}

TEST(StrepToValue, WhatFollowsTheValueIsJunkAtItsColumn) {
  EXPECT_EQ(rangeErrorOf<U32>("12x"), "junk at column 2 deserializing 12x");
  EXPECT_EQ(rangeErrorOf<U32>("12 "), "junk at column 2 deserializing 12 ");
  EXPECT_EQ(rangeErrorOf<String8>("'a''b'"), "junk at column 3 deserializing 'a''b'");
  EXPECT_EQ(rangeErrorOf<bool>("True!"), "junk at column 4 deserializing True!");
  EXPECT_EQ(rangeErrorOf<double>("1.5e"), "junk at column 3 deserializing 1.5e");
}

TEST(RethrowFromDeserializeAttr, NamesTheAttributeBeforeTheFormerText) {
  auto rethrow = [] {
    try {
      Zet::throwRangeException("too much");
    } catch (Zet::RangeException const&) {
      Zet::rethrowFromDeserializeAttr("priority");
    }
  };
  EXPECT_EQ(rangeError(rethrow), "attribute 'priority': too much");
}

TEST(RethrowFromDeserializeAttr, LetsOtherExceptionsPass) {
  auto rethrow = [] {
    try {
      Zet::throwInternalException("broken");
    } catch (Zet::InternalException const&) {
      Zet::rethrowFromDeserializeAttr("priority");
    }
  };
  EXPECT_THROW(rethrow(), Zet::InternalException);
}

/// A structured value of two attributes.
struct Pair {
  U32 a = 7;
  String8 b = "none";

  Pair() = default;
  Pair(StrepPos& cur, StrepPos end) {
    Zet::readStructured(cur, end, "Some::Unit::Pair",
                        [this](String8 const& name, StrepPos& at, StrepPos stop) {
                          if (name == "a") a = Zet::readStrep<U32>(at, stop);
                          if (name == "b") b = Zet::readStrep<String8>(at, stop);
                          return name == "a" || name == "b";
                        });
  }
};

TEST(StructuredText, IsWrittenInTheOrderOfTheCalls) {
  EXPECT_EQ(Zet::StructuredText("Some::Unit::Pair").text(), "Value('Some::Unit::Pair', ** {})");
  EXPECT_EQ(Zet::StructuredText("Some::Unit::Pair").attr("a", "1").attr("b", "'x'").text(),
            "Value('Some::Unit::Pair', ** {'a': 1, 'b': 'x'})");
}

TEST(ReadStructured, AttributesAreInAnyOrderMayBeMissingAndTheLastOfARepeatedOneCounts) {
  struct Case {
    char const* attributes;
    U32 a;
    char const* b;
  };
  for (Case c : {Case{"", 7, "none"}, Case{"'a': 1", 1, "none"}, Case{"'b': 'x'", 7, "x"},
                 Case{"'a': 1, 'b': 'x'", 1, "x"}, Case{"'b': 'x', 'a': 1", 1, "x"},
                 Case{"'a': 1, 'a': 2", 2, "none"}}) {
    Pair pair = strepToValue<Pair>(String8("Value('Some::Unit::Pair', ** {") + c.attributes + "})");
    EXPECT_EQ(pair.a, c.a) << c.attributes;
    EXPECT_EQ(pair.b, c.b) << c.attributes;
  }
}

TEST(ReadStructured, WhiteSpaceIsOptionalWhereTheTokensHaveABlank) {
  for (char const* text : {"Value('Some::Unit::Pair',**{'a':1,'b':'x'})",
                           " Value ( 'Some::Unit::Pair' , ** { 'a' : 1 , 'b' : 'x' } ) ",
                           "\nValue\t(\n'Some::Unit::Pair'\n,\n**\n{\n'a'\n:\n1\n,\n'b'\n:\n'x'\n}\n)\n"}) {
    Pair pair = strepToValue<Pair>(text);
    EXPECT_EQ(pair.a, 1u) << text;
    EXPECT_EQ(pair.b, "x") << text;
  }
}

TEST(ReadStructured, EachMissingTokenIsNamed) {
  struct Case {
    char const* text;
    char const* rangeError;
  };
  Case cases[] = {
      {"", "needed \" Value\" at column 0"},
      {"Value", "needed \" (\" at column 5"},
      {"Value('Some::Unit::Pear'", "needed \" 'Some::Unit::Pair'\" at column 20"},
      {"Value('Pair', ** {})", "needed \" 'Some::Unit::Pair'\" at column 7"},
      {"Value('Some::Unit::Pair' **", "needed \" ,\" at column 25"},
      {"Value('Some::Unit::Pair', *", "needed \" **\" at column 27"},
      {"Value('Some::Unit::Pair', ** 'a'", "needed \" {\" at column 29"},
      {"Value('Some::Unit::Pair', ** {'a' 1", "needed \" : \" at column 34"},
      {"Value('Some::Unit::Pair', ** {'a': 1 'b'", "needed \", \" at column 37"},
      {"Value('Some::Unit::Pair', ** {a", "needed a string in single quotes at column 30"},
      {"Value('Some::Unit::Pair', ** {, 'a': 1})", "needed a string in single quotes at column 30"},
      {"Value('Some::Unit::Pair', ** {'a': 1, })", "needed a string in single quotes at column 38"},
      {"Value('Some::Unit::Pair', ** {'a': 1,", "needed a string in single quotes at column 37"},
      {"Value('Some::Unit::Pair', ** {}", "needed \") \" at column 31"},
  };
  for (Case const& c : cases) EXPECT_EQ(rangeErrorOf<Pair>(c.text), c.rangeError) << c.text;
}

TEST(ReadStructured, AnEndWithinTheAttributesIsPremature) {
  for (char const* text : {"Value('Some::Unit::Pair', ** {", "Value('Some::Unit::Pair', ** {  ",
                           "Value('Some::Unit::Pair', ** {'a': 1", "Value('Some::Unit::Pair', ** {'a': 1 "}) {
    EXPECT_EQ(rangeErrorOf<Pair>(text), "premature end of value type Pair") << text;
  }
}

TEST(ReadStructured, AnUnknownAttributeIsNamed) {
  EXPECT_EQ(rangeErrorOf<Pair>("Value('Some::Unit::Pair', ** {'a': 1, 'c': 2})"),
            "Pair has no such attribute: c");
  EXPECT_EQ(rangeErrorOf<Pair>("Value('Some::Unit::Pair', ** {'c' 2})"), "needed \" : \" at column 34");
}

TEST(ReadStructured, AnErrorInAValueNamesItsAttribute) {
  EXPECT_EQ(rangeErrorOf<Pair>("Value('Some::Unit::Pair', ** {'b': 5})"),
            "attribute 'b': needed a string in single quotes at column 35");
}

TEST(ReadStructured, WhatFollowsTheValueIsJunk) {
  EXPECT_EQ(rangeErrorOf<Pair>("Value('Some::Unit::Pair', ** {}) x"),
            "junk at column 33 deserializing Value('Some::Unit::Pair', ** {}) x");
}

TEST(ReadStructured, ATypeNameWithoutNamespaceMeansItself) {
  String8 text("Value('Pair', ** {");
  StrepPos cur = text.begin();
  auto none = [](String8 const&, StrepPos&, StrepPos) { return false; };
  EXPECT_EQ(rangeError([&] { Zet::readStructured(cur, text.end(), "Pair", none); }),
            "premature end of value type Pair");
}

}  // namespace
