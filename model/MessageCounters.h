#pragma once

#include "model/MessageCounters.zet.h"

namespace Routing::Pim::IO {

/// Sets every count of the table to 0; its entries stay.
PIMBSR_API void clearMessageCounters(Zet::ValidPtr<Slosh::MessageCounters> const& counters);

}  // namespace Routing::Pim::IO
