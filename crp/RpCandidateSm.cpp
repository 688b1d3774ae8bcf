#include "crp/RpCandidateSm.h"

namespace Routing::Pim::Bsr {
void RpCandidateSm::handleConstruction() {}
void RpCandidateSm::handleInitialized() {}
void RpCandidateSm::handleBsr() {}
void RpCandidateSm::handleCrpAdvTimerExpiry() {}
void RpCandidateSm::doSendCrpAdv(bool const&) {}
void RpCandidateSm::ZetCrp::handleInterval() {}
void RpCandidateSm::ZetCrp::ZetPrefixOption::handlePriority() {}
}  // namespace Routing::Pim::Bsr
