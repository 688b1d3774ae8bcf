#pragma once

/// Follows the elected BSR of one zone on a router that is no candidate there (RFC 5059 section 3.1.2).
///
///   noInfo           --message: clear the RP set, make the entry-->      acceptPreferred
///   acceptAny        --message: clear the RP set, make the entry-->      acceptPreferred
///   acceptPreferred  --message of equal or higher weight-->              acceptPreferred
///   acceptPreferred  --Bootstrap Timer: drop the entry-->                acceptAny
///   acceptAny        --Scope Zone Timer-->                               the machine is gone
///
/// A message of lower weight is ignored in acceptPreferred.
///
/// A scoped zone starts in noInfo, the global zone in acceptAny, and either in acceptPreferred where Status
/// already names a BSR. The zone's BSR lives in Status.bootstrapRouter and not here: acceptPreferred holds
/// exactly while that entry exists.
///
/// Bootstrap Timer: Status.bsTimeout, armed by each preferred message; it fires and isn't re-armed.
/// Scope Zone Timer: Status.szTimeout, armed where the Bootstrap Timer expires in a scoped zone, stopped by
/// each preferred message.
///
/// Deviations from RFC 5059: the Scope Zone Timer runs after the Bootstrap Timer and not beside it, so that a
/// scoped zone lives for the sum of both after its last message; preference is the weight alone, so a message
/// of the current BSR with a lower priority is ignored until the Bootstrap Timer expires; the RP set is
/// cleared when the BSR changes and merged otherwise.
#include "protocol/BsrNonCandidateSm.zet.h"
