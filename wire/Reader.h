#pragma once

#include <cstddef>
#include <span>

#include "runtime/Types.h"

namespace pimbsr::wire {

/// Bytes of a packet, of which the caller is the owner.
using Bytes = std::span<U8 const>;

/// Cursor over received bytes, in network byte order. It never reads past their end: from the first read that
/// would, ok() is false for good, every read gives 0, and nothing is left.
class Reader {
 public:
  /// Starts at the first of the bytes, which outlive it.
  explicit Reader(Bytes bytes) : rest_(bytes) {}

  /// False once a read or skip went past the end.
  bool ok() const { return ok_; }
  /// How many bytes are not read yet.
  std::size_t left() const { return rest_.size(); }
  /// The bytes that are not read yet.
  Bytes rest() const { return rest_; }

  /// Reads one byte.
  U8 u8() { return static_cast<U8>(number<1>()); }
  /// Reads two bytes.
  U16 u16() { return static_cast<U16>(number<2>()); }
  /// Reads four bytes.
  U32 u32() { return number<4>(); }

  /// The next n bytes; none if fewer are left.
  Bytes bytes(std::size_t n) {
    if (n > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    Bytes taken = rest_.first(n);
    rest_ = rest_.subspan(n);
    return taken;
  }

 private:
  template <std::size_t n>
  U32 number() {
    U32 value = 0;
    for (U8 byte : bytes(n)) value = value << 8 | byte;
    return value;
  }

  Bytes rest_;
  bool ok_ = true;
};

}  // namespace pimbsr::wire
