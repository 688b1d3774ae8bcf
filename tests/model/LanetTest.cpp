#include "model/Lanet.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/Bits.h"
#include "runtime/Exceptions.h"
#include "runtime/Strep.h"
#include "tests/support/RangeError.h"

namespace {

using Lanet::AddressFamily;
using Lanet::IntfId;
using Lanet::Ip6Addr;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Lanet::Prefix;
using testing_support::rangeError;
using testing_support::streamed;
using Zet::bitReverse;
using Zet::mixHash;
using Zet::strepToValue;
using Zet::String8;
using Zet::U32;
using Zet::U8;

static_assert(sizeof(IpAddr) == 4);
static_assert(sizeof(IpGenAddr) == 20 && std::is_trivially_copyable_v<IpGenAddr>);
static_assert(sizeof(IpGenPrefix) == 24 && std::is_trivially_copyable_v<IpGenPrefix>);
static_assert(std::is_convertible_v<IpAddr, IpGenAddr>);

IpAddr v4(char const* text) { return IpAddr::parse(text); }
IpGenAddr gen(char const* text) { return IpGenAddr::parse(text); }
IpGenPrefix prefix(char const* text) { return IpGenPrefix::parse(text); }

/// The value is streamed bare, written quoted, and read back from both.
template <class T>
void expectText(T const& value, std::string const& bare) {
  String8 quoted = "'" + String8(bare) + "'";
  EXPECT_EQ(streamed(value), bare);
  EXPECT_EQ(valueToStrep(value), quoted);
  EXPECT_TRUE(strepToValue<T>(quoted) == value) << bare;
  T read;
  read.handleInitialized(String8(bare));
  EXPECT_TRUE(read == value) << bare;
}

/// Every value is less than those after it, and equal to itself alone.
template <class T>
void expectAscending(std::vector<T> const& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) {
      EXPECT_EQ(values[i] < values[k], i < k) << values[i] << " < " << values[k];
      EXPECT_EQ(values[i] == values[k], i == k) << values[i] << " == " << values[k];
      EXPECT_EQ(values[i] != values[k], i != k) << values[i] << " != " << values[k];
    }
  }
}

TEST(AddressFamily, HasItsNumbersNamesAndInstances) {
  EXPECT_EQ(AddressFamily{}, AddressFamily::unset);
  std::pair<U32, char const*> cases[] = {{0, "unset"}, {1, "ipv4"}, {2, "ipv6"}};
  for (auto [number, name] : cases) {
    AddressFamily af = Lanet::AddressFamilyInstance(number);
    EXPECT_EQ(static_cast<U32>(af), number);
    EXPECT_EQ(stringValue(af), name);
    EXPECT_EQ(Lanet::AddressFamilyInstance(String8(name)), af);
    EXPECT_EQ(strepToValue<AddressFamily>(valueToStrep(af)), af);
  }
  EXPECT_EQ(rangeError([] { Lanet::AddressFamilyInstance(3); }), "AddressFamily");
  EXPECT_EQ(rangeError([] { Lanet::AddressFamilyInstance("ipv5"); }), "AddressFamily");
  EXPECT_EQ(stringValue(static_cast<AddressFamily>(3)), "AddressFamily(3)");
}

TEST(IpAddr, IsHeldInNetworkByteOrder) {
  IpAddr addr = IpAddr::fromHost(0x0a000001);
  EXPECT_EQ(addr.hostWord(), 0x0a000001u);
  EXPECT_EQ(addr.netWord(), htonl(0x0a000001));
  U8 const wire[4] = {10, 0, 0, 1};
  EXPECT_EQ(std::memcmp(&addr, wire, 4), 0);
  EXPECT_EQ(IpAddr::fromNet(addr.netWord()), addr);
  EXPECT_EQ(IpAddr().hostWord(), 0u);
}

TEST(IpAddr, TextIsADottedQuadBothWays) {
  for (char const* text : {"0.0.0.0", "10.0.0.1", "224.0.0.13", "255.255.255.255", "1.2.3.4"}) {
    expectText(IpAddr::fromNet(inet_addr(text)), text);
  }
}

