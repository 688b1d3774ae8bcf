#pragma once

#include <cstddef>
#include <vector>

#include "runtime/Assert.h"
#include "runtime/Types.h"

namespace pimbsr::wire {

/// Appends numbers in network byte order to a buffer that the caller owns.
class Writer {
 public:
  explicit Writer(std::vector<U8>& out) : out_(out) {}

  void u8(U8 value) { out_.push_back(value); }
  void u16(U16 value) {
    u8(static_cast<U8>(value >> 8));
    u8(static_cast<U8>(value));
  }
  void u32(U32 value) {
    u16(static_cast<U16>(value >> 16));
    u16(static_cast<U16>(value));
  }

  /// Where the next byte goes, counted from the start of the buffer.
  std::size_t position() const { return out_.size(); }

  /// Overwrites bytes that were written already.
  void u8At(std::size_t at, U8 value) {
    ZET_ASSERT(at < out_.size(), "only what is written can be overwritten");
    out_[at] = value;
  }
  void u16At(std::size_t at, U16 value) {
    u8At(at, static_cast<U8>(value >> 8));
    u8At(at + 1, static_cast<U8>(value));
  }

 private:
  std::vector<U8>& out_;
};

}  // namespace pimbsr::wire
