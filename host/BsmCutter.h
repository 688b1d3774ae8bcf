#pragma once

#include <vector>

#include "model/Packet.h"
#include "runtime/Export.h"
#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U32;

/// Sizes of a Bootstrap Message as it is encoded, in bytes (RFC 5059 section 4.1).
inline constexpr U32 bsmHeaderSize = 14;
inline constexpr U32 bsmGroupSize = 12;
inline constexpr U32 bsmRpSize = 10;
/// Of the IP header before it.
inline constexpr U32 ipHeaderSize = 20;

/// Bytes that a message takes once it is encoded, without the IP header.
PIMBSR_API U32 encodedSize(Routing::Pim::Packet::BootstrapMessage const& message);

/// Cuts a message that is too large into fragments of at most so many bytes each (RFC 5059 section 4.1.1):
/// between ranges, and within a range where it fits into no fragment. The fragments of a scoped zone begin
/// with the zone each. Takes at least 68 bytes for what is possible; no RP is left out.
PIMBSR_INTERNAL std::vector<Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>> cut(
    Routing::Pim::Packet::BootstrapMessage const& message, U32 maxSize);

/// A copy of a message without its groups.
PIMBSR_INTERNAL Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> headerOf(
    Routing::Pim::Packet::BootstrapMessage const& message);

}  // namespace pimbsr::host
