#include "model/Values.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Bits.h"
#include "runtime/Exceptions.h"
#include "runtime/Strep.h"
#include "tests/support/RangeError.h"

namespace {

using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Routing::Pim::CrpHoldTime;
using Routing::Pim::Mode;
using Routing::Pim::RpHashMaskLen;
using Routing::Pim::RpPriority;
using Routing::Pim::RpType;
using Routing::Pim::Bsr::BsrCandidateState;
using Routing::Pim::Bsr::BsrNonCandidateState;
using Routing::Pim::Bsr::CrpAdvInterval;
using Routing::Pim::Bsr::CrpOptions;
using Routing::Pim::Bsr::PimBsrErrorCounters;
using Routing::Pim::Bsr::PimBsrWeight;
using Routing::Pim::Bsr::Scope;
using Routing::Pim::Packet::GroupFlags;
using testing_support::rangeError;
using testing_support::rangeErrorOf;
using testing_support::streamed;
using Zet::strepToValue;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U8;

IpGenAddr gen(char const* text) { return IpGenAddr::parse(text); }
PimBsrWeight weight(U8 priority, char const* addr) { return PimBsrWeight(priority, gen(addr)); }
CrpOptions options(char const* addr, U32 priority) { return CrpOptions(gen(addr), priority); }

/// The value is written and streamed as `text` and read back from it.
template <class T>
void expectText(T const& value, char const* text) {
  EXPECT_EQ(valueToStrep(value), text);
  EXPECT_EQ(streamed(value), text);
  EXPECT_EQ(strepToValue<T>(text), value);
}

/// Every value is less than those after it, in all the relations.
template <class T>
void expectAscending(std::vector<T> const& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      EXPECT_EQ(values[i] < values[k], i < k) << values[i] << values[k];
      EXPECT_EQ(values[i] <= values[k], i <= k) << values[i] << values[k];
      EXPECT_EQ(values[i] > values[k], i > k) << values[i] << values[k];
      EXPECT_EQ(values[i] >= values[k], i >= k) << values[i] << values[k];
      EXPECT_EQ(values[i] == values[k], i == k) << values[i] << values[k];
      EXPECT_EQ(values[i] != values[k], i != k) << values[i] << values[k];
    }
  }
}

/// One enumeration with its names from 0 on, and its instance functions.
template <class E>
struct Enumeration {
  char const* typeName;
  std::vector<char const*> names;
  E (*ofNumber)(U32);
  E (*ofName)(String8 const&);
};

template <class E>
void expectEnumeration(Enumeration<E> const& e) {
  EXPECT_EQ(static_cast<U32>(E{}), 0u);
  for (U32 number = 0; number < e.names.size(); ++number) {
    E value = e.ofNumber(number);
    String8 name = e.names[number];
    EXPECT_EQ(static_cast<U32>(value), number);
    EXPECT_EQ(stringValue(value), name);
    EXPECT_EQ(e.ofName(name), value);
    EXPECT_EQ(valueToStrep(value), "'" + name + "'");
    EXPECT_EQ(streamed(value), name.view());
    EXPECT_EQ(strepToValue<E>("'" + name + "'"), value);
  }
}

template <class E>
void expectErrors(Enumeration<E> const& e) {
  U32 beyond = static_cast<U32>(e.names.size());
  for (U32 number : {beyond, 7u, 0xffffffffu}) {
    EXPECT_EQ(rangeError([&] { e.ofNumber(number); }), e.typeName);
    EXPECT_EQ(stringValue(static_cast<E>(number)),
              Zet::format("%s(%d)", e.typeName, static_cast<int>(number)));
  }
  String8 first = e.names[0];
  for (String8 const& name : {String8(), String8("none"), first + " ", Zet::format("%s(7)", e.typeName)}) {
    EXPECT_EQ(rangeError([&] { e.ofName(name); }), e.typeName);
    EXPECT_EQ(rangeErrorOf<E>("'" + name + "'"), e.typeName);
  }
  EXPECT_EQ(rangeErrorOf<E>(first), "needed a string in single quotes at column 0");
  EXPECT_EQ(rangeErrorOf<E>("0"), "needed a string in single quotes at column 0");
}

