#pragma once

/// Candidate BSR of one zone: takes part in the election (RFC 5059 section 3.1.1).
///
///   noInfoBsr --the candidate is complete--> pBsr (eBsr where Status says that it was elected before)
///   cBsr --Bootstrap Timer or a message of lower weight--> pBsr
///   pBsr --Bootstrap Timer--> eBsr: take over, originate
///   eBsr --Bootstrap Timer or a message of lower weight--> eBsr: originate
///   any  --message of equal or higher weight--> cBsr: step down, follow
///
/// Bootstrap Timer, its only one: bsTimeout while another is followed, the random delay bs_rand_override()
/// before it claims the zone, bsPeriod between its own messages, and 10 seconds while its RP set is still
/// empty.
///
/// `storedBsr` is the machine's own elected BSR, which it compares messages with;
/// Status.bootstrapRouter(zone) is what it publishes. The reactor `candidate` follows the configured
/// candidacy.
///
/// Deviations from RFC 5059: a preferred message leads to cBsr from every state, also one of equal weight in
/// eBsr; the first message after an election is followed by one 10 seconds later where the RP set is empty;
/// the random delay is cut to whole seconds. BsrCandidate.state isn't kept up by the transitions: it is
/// written only when `state` is written by name.
#include "protocol/BsrCandidateSm.zet.h"
