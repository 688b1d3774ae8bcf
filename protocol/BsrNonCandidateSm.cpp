#include "protocol/BsrNonCandidateSm.h"

#include "protocol/PimBsrSm.h"
#include "protocol/StoreRules.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Packet::BootstrapMessage;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::NonCandidateSm", "BsrNonCandidateSm");

// Construction ----------------------------------------------------------------------------------------

void BsrNonCandidateSm::handleConstruction() {
  handleInitialized();
  handleBsm();
}

void BsrNonCandidateSm::handleInitialized() {
  ZET_TRACE_ENTRY(trace);
  stateIs(isGlobalZone() ? BsrNonCandidateState::acceptAny : BsrNonCandidateState::noInfo);
  if (Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone())) {
    stateIs(BsrNonCandidateState::acceptPreferred);
    elected->expiryTimeIs(Zet::now() + bsrStatus()->bsTimeout());
    zetBsTimer()->timeMinIs(elected->expiryTime());
    ZET_TRACE(trace, 8, " Next BS timer expiry is in " << bsrStatus()->bsTimeout() << " seconds from now.");
  }
  initializedIs(true);
}

bool BsrNonCandidateSm::isGlobalZone() const { return zone() == bsrSm()->globalOrNonScopeZone(); }

// A message -------------------------------------------------------------------------------------------

static void clearRpSet(BsrNonCandidateSm const& machine, Lanet::IpGenAddr const* oldBsr) {
  IpGenPrefix zone = machine.zone();
  Ptr<PimBsrRpCandidateStatus> rpSet = machine.bsrStatus()->crpStatus(zone);
  if (!rpSet) return;
  if (oldBsr == nullptr) {
    ZET_TRACE(trace, 8, "Clearing RP Set for zone " << zone << " since we have a new BSR");
  } else {
    ZET_TRACE(trace, 8,
              "Clearing RP Set for zone " << zone << " since we have a new BSR"
                                          << ". Old BSR was " << *oldBsr);
  }
  Ptr<RpCandidateStatus> set = rpSet->status();
  if (!set) return;
  if (Ptr<StoreRules> rules = machine.bsrSm()->storeRules()) rules->handleElection(zone);
  set->crpSetDelAll();
}

void BsrNonCandidateSm::handleBsm() {
  if (!initialized() || !bsm()) {
    ZET_TRACE(trace, 8,
              "Initialized=" << (initialized() ? "True" : "False") << ", bsm=" << (bsm() ? "Set" : "NULL"));
    return;
  }
  Ptr<BootstrapMessage> message = bsm();
  stateIs(BsrNonCandidateState::acceptPreferred);
  if (Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone())) {
    PimBsrWeight received(message->bsrPriority(), message->bsrAddress());
    PimBsrWeight known(static_cast<U8>(elected->priority()), elected->ipAddr());
    if (received < known) {
      ZET_TRACE(trace, 8,
                "Received Non Preferred BSM. "
                    << "Nothing to be done.");
      return;
    }
    handlePreferredBsm();
  } else {
    handleNewBsr();
  }
  if (!isGlobalZone()) zetSzTimer()->timeMinIs(Kiv::never);
  // Forward before store, so that the neighbors wait for nothing; store before keeping, since the store
  // decides what is held of the message's fragments; the timer last, for the time that was written above.
  if (message->forward()) {
    bsrSm()->forwardBsm(zone(), message);
  } else {
    ZET_TRACE(trace, 8, "Not Forwarding bootstrap message since noForward bit is set");
  }
  bsrSm()->storeRpSet(zone(), message, false);
  keepBsm();
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone());
  zetBsTimer()->timeMinIs(elected->expiryTime());
  ZET_TRACE(trace, 8,
            " Next BS timer expiry is in " << elected->expiryTime() - Zet::now() << " seconds from now.");
}

void BsrNonCandidateSm::handleNewBsr() {
  clearRpSet(*this, nullptr);
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouterIs(zone());
  elected->ipAddrIs(bsm()->bsrAddress());
  elected->priorityIs(bsm()->bsrPriority());
  elected->hashMaskLenIs(bsm()->hashMaskLen());
  elected->setupTimeIs(Zet::now());
  elected->expiryTimeIs(Zet::now() + bsrStatus()->bsTimeout());
  ZET_TRACE(trace, 8,
            "Created BSR state: IP=" << elected->ipAddr() << ", Priority=" << elected->priority()
                                     << ", hashMaskLen=" << elected->hashMaskLen() << " for Zone " << zone());
}