char const* const noIpv4[] = {
    "1",       "1.2.3",     "1.2.3.4.5",        "1.2.3.256", "1.2.3.-4", "1.2.3.4 ",  " 1.2.3.4",
    "1.2..4",  ".1.2.3.4",  "1.2.3.",           "01.2.3.4",  "1.2.3.00", "1.2.3.4/8", "+1.2.3.4",
    "a.b.c.d", "0x1.2.3.4", "1.2.3.4294967297", "1,2,3,4",   "'1.2.3.4'"};

TEST(IpAddr, BadTextIsRejectedAndNamed) {
  for (char const* text : noIpv4) {
    EXPECT_EQ(rangeError([&] { IpAddr::parse(text); }), std::string("'") + text + "' is no IPv4 address");
  }
  EXPECT_EQ(rangeError([] { IpAddr::parse(""); }), "'' is no IPv4 address");
  EXPECT_EQ(rangeError([] { IpAddr::parse("::1"); }), "'::1' is no IPv4 address");
  EXPECT_THROW(IpAddr::parse(String8(std::string_view("1.2.3.4\0", 8))), Zet::RangeException);
  EXPECT_EQ(rangeError([] { strepToValue<IpAddr>("10.0.0.1"); }),
            "needed a string in single quotes at column 0");
}

TEST(IpAddr, OrderIsNumericAndNotByteSwapped) {
  expectAscending<IpAddr>({v4("0.0.0.0"), v4("9.0.0.1"), v4("10.0.0.1"), v4("10.0.0.2"), v4("10.0.1.0"),
                           v4("200.0.0.1"), v4("255.255.255.255")});
}

TEST(IpAddr, MulticastIsTheRangeOf224) {
  std::pair<char const*, bool> cases[] = {{"223.255.255.255", false}, {"224.0.0.0", true},
                                          {"239.255.255.255", true},  {"240.0.0.0", false},
                                          {"0.0.0.0", false},         {"255.255.255.255", false}};
  for (auto [text, multicast] : cases) {
    EXPECT_EQ(v4(text).isMulticast(), multicast) << text;
    EXPECT_EQ(gen(text).isMulticast(), multicast) << text;
  }
}

// mixHash is one to one (see its own test), so no peer can choose addresses that fall into one chain.
TEST(IpAddr, HashMapsTheAddressOneToOne) {
  for (char const* text : {"0.0.0.0", "10.0.0.1", "255.255.255.255"}) {
    EXPECT_EQ(v4(text).hash(), mixHash(v4(text).hostWord())) << text;
    EXPECT_EQ(rhash(v4(text)), bitReverse(v4(text).hash())) << text;
  }
}

TEST(Ip6Addr, TextIsTheShortFormBothWays) {
  for (char const* text :
       {"::", "::1", "1::", "2001:db8::1", "ff02::d", "1:2:3:4:5:6:7:8", "fe80::1:0:0:1", "1:0:2:3:4:5:6:7",
        "1:0:0:2::3", "0:1:2:3:4:5:6:7", "1:2:3:4:5:6:7:0", "abcd:ef01:2345:6789:abcd:ef01:2345:6789"}) {
    expectText(Ip6Addr::parse(text), text);
  }
}

TEST(Ip6Addr, TheFirstOfEqualRunsOfZerosIsLeftOut) {
  EXPECT_EQ(Ip6Addr::parse("1:0:0:2:0:0:3:4").stringValue(), "1::2:0:0:3:4");
}

Ip6Addr byPlatform(char const* text) {
  Ip6Addr::Bytes bytes{};
  EXPECT_EQ(inet_pton(AF_INET6, text, bytes.data()), 1) << text;
  return Ip6Addr(bytes);
}

TEST(Ip6Addr, EveryFormIsReadAsThePlatformReadsIt) {
  for (char const* text :
       {"::", "::1", "1::", "2001:DB8:0000::0001", "::ffff:1.2.3.4", "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8",
        "1:2:3:4:5:6:1.2.3.4", "1::1.2.3.4", "0:0:0:0:0:0:0:0", "1:0:0:0:2:0:0:3"}) {
    EXPECT_EQ(Ip6Addr::parse(text), byPlatform(text)) << text;
  }
}

