#pragma once

#include <cstdint>

namespace Zet {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

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
