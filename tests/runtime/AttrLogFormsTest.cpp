#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "model/AclValues.h"
#include "model/Values.h"
#include "runtime/NboAttrLogRow.h"
#include "tests/runtime/ModelSamples.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"

/// The attribute log's form of values.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
namespace Pim = Routing::Pim;
using testing_support::rangeError;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::NboAttrLog::In;
using Zet::NboAttrLog::Out;

using Bytes = std::vector<U8>;

template <class T>
Bytes form(T const& value) {
  auto out = Zet::make<Out>();
  Zet::Ptr<Out>(out) << value;
  return Bytes(out->bytes().begin(), out->bytes().end());
}

template <class T>
T read(Bytes const& bytes) {
  In in(bytes);
  T value = Zet::NboAttrLog::get<T>(in);
  in.needEnd();
  return value;
}

/// The bytes in hexadecimal.
template <class T>
std::string hex(T const& value) {
  std::string text;
  for (U8 byte : form(value)) text += Zet::format("%02x", byte).charPtr();
  return text;
}

/// A value reads back from its form, and no shorter or longer bytes are one.
template <class T>
void roundTrip(T const& value) {
  Bytes const bytes = form(value);
  EXPECT_EQ(read<T>(bytes), value);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    // Memory of its own, so that a read past the end is found.
    Bytes const prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_THROW(read<T>(prefix), Zet::NboAttrLog::MalformedException) << size << " of " << bytes.size();
  }
  Bytes longer = bytes;
  longer.push_back(0);
  EXPECT_THROW(read<T>(longer), Zet::NboAttrLog::MalformedException);
}

TEST(AttrLogForms, ThoseOfTheProtocolHaveTheirFieldsInNetworkByteOrder) {
  EXPECT_EQ(hex(Bsr::CrpAdvInterval(0x1234)), "00001234");
  EXPECT_EQ(hex(Bsr::PimBsrWeight(0xab, addr("10.1.2.3"))),
            "ab"
            "00000001"
            "0a010203"
            "000000000000000000000000");
  Bsr::PimBsrErrorCounters counters;
  counters.rxFilter = 1;
  counters.rxNbrRpfCheck = 0x10002;
  counters.rxInvalid = 0xfffffffe;
  EXPECT_EQ(hex(counters),
            "00000001"
            "00010002"
            "00000000"
            "00000000"
            "00000000"
            "fffffffe");
}

TEST(AttrLogForms, EachTypeThatAnEntityHoldsHasOne) {
  EXPECT_EQ(hex(true), "01");
  EXPECT_EQ(hex(U8{0xab}), "ab");
  EXPECT_EQ(hex(U16{0xabcd}), "abcd");
  EXPECT_EQ(hex(U32{0x01020304}), "01020304");
  EXPECT_EQ(hex(U64{0x0102030405060708}), "0102030405060708");
  EXPECT_EQ(hex(Zet::S32{-2}), "fffffffe");
  EXPECT_EQ(hex(1.0), "3ff0000000000000");
  EXPECT_EQ(hex(Zet::Name("ab")), "000000026162");
  EXPECT_EQ(hex(String8(std::string_view("\0\xff", 2))), "0000000200ff");
  EXPECT_EQ(hex(Bsr::BsrCandidateState::eBsr), "00000003");
  EXPECT_EQ(hex(Pim::RpPriority(256)), "00000100");
  EXPECT_EQ(hex(Pim::CrpHoldTime(40958)), "9ffe");
  EXPECT_EQ(hex(Lanet::IpAddr::fromHost(0x0a000001)), "0a000001");
  EXPECT_EQ(hex(Lanet::IpGenAddr()),
            "00000000"
            "00000000000000000000000000000000");
  EXPECT_EQ(hex(addr("2001:db8::ff")),
            "00000002"
            "20010db80000000000000000000000ff");
  EXPECT_EQ(hex(prefix("10.0.0.0/8")),
            "00000001"
            "0a000000"
            "000000000000000000000000"
            "00000008");
  EXPECT_EQ(hex(intf("eth0")), "0000000465746830");
  EXPECT_EQ(hex(Acl::UniqueId(258)), "0000000000000102");
  EXPECT_EQ(hex(Acl::IpRuleConfig(Acl::Action::deny, {})),
            "00000002"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00"
            "0000"
            "0000");
}