char const* const noIpv6[] = {":",
                              ":::",
                              "1",
                              "1:2:3:4:5:6:7",
                              "1:2:3:4:5:6:7:8:9",
                              "1::2::3",
                              ":1::2",
                              "1:2:3:4:5:6:7:",
                              "12345::",
                              "00001::",
                              "g::",
                              "::1%eth0",
                              "1:2:3:4::5:6:7:8",
                              "::1.2.3.4:1",
                              "1.2.3.4::",
                              "::1.2.3",
                              "1:2:3:4:5:6:7:1.2.3.4",
                              ":1:2:3:4:5:6:7:8",
                              "::-1",
                              " ::1",
                              "::1 ",
                              "1:2:3:4:5:6:7:8:",
                              "::1:"};

TEST(Ip6Addr, BadTextIsRejectedAndNamed) {
  for (char const* text : noIpv6) {
    Ip6Addr::Bytes bytes{};
    EXPECT_NE(inet_pton(AF_INET6, text, bytes.data()), 1) << "a good text: " << text;
    EXPECT_EQ(rangeError([&] { Ip6Addr::parse(text); }), std::string("'") + text + "' is no IPv6 address");
  }
  EXPECT_THROW(Ip6Addr::parse(""), Zet::RangeException);
  EXPECT_THROW(Ip6Addr::parse("10.0.0.1"), Zet::RangeException);
}

TEST(Ip6Addr, HashWithTwelveZeroBytesAfterIsThatOfTheIpv4Address) {
  for (char const* text : {"0.0.0.0", "10.0.0.1", "224.0.0.13", "255.255.255.255"}) {
    EXPECT_EQ(IpGenAddr(v4(text)).v6Addr().hash(), v4(text).hash()) << text;
  }
}

TEST(Ip6Addr, HashDependsOnEveryByte) {
  std::set<U32> hashes = {Ip6Addr().hash()};
  for (std::size_t at = 0; at < 16; ++at) {
    Ip6Addr::Bytes bytes{};
    bytes[at] = 1;
    hashes.insert(Ip6Addr(bytes).hash());
  }
  EXPECT_EQ(hashes.size(), 17u);
}

TEST(IpGenAddr, TheUnsetAddressIsNotTheZeroAddress) {
  IpGenAddr unset;
  IpGenAddr zero = IpAddr();
  EXPECT_TRUE(unset.isEmpty());
  EXPECT_FALSE(zero.isEmpty());
  EXPECT_EQ(unset.af(), AddressFamily::unset);
  EXPECT_EQ(zero.af(), AddressFamily::ipv4);
  EXPECT_NE(unset, zero);
  EXPECT_EQ(unset.v4Addr(), zero.v4Addr());
  EXPECT_EQ(unset.hash(), zero.hash());
  EXPECT_TRUE(unset < zero);
}

TEST(IpGenAddr, TextShowsTheFamilyBothWays) {
  for (char const* text : {"0.0.0.0", "10.0.0.1", "255.255.255.255"}) expectText(IpGenAddr(v4(text)), text);
  for (char const* text : {"::", "::1", "2001:db8::1"}) expectText(IpGenAddr(Ip6Addr::parse(text)), text);
  expectText(IpGenAddr(), "");
}

TEST(IpGenAddr, BadTextIsRejectedAndNamed) {
  for (char const* text : noIpv4) {
    EXPECT_EQ(rangeError([&] { IpGenAddr::parse(text); }), std::string("'") + text + "' is no IP address");
  }
  for (char const* text : noIpv6) EXPECT_THROW(IpGenAddr::parse(text), Zet::RangeException) << text;
}

TEST(IpGenAddr, OrderIsFamilyFirstAndThenTheNumber) {
  expectAscending<IpGenAddr>({gen(""), gen("0.0.0.0"), gen("9.0.0.1"), gen("10.0.0.1"), gen("200.0.0.1"),
                              gen("::"), gen("::1"), gen("a00:1::"), gen("c800:1::")});
}

