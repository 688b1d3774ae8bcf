#pragma once

#include <set>

#include "host/PreferredRps.h"
#include "model/DropReason.h"
#include "model/Packet.h"

namespace pimbsr::host {

/// Which Bootstrap Messages an operator admits (RFC 5059 section 6).
struct PIMBSR_API BsmPolicy {
  std::set<Lanet::IntfId> closed;  ///< interfaces along which none is sent, and on which none is taken
  AddressLists bsrs;               ///< the BSRs of which messages are taken; empty for all

  /// Why a received message is dropped; `none` for one that is admitted.
  DropReason validate(Lanet::IntfId const& intfId,
                      Routing::Pim::Packet::BootstrapMessage const& message) const;
};

}  // namespace pimbsr::host
