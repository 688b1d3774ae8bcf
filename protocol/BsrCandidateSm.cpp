#include "protocol/BsrCandidateSm.h"

#include <algorithm>
#include <cmath>

#include "protocol/BsmOrigination.h"
#include "protocol/PimBsrSm.h"
#include "protocol/StoreRules.h"
#include "runtime/Assert.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::BootstrapMessage;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::CandidateSm", "BsrCandidateSm");

/// Interval until the second message of a BSR that has no RPs yet, so that the first advertisements are taken
/// up soon.
static constexpr U32 emptySetInterval = 10;

// Construction ----------------------------------------------------------------------------------------

void BsrCandidateSm::handleConstruction() { handleInitialized(); }

void BsrCandidateSm::handleInitialized() {
  if (initialized()) return;
  if (!candidate()) {
    // Binding replays the candidate's attributes, and each of them comes back here.
    candidateIs(bsrStatus()->cbsr(zone()));
    return;
  }
  if (!isComplete()) {
    ZET_TRACE(trace, 8,
              "Postponing initialization of CandidateSm "
                  << zone() << " till all the attributes of Candidate Bsr is initialized.");
    return;
  }
  followHoldtimeRule();
  stateIs(BsrCandidateState::pBsr);
  storedBsrIs(zone());
  storeCandidate();
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone());
  if (elected && stored() < PimBsrWeight(static_cast<U8>(elected->priority()), elected->ipAddr())) {
    storedBsr()->ipAddrIs(elected->ipAddr());
    storedBsr()->priorityIs(elected->priority());
    storedBsr()->hashMaskLenIs(elected->hashMaskLen());
  }
  if (candidate()->elected()) {
    stateIs(BsrCandidateState::eBsr);
    doUpdateElectedBsr();
  }
  if (state() == BsrCandidateState::eBsr) {
    // Sends nothing yet: the machine isn't initialized, and the first message leaves at the first expiry.
    doSendBsm(false);
    armTimerAndExpiry(candidate()->bsPeriod());
  } else {
    armTimer(bs_rand_override());
  }
  initializedIs(true);
}

bool BsrCandidateSm::isComplete() const {
  Ptr<BsrCandidate> c = candidate();
  return c->priority() != BsrCandidate::priorityUnknown() &&
         c->hashMaskLen() != BsrCandidate::hashMaskLenUnknown() &&
         c->bsPeriod() != BsrCandidate::bsPeriodUnknown() && !c->address().isEmpty();
}

bool BsrCandidateSm::isGlobalZone() const { return zone() == bsrSm()->globalOrNonScopeZone(); }

// Messages --------------------------------------------------------------------------------------------

void BsrCandidateSm::handleBsm() {
  if (!initialized() || !bsm()) return;
  PimBsrWeight received(bsm()->bsrPriority(), bsm()->bsrAddress());
  if (received < stored()) {
    handleNonPreferredBsm();
  } else {
    handlePreferredBsm();
  }
}

void BsrCandidateSm::handlePreferredBsm() {
  Ptr<BootstrapMessage> message = bsm();
  stateIs(BsrCandidateState::cBsr);
  // Runs handleElected where it was true: the entry goes, and the RP set is cleared.
  candidate()->electedIs(false);
  storedBsr()->ipAddrIs(message->bsrAddress());
  storedBsr()->priorityIs(message->bsrPriority());
  storedBsr()->hashMaskLenIs(message->hashMaskLen());
  doUpdateElectedBsr();
  forwardIfAllowed();
  bsrSm()->storeRpSet(zone(), message, false);
  armTimerAndExpiry(bsTimeout());
  if (!message->forward()) return;
  lastBsmIs(message);
  Ptr<PimBsrRxFragments> held = lastBsmFragments();
  if (held && held->fragTag() != message->fragmentTag()) {
    bsrSm()->bsmRxFragmentsDel(held->fragTag());
    ZET_TRACE(trace, 8, "Removing saved fragments related to tag " << held->fragTag());
  }
  lastBsmFragmentsIs(bsrSm()->bsmRxFragments(message->fragmentTag()));
}

