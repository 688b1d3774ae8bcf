#pragma once

/// The root machine of the Bootstrap Router, one per router.
///
/// It decides nothing of an election. It comes up when Status.af becomes IPv4, and from then on keeps three
/// families of machines in step with the status tree and the network:
///
///   candidateSm     one per zone of Status.cbsr          comes and goes with the entry
///   nonCandidateSm  one per zone learned from a message  comes with the first message, goes when the zone
///                                                        dies or this router becomes a candidate there
///   rpCandidateSm   one per address and priority of Status.crp
///
/// A zone has at most one zone machine. An accepted Bootstrap Message is handed to the machine of the zone
/// that its first group names (RFC 5059 section 3.1.1): the prefix of an admin scoped group, else the global
/// zone.
///
///   not initialized --af is 1--> initialized --af is neither 1 nor 2--> not initialized
///   any state --af is 2--> the process ends: IPv6 is not served
///
/// Its one timer, the fragment timer, paces the scans for incomplete group ranges and runs only while there
/// are any.
///
/// Its members are in several sources: PimBsrSm.cpp has life and dispatch, RpSetStore.cpp the RP set,
/// RxFragments.cpp incomplete ranges, BsmForwarding.cpp and TriggeredBsm.cpp the sending, and crp/ the
/// reactors on candidate RPs (RpCandidates.cpp) and on the RP-set tree (RpTree.cpp).
#include "protocol/PimBsrSm.zet.h"
