#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string const head = "2000 0000";

HelloMessage accepted(Buffer const& bytes) {
  auto outcome = readHello(cut(bytes, bytes.size()));
  EXPECT_TRUE(outcome) << nameOf(dropReason(outcome));
  return outcome ? *outcome : HelloMessage{};
}

TEST(Hello, OfARealRouterGivesItsOptions) {
  auto hello =
      accepted(hex("2000 aa6e 0001 0002 0069 0014 0004 3f0ef4cd 0013 0004 00000001 0015 0004 01000000"));
  EXPECT_EQ(hello.srcAddr, sender());
  EXPECT_EQ(hello.dstAddr, receiver());
  EXPECT_EQ(hello.holdtime, 105);
  EXPECT_EQ(hello.generationId, 1057944781u);
  EXPECT_EQ(hello.drPriority, 1u);
  EXPECT_THAT(hello.addressList, IsEmpty());
}

TEST(Hello, WithoutOptionsMeansTheDefaults) {
  auto hello = accepted(message(head));
  EXPECT_EQ(hello.holdtime, 105);
  EXPECT_FALSE(hello.generationId);
  EXPECT_FALSE(hello.drPriority) << "a priority that is not said differs from one of 0";
  EXPECT_THAT(hello.addressList, IsEmpty());
}

TEST(Hello, ListsFurtherAddresses) {
  auto hello = accepted(message(head + "0018 000c 0100 0a000001 0100 0a000002"));
  EXPECT_THAT(hello.addressList, ElementsAre(ip("10.0.0.1"), ip("10.0.0.2")));
}

TEST(Hello, TakesTheLastOfAnOptionThatComesTwiceAndAllAddresses) {
  auto hello = accepted(message(
      head +
      "0001 0002 0005 0018 0006 0100 0a000001 0001 0002 0000 0018 0006 0100 0a000002 0013 0004 ffffffff"));
  EXPECT_EQ(hello.holdtime, 0);
  EXPECT_EQ(hello.drPriority, 0xffffffffu);
  EXPECT_THAT(hello.addressList, ElementsAre(ip("10.0.0.1"), ip("10.0.0.2")));
}

TEST(Hello, IgnoresWhatHasNoMeaning) {
  auto const plain = accepted(message(head + "0001 0002 001e"));
  struct Odd {
    char const* label;
    std::string digits;
  };
  Odd const cases[] = {
      {"flags of the message", "20ff 0000 0001 0002 001e"},
      {"an unknown option", head + "fde9 0003 010203 0001 0002 001e"},
      {"an unknown option without a value", head + "0000 0000 0001 0002 001e"},
      {"an empty address list", head + "0018 0000 0001 0002 001e"},
      {"an address list of another family",
       head + "0018 0012 0200 20010db8000000000000000000000001 0001 0002 001e"},
      {"a rest too short for an option", head + "0001 0002 001e 000100"},
      {"padding", head + "0001 0002 001e 00000000000000000000"},
  };
  for (Odd const& odd : cases) EXPECT_EQ(accepted(message(odd.digits)), plain) << odd.label;
}

TEST(Hello, EveryTruncationIsDroppedUnlessItEndsBetweenOptions) {
  Buffer const whole = message(head + "0001 0002 0069 0014 0004 01020304 0018 0006 0100 0a000001");
  ASSERT_EQ(whole.size(), 28u);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    // A rest of fewer than 4 bytes after the header or after an option is no option.
    bool complete = (n >= 4 && n < 8) || (n >= 10 && n < 14) || (n >= 18 && n < 22);
    auto outcome = readHello(checksummed(cut(whole, n)));
    EXPECT_EQ(nameOf(dropReason(outcome)), complete ? "accepted" : "truncated") << n << " bytes";
  }
}

TEST(Hello, IsWrittenWithItsOptionsInOrder) {
  HelloMessage hello{.holdtime = 7,
                     .drPriority = 1,
                     .generationId = 0x01020304,
                     .addressList = {ip("10.0.0.1"), ip("10.0.0.2")}};
  Buffer const bytes = written(hello);
  EXPECT_EQ(bytes, message(head + "0001 0002 0007 0013 0004 00000001 0014 0004 01020304"
                                  "0018 000c 0100 0a000001 0100 0a000002"));
  EXPECT_EQ(written(accepted(bytes)), bytes);
}

TEST(Hello, SaysItsHoldtimeAlsoWhenItSaysNothingElse) {
  EXPECT_EQ(written(HelloMessage{}), message(head + "0001 0002 0069"));
}

TEST(Hello, ReplacesTheContentOfTheBuffer) {
  Buffer out = hex("0102");
  encodeHello({}, out);
  EXPECT_EQ(out, written(HelloMessage{}));
}

TEST(Hello, LeavesOutAddressesThatReadingWouldDrop) {
  HelloMessage hello;
  hello.addressList = {Lanet::IpGenAddr(), ip("224.0.0.1"), ip("10.0.0.1"),
                       Lanet::IpGenAddr::parse("2001:db8::1")};
  EXPECT_THAT(accepted(written(hello)).addressList, ElementsAre(ip("10.0.0.1")));
  hello.addressList = {Lanet::IpGenAddr()};
  EXPECT_EQ(written(hello), written(HelloMessage{}));
}

TEST(Hello, ListsNoMoreAddressesThanAnOptionHolds) {
  HelloMessage hello;
  hello.addressList.assign(11000, ip("10.0.0.1"));
  EXPECT_EQ(accepted(written(hello)).addressList.size(), 65535u / 6);
}

}  // namespace
}  // namespace pimbsr::wire::test
