#pragma once

#include "runtime/Types.h"

namespace pimbsr::pim {

/// Timers and DR priority of an interface's Hellos (RFC 7761 section 4.11).
struct HelloOptions {
  double period = 30.0;         ///< seconds between two Hellos
  double triggeredDelay = 5.0;  ///< seconds within which a new neighbor gets a triggered Hello
  U16 holdtime = 105;           ///< seconds for which neighbors are to keep this router; 0xffff for ever
  U32 drPriority = 1;           ///< higher wins the election of the Designated Router
  /// Another program sends the Hellos, from the same address. Neighbors are learned all the same, and a new
  /// one gets the RP set as if a Hello had been sent.
  bool silent = false;

  bool operator==(HelloOptions const&) const = default;
};

}  // namespace pimbsr::pim
