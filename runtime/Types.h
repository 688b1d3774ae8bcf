#pragma once

#include <cstdint>

namespace Zet {

using U8 = std::uint8_t;    ///< unsigned, 8 bits
using U16 = std::uint16_t;  ///< unsigned, 16 bits
using U32 = std::uint32_t;  ///< unsigned, 32 bits
using U64 = std::uint64_t;  ///< unsigned, 64 bits
using S32 = std::int32_t;   ///< signed, 32 bits
using S64 = std::int64_t;   ///< signed, 64 bits

}  // namespace Zet

/// The widths by their short names in each module's namespace.
#define ZET_IMPORT_WIDTHS \
  using Zet::S32;         \
  using Zet::S64;         \
  using Zet::U16;         \
  using Zet::U32;         \
  using Zet::U64;         \
  using Zet::U8;

namespace Interface {
ZET_IMPORT_WIDTHS
}
namespace Kiv {
ZET_IMPORT_WIDTHS
}
namespace Lanet {
ZET_IMPORT_WIDTHS
}
namespace Routing {
ZET_IMPORT_WIDTHS
}
namespace Slosh {
ZET_IMPORT_WIDTHS
}
namespace pimbsr {
ZET_IMPORT_WIDTHS
}

#undef ZET_IMPORT_WIDTHS
