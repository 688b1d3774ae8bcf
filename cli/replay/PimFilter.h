#pragma once

#include "cli/replay/LinkLayer.h"

namespace pimbsr::cli {

/// Whether an IP packet says that it carries PIM; for IPv6 behind any extension headers. Nothing else in it
/// is judged. A packet that is cut before it says so is none.
bool isPim(IpPacket const& packet);

}  // namespace pimbsr::cli
