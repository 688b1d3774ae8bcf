#pragma once

#include "cli/capture/LinkLayer.h"

namespace pimbsr::cli {

/// Whether the header of an IP packet says that it carries PIM; for IPv6 after any extension headers. Nothing
/// else in it is validated. A packet that is cut before that field is none.
bool isPim(IpPacket const& packet);

}  // namespace pimbsr::cli
