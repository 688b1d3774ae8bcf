#pragma once

#include <span>
#include <string_view>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace pimbsr::wire {

/// Why a packet was refused. Every refusal of this room has exactly one reason: the first that its bytes
/// give.
enum class DropReason : U8 {
  ipHeader,
  ipProtocol,
  ipFragment,
  truncated,
  version,
  type,
  checksum,
  addressFamily,
  encoding,
  prefixLength,
  groupNotMulticast,
  bsrNotUnicast,
  rpNotUnicast,
  rpTwice,
  fragRpCount,
  prefixCount,
  prefixTwice,
  helloOption,
};

/// The stable name of a reason in kebab case, such as "rp-twice", for counters and reports.
PIMBSR_API std::string_view name(DropReason reason);

/// One sentence for people that says what was wrong with the packet.
PIMBSR_API std::string_view sentence(DropReason reason);

/// All reasons, in the order of their numbers, which run from 0 without a gap.
PIMBSR_API std::span<DropReason const> dropReasons();

}  // namespace pimbsr::wire
