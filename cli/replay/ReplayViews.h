#pragma once

#include <span>

#include "cli/replay/Replay.h"
#include "view/ReplayEvents.h"

namespace pimbsr::cli {

// The timeline of `pimbsr replay --json`.

/// A message, decoded from its packet, with its verdict and the changes that it made.
view::ReplayEvent eventOf(PlayedMessage const& played, std::span<host::Change const> changes);
/// The changes that timers made at a time, in seconds after the first packet.
view::ReplayEvent eventOf(double time, std::span<host::Change const> changes);

}  // namespace pimbsr::cli
