#pragma once

#include "model/Packet.h"
#include "model/RpSet.h"

namespace Routing::Pim::Bsr {

/// Appends one group record to a message under construction: the RPs of `set`, or, where that is null and
/// `flags` isn't 0, the empty record of `zone`; else nothing. RP Count and Frag RP Count are the number of
/// RPs cut to 8 bits. An RP with holdtime 0 goes out as such, once: its `expires` becomes now, and its hold
/// timer removes it.
PIMBSR_API void doAddGroupData(Packet::BootstrapMessage& bsm, Zet::Ptr<RpCandidateSet> const& set,
                               Lanet::IpGenPrefix const& zone, U8 flags);

/// Appends all group records of a zone: the zone's own first in a scoped zone, then the others in walk order.
/// `rpSet` is null for a zone without one.
PIMBSR_API void addZoneGroups(Packet::BootstrapMessage& bsm, Zet::Ptr<RpCandidateStatus> const& rpSet,
                              Lanet::IpGenPrefix const& zone, bool scoped);

}  // namespace Routing::Pim::Bsr
