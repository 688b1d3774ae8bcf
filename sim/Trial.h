#pragma once

#include <string>

#include "sim/Checkers.h"

namespace pimbsr::sim {

/// What came of one seed.
struct TrialResult {
  Findings findings;     ///< empty if all is as it must be
  std::string scenario;  ///< the whole course as a scenario
  U64 events = 0;        ///< events that the network ran
};

/// Seconds from the healing until everybody must agree: three hold times of an RP, by when one is gone whose
/// candidate and BSR died together, and a period for the last message to go round.
inline constexpr U32 settling = 3 * 180 + 90;

/// Plays the random scenario of a seed: break, heal, settle, compare; then restarts one router and sees that
/// it learns from its neighbours at once. The same seed and number of routers give the same course.
/// `report` hears of everything and may be null.
TrialResult runTrial(U64 seed, U32 routers, Report* report = nullptr);

}  // namespace pimbsr::sim