template <class E>
void expectEnumerationWithErrors(Enumeration<E> const& e) {
  expectEnumeration(e);
  expectErrors(e);
}

TEST(Enumerations, EachHasItsNumbersNamesAndErrors) {
  using namespace Routing::Pim;
  using namespace Routing::Pim::Bsr;
  expectEnumerationWithErrors<Scope>({"Scope", {"global", "admin"}, ScopeInstance, ScopeInstance});
  expectEnumerationWithErrors<BsrCandidateState>({"BsrCandidateState",
                                                  {"noInfoBsr", "cBsr", "pBsr", "eBsr"},
                                                  BsrCandidateStateInstance,
                                                  BsrCandidateStateInstance});
  expectEnumerationWithErrors<BsrNonCandidateState>({"BsrNonCandidateState",
                                                     {"noInfo", "acceptAny", "acceptPreferred"},
                                                     BsrNonCandidateStateInstance,
                                                     BsrNonCandidateStateInstance});
  expectEnumerationWithErrors<Mode>({"Mode", {"unset", "sparse", "bidir"}, ModeInstance, ModeInstance});
  expectEnumerationWithErrors<RpType>(
      {"RpType", {"unset", "configured", "bsr"}, RpTypeInstance, RpTypeInstance});
}

TEST(Enumerations, EnumeratorsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<U32>(Scope::global), 0u);
  EXPECT_EQ(static_cast<U32>(Scope::admin), 1u);
  EXPECT_EQ(static_cast<U32>(BsrCandidateState::noInfoBsr), 0u);
  EXPECT_EQ(static_cast<U32>(BsrCandidateState::cBsr), 1u);
  EXPECT_EQ(static_cast<U32>(BsrCandidateState::pBsr), 2u);
  EXPECT_EQ(static_cast<U32>(BsrCandidateState::eBsr), 3u);
  EXPECT_EQ(static_cast<U32>(BsrNonCandidateState::noInfo), 0u);
  EXPECT_EQ(static_cast<U32>(BsrNonCandidateState::acceptAny), 1u);
  EXPECT_EQ(static_cast<U32>(BsrNonCandidateState::acceptPreferred), 2u);
  EXPECT_EQ(static_cast<U32>(Mode::sparse), 1u);
  EXPECT_EQ(static_cast<U32>(Mode::bidir), 2u);
  EXPECT_EQ(static_cast<U32>(RpType::bsr), 2u);
}

TEST(BsrCandidateState, Number7HasATextButNoInstance) {
  EXPECT_EQ(stringValue(static_cast<BsrCandidateState>(7)), "BsrCandidateState(7)");
  EXPECT_EQ(valueToStrep(static_cast<BsrCandidateState>(7)), "'BsrCandidateState(7)'");
  EXPECT_EQ(rangeError([] { Routing::Pim::Bsr::BsrCandidateStateInstance(7); }), "BsrCandidateState");
}

/// A bounded value: both bounds are taken, and what lies beyond is rejected in every way of writing.
template <class T>
void expectBounds(U32 low, U32 high, std::vector<U32> const& beyond, char const* text) {
  for (U32 number : {low, high}) {
    EXPECT_EQ(T(number).value(), number);
    expectText(T(number), Zet::format("%u", number).charPtr());
  }
  for (U32 number : beyond) {
    EXPECT_EQ(rangeError([&] { T{number}; }), text) << number;
    T kept = high;
    EXPECT_EQ(rangeError([&] { kept = number; }), text) << number;
    EXPECT_EQ(kept.value(), high);
    EXPECT_EQ(rangeErrorOf<T>(Zet::format("%u", number)), text) << number;
  }
}

TEST(RpPriority, TakesUpTo256AndStartsThere) {
  expectBounds<RpPriority>(0, 256, {257, 65536, 0xffffffffu}, "RpPriority::value < 0 or > 256 not allowed");
  EXPECT_EQ(RpPriority().value(), 256u);
}