TEST(IpGenAddr, Ipv4ViewIsTheFirstFourBytes) {
  EXPECT_EQ(gen("10.0.0.1").v4Addr(), v4("10.0.0.1"));
  EXPECT_EQ(gen("a00:1::").v4Addr(), v4("10.0.0.1"));
  EXPECT_EQ(gen("").v4Addr(), IpAddr());
}

TEST(IpGenAddr, MulticastOfIpv6IsTheRangeOfFf) {
  EXPECT_TRUE(gen("ff02::d").isMulticast());
  EXPECT_FALSE(gen("fe80::d").isMulticast());
  EXPECT_FALSE(gen("e000::").isMulticast());
  EXPECT_FALSE(gen("").isMulticast());
}

TEST(IpGenAddr, RhashIsTheHashOfAllSixteenBytesBitReversed) {
  for (char const* text : {"", "0.0.0.0", "10.0.0.1", "::1", "2001:db8::1"}) {
    EXPECT_EQ(rhash(gen(text)), bitReverse(gen(text).v6Addr().hash())) << text;
  }
  EXPECT_EQ(rhash(gen("10.0.0.1")), bitReverse(0x51590679u));
}

TEST(IpGenPrefix, HostBitsAreAlwaysCleared) {
  struct Case {
    char const* given;
    char const* kept;
  };
  for (Case c : {Case{"10.1.2.3/8", "10.0.0.0/8"}, Case{"255.255.255.255/0", "0.0.0.0/0"},
                 Case{"255.255.255.255/1", "128.0.0.0/1"}, Case{"255.255.255.255/31", "255.255.255.254/31"},
                 Case{"255.255.255.255/32", "255.255.255.255/32"}, Case{"239.1.2.3/20", "239.1.0.0/20"},
                 Case{"ffff:ffff::1/17", "ffff:8000::/17"}, Case{"ffff::1/0", "::/0"},
                 Case{"ffff::1/127", "ffff::/127"}, Case{"ffff::1/128", "ffff::1/128"}}) {
    EXPECT_EQ(prefix(c.given), prefix(c.kept)) << c.given;
    EXPECT_EQ(prefix(c.given).stringValue(), c.kept);
  }
  EXPECT_EQ(IpGenPrefix(gen("10.1.2.3"), 8), prefix("10.0.0.0/8"));
  EXPECT_EQ(IpGenPrefix(gen("10.1.2.3"), 8).address(), gen("10.0.0.0"));
}

TEST(IpGenPrefix, OfAHostHasTheFullLength) {
  EXPECT_EQ(IpGenPrefix(gen("10.1.2.3")), prefix("10.1.2.3/32"));
  EXPECT_EQ(IpGenPrefix(gen("::1")), prefix("::1/128"));
  EXPECT_EQ(IpGenPrefix(gen("")), IpGenPrefix());
}

TEST(IpGenPrefix, TheEmptyPrefixIsNotTheZeroPrefix) {
  IpGenPrefix empty;
  IpGenPrefix zero = prefix("0.0.0.0/0");
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_FALSE(zero.isEmpty());
  EXPECT_EQ(empty.af(), AddressFamily::unset);
  EXPECT_EQ(zero.af(), AddressFamily::ipv4);
  EXPECT_EQ(zero.length(), 0u);
  EXPECT_NE(empty, zero);
  EXPECT_TRUE(empty < zero);
}

TEST(IpGenPrefix, TextGoesBothWays) {
  for (char const* text : {"", "0.0.0.0/0", "224.0.0.0/4", "10.1.2.3/32", "::/0", "ff00::/8", "::1/128"}) {
    expectText(prefix(text), text);
  }
}

