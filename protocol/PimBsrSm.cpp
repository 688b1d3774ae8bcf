#include "protocol/PimBsrSm.h"

#include "crp/RpCandidateSm.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Assert.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

// Construction ----------------------------------------------------------------------------------------

void PimBsrSm::handleConstruction() {
  handleBsrCandidate();
  handleRpCandidate();
  handleBsm();
  handleCrpMsg();
  handleInitialized();
}

void PimBsrSm::handleInitialized() {
  ZET_TRACE_ENTRY(trace);
  Zet::Context::current().srand(static_cast<unsigned>(Zet::now()));
  Lanet::AddressFamily af = bsrStatus()->af();
  ZET_ASSERT(af != Lanet::AddressFamily::ipv6, "IPV6 Not supported");
  if (af != Lanet::AddressFamily::ipv4) {
    ZET_TRACE(trace, 8, "Address Family not initialized in status");
    return;
  }
  globalOrNonScopeZoneIs(Lanet::allGroups());
  bsrTrieIs("PimBsrTrie", Lanet::AddressFamily::ipv4);
  rpCandidateStatus()->rpSetTypeIs(RpType::bsr);
  bsrTrieBuilderIs(bsrStatus(), bsrTrie());
  fragmentTimerIs(timerWheel());
  zetFragmentTimer()->timeMinIs(Kiv::never);
  initializedIs(true);
  handleBsrCandidate();
  handleRpCandidate();
  maybeInitNonCandidateSm();
}

void PimBsrSm::maybeInitNonCandidateSm() {
  for (auto at = bsrStatus()->bootstrapRouterIterator(); at; ++at) {
    IpGenPrefix zone = at->zone();
    if (candidateSm(zone) || nonCandidateSm(zone)) continue;
    nonCandidateSmIs(zone, bsrStatus(), timerWheel(), timerWheel());
    ZET_TRACE(trace, 8, "Created Non Candidate SM for zone " << zone);
  }
}

// Events ----------------------------------------------------------------------------------------------

void PimBsrSm::handleAf() {
  Lanet::AddressFamily af = bsrStatus()->af();
  ZET_ASSERT(af != Lanet::AddressFamily::ipv6, "IPV6 Not supported");
  if (af == Lanet::AddressFamily::ipv4) {
    if (!initialized()) handleInitialized();
    return;
  }
  // A candidate RP's machine reads what the zone machines write, so it goes first.
  rpCandidateSmDelAll();
  ZET_TRACE(trace, 8, "Deleted all RP Candidate SMs");
  nonCandidateSmDelAll();
  ZET_TRACE(trace, 8, "Deleted all Non Candidate SMs");
  candidateSmDelAll();
  ZET_TRACE(trace, 8, "Deleted all Candidate SMs");
  initializedIs(false);
}

void PimBsrSm::handleBsm() {
  if (!initialized()) return;
  Ptr<Packet::BootstrapGroupData> firstGroup = bsmStatus()->firstGroup();
  bool scoped = firstGroup && firstGroup->groupFlags().scoped();
  IpGenPrefix zone = scoped ? firstGroup->prefix() : globalOrNonScopeZone();
  if (Ptr<BsrCandidateSm> candidate = candidateSm(zone)) {
    ZET_TRACE(trace, 8,
              (scoped ? "Trigger Scoped Candidate SM Scope: " + std::string(zone.stringValue().view())
                      : "Trigger Global/Non-Scoped Candidate SM"));
    candidate->bsmIs(bsmStatus()->rxBsm());
    return;
  }
  Ptr<BsrNonCandidateSm> follower = nonCandidateSm(zone);
  if (!follower) {
    follower = nonCandidateSmIs(zone, bsrStatus(), timerWheel(), timerWheel());
    ZET_TRACE(trace, 8,
              (scoped ? "Instantiated Scoped NonCandidate SM Scope: " + std::string(zone.stringValue().view())
                      : "Instantiated Global/Non-Scoped Non Candidate SM"));
  }
  follower->bsmIs(bsmStatus()->rxBsm());
}

