#pragma once

#include <span>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace pimbsr::wire {

/// The Internet checksum of the bytes (RFC 1071): the one's complement of the one's complement sum of their
/// 16-bit words, an odd last byte being followed by a zero. Over bytes that hold their own right checksum it
/// is 0; over no bytes it is 0xffff.
PIMBSR_API U16 checksum(std::span<U8 const> bytes);

}  // namespace pimbsr::wire
