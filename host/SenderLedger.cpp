#include "host/SenderLedger.h"

#include <algorithm>

#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

Ptr<RpCandidateSet> rpSetOf(Bsr::PimBsrSm const& root, IpGenPrefix const& range) {
  Ptr<Bsr::PimBsrRpCandidateStatus> zone = root.bsrStatus()->crpStatus(root.bsrTrie()->longestMatch(range));
  Ptr<Routing::Pim::RpCandidateStatus> sets = zone ? zone->status() : nullptr;
  return sets ? sets->crpSet(range) : nullptr;
}

void SenderLedger::prepare(IpGenAddr const& sender, U64 ranges) {
  if (size_ >= pruneAt_) pruneAll();
  auto at = accounts_.find(sender);
  if (at == accounts_.end()) return;
  Account& account = at->second;
  bool isNear = settings_.rpsPerSender != 0 && account.rps.size() >= settings_.rpsPerSender;
  isNear = isNear || (settings_.rangesPerSender != 0 && account.ranges + ranges > settings_.rangesPerSender);
  if (isNear && Zet::now() >= account.prunedAt + 1) prune(account);
}

Refusal SenderLedger::check(IpGenAddr const& sender, IpGenAddr const& rp, IpGenPrefix const& range) const {
  auto at = accounts_.find(sender);
  if (at == accounts_.end()) return Refusal::none;
  Account const& account = at->second;
  auto known = account.rps.find(rp);
  bool isNewRp = known == account.rps.end();
  if (!isNewRp && known->second.contains(range)) return Refusal::none;
  if (isNewRp && settings_.rpsPerSender != 0 && account.rps.size() >= settings_.rpsPerSender)
    return Refusal::senderRps;
  bool isBeyond = settings_.rangesPerSender != 0 && account.ranges >= settings_.rangesPerSender;
  return isBeyond ? Refusal::senderRanges : Refusal::none;
}

void SenderLedger::record(IpGenAddr const& sender, IpGenAddr const& rp, IpGenPrefix const& range) {
  if (settings_.rpsPerSender == 0 && settings_.rangesPerSender == 0) return;
  Account& account = accounts_[sender];
  if (!account.rps[rp].insert(range).second) return;
  ++account.ranges;
  ++size_;
}

/// Drops what has left the sets.
void SenderLedger::prune(Account& account) {
  account.prunedAt = Zet::now();
  for (auto rp = account.rps.begin(); rp != account.rps.end();) {
    U64 gone = std::erase_if(rp->second, [&](IpGenPrefix const& range) {
      Ptr<RpCandidateSet> set = rpSetOf(root_, range);
      return !set || !set->rp(rp->first);
    });
    account.ranges -= gone;
    size_ -= gone;
    rp = rp->second.empty() ? account.rps.erase(rp) : std::next(rp);
  }
}

void SenderLedger::pruneAll() {
  for (auto at = accounts_.begin(); at != accounts_.end();) {
    prune(at->second);
    at = at->second.rps.empty() ? accounts_.erase(at) : std::next(at);
  }
  pruneAt_ = std::max(minSize, 2 * size_);
}

}  // namespace pimbsr::host