TEST(RpHashMaskLen, TakesUpTo128) {
  expectBounds<RpHashMaskLen>(0, 128, {129, 256, 0xffffffffu},
                              "RpHashMaskLen::value < 0 or > 128 not allowed");
  EXPECT_EQ(RpHashMaskLen().value(), 0u);
}

TEST(CrpHoldTime, TakesUpTo40958AndIs16BitsWide) {
  expectBounds<CrpHoldTime>(0, 40958, {40959, 65535, 65536, 65686, 0xffffffffu},
                            "CrpHoldTime::value < 0 or > 40958 not allowed");
  EXPECT_EQ(CrpHoldTime().value(), 0u);
  static_assert(std::is_same_v<decltype(CrpHoldTime().value()), U16>);
  static_assert(sizeof(CrpHoldTime) == 2);
}

TEST(BoundedValues, NumbersBeyond32BitsOrBelow0AreRejectedInText) {
  for (char const* text : {"-1", "4294967296", "4294967301", "-4294967295"}) {
    EXPECT_EQ(rangeErrorOf<RpPriority>(text), "RpPriority::value < 0 or > 256 not allowed") << text;
    EXPECT_EQ(rangeErrorOf<CrpHoldTime>(text), "CrpHoldTime::value < 0 or > 40958 not allowed") << text;
  }
  EXPECT_EQ(rangeErrorOf<RpPriority>("x"), "needed a number at column 0");
  EXPECT_EQ(rangeErrorOf<RpPriority>("5x"), "junk at column 1 deserializing 5x");
}

TEST(BoundedValues, CompareByNumber) {
  EXPECT_TRUE(RpPriority(5) < RpPriority(6));
  EXPECT_TRUE(RpPriority(5) == 5);
  EXPECT_TRUE(RpPriority(5) != 6);
  EXPECT_FALSE(RpPriority(6) <= RpPriority(5));
}

TEST(CrpAdvInterval, Takes1To16383AndStartsAt60) {
  expectBounds<CrpAdvInterval>(1, 16383, {0, 16384, 0xffffffffu},
                               "CrpAdvInterval::value < 1 or > 16383 not allowed");
  EXPECT_EQ(CrpAdvInterval().value(), 60u);
  EXPECT_EQ(CrpAdvInterval::intervalDefault(), 60u);
  EXPECT_TRUE(CrpAdvInterval(60) == CrpAdvInterval());
  EXPECT_TRUE(CrpAdvInterval(61) != CrpAdvInterval());
}

TEST(CrpAdvInterval, TextIsCutToItsLow32BitsBeforeTheTest) {
  EXPECT_EQ(strepToValue<CrpAdvInterval>("4294967297").value(), 1u);
  EXPECT_EQ(strepToValue<CrpAdvInterval>("-4294967236").value(), 60u);
  for (char const* text : {"0", "-1", "16384", "4294967296", "4294983680"}) {
    EXPECT_EQ(rangeErrorOf<CrpAdvInterval>(text), "CrpAdvInterval::value < 1 or > 16383 not allowed") << text;
  }
  EXPECT_EQ(rangeErrorOf<CrpAdvInterval>("60 s"), "junk at column 2 deserializing 60 s");
}

TEST(GroupFlags, HoldTheScopeBitBelowAndTheBidirBitAbove) {
  for (U32 bits = 0; bits < 256; ++bits) {
    GroupFlags flags(static_cast<U8>(bits));
    EXPECT_EQ(flags.value, bits);
    EXPECT_EQ(flags.scoped(), bits % 2 == 1) << bits;
    EXPECT_EQ(flags.bidir(), bits >= 128) << bits;
  }
  EXPECT_EQ(GroupFlags().value, 0);
  EXPECT_TRUE(GroupFlags(0x81) == GroupFlags(0x81));
  EXPECT_TRUE(GroupFlags(0x81) != GroupFlags(0x80));
  expectText(GroupFlags(0x81), "129");
  EXPECT_EQ(rangeErrorOf<GroupFlags>("256"), "256 is no unsigned number of 8 bits");
}

