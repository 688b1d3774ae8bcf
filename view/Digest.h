#pragma once

#include <string>

#include "host/Views.h"

namespace pimbsr::view {

/// What a digest is made from, as lines of text: docs/control.md defines it. `now` is on the clock of the
/// RPs' expiry.
std::string digestTextOf(host::ZoneView const& zone, double now);

/// 8 hexadecimal digits, the CRC-32 of that text: two routers with equal digits have learned the same BSR and
/// the same RPs of the zone, but for one pair in 4,294,967,296.
std::string digestOf(host::ZoneView const& zone, double now);

}  // namespace pimbsr::view
