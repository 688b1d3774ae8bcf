#include "host/RpSweep.h"

#include "runtime/Context.h"

namespace pimbsr::host {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

RpSweep::RpSweep(Ptr<Routing::Pim::RpCandidateStatus> const& rpSet,
                 Ptr<Routing::Pim::Bsr::Status const> const& status, Ptr<Kiv::TimerWheel const> const& wheel)
    : status_(status), timer_(Zet::make<pim::Timer>(wheel, [this] { sweep(); })) {
  notifierIs(rpSet);
}

void RpSweep::stop() {
  timer_->notifierIs(nullptr);
  notifierIs(nullptr);
}

void RpSweep::onCrpSet(IpGenPrefix const&) {
  if (timer_->timeMin() == Kiv::never) timer_->timeMinIs(Zet::now() + period);
}

/// The walks keep their keys, so that what they pass may go.
void RpSweep::sweep() {
  for (auto set = notifier()->crpSetIterator(); set; ++set) {
    IpGenPrefix range = set->prefix();
    sweepSet(*set);
    if (set->rpCount() == 0 && !heldByZone(range)) notifier()->crpSetDel(range);
  }
  bool rests = notifier()->crpSetCount() == 0;
  timer_->timeMinIs(rests ? Kiv::never : Zet::now() + period);
}

void RpSweep::sweepSet(RpCandidateSet& set) {
  for (auto rp = set.rpIterator(); rp; ++rp) {
    IpGenAddr address = rp->address();
    if (rp->expires() <= Zet::now() && !heldByZone(set.prefix(), address)) set.rpDel(address);
  }
}

void RpSweep::removeEmpty(IpGenPrefix const& range) {
  Ptr<RpCandidateSet> set = notifier()->crpSet(range);
  if (set && set->rpCount() == 0 && !heldByZone(range)) notifier()->crpSetDel(range);
}

void RpSweep::removeUnheld(std::vector<std::pair<IpGenPrefix, IpGenAddr>> const& cleared) {
  for (auto const& [range, rp] : cleared) {
    Ptr<RpCandidateSet> set = notifier()->crpSet(range);
    if (set && !heldByZone(range, rp)) set->rpDel(rp);
    removeEmpty(range);
  }
}

void RpSweep::removeUnheld() {
  std::vector<std::pair<IpGenPrefix, IpGenAddr>> all;
  for (auto set = notifier()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) all.emplace_back(set->prefix(), rp->address());
  }
  removeUnheld(all);
}

bool RpSweep::heldByZone(IpGenPrefix const& range) const {
  for (auto zone = status_->crpStatusIterator(); zone; ++zone) {
    if (zone->status()->crpSet(range)) return true;
  }
  return false;
}

bool RpSweep::heldByZone(IpGenPrefix const& range, IpGenAddr const& rp) const {
  for (auto zone = status_->crpStatusIterator(); zone; ++zone) {
    Ptr<RpCandidateSet const> set = zone->status()->crpSet(range);
    if (set && set->rp(rp)) return true;
  }
  return false;
}

}  // namespace pimbsr::host
