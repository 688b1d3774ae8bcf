// The reactors of the root machine on this router's own candidate RPs: they keep one RpCandidateSm for each
// pair of candidate address and priority that some group range asks for.

#include "crp/RpCandidateSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

static CrpOptions optionsOf(PimBsrSm::ZetCrp::ZetOptions const& reactor) {
  return CrpOptions(reactor.owner()->fwkKey(), reactor.notifier()->priority());
}

void PimBsrSm::ZetCrp::ZetOptions::handlePriority() {
  CrpOptions options = optionsOf(*this);
  PimBsrSm& root = *pimBsrSm();
  if (!root.initialized()) return;
  if (options.priority() == RpPriority()) return;
  ZET_TRACE(trace, 8, "Created RpcandidateSm with options " << options.pretty());
  root.rpCandidateSmIs(options, root.bsrStatus(), root.bsrTrie(), root.timerWheel());
}

static bool isPriorityUsed(RpCandidate const& crp, RpPriority const& priority) {
  for (auto at = crp.prefixOptionsIterator(); at; ++at) {
    if (at->priority() == priority) return true;
  }
  return false;
}

void PimBsrSm::ZetCrp::ZetOptions::handleDel() {
  PimBsrSm& root = *pimBsrSm();
  if (!root.initialized()) return;
  CrpOptions options = optionsOf(*this);
  Ptr<RpCandidate> crp = root.bsrStatus()->crp(options.rpAddress());
  if (crp && isPriorityUsed(*crp, options.priority())) return;
  Ptr<RpCandidateSm> machine = root.rpCandidateSm(options);
  if (!machine) return;
  machine->doSendCrpAdv(true);
  root.rpCandidateSmDel(options);
  ZET_TRACE(trace, 8, "RpCandidateSm " << options.pretty() << " deleted");
}

void PimBsrSm::ZetCrp::handleDel() {
  PimBsrSm& root = *pimBsrSm();
  for (auto at = root.rpCandidateSmIterator(); at; ++at) {
    CrpOptions options = at->crpOptions();
    if (options.rpAddress() != fwkKey()) continue;
    at->doSendCrpAdv(true);
    ZET_TRACE(trace, 8, "Deleted CRP SM " << options.rpAddress() << " with priority " << options.priority());
    root.rpCandidateSmDel(options);
  }
}

}  // namespace Routing::Pim::Bsr
