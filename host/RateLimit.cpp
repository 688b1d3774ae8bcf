#include "host/RateLimit.h"

#include <iterator>

namespace pimbsr::host {

using Lanet::IpGenAddr;

TokenBucket& AddressBuckets::bucket(IpGenAddr const& address, double now) {
  auto at = byAddress_.find(address);
  if (at == byAddress_.end()) at = byAddress_.emplace(address, Entry{TokenBucket(now), former_.end()}).first;
  return at->second.bucket;
}

void AddressBuckets::isPresentIs(IpGenAddr const& address, bool isPresent) {
  auto at = byAddress_.find(address);
  if (at == byAddress_.end()) return;
  if (at->second.former != former_.end()) former_.erase(at->second.former);
  at->second.former = isPresent ? former_.end() : former_.insert(former_.end(), address);
  if (former_.size() <= maxFormer) return;
  byAddress_.erase(former_.front());
  former_.pop_front();
}

/// The entries that have expired give way to a new one; until then they grant nothing.
void Advertisers::note(IpGenAddr const& sender, double holdtime, double now, std::size_t max) {
  auto at = bySender_.find(sender);
  if (at == bySender_.end()) {
    removeExpired(now);
    if (holdtime == 0 || (max != 0 && bySender_.size() >= max)) return;
    at = bySender_.emplace(sender, Entry{TokenBucket(now), now + holdtime, now, steady_.end()}).first;
    byExpiry_.emplace(at->second.expiry, sender);
    return;
  }
  expiryIs(sender, at->second, now + holdtime);
  if (now - at->second.withinGrantSince >= probation) isSteadyIs(sender, at->second, true);
}

/// A renewal keeps its node, so that it allocates nothing.
void Advertisers::expiryIs(IpGenAddr const& sender, Entry& entry, double expiry) {
  auto node = byExpiry_.extract({entry.expiry, sender});
  node.value().first = entry.expiry = expiry;
  byExpiry_.insert(std::move(node));
}

void Advertisers::removeExpired(double now) {
  while (!byExpiry_.empty() && byExpiry_.begin()->first <= now) {
    auto at = bySender_.find(byExpiry_.begin()->second);
    isSteadyIs(at->first, at->second, false);
    bySender_.erase(at);
    byExpiry_.erase(byExpiry_.begin());
  }
}

bool Advertisers::take(IpGenAddr const& sender, double now, U32 cost) {
  auto at = bySender_.find(sender);
  if (at == bySender_.end() || at->second.expiry <= now) return false;
  if (at->second.bucket.take(perSecond, burst, now, cost)) return true;
  at->second.withinGrantSince = now;
  isSteadyIs(sender, at->second, false);
  return false;
}

// Steady senders ----------------------------------------------------------------------------------------

void Advertisers::isSteadyIs(IpGenAddr const& sender, Entry& entry, bool isSteady) {
  if (isSteady == (entry.steady != steady_.end())) return;
  if (isSteady) {
    entry.steady = steady_.insert(steady_.end(), sender);
  } else {
    steady_.erase(std::exchange(entry.steady, steady_.end()));
  }
  isSteadyChanged_ = true;
}

std::vector<IpGenAddr> Advertisers::steady(std::size_t count) const {
  auto end = std::next(steady_.begin(), static_cast<std::ptrdiff_t>(std::min(count, steady_.size())));
  return {steady_.begin(), end};
}

bool Advertisers::takeSteadyChanged(double now) {
  removeExpired(now);
  return std::exchange(isSteadyChanged_, false);
}

}  // namespace pimbsr::host