TEST(IpGenPrefix, BadTextIsRejectedAndNamed) {
  for (char const* text :
       {"/", "/8", "10.0.0.0", "10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/+8", "10.0.0.0/08", "10.0.0.0/8 ",
        "10.0.0.0/8/8", "10.0.0.0/x", "10.0.0.0/4294967296", "10.0.0.0/ 8", "224.0.0.0-4"}) {
    EXPECT_EQ(rangeError([&] { IpGenPrefix::parse(text); }), std::string("'") + text + "' is no IP prefix");
  }
  EXPECT_EQ(rangeError([] { IpGenPrefix::parse("10.0.0/8"); }), "'10.0.0' is no IP address");
}

TEST(IpGenPrefix, ALengthBeyondTheFamilyIsRejected) {
  EXPECT_EQ(rangeError([] { prefix("10.0.0.0/33"); }), "prefix length 33 is above 32");
  EXPECT_EQ(rangeError([] { prefix("::/129"); }), "prefix length 129 is above 128");
  EXPECT_EQ(rangeError([] { IpGenPrefix(gen("10.0.0.0"), 33); }), "prefix length 33 is above 32");
  EXPECT_EQ(rangeError([] { IpGenPrefix(gen(""), 1); }), "prefix length 1 is above 0");
}

TEST(IpGenPrefix, OrderIsFamilyThenAddressThenLength) {
  expectAscending<IpGenPrefix>({prefix(""), prefix("0.0.0.0/0"), prefix("0.0.0.0/8"), prefix("9.0.0.0/8"),
                                prefix("10.0.0.0/8"), prefix("10.0.0.0/16"), prefix("10.1.0.0/16"),
                                prefix("200.0.0.0/8"), prefix("::/0"), prefix("::/1")});
}

TEST(IpGenPrefix, ContainsWhatLiesWithin) {
  struct Case {
    char const* outer;
    char const* inner;
    bool within;
  };
  for (Case c : {Case{"10.0.0.0/8", "10.255.0.0/16", true}, Case{"10.0.0.0/8", "10.0.0.0/8", true},
                 Case{"10.0.0.0/8", "10.0.0.0/7", false}, Case{"10.0.0.0/8", "11.0.0.0/8", false},
                 Case{"10.0.0.0/8", "11.0.0.0/16", false}, Case{"0.0.0.0/0", "10.0.0.1/32", true},
                 Case{"10.0.0.1/32", "0.0.0.0/0", false}, Case{"0.0.0.0/0", "::/0", false},
                 Case{"::/0", "0.0.0.0/0", false}, Case{"ff00::/8", "ff02::/16", true},
                 Case{"ff00::/8", "fe00::/16", false}, Case{"", "10.0.0.0/8", false},
                 Case{"0.0.0.0/0", "", false}, Case{"", "", false}}) {
    EXPECT_EQ(prefix(c.outer).contains(prefix(c.inner)), c.within) << c.outer << " " << c.inner;
  }
}

TEST(IpGenPrefix, ContainsTheAddressesOfItsRange) {
  EXPECT_TRUE(prefix("224.0.0.0/4").contains(gen("224.0.0.0")));
  EXPECT_TRUE(prefix("224.0.0.0/4").contains(gen("239.255.255.255")));
  EXPECT_FALSE(prefix("224.0.0.0/4").contains(gen("240.0.0.0")));
  EXPECT_FALSE(prefix("224.0.0.0/4").contains(gen("223.255.255.255")));
  EXPECT_TRUE(prefix("0.0.0.0/0").contains(gen("1.2.3.4")));
  EXPECT_FALSE(prefix("0.0.0.0/0").contains(gen("::1")));
  EXPECT_FALSE(prefix("0.0.0.0/0").contains(gen("")));
  EXPECT_FALSE(prefix("a00:1::/64").contains(gen("10.0.0.1")));
  EXPECT_FALSE(prefix("").contains(gen("")));
}

TEST(IpGenPrefix, Ipv4ViewIsThePrefixItself) {
  EXPECT_EQ(prefix("239.0.0.0/8").v4Prefix(), Prefix(v4("239.0.0.0"), 8));
  EXPECT_EQ(IpGenPrefix(prefix("239.0.0.0/8").v4Prefix()), prefix("239.0.0.0/8"));
  EXPECT_EQ(prefix("").v4Prefix(), Prefix());
  EXPECT_EQ(prefix("ff00::/40").v4Prefix(), Prefix());
}

