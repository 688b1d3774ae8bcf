#include "host/RateLimit.h"

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
void Advertisers::note(IpGenAddr const& sender, double holdtime, double now) {
  auto at = bySender_.find(sender);
  if (at == bySender_.end()) {
    removeExpired(now);
    if (holdtime == 0 || bySender_.size() >= max) return;
    at = bySender_.emplace(sender, Entry{TokenBucket(now), now + holdtime}).first;
    byExpiry_.emplace(at->second.expiry, sender);
    return;
  }
  expiryIs(sender, at->second, now + holdtime);
}

/// A renewal keeps its node, so that it allocates nothing.
void Advertisers::expiryIs(IpGenAddr const& sender, Entry& entry, double expiry) {
  auto node = byExpiry_.extract({entry.expiry, sender});
  node.value().first = entry.expiry = expiry;
  byExpiry_.insert(std::move(node));
}

void Advertisers::removeExpired(double now) {
  while (!byExpiry_.empty() && byExpiry_.begin()->first <= now) {
    bySender_.erase(byExpiry_.begin()->second);
    byExpiry_.erase(byExpiry_.begin());
  }
}

bool Advertisers::take(IpGenAddr const& sender, double now) {
  auto at = bySender_.find(sender);
  return at != bySender_.end() && at->second.expiry > now && at->second.bucket.take(perSecond, burst, now);
}

}  // namespace pimbsr::host
