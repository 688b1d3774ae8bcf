#include "host/Machines.h"

#include <algorithm>

#include "host/RouterParts.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"

namespace pimbsr::host {

using Routing::Pim::Bsr::BsrCandidateState;
using Routing::Pim::Bsr::BsrNonCandidateState;

std::string_view nameOf(BsrCandidateState state) {
  switch (state) {
    case BsrCandidateState::cBsr:
      return "Candidate-BSR";
    case BsrCandidateState::pBsr:
      return "Pending-BSR";
    case BsrCandidateState::eBsr:
      return "Elected-BSR";
    default:
      return "No Info";
  }
}

std::string_view nameOf(BsrNonCandidateState state) {
  switch (state) {
    case BsrNonCandidateState::acceptAny:
      return "Accept Any";
    case BsrNonCandidateState::acceptPreferred:
      return "Accept Preferred";
    default:
      return "No Info";
  }
}

std::optional<double> leftOf(Kiv::TimerWheel::NotifieeConst const* timer, double now) {
  if (timer == nullptr || !timer->isArmed()) return std::nullopt;
  return std::max(0.0, timer->timeMin() - now);
}

MachineView machineOf(Router const& router, Lanet::IpGenPrefix const& zone, double now) {
  if (auto machine = partsOf(router).root->candidateSm(zone)) {
    return {.state = nameOf(machine->state()),
            .candidate = true,
            .elected = machine->state() == BsrCandidateState::eBsr,
            .bootstrapTimer = leftOf(machine->zetBsTimer(), now)};
  }
  if (auto machine = partsOf(router).root->nonCandidateSm(zone)) {
    return {.state = nameOf(machine->state()),
            .bootstrapTimer = leftOf(machine->zetBsTimer(), now),
            .scopeZoneTimer = leftOf(machine->zetSzTimer(), now)};
  }
  return {};
}

std::string_view sentenceOf(RpTieBreak tieBreak) {
  switch (tieBreak) {
    case RpTieBreak::onlyOne:
      return "the only RP of its range";
    case RpTieBreak::priority:
      return "the lowest priority";
    case RpTieBreak::hash:
      return "the highest hash among the lowest priority";
    case RpTieBreak::address:
      return "the highest address among equals";
    default:
      return "no group range with a live RP covers it";
  }
}

}  // namespace pimbsr::host