TEST(IpGenPrefix, RhashFollowsTheFamily) {
  EXPECT_EQ(rhash(prefix("10.0.0.0/8")), bitReverse(mixHash(0x0a000000u ^ 8u)));
  EXPECT_EQ(rhash(prefix("0.0.0.0/0")), bitReverse(mixHash(0)));
  EXPECT_EQ(rhash(prefix("224.0.0.0/4")), bitReverse(mixHash(0xe0000004u)));
  EXPECT_EQ(rhash(prefix("ff00::/8")), bitReverse(Ip6Addr::parse("ff00::").hash()));
  EXPECT_EQ(rhash(IpGenPrefix()), bitReverse(0));
}

TEST(Prefix, IsAMaskedIpv4Prefix) {
  EXPECT_EQ(Prefix(v4("10.1.2.3"), 8), Prefix::parse("10.0.0.0/8"));
  EXPECT_EQ(Prefix(), Prefix::parse("0.0.0.0/0"));
  for (char const* text : {"0.0.0.0/0", "10.0.0.0/8", "1.2.3.4/32"}) expectText(Prefix::parse(text), text);
  expectAscending<Prefix>(
      {Prefix(), Prefix(v4("9.0.0.0"), 8), Prefix(v4("10.0.0.0"), 8), Prefix(v4("10.0.0.0"), 9)});
  EXPECT_EQ(rhash(Prefix::parse("10.0.0.0/8")), rhash(prefix("10.0.0.0/8")));
}

TEST(Prefix, ContainsWhatLiesWithin) {
  Prefix ten = Prefix::parse("10.0.0.0/8");
  EXPECT_TRUE(ten.contains(v4("10.9.9.9")));
  EXPECT_FALSE(ten.contains(v4("11.0.0.0")));
  EXPECT_TRUE(ten.contains(ten));
  EXPECT_TRUE(ten.contains(Prefix::parse("10.1.0.0/16")));
  EXPECT_FALSE(ten.contains(Prefix::parse("11.0.0.0/8")));
  EXPECT_FALSE(ten.contains(Prefix()));
  EXPECT_TRUE(Prefix().contains(ten));
}

TEST(Prefix, BadTextIsRejectedAndNamed) {
  EXPECT_EQ(rangeError([] { Prefix::parse(""); }), "'' is no IPv4 prefix");
  EXPECT_EQ(rangeError([] { Prefix::parse("10.0.0.0"); }), "'10.0.0.0' is no IPv4 prefix");
  EXPECT_EQ(rangeError([] { Prefix::parse("::/0"); }), "'::' is no IPv4 address");
  EXPECT_EQ(rangeError([] { Prefix(v4("10.0.0.0"), 33); }), "prefix length 33 is above 32");
}

TEST(IntfId, IsTheNameOfAnInterface) {
  IntfId none;
  EXPECT_TRUE(none.isEmpty());
  expectText(none, "");
  IntfId eth0(String8("eth0"));
  EXPECT_FALSE(eth0.isEmpty());
  EXPECT_EQ(eth0.stringValue(), "eth0");
  expectText(eth0, "eth0");
  expectAscending<IntfId>({none, eth0, IntfId("eth1"), IntfId("wan")});
}

TEST(IntfId, OddNamesAreQuotedWithEscapes) {
  IntfId odd("a'b\\c");
  EXPECT_EQ(valueToStrep(odd), "'a\\'b\\\\c'");
  EXPECT_EQ(strepToValue<IntfId>(valueToStrep(odd)), odd);
  EXPECT_EQ(streamed(odd), "a'b\\c");
}

TEST(IntfId, RhashIsTheHashOfTheNameBitReversed) {
  EXPECT_EQ(IntfId("eth0").hash(), IntfId("eth0").hash());
  EXPECT_NE(IntfId("eth0").hash(), IntfId("eth1").hash());
  EXPECT_EQ(rhash(IntfId("eth0")), bitReverse(IntfId("eth0").hash()));
}

}  // namespace