/// A type's name as the rows of reflection show it, without namespaces.
template <class T>
std::string rowName() {
  if constexpr (std::is_same_v<T, bool>) {
    return "bool";
  } else if constexpr (std::is_same_v<T, double>) {
    return "double";
  } else if constexpr (std::is_same_v<T, Zet::S64>) {
    return "S64";
  } else if constexpr (std::is_same_v<T, Zet::Name>) {
    return "Name";
  } else {
    return bareName(Zet::typeName<T>());
  }
}

/// The types of the values, keys and makers' parameters of an attribute that the log carries.
void addCarried(Zet::AttributeRow const& row, std::set<std::string>& types) {
  using Zet::NboAttrLog::Shape;
  if (row.log->shape == Shape::value || row.log->shape == Shape::values) types.insert(bareName(row.type));
  if (row.isIndexed()) types.insert(bareName(row.keyType));
  std::regex const parameter(": (\\S+?)(,|$)");
  std::string const maker = row.maker;
  for (std::sregex_iterator at(maker.begin(), maker.end(), parameter), none; at != none; ++at)
    types.insert(bareName((*at)[1]));
}

/// The same of all classes that have a log.
std::set<std::string> carriedTypes() {
  std::set<std::string> types;
  for (Zet::ZetType const* type : Zet::zetTypes())
    Zet::NboAttrLog::forLogged(*type, [&](Zet::AttributeRow const& row) { addCarried(row, types); });
  return types;
}

TEST(AttrLogForms, EveryPrefixOfAFormIsRejectedAndNothingIsReadPastTheEnd) {
  std::set<std::string> tried;
  auto expectRoundTrip = [&]<class T>(T const& value) {
    roundTrip(value);
    tried.insert(rowName<T>());
  };
  expectRoundTrip(true);
  expectRoundTrip(U8{7});
  expectRoundTrip(U16{0x1234});
  expectRoundTrip(U32{0x12345678});
  expectRoundTrip(U64{0x123456789abcdef0});
  expectRoundTrip(Zet::S64{-1});
  expectRoundTrip(2.5);
  expectRoundTrip(String8("some text"));
  expectRoundTrip(String8(std::string_view("\0a\0", 3)));
  expectRoundTrip(Bsr::BsrNonCandidateState::acceptPreferred);
  expectRoundTrip(Bsr::CrpAdvInterval(77));
  expectRoundTrip(Bsr::PimBsrWeight(9, addr("2001:db8::1")));
  expectRoundTrip(Bsr::PimBsrErrorCounters());
  expectRoundTrip(Bsr::CrpOptions(addr("10.0.0.1"), 256));
  expectRoundTrip(Pim::CrpHoldTime(150));
  expectRoundTrip(Pim::RpPriority(256));
  expectRoundTrip(Pim::RpHashMaskLen(128));
  expectRoundTrip(Lanet::IpAddr::fromHost(0x0a000001));
  expectRoundTrip(Lanet::IpGenAddr());
  expectRoundTrip(addr("10.1.2.3"));
  expectRoundTrip(Acl::UniqueId(7));
  expectRoundTrip(Lanet::Prefix::parse("10.0.0.0/8"));
  expectRoundTrip(Lanet::Ip6Addr::parse("::1"));
  expectRoundTrip(prefix("2001:db8::/32"));
  expectRoundTrip(Lanet::IpGenPrefix());
  expectRoundTrip(intf("eth0.100"));
  Acl::IpFilter filter;
  filter.tniIs(16777215);
  filter.sourcePort = 65535;
  expectRoundTrip(Acl::IpRuleConfig(Acl::Action::permit, filter));
  expectRoundTrip(Zet::Name("eth0"));
  expectRoundTrip(Pim::Mode::bidir);
  expectRoundTrip(Pim::RpType::bsr);
  expectRoundTrip(Bsr::BsrCandidateState::eBsr);
  expectRoundTrip(Bsr::Scope::admin);
  expectRoundTrip(Lanet::AddressFamily::ipv6);
  expectRoundTrip(Acl::Action::deny);
  expectRoundTrip(Pim::Packet::GroupFlags(0x81));
  std::set<std::string> const carried = carriedTypes();
  EXPECT_GT(carried.size(), 10u);
  for (std::string const& type : carried) EXPECT_TRUE(tried.contains(type)) << "no value of " << type;
}