void BsrNonCandidateSm::handlePreferredBsm() {
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone());
  if (elected->ipAddr() != bsm()->bsrAddress()) {
    Lanet::IpGenAddr oldBsr = elected->ipAddr();
    clearRpSet(*this, &oldBsr);
    elected->ipAddrIs(bsm()->bsrAddress());
    elected->setupTimeIs(Zet::now());
  }
  elected->priorityIs(bsm()->bsrPriority());
  elected->hashMaskLenIs(bsm()->hashMaskLen());
  ZET_TRACE(trace, 8,
            "Received preferred BSR state: IP=" << elected->ipAddr() << ", Priority=" << elected->priority()
                                                << ", hashMaskLen=" << elected->hashMaskLen() << " for Zone "
                                                << zone());
  elected->expiryTimeIs(Zet::now() + bsrStatus()->bsTimeout());
}

/// A message that may be forwarded is kept for new neighbors, together with what is held of its fragments.
/// What was held for another tag, or for a message that must not be kept, goes.
void BsrNonCandidateSm::keepBsm() {
  bool forward = bsm()->forward();
  lastBsmIs(forward ? bsm() : Ptr<BootstrapMessage>());
  Ptr<PimBsrRxFragments> held = lastBsmFragments();
  if (held && (!forward || held->fragTag() != bsm()->fragmentTag())) {
    bsrSm()->bsmRxFragmentsDel(held->fragTag());
    ZET_TRACE(trace, 8, "Removing saved fragments related to tag " << held->fragTag());
  }
  lastBsmFragmentsIs(forward ? bsrSm()->bsmRxFragments(bsm()->fragmentTag()) : Ptr<PimBsrRxFragments>());
}

// The timers ------------------------------------------------------------------------------------------

void BsrNonCandidateSm::handleBsrTimerExpiry() {
  if (!initialized()) return;
  if (state() != BsrNonCandidateState::acceptPreferred) {
    ZET_TRACE(trace, 1, "Invalid event Bootstrap Timer Expiry in state " << state());
    return;
  }
  stateIs(BsrNonCandidateState::acceptAny);
  bsrSm()->refreshRpSet(zone(), lastBsm());
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone());
  ZET_TRACE(
      trace, 8,
      "Removing BSR " << (elected ? elected->ipAddr() : Lanet::IpGenAddr()) << " state for zone " << zone());
  bsrStatus()->bootstrapRouterDel(zone());
  if (isGlobalZone()) return;
  zetSzTimer()->timeMinIs(Zet::now() + bsrStatus()->szTimeout());
  ZET_TRACE(trace, 8, " Next SZ timer expiry is in " << bsrStatus()->szTimeout() << " seconds from now.");
}

void BsrNonCandidateSm::handleSzTimerExpiry() {
  if (!initialized()) return;
  if (state() != BsrNonCandidateState::acceptAny) {
    ZET_TRACE(trace, 1,
              "Invalid event Scope Zone Timer Expiry in state " << state() << " for zone " << zone());
    return;
  }
  stateIs(BsrNonCandidateState::noInfo);
  ZET_TRACE(trace, 8, "Deleted Zone " << zone());
  // The machine ends here: the zone is copied, and no member is used after this call.
  IpGenPrefix gone = zone();
  bsrSm()->nonCandidateSmDel(gone);
}

void BsrNonCandidateSm::handleBsTimeout() {
  if (!initialized()) return;
  double due = zetBsTimer()->timeMin();
  if (!Kiv::isTimeSet(due)) {
    ZET_TRACE(trace, 8, "BS timer not set. Nothing to be done. ");
    return;
  }
  U32 timeout = bsrStatus()->bsTimeout();
  double remaining = due - Zet::now();
  if (remaining < timeout) return;
  zetBsTimer()->timeMinIs(Zet::now() + timeout);
  if (auto elected = bsrStatus()->bootstrapRouter(zone())) elected->expiryTimeIs(Zet::now() + timeout);
  ZET_TRACE(trace, 8,
            "BS timer expiry was in " << remaining << " seconds from now. Resetting BS timer expiry to "
                                      << timeout << " seconds from now.");
}

void BsrNonCandidateSm::handleSzTimeout() {
  if (!initialized() || !szTimer()) return;
  double due = zetSzTimer()->timeMin();
  if (!Kiv::isTimeSet(due)) {
    ZET_TRACE(trace, 8, "SZ timer not set. Nothing to be done. ");
    return;
  }
  U32 timeout = bsrStatus()->szTimeout();
  double remaining = due - Zet::now();
  if (remaining < timeout) return;
  zetSzTimer()->timeMinIs(Zet::now() + timeout);
  ZET_TRACE(trace, 8,
            "SZ timer expiry was in " << remaining << " seconds from now. Restting SZ timer expiry to "
                                      << timeout << " seconds from now.");
}

}  // namespace Routing::Pim::Bsr