TEST(PimBsrWeight, StartsAtPriority0AndTheUnsetAddress) {
  EXPECT_EQ(PimBsrWeight().priority(), 0);
  EXPECT_TRUE(PimBsrWeight().ipAddr().isEmpty());
  PimBsrWeight changed;
  changed.priorityIs(5);
  changed.ipAddrIs(gen("10.0.0.1"));
  EXPECT_EQ(changed, weight(5, "10.0.0.1"));
}

TEST(PimBsrWeight, PriorityGoesBeforeAddressAndHigherIsGreater) {
  expectAscending<PimBsrWeight>({weight(0, "10.0.0.9"), weight(5, "9.0.0.1"), weight(5, "10.0.0.1"),
                                 weight(5, "10.0.0.2"), weight(5, "200.0.0.1"), weight(6, "1.1.1.1"),
                                 weight(127, "1.1.1.1"), weight(128, "1.1.1.1"), weight(255, "0.0.0.1")});
}

TEST(PimBsrWeight, AWeightIsNeitherLessNorGreaterThanItself) {
  PimBsrWeight a = weight(5, "10.0.0.1");
  EXPECT_FALSE(a < a);
  EXPECT_FALSE(a > a);
  EXPECT_TRUE(a <= a);
  EXPECT_TRUE(a >= a);
}

// The order and the hash look at the first four bytes alone, equality at the family and all sixteen.
TEST(PimBsrWeight, AddressesThatTheIpv4ViewCannotDistinguishAreUnequalButOfOneRank) {
  std::pair<char const*, char const*> cases[] = {
      {"2001:db8::1", "2001:db8::2"}, {"10.0.0.1", "a00:1::"}, {"", "0.0.0.0"}};
  for (auto [one, other] : cases) {
    PimBsrWeight a = weight(5, one);
    PimBsrWeight b = weight(5, other);
    EXPECT_FALSE(a < b || b < a || a > b || b > a) << one;
    EXPECT_TRUE(a <= b && b <= a && a >= b && b >= a) << one;
    EXPECT_TRUE(a != b) << one;
    EXPECT_EQ(a.hash(), b.hash()) << one;
  }
}

TEST(PimBsrWeight, NotIsTrueForTheDefaultAlone) {
  EXPECT_TRUE(!PimBsrWeight());
  EXPECT_FALSE(!weight(0, "0.0.0.0"));
  EXPECT_FALSE(!weight(1, ""));
  EXPECT_FALSE(!weight(5, "10.0.0.1"));
}

TEST(PimBsrWeight, HashMixesTheHashOfTheAddressWithThePriority) {
  for (char const* text : {"10.0.0.1", "200.0.0.1", "2001:db8::1", ""}) {
    EXPECT_EQ(weight(5, text).hash(), Zet::mixHash(gen(text).v4Addr().hash() ^ 5)) << text;
  }
  EXPECT_NE(weight(5, "10.0.0.1").hash(), weight(6, "10.0.0.1").hash());
}

TEST(PimBsrWeight, TextGoesBothWays) {
  expectText(weight(5, "10.0.0.1"),
             "Value('Routing::Pim::Bsr::PimBsrWeight', ** {'priority': 5, 'ipAddr': '10.0.0.1'})");
  expectText(PimBsrWeight(), "Value('Routing::Pim::Bsr::PimBsrWeight', ** {'priority': 0, 'ipAddr': ''})");
}

String8 weightText(char const* attributes) {
  return String8("Value('Routing::Pim::Bsr::PimBsrWeight', ** {") + attributes + "})";
}

TEST(PimBsrWeight, AttributesMayBeInAnyOrderMissingOrRepeated) {
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("")), PimBsrWeight());
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'ipAddr': '10.0.0.1', 'priority': 5")),
            weight(5, "10.0.0.1"));
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'ipAddr': '10.0.0.1'")), weight(0, "10.0.0.1"));
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'priority': 5, 'priority': 6")), weight(6, ""));
}

