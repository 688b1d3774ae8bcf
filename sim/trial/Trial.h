#pragma once

#include <string>

#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "sim/trial/Checkers.h"

namespace pimbsr::sim {

/// The result of one seed.
struct TrialResult {
  Findings findings;     ///< empty if all is as it must be
  std::string scenario;  ///< the whole course as a scenario
  U64 events = 0;        ///< events that the network ran
};

/// What all routers of a random network check, bound and correct. With all corrections a fifth of the
/// networks are mixed domains, in which some routers have no corrections and checks.
struct TrialSettings {
  host::IngressSettings ingress = host::standardIngress;
  host::CorrectionSettings corrections = host::allCorrections;
};

/// Seconds from the healing until all routers must agree: three holdtimes of an RP, after which an RP is
/// removed whose candidate and BSR ended together, and BS_Period for the last message to be flooded.
inline constexpr U32 settling = 3 * 180 + 90;

/// Plays the random scenario of a seed: break, heal, settle, compare; makes one change where all routers are
/// corrected, sees that none that keeps running is without BSR and RP for longer than the timers allow;
/// then restarts one router and sees that it learns from its neighbors at once. The packets
/// are watched all the time. The same seed and number of routers give the same course. `report` receives all
/// events and may be null.
TrialResult runTrial(U64 seed, U32 routers, TrialSettings const& settings = {}, Report* report = nullptr);

}  // namespace pimbsr::sim
