#include "protocol/BsrCandidateSm.h"

namespace Routing::Pim::Bsr {
void BsrCandidateSm::handleConstruction() {}
void BsrCandidateSm::handleInitialized() {}
void BsrCandidateSm::handleBsm() {}
void BsrCandidateSm::handleBsTimeout() {}
void BsrCandidateSm::handleBsrTimerExpiry() {}
void BsrCandidateSm::handleStateChange() {}
void BsrCandidateSm::doSendBsm(bool const&) {}
void BsrCandidateSm::ZetCandidate::handleElected() {}
void BsrCandidateSm::ZetCandidate::handlePriority() {}
void BsrCandidateSm::ZetCandidate::handleHashMaskLen() {}
void BsrCandidateSm::ZetCandidate::handleBsPeriod() {}
void BsrCandidateSm::ZetCandidate::handleIpChange() {}
}  // namespace Routing::Pim::Bsr
