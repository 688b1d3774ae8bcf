#include "wire/Checksum.h"

#include <cstddef>

namespace pimbsr::wire {

U16 checksum(std::span<U8 const> bytes) {
  U64 sum = 0;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) sum += static_cast<U32>(bytes[i] << 8 | bytes[i + 1]);
  if (bytes.size() % 2 != 0) sum += static_cast<U32>(bytes.back() << 8);
  while ((sum >> 16) != 0) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<U16>(~sum);
}

}  // namespace pimbsr::wire