/// A message of lower weight never reaches the RP set, and the machine's elected BSR is kept.
void BsrCandidateSm::handleNonPreferredBsm() {
  switch (state()) {
    case BsrCandidateState::cBsr:
      stateIs(BsrCandidateState::pBsr);
      forwardIfAllowed();
      armTimer(bs_rand_override());
      lastBsmIs(bsm());
      return;
    case BsrCandidateState::pBsr:
      // The timer isn't re-armed, so that a flood of inferior messages can't delay the takeover.
      forwardIfAllowed();
      lastBsmIs(bsm());
      return;
    case BsrCandidateState::eBsr:
      doSendBsm(false);
      armTimerAndExpiry(candidate()->bsPeriod());
      return;
    default:
      ZET_ASSERT(false, "0 && \"Invalid Candidate BSR state\"");
  }
}

void BsrCandidateSm::forwardIfAllowed() {
  if (bsm()->forward()) {
    bsrSm()->forwardBsm(zone(), bsm());
  } else {
    ZET_TRACE(trace, 8, "Not Forwarding bootstrap message since noForward bit is set");
  }
}

// The Bootstrap Timer ---------------------------------------------------------------------------------

void BsrCandidateSm::handleBsrTimerExpiry() {
  if (!initialized()) return;
  switch (state()) {
    case BsrCandidateState::cBsr:
      stateIs(BsrCandidateState::pBsr);
      armTimer(bs_rand_override());
      return;
    case BsrCandidateState::pBsr:
      if (bsrStatus()->crpStatus(zone())) {
        ZET_TRACE(trace, 8, "Clearing RP Set for zone " << zone() << " since we are now going to be the BSR");
        clearRpSet();
      }
      becomeElected();
      return;
    case BsrCandidateState::eBsr:
      becomeElected();
      return;
    default:
      ZET_ASSERT(false, "0 && \"Invalid Candidate BSR state\"");
  }
}

void BsrCandidateSm::becomeElected() {
  stateIs(BsrCandidateState::eBsr);
  storeCandidate();
  // Runs handleElected on a change: the entry is written.
  candidate()->electedIs(true);
  doSendBsm(false);
  Ptr<PimBsrRpCandidateStatus> rpSet = bsrStatus()->crpStatus(zone());
  bool empty = !rpSet || !rpSet->status() || rpSet->status()->crpSetCount() == 0;
  armTimerAndExpiry(empty ? emptySetInterval : candidate()->bsPeriod());
}

void BsrCandidateSm::armTimer(double const& seconds) { zetBsTimer()->timeMinIs(Zet::now() + seconds); }

void BsrCandidateSm::armTimerAndExpiry(double const& seconds) {
  armTimer(seconds);
  if (auto elected = bsrStatus()->bootstrapRouter(zone())) elected->expiryTimeIs(Zet::now() + seconds);
}

U32 BsrCandidateSm::bs_rand_override() const {
  ZET_ASSERT(bsrStatus()->af() == Lanet::AddressFamily::ipv4, "0 && \"IPV6 not supported.\"");
  U16 storedPriority = storedBsr()->priority();
  U16 myPriority = candidate()->priority();
  U16 bestPriority = std::max(storedPriority, myPriority);
  U32 myAddr = candidate()->address().v4Addr().hostWord();
  U32 bestAddr = std::max(storedBsr()->ipAddr().v4Addr().hostWord(), myAddr);
  double addrDelay = myPriority == bestPriority ? std::log2(1.0 + (bestAddr - myAddr)) * 0.0625
                                                : 2 - myAddr * 4.656612873077393e-10;
  double priorityDelay = 2 * std::log2(static_cast<double>(U32{1} + bestPriority - myPriority));
  double delay = 5 + priorityDelay + addrDelay;
  auto whole = static_cast<U32>(delay);
  ZET_TRACE(trace, 8, " Stored Priority=" << storedPriority << ", myPriority" << myPriority);
  ZET_TRACE(trace, 8,
            "addrDelay=" << addrDelay << ", priorityDelay=" << priorityDelay << ", delay=" << delay
                         << ", bs_rand_override=" << whole);
  return whole;
}

// The elected BSR -------------------------------------------------------------------------------------

PimBsrWeight BsrCandidateSm::stored() const {
  return PimBsrWeight(static_cast<U8>(storedBsr()->priority()), storedBsr()->ipAddr());
}

void BsrCandidateSm::storeCandidate() {
  storedBsr()->ipAddrIs(candidate()->address());
  storedBsr()->priorityIs(candidate()->priority());
  storedBsr()->hashMaskLenIs(candidate()->hashMaskLen());
}

