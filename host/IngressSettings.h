#pragma once

#include "host/IngressSettings.zet.h"

namespace pimbsr::host {

using Zet::U32;

/// The bounds that every program uses unless its operator sets others. No checks.
inline constexpr IngressSettings standardLimits = [] {
  IngressSettings ingress;
  defaultLimitsIs(ingress);
  return ingress;
}();

}  // namespace pimbsr::host
