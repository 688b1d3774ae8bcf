#pragma once

/// The gate between the message I/O manager and the root machine, for Candidate-RP-Advertisements (RFC 5059
/// section 3.2).
///
/// Inbound it drops an advertisement whose sender isn't covered by the permit trie, and publishes the others
/// in crpMsgStatus, one group at a time: each raise of readCount runs the root machine inside the call. The
/// signal is the write of `message`, so the same record delivered twice in a row is seen once. Outbound it
/// passes on what the candidate-RP machines wrote, or takes it into its own receive path where the BSR is
/// this router.
///
///   not initialized --construction--> initialized, for good
///
/// It has no timer. It owns the permit trie and its builder.
#include "crp/CrpMessageSm.zet.h"
