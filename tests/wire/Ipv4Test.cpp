#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"
#include "wire/Checksum.h"

namespace pimbsr::wire::test {
namespace {

using testing::ElementsAre;

// From 10.0.0.5 to 224.0.0.13, TTL 1, with the four bytes of payload de ad be ef.
char const* const smallPacket = "45c0 0018 0000 0000 0167 cead 0a000005 e000000d deadbeef";

TEST(Ipv4, GivesAddressesAndPayload) {
  Buffer const bytes = hex(smallPacket);
  auto packet = parseIpv4(bytes);
  ASSERT_TRUE(packet) << nameOf(dropReason(packet));
  EXPECT_EQ(packet->source, ip("10.0.0.5"));
  EXPECT_EQ(packet->destination, ip("224.0.0.13"));
  EXPECT_EQ(packet->ttl, 1);
  EXPECT_EQ(packet->tos, 0xc0);
  EXPECT_THAT(packet->payload, ElementsAre(0xde, 0xad, 0xbe, 0xef));
}

struct Accepted {
  char const* label;
  char const* digits;
  std::size_t payloadSize;
};

TEST(Ipv4, TakesTheBoundsOfThePayloadFromTheHeader) {
  Accepted const cases[] = {
      {"padding of the link lies after the total length",
       "45c0 0018 0000 0000 0167 cead 0a000005 e000000d deadbeef 000000000000", 4},
      {"options lie before the payload",  // here the router alert
       "46c0 0019 0000 0000 0167 39a8 0a000005 e000000d 94040000 2a", 1},
      {"a packet may be a header alone", "45c0 0014 0000 0000 0167 ceb1 0a000005 e000000d", 0},
      {"a checksum of zero was left to hardware", "45c0 0018 0000 0000 0167 0000 0a000005 e000000d deadbeef",
       4},
      {"a packet that must not be fragmented is no fragment",
       "45c0 0018 0000 4000 0167 8ead 0a000005 e000000d deadbeef", 4},
      {"nor is one with the flag that has no meaning",
       "45c0 0018 0000 8000 0167 4ead 0a000005 e000000d deadbeef", 4},
  };
  for (Accepted const& c : cases) {
    Buffer const bytes = hex(c.digits);
    auto packet = parseIpv4(bytes);
    ASSERT_TRUE(packet) << c.label << ": " << nameOf(dropReason(packet));
    EXPECT_EQ(packet->payload.size(), c.payloadSize) << c.label;
  }
}

TEST(Ipv4, EveryTruncationIsDropped) {
  Buffer const whole = hex(smallPacket);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    EXPECT_EQ(dropReason(parseIpv4(cut(whole, n))), DropReason::truncated) << n << " bytes";
  }
}

TEST(Ipv4, WritesAHeaderThatReadsBack) {
  Buffer const payload = hex("0102030405");
  Buffer out = hex("ffff");
  Ipv4Header header{
      .source = ip("10.0.0.5"), .destination = ip("1.1.1.1"), .ttl = 64, .identification = 0x1234};
  ASSERT_TRUE(encodeIpv4(header, payload, out));
  EXPECT_EQ(cut(out, 12), hex("45c0 0019 1234 0000 4067 5b84")) << "the buffer's former content is gone";
  EXPECT_EQ(checksum(cut(out, 20)), 0);

  auto packet = parseIpv4(out);
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->source, header.source);
  EXPECT_EQ(packet->destination, header.destination);
  EXPECT_EQ(packet->ttl, 64);
  EXPECT_EQ(packet->tos, 0xc0) << "routing traffic unless said otherwise";
  EXPECT_EQ(Buffer(packet->payload.begin(), packet->payload.end()), payload);
}

TEST(Ipv4, WritesUpToTheLongestPacketAndNoFurther) {
  Buffer out;
  ASSERT_TRUE(encodeIpv4({}, Buffer(65515), out));
  EXPECT_EQ(out.size(), 65535u);
  EXPECT_TRUE(parseIpv4(out));
  EXPECT_FALSE(encodeIpv4({}, Buffer(65516), out));
  EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace pimbsr::wire::test