void BsrCandidateSm::doUpdateElectedBsr() {
  Ptr<ElectedBsrStatus> elected = bsrStatus()->bootstrapRouter(zone());
  if (!elected) {
    elected = bsrStatus()->bootstrapRouterIs(zone());
    elected->setupTimeIs(Zet::now());
  }
  Ptr<ElectedBsrStatus> known = storedBsr();
  elected->ipAddrIs(known->ipAddr());
  elected->priorityIs(known->priority());
  elected->hashMaskLenIs(known->hashMaskLen());
  ZET_TRACE(trace, 8,
            "Added Elected BSR " << known->ipAddr() << " with priority " << known->priority()
                                 << ", hashMaskLen " << known->hashMaskLen());
}

void BsrCandidateSm::doDelElectedBsr() {
  ZET_TRACE(trace, 8, "Deleting " << storedBsr()->ipAddr() << " as elected BSR for zone");
  bsrStatus()->bootstrapRouterDel(zone());
}

void BsrCandidateSm::clearRpSet() {
  Ptr<PimBsrRpCandidateStatus> rpSet = bsrStatus()->crpStatus(zone());
  if (!rpSet) return;
  Ptr<RpCandidateStatus> set = rpSet->status();
  if (!set) return;
  if (Ptr<StoreRules> rules = bsrSm()->storeRules()) rules->handleElection(zone());
  set->crpSetDelAll();
}

void BsrCandidateSm::doSendBsm(bool const& shutDown) {
  ZET_TRACE(trace, 8, " ( shutdown=" << (shutDown ? "True" : "False") << " )");
  if (!initialized()) return;
  auto message = Zet::make<BootstrapMessage>();
  message->forwardIs(true);
  message->fragmentTagIs(static_cast<U16>(Zet::Context::current().rand()));
  message->hashMaskLenIs(static_cast<U8>(candidate()->hashMaskLen()));
  message->bsrPriorityIs(shutDown ? bsMinPriority() : static_cast<U8>(candidate()->priority()));
  message->bsrAddressIs(candidate()->address());
  message->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  Ptr<PimBsrRpCandidateStatus> rpSet = bsrStatus()->crpStatus(zone());
  addZoneGroups(*message, rpSet ? rpSet->status() : Ptr<RpCandidateStatus>(), zone(), !isGlobalZone());
  bsrSm()->forwardBsm(zone(), message);
  lastBsmIs(message);
  if (Ptr<StoreRules> rules = bsrSm()->storeRules()) rules->handleOriginated(zone(), *message);
}

// The candidacy ---------------------------------------------------------------------------------------

void BsrCandidateSm::ZetCandidate::handleElected() {
  BsrCandidateSm& machine = *owner();
  if (!machine.initialized()) return;
  IpGenAddr address = notifier()->address();
  if (notifier()->elected()) {
    ZET_TRACE(trace, 8, "We, " << address << " are elected as BSR for zone " << machine.zone());
    machine.doUpdateElectedBsr();
    return;
  }
  ZET_TRACE(trace, 8, "We, " << address << " are no longer BSR for zone " << machine.zone());
  machine.doDelElectedBsr();
  machine.clearRpSet();
}

/// Whether storedBsr follows a change of the candidate: it does if we are the BSR, or would now beat the one
/// there is. Where there is none the stored values stay as they are.
static bool followsCandidate(BsrCandidateSm const& machine, BsrCandidate const& candidate) {
  if (candidate.elected()) return true;
  Ptr<ElectedBsrStatus> elected = machine.bsrStatus()->bootstrapRouter(machine.zone());
  if (!elected) return false;
  return PimBsrWeight(static_cast<U8>(elected->priority()), elected->ipAddr()) <
         PimBsrWeight(static_cast<U8>(candidate.priority()), candidate.address());
}

static void requireElected(BsrCandidateSm const& machine) {
  ZET_ASSERT(machine.state() == BsrCandidateState::eBsr, "bsrCandidateSm()->state() == eBsr()");
}

void BsrCandidateSm::ZetCandidate::handlePriority() {
  BsrCandidateSm& machine = *owner();
  if (!machine.initialized()) return machine.handleInitialized();
  Ptr<BsrCandidate> candidate = notifier();
  ZET_TRACE(trace, 8, "Changing priority to " << candidate->priority() << " for zone " << machine.zone());
  if (followsCandidate(machine, *candidate)) machine.storeCandidate();
  if (!candidate->elected()) return;
  ZET_TRACE(trace, 8, "Changing priority of Elected BSR to " << candidate->priority());
  requireElected(machine);
  machine.doUpdateElectedBsr();
}

