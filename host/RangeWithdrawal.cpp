#include "host/RangeWithdrawal.h"

#include <utility>

#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

/// Watches the ranges of one candidate RP.
class RangeWithdrawal::Candidate final : public Bsr::RpCandidate::NotifieeConst {
 public:
  explicit Candidate(RangeWithdrawal& withdrawal) : withdrawal_(withdrawal) {}

  void onPrefixSet(IpGenPrefix const& range) override { withdrawal_.note(notifier()->address(), range); }

 private:
  RangeWithdrawal& withdrawal_;
};

RangeWithdrawal::RangeWithdrawal(Ptr<Bsr::PimBsrSm> const& root, Advertisements& advertisements,
                                 CorrectionSwitch& correction)
    : root_(root),
      advertisements_(advertisements),
      correction_(correction),
      timer_(Zet::make<pim::Timer>(root->timerWheel(), [this] { handleNoted(); })) {
  notifierIs(root->bsrStatus());
  for (auto at = notifier()->crpIterator(); at; ++at) onCrp(at->address());
}

void RangeWithdrawal::stop() {
  timer_->notifierIs(nullptr);
  candidates_.clear();
  notifierIs(nullptr);
  root_ = nullptr;
}

void RangeWithdrawal::onCrp(IpGenAddr const& address) {
  candidates_.follow(address, notifier()->crp(address), [this] { return Zet::make<Candidate>(*this); });
  if (!notifier()->crp(address)) withdrawn_.erase(address);
}

void RangeWithdrawal::note(IpGenAddr const& address, IpGenPrefix const& range) {
  if (!correction_.isOn()) return;
  noted_[address].insert(range);
  timer_->timeMinIs(Zet::now());
}

void RangeWithdrawal::handleNoted() {
  for (auto const& [address, ranges] : std::exchange(noted_, {})) {
    if (Ptr<Bsr::RpCandidate> candidate = notifier()->crp(address)) handle(*candidate, ranges);
  }
}

void RangeWithdrawal::handle(Bsr::RpCandidate const& candidate, std::set<IpGenPrefix> const& ranges) {
  std::set<IpGenPrefix> there;
  std::set<IpGenPrefix> gone;
  for (IpGenPrefix const& range : ranges) (candidate.prefixSet(range) ? there : gone).insert(range);
  bool isBack = takeReturned(candidate.address(), there);
  if (!gone.empty()) withdrawn_.erase(candidate.address());
  for (auto at = root_->rpCandidateSmIterator(); at; ++at) {
    if (at->crpOptions().rpAddress() != candidate.address()) continue;
    restore(*at, there);
    if (isBack) at->doSendCrpAdv(false);
    withdraw(*at, gone);
  }
}

/// Whether ranges that were withdrawn are back.
bool RangeWithdrawal::takeReturned(IpGenAddr const& address, std::set<IpGenPrefix> const& ranges) {
  auto withdrawn = withdrawn_.find(address);
  if (withdrawn == withdrawn_.end()) return false;
  return std::erase_if(withdrawn->second, [&](IpGenPrefix const& range) { return ranges.contains(range); }) !=
         0;
}

static bool isAdvertised(Bsr::RpCandidateSm const& machine, IpGenPrefix const& range) {
  for (auto set = machine.crpAdvSetIterator(); set; ++set) {
    if (set->prefixSet(range)) return true;
  }
  return false;
}

/// A machine takes up a range as its priority is written. That of a list stays after the list has gone, and
/// is no news when it comes back.
void RangeWithdrawal::restore(Bsr::RpCandidateSm& machine, std::set<IpGenPrefix> const& ranges) {
  for (IpGenPrefix const& range : ranges) {
    if (isAdvertised(machine, range)) continue;
    machine.doUpdateCrpAdvSetPrefix(range);
    if (isAdvertised(machine, range)) correction_.noteAct();
  }
}

/// The ranges that stay or are new go first, so that groups that another range serves now are never without
/// RP.
void RangeWithdrawal::withdraw(Bsr::RpCandidateSm& machine, std::set<IpGenPrefix> const& ranges) {
  std::map<IpGenPrefix, std::vector<IpGenPrefix>> gone;  // by zone
  for (auto set = machine.crpAdvSetIterator(); set; ++set) {
    for (IpGenPrefix const& range : ranges) {
      if (!set->prefixSet(range)) continue;
      gone[set->zone()].push_back(range);
      withdrawn_[machine.crpOptions().rpAddress()].insert(range);
    }
    for (IpGenPrefix const& range : gone[set->zone()]) set->prefixSetDel(range);
  }
  std::erase_if(gone, [](auto const& entry) { return entry.second.empty(); });
  if (gone.empty()) return;
  correction_.noteAct();
  machine.doSendCrpAdv(false);
  for (auto const& [zone, those] : gone) advertisements_.withdraw(machine, zone, those);
}

}  // namespace pimbsr::host
