#include "host/RateLimit.h"

namespace pimbsr::host {

using Lanet::IpGenAddr;

TokenBucket* AddressBuckets::bucket(IpGenAddr const& address, std::size_t max, double now) {
  auto at = byAddress_.find(address);
  if (at != byAddress_.end()) {
    byUse_.splice(byUse_.end(), byUse_, at->second.use);
    return &at->second.bucket;
  }
  makeRoom(max, now);
  if (byAddress_.size() >= max) return nullptr;
  auto use = byUse_.insert(byUse_.end(), address);
  return &byAddress_.emplace(address, Entry{TokenBucket(now), use}).first->second.bucket;
}

void AddressBuckets::makeRoom(std::size_t max, double now) {
  while (!byUse_.empty() && byAddress_.size() >= max) {
    auto oldest = byAddress_.find(byUse_.front());
    if (!oldest->second.bucket.isIdle(now)) return;
    byAddress_.erase(oldest);
    byUse_.pop_front();
  }
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
