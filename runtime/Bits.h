#pragma once

#include "runtime/String8.h"
#include "runtime/Types.h"

namespace Zet {

/// The 32 bits in reverse order.
constexpr U32 bitReverse(U32 x) {
  x = ((x >> 1) & 0x55555555U) | ((x & 0x55555555U) << 1);
  x = ((x >> 2) & 0x33333333U) | ((x & 0x33333333U) << 2);
  x = ((x >> 4) & 0x0f0f0f0fU) | ((x & 0x0f0f0f0fU) << 4);
  return __builtin_bswap32(x);
}

/// Spreads the bits of a number. It maps the 32-bit numbers one to one, so distinct inputs never collide.
constexpr U32 mixHash(U32 x) {
  x = ~x + (x << 15);
  x = x ^ (x >> 12);
  x = x * 5;
  x = x ^ (x >> 4);
  x = x * 2057;
  x = x ^ (x >> 16);
  return x;
}

/// The bit-reversed hash by which a HashMap orders its members. Types of other modules have theirs beside
/// them, found by argument-dependent lookup.
constexpr U32 rhash(U32 key) { return bitReverse(key); }
/// That of a 16-bit number, equal to that of the same number in 32 bits.
constexpr U32 rhash(U16 key) { return bitReverse(key); }
/// That of an 8-bit number, equal to that of the same number in 32 bits.
constexpr U32 rhash(U8 key) { return bitReverse(key); }
/// That of a string, from its bytes alone.
inline U32 rhash(String8 const& key) { return bitReverse(key.hash()); }
/// That of a name, equal to that of the same string.
inline U32 rhash(Name const& key) { return bitReverse(key.hash()); }

}  // namespace Zet
