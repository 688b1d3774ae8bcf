#pragma once

#include "host/Screening.zet.h"

namespace pimbsr::host {

using Zet::U32;

/// The bounds that every program uses unless its operator sets others. No checks.
inline constexpr Screening standardLimits = [] {
  Screening screening;
  defaultLimitsIs(screening);
  return screening;
}();

}  // namespace pimbsr::host