void PimBsrSm::handleBsrCandidate() {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  for (auto at = bsrStatus()->cbsrIterator(); at; ++at) handleBsrCandidate(at->zone());
}

void PimBsrSm::handleBsrCandidate(IpGenPrefix const& zone) {
  if (!initialized()) return;
  if (bsrStatus()->cbsr(zone)) {
    if (nonCandidateSm(zone)) {
      nonCandidateSmDel(zone);
      ZET_TRACE(trace, 8, "Deleted " << zone << " NonCandidate SM");
    }
    candidateSmIs(zone, bsrStatus(), timerWheel());
    ZET_TRACE(trace, 8, "Instantiated Candidate SM for zone " << zone);
    return;
  }
  // The entry has left Status, but its machine still holds it.
  Ptr<BsrCandidateSm> machine = candidateSm(zone);
  Ptr<BsrCandidate> candidate = machine->candidate();
  if (candidate->elected()) {
    machine->doSendBsm(true);
    candidate->electedIs(false);
  }
  candidateSmDel(zone);
  ZET_TRACE(trace, 8,
            "Deleted Candidate SM"
                << " for zone " << zone);
}

void PimBsrSm::handleCandidateSm(IpGenPrefix const& zone) {
  if (candidateSm(zone)) return;
  Ptr<BsrCandidate> candidate = bsrStatus()->cbsr(zone);
  if (!candidate || !candidate->elected()) return;
  bsrStatus()->bootstrapRouterDel(zone);
  ZET_TRACE(trace, 8, "Deleted BSR for zone " << zone);
}

void PimBsrSm::handleRpCandidate() { ZET_TRACE_ENTRY(trace); }

// The elected zone's hash mask length -----------------------------------------------------------------

static void setHashMaskLen(IpGenPrefix const& zone, RpCandidateStatus const& rpSet, U32 hashMaskLen) {
  for (auto set = rpSet.crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      rp->hashMaskLenIs(hashMaskLen);
      ZET_TRACE(trace, 8,
                "Setting hash mask Len to " << hashMaskLen << " for RP " << rp->address()
                                            << " in rp candidate set for zone " << zone);
    }
  }
}

void PimBsrSm::ZetBsr::handleHashMaskLen() {
  Ptr<ElectedBsrStatus const> elected = notifier();
  IpGenPrefix zone = elected->zone();
  if (elected->hashMaskLen() == ElectedBsrStatus::hashMaskLenUnknown()) return;
  Ptr<Status> status = pimBsrSm()->bsrStatus();
  Ptr<BsrCandidate> candidate = status->cbsr(zone);
  if (!candidate) {
    ZET_TRACE(trace, 8, "No local CBSR configured for zone " << zone << ". Nothing to do");
    return;
  }
  if (!candidate->elected()) {
    ZET_TRACE(trace, 8, "Local CBSR configured for zone " << zone << " is not elected BSR. Nothing to do");
    return;
  }
  Ptr<PimBsrRpCandidateStatus> rpSet = status->crpStatus(zone);
  if (!rpSet) {
    ZET_TRACE(trace, 8, "No CRP have been populated for zone " << zone);
    return;
  }
  if (rpSet->status()) setHashMaskLen(zone, *rpSet->status(), elected->hashMaskLen());
}

// End -------------------------------------------------------------------------------------------------

/// The reactors are unbound already, so that none of this sends anything.
void PimBsrSm::handleEnd() {
  bsrTrieDel();
  bsrTrieBuilderDel();
  candidateSmDelAll();
  nonCandidateSmDelAll();
  rpCandidateSmDelAll();
  bsmFragmentsDelAll();
  bsmRxFragmentsDelAll();
}

}  // namespace Routing::Pim::Bsr
