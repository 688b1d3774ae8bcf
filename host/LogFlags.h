#pragma once

#include "runtime/Types.h"

namespace pimbsr::host {

/// LogHandle::rateFlags() of lines whose argument begins with a group range, by which they are limited, and a
/// space if more follows. The handle itself limits none of them: it would drop lines, whichever range they
/// are about.
inline constexpr Zet::U8 limitedByRange = 1;

}  // namespace pimbsr::host
