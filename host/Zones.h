#pragma once

#include "model/Packet.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// The zone of a message: that of its first record, if it is scoped, else the global one.
PIMBSR_API Lanet::IpGenPrefix zoneOf(Routing::Pim::Packet::BootstrapMessage const& message);

/// The RP sets of a zone; null if it has none.
PIMBSR_INTERNAL Zet::Ptr<Routing::Pim::RpCandidateStatus> rpSetsOf(Routing::Pim::Bsr::Status const& status,
                                                                   Lanet::IpGenPrefix const& zone);

/// Whether the engine takes advertisements of a zone that were sent to this address.
PIMBSR_INTERNAL bool isElectedAt(Routing::Pim::Bsr::Status const& status, Lanet::IpGenPrefix const& zone,
                                 Lanet::IpGenAddr const& address);

}  // namespace pimbsr::host
