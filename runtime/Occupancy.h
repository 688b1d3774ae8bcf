#pragma once

#include <bit>

#include "runtime/Meter.h"
#include "runtime/Types.h"

namespace Zet {

/// Which buckets of a table are in use: one bit for each bucket, and above every 64 words one word that says
/// which of them have a bit set. A search for the next bucket in use costs one step per level, however many
/// empty buckets lie between.
///
/// It is a view: the words are the table's, all zero or filled at first.
class Occupancy {
 public:
  static constexpr U32 none = ~U32{0};  ///< no bucket

  /// A table of 2 to the power of `bits` buckets, bits at most 31; `words` are words(bits) of them.
  Occupancy(U64* words, U32 bits) : words_(words), bits_(bits) {}

  /// Number of words that a table of 2 to the power of `bits` buckets needs.
  static constexpr U32 words(U32 bits) {
    U32 count = levelWords(bits);
    for (; bits > wordBits; bits -= wordBits) count += levelWords(bits - wordBits);
    return count;
  }

  /// Marks those buckets of a table that aren't 0 as in use, and no others, whatever the words were.
  void fill(U64 const* table) {
    U64* level = words_;
    for (U32 bits = bits_;; bits -= wordBits) {
      U32 const size = 1u << bits;
      for (U32 i = 0; i < size; i += 64) level[i / 64] = bitsOf(table + i, size - i);
      if (bits <= wordBits) return;
      table = level;
      level += levelWords(bits);
    }
  }

  /// Marks a bucket as in use.
  void set(U32 index) {
    U64* level = words_;
    for (U32 bits = bits_;; bits -= wordBits) {
      U64& word = level[index / 64];
      bool const wasEmpty = word == 0;
      word |= bit(index);
      Meter::visit();
      if (!wasEmpty || bits <= wordBits) return;
      level += levelWords(bits);
      index /= 64;
    }
  }

  /// Marks a bucket as empty.
  void clear(U32 index) {
    U64* level = words_;
    for (U32 bits = bits_;; bits -= wordBits) {
      U64& word = level[index / 64];
      word &= ~bit(index);
      Meter::visit();
      if (word != 0 || bits <= wordBits) return;
      level += levelWords(bits);
      index /= 64;
    }
  }

  /// The first bucket in use from `index` on, or none.
  U32 next(U32 index) const { return nextIn(words_, bits_, index); }

 private:
  static constexpr U32 wordBits = 6;

  static constexpr U32 levelWords(U32 bits) { return bits <= wordBits ? 1 : 1u << (bits - wordBits); }
  static constexpr U64 bit(U32 index) { return U64{1} << (index % 64); }

  /// One bit for each of the first 64 words that isn't 0, or of all if there are fewer.
  static U64 bitsOf(U64 const* words, U32 count) {
    Meter::visit(count < 64 ? count : 64);
    U64 bits = 0;
    for (U32 i = 0; i < 64 && i < count; ++i) bits |= U64{words[i] != 0} << i;
    return bits;
  }

  static U32 nextIn(U64 const* level, U32 bits, U32 index) {
    Meter::visit();
    if (index >> bits != 0) return none;
    U64 const rest = level[index / 64] >> (index % 64);
    if (rest != 0) return index + static_cast<U32>(std::countr_zero(rest));
    if (bits <= wordBits) return none;
    U32 const word = nextIn(level + levelWords(bits), bits - wordBits, index / 64 + 1);
    return word == none ? none : word * 64 + static_cast<U32>(std::countr_zero(level[word]));
  }

  U64* words_;
  U32 bits_;
};

}  // namespace Zet