TEST(AttrLogForms, EveryValueOfASmallTypeReadsBack) {
  for (U32 number = 0; number < 0x10000; ++number) {
    if (number < 0x100) {
      ASSERT_EQ(read<U8>(form(static_cast<U8>(number))), number);
    }
    ASSERT_EQ(read<U16>(form(static_cast<U16>(number))), number);
    bool const isInterval = number >= 1 && number <= 16383, isHoldtime = number <= 40958;
    // Exceptions are slow with sanitizers: of the rejected values, those at the range and each 85th.
    bool const isSample = number % 85 == 0;
    if (number < 16500 || isSample) {
      ASSERT_EQ(rangeError([&] { read<Bsr::CrpAdvInterval>(form(number)); }),
                isInterval ? "no RangeException" : "CrpAdvInterval::value < 1 or > 16383 not allowed");
    }
    if (number < 41000 || isSample) {
      ASSERT_EQ(rangeError([&] { read<Pim::CrpHoldTime>(form(static_cast<U16>(number))); }),
                isHoldtime ? "no RangeException" : "CrpHoldTime::value < 0 or > 40958 not allowed");
    }
  }
  for (U32 byte = 0; byte < 256; ++byte) {
    Bytes const bytes{static_cast<U8>(byte)};
    if (byte > 1) {
      ASSERT_THROW(read<bool>(bytes), Zet::NboAttrLog::MalformedException);
    }
  }
  for (U32 number = 0; number < 10; ++number) {
    ASSERT_EQ(rangeError([&] { read<Bsr::BsrCandidateState>(form(number)); }),
              number < 4 ? "no RangeException" : "BsrCandidateState");
    ASSERT_EQ(rangeError([&] { read<Bsr::Scope>(form(number)); }),
              number < 2 ? "no RangeException" : "Scope");
  }
}

