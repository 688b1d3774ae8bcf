#include "host/RpSweep.h"

#include <algorithm>

#include "runtime/Context.h"
#include "runtime/MeteredLess.h"

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

/// What the sets of all zones hold. The first questions are asked of each zone, since most walks have few or
/// none. With more of them all is gathered once, and each is O(log n), however many zones hold a range.
class RpSweep::Held {
 public:
  explicit Held(Routing::Pim::Bsr::Status const& status) : status_(status) {}

  bool contains(IpGenPrefix const& range) {
    if (isAmongFirst()) return isInAny([&](auto const& sets) { return sets.crpSet(range) != nullptr; });
    gather();
    return std::binary_search(ranges_.begin(), ranges_.end(), range, Zet::Meter::Less());
  }
  bool contains(IpGenPrefix const& range, IpGenAddr const& rp) {
    if (isAmongFirst()) {
      return isInAny([&](auto const& sets) {
        Ptr<RpCandidateSet> set = sets.crpSet(range);
        return set && set->rp(rp);
      });
    }
    gather();
    return std::binary_search(rps_.begin(), rps_.end(), std::pair(range, rp), Zet::Meter::Less());
  }

 private:
  static constexpr int firstQuestions = 16;

  bool isAmongFirst() { return asked_++ < firstQuestions; }
  template <class Holds>
  bool isInAny(Holds const& holds) const {
    for (auto zone = status_.crpStatusIterator(); zone; ++zone) {
      if (zone->status() && holds(*zone->status())) return true;
    }
    return false;
  }
  void gather() {
    if (std::exchange(isGathered_, true)) return;
    for (auto zone = status_.crpStatusIterator(); zone; ++zone) {
      if (zone->status()) add(*zone->status());
    }
    std::sort(ranges_.begin(), ranges_.end());
    std::sort(rps_.begin(), rps_.end());
  }
  void add(Routing::Pim::RpCandidateStatus const& sets) {
    for (auto set = sets.crpSetIterator(); set; ++set) {
      ranges_.push_back(set->prefix());
      for (auto rp = set->rpIterator(); rp; ++rp) rps_.emplace_back(set->prefix(), rp->address());
    }
  }

  Routing::Pim::Bsr::Status const& status_;
  int asked_ = 0;
  bool isGathered_ = false;
  std::vector<IpGenPrefix> ranges_;
  std::vector<std::pair<IpGenPrefix, IpGenAddr>> rps_;
};

/// The walks keep their keys, so that what they pass may go.
void RpSweep::sweep() {
  Held held(*status_);
  for (auto set = notifier()->crpSetIterator(); set; ++set) {
    IpGenPrefix range = set->prefix();
    sweepSet(*set, held);
    if (set->rpCount() == 0 && !held.contains(range)) notifier()->crpSetDel(range);
  }
  bool rests = notifier()->crpSetCount() == 0;
  timer_->timeMinIs(rests ? Kiv::never : Zet::now() + period);
}

void RpSweep::sweepSet(RpCandidateSet& set, Held& held) {
  for (auto rp = set.rpIterator(); rp; ++rp) {
    IpGenAddr address = rp->address();
    if (rp->expires() <= Zet::now() && !held.contains(set.prefix(), address)) set.rpDel(address);
  }
}

void RpSweep::removeUnheld(std::vector<std::pair<IpGenPrefix, IpGenAddr>> const& cleared) {
  Held held(*status_);
  for (auto const& [range, rp] : cleared) {
    Ptr<RpCandidateSet> set = notifier()->crpSet(range);
    if (!set) continue;
    if (!held.contains(range, rp)) set->rpDel(rp);
    if (set->rpCount() == 0 && !held.contains(range)) notifier()->crpSetDel(range);
  }
}

void RpSweep::removeUnheld() {
  std::vector<std::pair<IpGenPrefix, IpGenAddr>> all;
  for (auto set = notifier()->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) all.emplace_back(set->prefix(), rp->address());
  }
  removeUnheld(all);
}

}  // namespace pimbsr::host
