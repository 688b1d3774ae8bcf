#pragma once

#include <algorithm>
#include <map>

#include "model/Lanet.h"
#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U32;

/// Grants so many events a second in the mean, and at most one second's worth of them at once.
class TokenBucket {
 public:
  explicit TokenBucket(double now) : filledAt_(now) {}

  /// Takes one event at a time in seconds; false if there is no more to grant. The rate may change from call
  /// to call.
  bool take(U32 perSecond, double now) {
    double gained = std::max(0.0, now - filledAt_) * perSecond;
    tokens_ = isNew_ ? perSecond : std::min<double>(perSecond, tokens_ + gained);
    isNew_ = false;
    filledAt_ = now;
    if (tokens_ < 1) return false;
    tokens_ -= 1;
    return true;
  }

 private:
  double filledAt_;
  double tokens_ = 0;
  bool isNew_ = true;
};

/// A bucket for each interface, made with its first packet.
class RateLimit {
 public:
  /// Whether a packet of the interface may be looked at now, in seconds on the clock of Zet::now().
  bool take(Lanet::IntfId const& intfId, U32 perSecond, double now) {
    return buckets_.try_emplace(intfId, now).first->second.take(perSecond, now);
  }
  void forget(Lanet::IntfId const& intfId) { buckets_.erase(intfId); }

 private:
  std::map<Lanet::IntfId, TokenBucket> buckets_;
};

}  // namespace pimbsr::host
