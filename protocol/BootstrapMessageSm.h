#pragma once

/// The gate between the message I/O manager and the root machine, for Bootstrap Messages.
///
/// Inbound it runs the checks of RFC 5059 section 3.1.3 that don't depend on the election, in this order:
/// destination, RPF neighbor or quick refresh, border. It counts the outcome and publishes an accepted
/// message in bsmStatus, whose write of rxBsm runs the root machine inside the call. Outbound it passes on
/// what the root machine wrote there.
///
///   not initialized --construction--> initialized, for good
///
/// It has no timer. Deviations from the RFC: a unicast message is always dropped, so that the unicast refresh
/// isn't served; the source of a No-Forward message isn't compared with the RPF neighbor; such messages are
/// taken only within one Bootstrap Period of this router's start and until the zone's `lastBsm` is set.
#include "protocol/BootstrapMessageSm.zet.h"
