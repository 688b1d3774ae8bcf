#pragma once

#include <optional>
#include <string_view>

#include "host/Router.h"
#include "host/RpMap.h"
#include "model/Values.h"
#include "runtime/Export.h"
#include "runtime/TimerWheel.h"

namespace pimbsr::host {

/// What a router's machine of one zone says.
struct MachineView {
  std::string_view state = "-";          ///< as RFC 5059 names it; "-" where the zone has no machine
  bool candidate = false;                ///< this router is a candidate BSR there
  bool elected = false;                  ///< it is the elected BSR there
  std::optional<double> bootstrapTimer;  ///< seconds left; nothing if it doesn't run
  std::optional<double> scopeZoneTimer;  ///< seconds left; nothing if it doesn't run
};

/// The machine of a zone, with its timers at a time in seconds on the router's clock.
PIMBSR_API MachineView machineOf(Router const& router, Lanet::IpGenPrefix const& zone, double now);

/// Seconds that a timer has left, 0 where it is due; nothing for one that is null or doesn't run.
PIMBSR_API std::optional<double> leftOf(Kiv::TimerWheel::NotifieeConst const* timer, double now);

/// The names that RFC 5059 sections 3.1.1 and 3.1.2 give the states.
PIMBSR_API std::string_view nameOf(Routing::Pim::Bsr::BsrCandidateState state);
PIMBSR_API std::string_view nameOf(Routing::Pim::Bsr::BsrNonCandidateState state);

/// What decided between the RPs of a range, as in "the lowest priority", or that nothing did.
PIMBSR_API std::string_view sentenceOf(RpTieBreak tieBreak);

}  // namespace pimbsr::host
