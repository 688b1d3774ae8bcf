#pragma once

#include <optional>

#include "host/Observer.h"
#include "view/History.h"

/// The learned state of a router as it is shown, by the agent, the simulator and the replay.
namespace pimbsr::view {

/// What a BSR announces of itself; nothing for one without an address.
std::optional<BsrTerms> termsOf(host::BsrView const& bsr);
/// What is announced of an RP; nothing for one without an address.
std::optional<RpTerms> termsOf(host::RpView const& rp);

/// The reverse; the expiry time is 0.
host::BsrView bsrOf(BsrTerms const& terms);
host::RpView rpOf(RpTerms const& terms);

}  // namespace pimbsr::view
