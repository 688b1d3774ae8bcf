// The reactors of the root machine on the RP-set tree of each zone: they run one hold timer per RP and mirror
// each RP into the agent-wide set that PIM reads, as long as the zone is the best one for the RP's group
// range. They serve every zone's tree, whatever filled it.

#include "protocol/PimBsrSm.h"
#include "protocol/StoreRules.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Zet::Ptr;
using ZetCrpSet = PimBsrSm::ZetCrpZoneStatus::ZetCrpStatus::ZetCrpSet;
using ZetRp = ZetCrpSet::ZetRp;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

// One group range -------------------------------------------------------------------------------------

IpGenPrefix ZetCrpSet::zone() const { return owner()->owner()->fwkKey(); }

bool ZetCrpSet::isBestZone() const {
  // A root that still waits for its address family has no trie, and mirrors nothing.
  Ptr<TrieGen> trie = pimBsrSm()->bsrTrie();
  IpGenPrefix best = trie ? trie->longestMatch(fwkKey()) : IpGenPrefix();
  if (best == zone()) return true;
  ZET_TRACE(trace, 8,
            "Not updating RpCandidateStatus since our zone "
                << zone() << " does not match the longest prefix match " << best << " for prefix "
                << fwkKey());
  return false;
}

/// Whether a host keeps the range, or the RP, in the agent-wide set.
template <class... Key>
static bool isKept(PimBsrSm const& machine, Key const&... key) {
  Ptr<StoreRules> rules = machine.storeRules();
  return rules && rules->keeps(key...);
}

Ptr<RpCandidateSet> ZetCrpSet::mirrorSet() const { return pimBsrSm()->rpCandidateStatus()->crpSet(fwkKey()); }

void ZetCrpSet::handleInitialized() {
  if (isBestZone()) pimBsrSm()->rpCandidateStatus()->crpSetIs(fwkKey());
  initializedIs(true);
}

/// The zone's set of ranges as Status holds it; null once the zone has gone.
static Ptr<RpCandidateStatus> rpSetOf(ZetCrpSet const& reactor) {
  Ptr<PimBsrRpCandidateStatus> zoneStatus = reactor.pimBsrSm()->bsrStatus()->crpStatus(reactor.zone());
  return zoneStatus ? zoneStatus->status() : nullptr;
}

void ZetCrpSet::handleDel() {
  if (!initialized()) return;
  if (isBestZone() && !isKept(*pimBsrSm(), fwkKey())) pimBsrSm()->rpCandidateStatus()->crpSetDel(fwkKey());
  Ptr<RpCandidateStatus> rpSet = rpSetOf(*this);
  if (!rpSet || rpSet->crpSetCount() != 0) return;
  pimBsrSm()->bsrStatus()->crpStatusDel(zone());
  ZET_TRACE(trace, 8, "Deleted zone " << zone() << " RP set ");
}

// One RP ----------------------------------------------------------------------------------------------

void ZetRp::handleInitialized() {
  if (!owner()->notifier()->rp(fwkKey())) return;
  holdtimeTimerIs(pimBsrSm()->timerWheel());
  if (owner()->isBestZone()) {
    // A set that isn't mirrored yet comes with the first write of `expires`.
    if (Ptr<RpCandidateSet> set = owner()->mirrorSet()) set->rpIs(fwkKey());
  }
  initializedIs(true);
}

void ZetRp::setHoldtimer() {
  if (!initialized()) return;
  Ptr<Routing::Pim::RpCandidate> rp = notifier();
  zetHoldtimeTimer()->timeMinIs(rp->expires());
  if (!owner()->isBestZone()) return;
  Ptr<RpCandidateSet> set = owner()->mirrorSet();
  if (!set) {
    set = pimBsrSm()->rpCandidateStatus()->crpSetIs(owner()->fwkKey());
    ZET_TRACE(trace, 8,
              "Forced creation of crpSet with prefix " << owner()->fwkKey() << " in rpCandidateStatus");
  }
  Ptr<Routing::Pim::RpCandidate> copy = set->rpIs(fwkKey());
  copy->priorityIs(rp->priority());
  copy->hashMaskLenIs(rp->hashMaskLen());
  copy->setupTimeIs(rp->setupTime());
  copy->pimModeIs(rp->pimMode());
  copy->holdTimeIs(rp->holdTime());
  copy->expiresIs(rp->expires());
  if (Ptr<StoreRules> rules = pimBsrSm()->storeRules()) rules->handleMirrored(owner()->fwkKey(), fwkKey());
}

Ptr<Routing::Pim::RpCandidate> ZetRp::mirror() const {
  if (!initialized() || !owner()->isBestZone()) return nullptr;
  Ptr<RpCandidateSet> set = owner()->mirrorSet();
  return set ? set->rp(fwkKey()) : nullptr;
}

void ZetRp::handleHoldtime() {
  if (auto copy = mirror()) copy->holdTimeIs(notifier()->holdTime());
}

void ZetRp::handleMode() {
  if (auto copy = mirror()) copy->pimModeIs(notifier()->pimMode());
}

void ZetRp::handleSetuptime() {
  if (auto copy = mirror()) copy->setupTimeIs(notifier()->setupTime());
}

void ZetRp::handleHashMaskLen() {
  if (auto copy = mirror()) copy->hashMaskLenIs(notifier()->hashMaskLen());
}

void ZetRp::handlePriority() {
  if (auto copy = mirror()) copy->priorityIs(notifier()->priority());
}

void ZetRp::handleHoldtimeExpired() {
  if (initialized()) owner()->notifier()->rpDel(Lanet::IpGenAddr(fwkKey()));
}

void ZetRp::handleDel() {
  if (!initialized()) return;
  Ptr<RpCandidateStatus> rpSet = rpSetOf(*owner());
  if (!rpSet) {
    ZET_TRACE(trace, 8, "Nothing to do since the Crp Zone has already been deleted ");
    return;
  }
  IpGenPrefix prefix = owner()->fwkKey();
  if (owner()->isBestZone() && !isKept(*pimBsrSm(), prefix, fwkKey())) {
    if (Ptr<RpCandidateSet> set = owner()->mirrorSet()) set->rpDel(fwkKey());
  }
  Ptr<RpCandidateSet> set = rpSet->crpSet(prefix);
  if (!set || set->rpCount() != 0) return;
  rpSet->crpSetDel(prefix);
  ZET_TRACE(trace, 8, "Deleted rpset for prefix " << prefix << " in zone " << owner()->zone());
}

}  // namespace Routing::Pim::Bsr
