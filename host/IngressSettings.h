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

/// What agent and simulator use unless their operator says otherwise: the standard bounds, and every check.
inline constexpr IngressSettings standardIngress = [] {
  IngressSettings ingress = standardLimits;
  defaultChecksIs(ingress);
  return ingress;
}();

}  // namespace pimbsr::host