TEST(PimBsrWeight, APriorityIsNarrowedToAByteWithoutARangeCheck) {
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'priority': 300")).priority(), 44);
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'priority': -1")).priority(), 255);
  EXPECT_EQ(strepToValue<PimBsrWeight>(weightText("'priority': 9223372036854775807")).priority(), 255);
}

TEST(PimBsrWeight, ErrorsOfTheTextAreNamed) {
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(weightText("'weight': 5")),
            "PimBsrWeight has no such attribute: weight");
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>("Value('Routing::Pim::Bsr::PimBsrWeight', ** {'priority': 5"),
            "premature end of value type PimBsrWeight");
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(weightText("'priority': 'x'")),
            "attribute 'priority': needed a number at column 57");
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(weightText("'priority': 9223372036854775808")),
            "attribute 'priority': number beyond 64 bits at column 57");
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(weightText("'ipAddr': '10.0.0'")),
            "attribute 'ipAddr': '10.0.0' is no IP address");
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(valueToStrep(CrpOptions())),
            "needed \" 'Routing::Pim::Bsr::PimBsrWeight'\" at column 26");
}

TEST(PimBsrWeight, ACharacterAfterTheTextIsJunkAtItsColumn) {
  EXPECT_EQ(rangeErrorOf<PimBsrWeight>(weightText("") + "x"),
            "junk at column 47 deserializing Value('Routing::Pim::Bsr::PimBsrWeight', ** {})x");
}

TEST(PimBsrErrorCounters, StartAtZeroAndCompareAllSix) {
  PimBsrErrorCounters const zero;
  for (U32 PimBsrErrorCounters::*counter :
       {&PimBsrErrorCounters::rxFilter, &PimBsrErrorCounters::rxNbrRpfCheck,
        &PimBsrErrorCounters::rxNoForwardBsm, &PimBsrErrorCounters::rxUnicastBsm,
        &PimBsrErrorCounters::rxScopeMismatch, &PimBsrErrorCounters::rxInvalid}) {
    EXPECT_EQ(zero.*counter, 0u);
    PimBsrErrorCounters raised;
    raised.*counter += 1;
    EXPECT_TRUE(raised != zero);
    raised.*counter -= 1;
    EXPECT_TRUE(raised == zero);
  }
}

TEST(PimBsrErrorCounters, TextGoesBothWays) {
  PimBsrErrorCounters counters;
  counters.rxFilter = 1;
  counters.rxNbrRpfCheck = 2;
  counters.rxNoForwardBsm = 3;
  counters.rxUnicastBsm = 4;
  counters.rxScopeMismatch = 5;
  counters.rxInvalid = 4294967295u;
  expectText(counters,
             "Value('Routing::Pim::Bsr::PimBsrErrorCounters', ** {'rxFilter': 1, 'rxNbrRpfCheck': 2, "
             "'rxNoForwardBsm': 3, 'rxUnicastBsm': 4, 'rxScopeMismatch': 5, 'rxInvalid': 4294967295})");
}

TEST(PimBsrErrorCounters, EachCounterIsNarrowedTo32BitsWithoutARangeCheck) {
  for (char const* name :
       {"rxFilter", "rxNbrRpfCheck", "rxNoForwardBsm", "rxUnicastBsm", "rxScopeMismatch", "rxInvalid"}) {
    auto read = [name](char const* number) {
      return strepToValue<PimBsrErrorCounters>(
          Zet::format("Value('Routing::Pim::Bsr::PimBsrErrorCounters', ** {'%s': %s})", name, number));
    };
    EXPECT_EQ(read("4294967298"), read("2")) << name;
    EXPECT_EQ(read("-1"), read("4294967295")) << name;
    EXPECT_TRUE(read("2") != PimBsrErrorCounters()) << name;
  }
}

TEST(PimBsrErrorCounters, ErrorsOfTheTextAreNamed) {
  EXPECT_EQ(
      rangeErrorOf<PimBsrErrorCounters>("Value('Routing::Pim::Bsr::PimBsrErrorCounters', ** {'rx': 1})"),
      "PimBsrErrorCounters has no such attribute: rx");
  EXPECT_EQ(rangeErrorOf<PimBsrErrorCounters>("Value('Routing::Pim::Bsr::PimBsrErrorCounters', ** {"),
            "premature end of value type PimBsrErrorCounters");
}

