#include "host/SenderLedger.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

Ptr<RpCandidateSet> rpSetOf(Bsr::PimBsrSm const& root, IpGenPrefix const& range) {
  Ptr<Bsr::PimBsrRpCandidateStatus> zone = root.bsrStatus()->crpStatus(root.bsrTrie()->longestMatch(range));
  Ptr<Routing::Pim::RpCandidateStatus> sets = zone ? zone->status() : nullptr;
  return sets ? sets->crpSet(range) : nullptr;
}

// Accounts ------------------------------------------------------------------------------------------------

SenderLedger::Key SenderLedger::keyOf(Addition const& addition) {
  bool isRp = addition.isPreferred || addition.sender == addition.rp;
  return {isRp ? addition.rp : addition.sender, isRp};
}

bool SenderLedger::isNearBound(Account const& account, U64 ranges) const {
  if (settings_.rpsPerSender != 0 && account.rps.size() >= settings_.rpsPerSender) return true;
  return settings_.rangesPerSender != 0 && account.ranges + ranges > settings_.rangesPerSender;
}

void SenderLedger::prepare(Addition const& addition, U64 ranges) {
  sweep();
  auto at = accounts_.find(keyOf(addition));
  if (at == accounts_.end() || Zet::now() < at->second.prunedAt + 1) return;
  if (isNearBound(at->second, ranges)) prune(at->second);
}

DropReason SenderLedger::check(Addition const& addition) const {
  Key key = keyOf(addition);
  auto at = accounts_.find(key);
  if (at == accounts_.end()) return DropReason::none;
  Account const& account = at->second;
  auto known = account.rps.find(addition.rp);
  bool isNewRp = known == account.rps.end();
  if (!isNewRp && known->second.contains(addition.range)) return DropReason::none;
  if (isNewRp && settings_.rpsPerSender != 0 && account.rps.size() >= settings_.rpsPerSender)
    return DropReason::senderRps;
  bool isBeyond = settings_.rangesPerSender != 0 && account.ranges >= settings_.rangesPerSender;
  return isBeyond ? DropReason::senderRanges : DropReason::none;
}

void SenderLedger::record(Addition const& addition) {
  if (settings_.rpsPerSender == 0 && settings_.rangesPerSender == 0) return;
  Key key = keyOf(addition);
  Entry entry{addition.rp, addition.range};
  auto former = owners_.find(entry);
  if (former != owners_.end()) {
    if (former->second->first == key) return;
    remove(former);
  }
  auto account = accounts_.try_emplace(key).first;
  account->second.rps[addition.rp].insert(addition.range);
  ++account->second.ranges;
  owners_.emplace(entry, account);
  sweepSteps_ += stepsPerEntry;
}

// Entries without an RP -----------------------------------------------------------------------------------

bool SenderLedger::isHeld(Entry const& entry) const {
  Ptr<RpCandidateSet> set = rpSetOf(root_, entry.range);
  return set && set->rp(entry.rp);
}

/// The account ends with its last entry.
void SenderLedger::prune(Account& account) {
  account.prunedAt = Zet::now();
  std::vector<Owners::iterator> gone;
  for (auto const& [rp, ranges] : account.rps) {
    for (IpGenPrefix const& range : ranges) {
      Zet::Meter::visit();
      Entry entry{rp, range};
      if (!isHeld(entry)) gone.push_back(owners_.find(entry));
    }
  }
  for (Owners::iterator entry : gone) remove(entry);
}

/// A message that adds nothing costs no step.
void SenderLedger::sweep() {
  U64 steps = std::min<U64>(std::exchange(sweepSteps_, 0), owners_.size());
  if (owners_.size() < minSize) return;
  for (; steps != 0; --steps) {
    Zet::Meter::visit();
    if (swept_ == owners_.end()) swept_ = owners_.begin();
    auto entry = swept_++;
    if (!isHeld(entry->first)) remove(entry);
  }
}

void SenderLedger::remove(Owners::iterator entry) {
  if (swept_ == entry) ++swept_;
  Accounts::iterator owner = entry->second;
  Account& account = owner->second;
  auto rp = account.rps.find(entry->first.rp);
  rp->second.erase(entry->first.range);
  --account.ranges;
  if (rp->second.empty()) account.rps.erase(rp);
  if (account.rps.empty()) accounts_.erase(owner);
  owners_.erase(entry);
}

}  // namespace pimbsr::host
