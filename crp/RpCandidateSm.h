#pragma once

/// Advertises one candidate RP at one priority to the elected BSRs (RFC 5059 section 3.2).
///
/// It sorts those group ranges of its RpCandidate that carry its priority into one set per zone, by longest
/// match in the trie of zones that have a BSR, and sends each zone's set to that zone's BSR.
///
///   created, or a zone gained or changed its BSR --0 to 2 s--> send --> ... --interval--> send --> ...
///
/// Its one timer, crpAdvTimer, is drawn from 0 to 2 seconds at the start and three times after a change of
/// zone, and is `interval` from then on. A range that no zone with a BSR covers is advertised nowhere. A set
/// that has become empty stays, and nothing is sent for it.
///
/// Deviation from RFC 5059: the holdtime is 3 times the interval and not 2.5 times.
#include "crp/RpCandidateSm.zet.h"
