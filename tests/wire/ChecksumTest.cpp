#include "wire/Checksum.h"

#include <gtest/gtest.h>

#include "tests/wire/WireSupport.h"

namespace pimbsr::wire::test {
namespace {

struct Case {
  char const* label;
  char const* digits;
  U16 sum;
};

TEST(Checksum, IsTheComplementOfTheOnesComplementSum) {
  Case const cases[] = {
      {"no bytes sum up to zero", "", 0xffff},
      {"one word", "1234", 0xedcb},
      {"the example of RFC 1071 section 3", "0001 f203 f4f5 f6f7", 0x220d},
      {"a carry is added at the low end", "ffff 0001", 0xfffe},
      {"a carry of the carry too", "ffff ffff ffff 0003", 0xfffc},
      {"an odd last byte is the high one of its word", "0001 02", 0xfdfe},
      {"words of ones alone", "ffff ffff", 0x0000},
  };
  for (Case const& c : cases) EXPECT_EQ(checksum(hex(c.digits)), c.sum) << c.label;
}

TEST(Checksum, IsZeroOverBytesThatHoldIt) {
  EXPECT_EQ(checksum(hex(twoRpBootstrap)), 0);
  EXPECT_EQ(checksum(hex(oneGroupAdvertisement)), 0);
}

TEST(Checksum, DoesNotOverflowOnTheLongestPacket) {
  EXPECT_EQ(checksum(Buffer(65534, 0xff)), 0);
  EXPECT_EQ(checksum(Buffer(65535, 0xff)), 0x00ff);
}

}  // namespace
}  // namespace pimbsr::wire::test