TEST(CrpOptions, StartAtTheUnsetAddressAndPriority256) {
  EXPECT_TRUE(CrpOptions().rpAddress().isEmpty());
  EXPECT_EQ(CrpOptions().priority().value(), 256u);
  CrpOptions changed;
  changed.rpAddressIs(gen("1.1.1.1"));
  changed.priorityIs(5);
  EXPECT_EQ(changed, options("1.1.1.1", 5));
}

TEST(CrpOptions, AddressGoesBeforePriority) {
  expectAscending<CrpOptions>({options("0.0.0.0", 256), options("1.1.1.1", 0), options("1.1.1.1", 200),
                               options("1.1.1.1", 256), options("1.1.1.2", 10), options("9.0.0.1", 10),
                               options("10.0.0.1", 10), options("200.0.0.1", 0)});
}

TEST(CrpOptions, AddressesThatTheIpv4ViewCannotDistinguishAreUnequalButOfOneRank) {
  CrpOptions a = options("2001:db8::1", 5);
  CrpOptions b = options("2001:db8::2", 5);
  EXPECT_FALSE(a < b || b < a || a > b || b > a);
  EXPECT_TRUE(a <= b && a >= b);
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a < options("2001:db8::1", 6));
}

TEST(CrpOptions, NotIsTrueForTheDefaultAlone) {
  EXPECT_TRUE(!CrpOptions());
  EXPECT_FALSE(!options("", 255));
  EXPECT_FALSE(!options("0.0.0.0", 256));
  EXPECT_FALSE(!options("1.1.1.1", 256));
}

TEST(CrpOptions, HashIsTheAddressXorThePriorityUnmixed) {
  EXPECT_EQ(options("10.0.0.1", 256).hash(), 0x0a000101u);
  EXPECT_EQ(options("1.1.1.1", 1).hash(), 0x01010100u);
  EXPECT_EQ(CrpOptions().hash(), 256u);
  EXPECT_EQ(rhash(options("10.0.0.1", 256)), Zet::bitReverse(0x0a000101u));
}

TEST(CrpOptions, PrettyIsAddressAndPriorityWithAStarForNoAddress) {
  EXPECT_EQ(options("10.0.0.1", 200).pretty(), "10.0.0.1,200");
  EXPECT_EQ(CrpOptions().pretty(), "*,256");
  EXPECT_EQ(options("0.0.0.0", 0).pretty(), "*,0");
  EXPECT_EQ(options("2001:db8::1", 5).pretty(), "2001:db8::1,5");
  EXPECT_EQ(options("::1", 5).pretty(), "*,5");
}

TEST(CrpOptions, TextGoesBothWays) {
  expectText(options("1.1.1.1", 200),
             "Value('Routing::Pim::Bsr::CrpOptions', ** {'rpAddress': '1.1.1.1', 'priority': 200})");
  expectText(CrpOptions(), "Value('Routing::Pim::Bsr::CrpOptions', ** {'rpAddress': '', 'priority': 256})");
  EXPECT_EQ(strepToValue<CrpOptions>("Value('Routing::Pim::Bsr::CrpOptions', ** {})"), CrpOptions());
}

TEST(CrpOptions, ErrorsOfTheTextAreNamed) {
  EXPECT_EQ(rangeErrorOf<CrpOptions>("Value('Routing::Pim::Bsr::CrpOptions', ** {'priority': 257})"),
            "attribute 'priority': RpPriority::value < 0 or > 256 not allowed");
  EXPECT_EQ(rangeErrorOf<CrpOptions>("Value('Routing::Pim::Bsr::CrpOptions', ** {'ipAddr': ''})"),
            "CrpOptions has no such attribute: ipAddr");
  EXPECT_EQ(rangeErrorOf<CrpOptions>("Value('Routing::Pim::Bsr::CrpOptions', ** {'rpAddress': ''"),
            "premature end of value type CrpOptions");
}

}  // namespace
