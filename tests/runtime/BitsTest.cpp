#include "runtime/Bits.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Zet::bitReverse;
using Zet::mixHash;
using Zet::rhash;
using Zet::U16;
using Zet::U32;
using Zet::U8;

TEST(BitReverse, EachBitGoesToItsMirrorPlace) {
  for (int bit = 0; bit < 32; ++bit) EXPECT_EQ(bitReverse(1u << bit), 0x80000000u >> bit) << bit;
  EXPECT_EQ(bitReverse(0), 0u);
  EXPECT_EQ(bitReverse(0x12345678u), 0x1e6a2c48u);
  EXPECT_EQ(bitReverse(bitReverse(0xdeadbeefu)), 0xdeadbeefu);
}

// Worked out apart from this code, with the six steps taken in unbounded arithmetic and cut to 32 bits.
TEST(MixHash, GivesTheKnownNumbers) {
  struct Case {
    U32 in;
    U32 out;
  };
  for (Case c :
       {Case{0, 0xcaa3caa3u}, Case{1, 0x12d60bf6u}, Case{0x0a000001u, 0x51590679u}, Case{~0u, 0xbd55fc18u}}) {
    EXPECT_EQ(mixHash(c.in), c.out) << std::hex << c.in;
  }
}

/// Undoes x ^ (x >> shift).
U32 unshift(U32 x, int shift) {
  U32 result = x;
  for (int done = shift; done < 32; done += shift) result = x ^ (result >> shift);
  return result;
}

/// The number that an odd factor must be multiplied by to give 1.
U32 inverseOf(U32 factor) {
  U32 inverse = 1;
  for (int i = 0; i < 5; ++i) inverse *= 2 - factor * inverse;
  return inverse;
}

U32 unmix(U32 x) {
  x = unshift(x, 16) * inverseOf(2057);
  x = unshift(x, 4) * inverseOf(5);
  x = unshift(x, 12);
  return (x + 1) * inverseOf((1u << 15) - 1);  // ~x + (x << 15) is x * (2^15 - 1) - 1
}

TEST(MixHash, IsOneToOneSinceEachStepCanBeUndone) {
  U32 x = 0;
  for (int i = 0; i < 1000000; ++i) {
    ASSERT_EQ(unmix(mixHash(x)), x);
    x += 2654435769u;
  }
}

TEST(Rhash, OfANumberIsTheNumberBitReversed) {
  EXPECT_EQ(rhash(U8{0x81}), bitReverse(0x81));
  EXPECT_EQ(rhash(U16{0x8001}), bitReverse(0x8001));
  EXPECT_EQ(rhash(U32{0x80010001u}), bitReverse(0x80010001u));
}

TEST(Rhash, OfAStringIsItsHashBitReversed) {
  EXPECT_EQ(rhash(Zet::String8("eth0")), bitReverse(Zet::String8("eth0").hash()));
  EXPECT_EQ(rhash(Zet::Name("eth0")), rhash(Zet::String8("eth0")));
}

}  // namespace
