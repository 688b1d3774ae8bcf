#include "host/Clearing.h"

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

/// The machine ends before the entry that it guards, so that none runs without. The RP set goes first, while
/// its zone is the best one of its ranges, so that it leaves what PIM reads.
bool Clearing::clearBsr(IpGenPrefix const& zone) {
  bool isCandidate = false;
  if (Ptr<Bsr::BsrCandidateSm> candidate = root_.candidateSm(zone)) {
    if (candidate->state() == Bsr::BsrCandidateState::eBsr) return false;
    isCandidate = true;
  }
  clearRpSet(zone);
  lastMessages_.forget(zone);
  if (isCandidate) {
    root_.candidateSmDel(zone);
  } else {
    root_.nonCandidateSmDel(zone);
  }
  root_.bsrStatus()->bootstrapRouterDel(zone);
  if (isCandidate) root_.handleBsrCandidate(zone);
  return true;
}

void Clearing::clearRpSet(IpGenPrefix const& zone) {
  forgetKept(zone);
  correctors_.holdOver().drop(zone);
  removeRps(zone);
}

/// Fragments that wait for others are held by their tag; those of the last messages are of this zone.
template <class Machine>
static void forgetKeptOf(Bsr::PimBsrSm& root, Ptr<Machine> const& machine) {
  if (!machine) return;
  for (auto const& message : {machine->bsm(), machine->lastBsm()}) {
    if (message) root.bsmRxFragmentsDel(message->fragmentTag());
  }
  machine->lastBsmFragmentsIs(nullptr);
  machine->lastBsmIs(nullptr);
}

void Clearing::forgetKept(IpGenPrefix const& zone) {
  forgetKeptOf(root_, root_.candidateSm(zone));
  forgetKeptOf(root_, root_.nonCandidateSm(zone));
  correctors_.handleForgotten(zone);
}

/// A zone without a BSR is the best one of no range, so that its RPs stay in what PIM reads.
void Clearing::removeRps(IpGenPrefix const& zone) {
  Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_.bsrStatus(), zone);
  if (!sets) return;
  std::vector<std::pair<IpGenPrefix, IpGenAddr>> cleared;
  for (auto set = sets->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) cleared.emplace_back(set->prefix(), rp->address());
  }
  sets->crpSetDelAll();
  sweep_.removeUnheld(cleared);
}

}  // namespace pimbsr::host