void BsrCandidateSm::ZetCandidate::handleIpChange() {
  BsrCandidateSm& machine = *owner();
  if (!machine.initialized()) return machine.handleInitialized();
  Ptr<BsrCandidate> candidate = notifier();
  ZET_TRACE(trace, 8, "Changing IP address to " << candidate->address() << " for zone " << machine.zone());
  if (followsCandidate(machine, *candidate)) machine.storeCandidate();
  if (!candidate->elected()) return;
  requireElected(machine);
  machine.doUpdateElectedBsr();
}

void BsrCandidateSm::ZetCandidate::handleHashMaskLen() {
  BsrCandidateSm& machine = *owner();
  if (!machine.initialized()) return machine.handleInitialized();
  Ptr<BsrCandidate> candidate = notifier();
  if (!candidate->elected()) return;
  ZET_TRACE(trace, 8, "Changing hashmask lenth of Elected BSR to " << candidate->hashMaskLen());
  requireElected(machine);
  machine.storedBsr()->hashMaskLenIs(candidate->hashMaskLen());
  machine.doUpdateElectedBsr();
}

/// Shortens what remains on the Bootstrap Timer to the new period; false if the timer isn't set.
static bool shortenToPeriod(BsrCandidateSm& machine, U32 period) {
  double due = machine.zetBsTimer()->timeMin();
  if (!Kiv::isTimeSet(due)) {
    ZET_TRACE(trace, 8, "BS timer not set. Nothing to be done. ");
    return false;
  }
  double remaining = due - Zet::now();
  if (remaining < period) return true;
  if (machine.state() == BsrCandidateState::eBsr) {
    machine.armTimerAndExpiry(period);
  } else {
    machine.armTimer(period);
  }
  ZET_TRACE(trace, 8,
            "BS timer expiry was in " << remaining << " seconds from now. Resetting BS timer expiry to "
                                      << period << " seconds from now.");
  return true;
}

void BsrCandidateSm::ZetCandidate::handleBsPeriod() {
  BsrCandidateSm& machine = *owner();
  U32 period = notifier()->bsPeriod();
  if (!machine.initialized()) {
    machine.handleInitialized();
  } else if (machine.state() != BsrCandidateState::cBsr) {
    if (!shortenToPeriod(machine, period)) return;
  }
  // Compares the machine's own timeout, and not that of Status as elsewhere: one that was overridden counts
  // as long enough, and the value of Status returns.
  if (machine.bsTimeout() > period) {
    machine.bsTimeoutIs(machine.bsrStatus()->bsTimeout());
    return;
  }
  ZET_TRACE(trace, 8,
            "BS holdtime is "
                << machine.bsTimeout() << " secs, which is less than this C-BSR BSM interval of " << period
                << " secs. Overriding this with value ( 2 * BS_Period ) + 10 as recommended by RFC 5059.");
  machine.overrideBsTimeout();
}

// The holdtime rule -----------------------------------------------------------------------------------

void BsrCandidateSm::followHoldtimeRule() {
  U32 timeout = bsrStatus()->bsTimeout();
  U32 period = candidate()->bsPeriod();
  if (timeout > period) {
    bsTimeoutIs(timeout);
    return;
  }
  ZET_TRACE(trace, 8,
            "BS holdtime is set to "
                << timeout << " secs, which is less than this C-BSR BSM interval of " << period
                << " secs. Overriding this with value ( 2 * BS_Period ) + 10 as recommended by RFC 5059.");
  overrideBsTimeout();
}

void BsrCandidateSm::overrideBsTimeout() { bsTimeoutIs(2 * candidate()->bsPeriod() + 10); }

void BsrCandidateSm::handleBsTimeout() {
  if (!initialized()) return;
  followHoldtimeRule();
  if (state() != BsrCandidateState::cBsr) return;
  double due = zetBsTimer()->timeMin();
  if (!Kiv::isTimeSet(due)) {
    ZET_TRACE(trace, 8, "BS timer not set. Nothing to be done. ");
    return;
  }
  double remaining = due - Zet::now();
  if (remaining < bsTimeout()) return;
  armTimer(bsTimeout());
  ZET_TRACE(trace, 8,
            "BS timer expiry was in " << remaining << " seconds from now. Resetting BS timer expiry to "
                                      << bsTimeout() << " seconds from now.");
}

// By name ---------------------------------------------------------------------------------------------

void BsrCandidateSm::handleStateChange() {
  if (Ptr<BsrCandidate> c = candidate()) c->stateIs(state());
}

}  // namespace Routing::Pim::Bsr