/// Each enumerator has the form of its number, of which every prefix is rejected; no other number is one.
template <class E>
void expectEnumerators(char const* name) {
  auto const count = static_cast<U32>(enumText(E{}).names.size());
  for (U32 number = 0; number < count; ++number) {
    EXPECT_EQ(read<E>(form(number)), static_cast<E>(number)) << name;
    roundTrip(static_cast<E>(number));
  }
  for (U32 number : {count, count + 1, 0xffu, 0x100u, 0x01000000u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(rangeError([&] { read<E>(form(number)); }), name) << number;
  }
}

TEST(AttrLogForms, EveryEnumeratorIsReadAndNoOtherNumber) {
  expectEnumerators<Pim::Mode>("Mode");
  expectEnumerators<Pim::RpType>("RpType");
  expectEnumerators<Bsr::Scope>("Scope");
  expectEnumerators<Bsr::BsrCandidateState>("BsrCandidateState");
  expectEnumerators<Bsr::BsrNonCandidateState>("BsrNonCandidateState");
  expectEnumerators<Lanet::AddressFamily>("AddressFamily");
  expectEnumerators<Acl::Action>("Action");
}

TEST(AttrLogForms, EveryValueOfOneByteIsReadAndEveryPrefixOfItRejected) {
  for (U32 byte = 0; byte < 0x100; ++byte) {
    roundTrip(static_cast<U8>(byte));
    roundTrip(Pim::Packet::GroupFlags(static_cast<U8>(byte)));
    EXPECT_EQ(form(Pim::Packet::GroupFlags(static_cast<U8>(byte))), Bytes{static_cast<U8>(byte)});
  }
}

/// Each value of a number with a range reads back, and the next numbers and the ends of its width don't.
template <class T, class Range>
void expectRange() {
  for (Zet::S64 number = Range::low; number <= Range::high; ++number) {
    ASSERT_EQ(read<T>(form(T(static_cast<U32>(number)))), T(static_cast<U32>(number)));
  }
  roundTrip(T(static_cast<U32>(Range::low)));
  roundTrip(T(static_cast<U32>(Range::high)));
  using Rep = typename Range::Rep;
  std::vector<Rep> outside{static_cast<Rep>(Range::high + 1), std::numeric_limits<Rep>::max()};
  if (Range::low > 0) outside.push_back(static_cast<Rep>(Range::low - 1));
  for (Rep number : outside) {
    EXPECT_EQ(rangeError([&] { read<T>(form(number)); }), Range::rangeError) << number;
  }
}

TEST(AttrLogForms, EveryNumberOfARangeIsReadAndTheNextOnesAreNot) {
  expectRange<Pim::RpPriority, Pim::RpPriorityRange>();
  expectRange<Pim::RpHashMaskLen, Pim::RpHashMaskLenRange>();
  expectRange<Pim::CrpHoldTime, Pim::CrpHoldTimeRange>();
  expectRange<Bsr::CrpAdvInterval, Bsr::CrpAdvIntervalRange>();
}

TEST(AttrLogForms, BothEndsOfARangeAreTakenAndTheNextNumberIsNot) {
  EXPECT_EQ(read<Pim::RpPriority>(form(U32{0})), Pim::RpPriority(0));
  EXPECT_EQ(read<Pim::RpPriority>(form(U32{256})), Pim::RpPriority(256));
  EXPECT_EQ(rangeError([] { read<Pim::RpPriority>(form(U32{257})); }),
            "RpPriority::value < 0 or > 256 not allowed");
  EXPECT_EQ(rangeError([] { read<Pim::RpPriority>(form(U32{0xffffffff})); }),
            "RpPriority::value < 0 or > 256 not allowed");
  EXPECT_EQ(read<Pim::RpHashMaskLen>(form(U32{128})), Pim::RpHashMaskLen(128));
  EXPECT_EQ(rangeError([] { read<Pim::RpHashMaskLen>(form(U32{129})); }),
            "RpHashMaskLen::value < 0 or > 128 not allowed");
}

TEST(AttrLogForms, ADoubleIsKeptBitForBit) {
  for (double value : {0.0, -0.0, 1e308, 5e-324, std::numeric_limits<double>::infinity(),
                       -std::numeric_limits<double>::infinity(), std::nan("1")}) {
    double const back = read<double>(form(value));
    EXPECT_EQ(std::memcmp(&back, &value, sizeof value), 0) << value;
  }
}

TEST(AttrLogForms, WhatIsNoNetworkValueIsRejectedAndNotCutToOne) {
  Bytes address = form(addr("10.0.0.1"));
  address.back() = 1;
  EXPECT_THROW(read<Lanet::IpGenAddr>(address), Zet::RangeException);
  address = form(addr("10.0.0.1"));
  address[3] = 3;
  EXPECT_EQ(rangeError([&] { read<Lanet::IpGenAddr>(address); }), "AddressFamily");
  Bytes hostBits = form(prefix("10.0.0.0/8"));
  hostBits[7] = 1;
  EXPECT_THROW(read<Lanet::IpGenPrefix>(hostBits), Zet::RangeException);
  Bytes tooLong = form(prefix("10.0.0.0/8"));
  tooLong.back() = 33;
  EXPECT_EQ(rangeError([&] { read<Lanet::IpGenPrefix>(tooLong); }), "prefix length 33 is above 32");
}

TEST(AttrLogForms, ALengthBeyondTheBytesIsRejected) {
  EXPECT_THROW(read<String8>(Bytes{0xff, 0xff, 0xff, 0xff, 'a'}), Zet::NboAttrLog::MalformedException);
}

TEST(AttrLogForms, ValuesFollowEachOtherWithNothingBetween) {
  auto out = Zet::make<Out>();
  out << U8{1} << U16{2} << true;
  EXPECT_EQ(Bytes(out->bytes().begin(), out->bytes().end()), (Bytes{1, 0, 2, 1}));
}

}  // namespace
}  // namespace test
