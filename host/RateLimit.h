#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "model/Lanet.h"
#include "runtime/Export.h"
#include "runtime/MeteredLess.h"
#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U32;

/// Grants so many events a second in the mean, and at most a burst of them at once.
class TokenBucket {
 public:
  explicit TokenBucket(double now) : filledAt_(now) {}

  /// Takes one event at a time in seconds, from a burst of one second's worth; false if there is no more to
  /// grant. The rate may change from call to call; at 0 all events are granted. An event that costs as much
  /// as several is granted as one is, and the next only once all of them have been paid for.
  bool take(U32 perSecond, double now, U32 cost = 1) { return take(perSecond, perSecond, now, cost); }
  bool take(U32 perSecond, U32 burst, double now, U32 cost) {
    if (perSecond == 0) return true;
    double gained = std::max(0.0, now - filledAt_) * perSecond;
    tokens_ = isNew_ ? burst : std::min<double>(burst, tokens_ + gained);
    isNew_ = false;
    filledAt_ = now;
    if (tokens_ < 1) return false;
    tokens_ -= cost;
    return true;
  }
  /// Takes back the event that was granted last.
  void giveBack() { tokens_ += 1; }

 private:
  double filledAt_;
  double tokens_ = 0;
  bool isNew_ = true;
};

/// A bucket for each neighbor of one interface, by its primary address.
///
/// A neighbor keeps its bucket however many others come and go. The bucket of a former neighbor stays until
/// `maxFormer` others have left after it: a neighbor gains nothing by a goodbye Hello and another Hello.
class PIMBSR_INTERNAL AddressBuckets {
 public:
  /// Buckets of former neighbors that are kept. It is above the default limit of Hellos from unknown
  /// addresses in a second: until so many neighbors have come and gone, a bucket is full again anyway. So it
  /// is no key: more would keep what grants nothing else.
  static constexpr std::size_t maxFormer = 256;

  /// The bucket of a present neighbor, made at `now` in seconds if it has none. O(log n).
  TokenBucket& bucket(Lanet::IpGenAddr const& address, double now);
  /// To be called when an address has become a neighbor, or is none any more. No effect for an address
  /// without a bucket. O(log n).
  void isPresentIs(Lanet::IpGenAddr const& address, bool isPresent);
  /// Buckets of present and former neighbors.
  std::size_t size() const { return byAddress_.size(); }

 private:
  using Former = std::list<Lanet::IpGenAddr>;
  struct Entry {
    TokenBucket bucket;
    Former::iterator former;  ///< its place; the end for a present neighbor
  };

  std::map<Lanet::IpGenAddr, Entry, Zet::Meter::Less> byAddress_;
  Former former_;  ///< in the order in which they left
};

/// The senders of Candidate-RP-Advertisements that were accepted, each until its holdtime is over, and what
/// each is granted beside the budget that all senders have together (RFC 5059 section 3.3).
class PIMBSR_INTERNAL Advertisers {
 public:
  /// Packets a second that each is granted, and how many at once: a Candidate-RP sends a message or a few
  /// each C_RP_Adv_Period, which is 60 seconds. So little that even a table full of forgers stays affordable.
  static constexpr U32 perSecond = 1;
  static constexpr U32 burst = 10;

  /// Seconds for which a sender must keep within its grant before it counts as steady: as long as its burst
  /// takes to be granted again.
  static constexpr double probation = double{burst} / perSecond;

  /// Notes an accepted advertisement, times in seconds. A holdtime of 0 withdraws the RPs, and so the sender.
  /// With `max` senders, 0 for no bound, a new one waits until another expires. O(log n).
  void note(Lanet::IpGenAddr const& sender, double holdtime, double now, std::size_t max = 0);
  /// Takes one packet from what a sender is granted, at a cost as of TokenBucket; false if that is used up,
  /// or if the sender isn't known.
  /// O(log n).
  bool take(Lanet::IpGenAddr const& sender, double now, U32 cost = 1);
  std::size_t size() const { return bySender_.size(); }

  /// Up to `count` senders that are steady: an advertisement was accepted after they had kept within their
  /// grant for `probation`, and none was beyond it since. Those that are steady for longest come first, so
  /// that forged senders displace none.
  std::vector<Lanet::IpGenAddr> steady(std::size_t count) const;
  /// Whether steady senders have come or gone since the last call. Removes those that have expired.
  bool takeSteadyChanged(double now);

 private:
  using Steady = std::list<Lanet::IpGenAddr>;
  struct Entry {
    TokenBucket bucket;
    double expiry;
    double withinGrantSince;
    Steady::iterator steady;  ///< its place; the end for a sender that isn't steady
  };
  void removeExpired(double now);
  void expiryIs(Lanet::IpGenAddr const& sender, Entry& entry, double expiry);
  void isSteadyIs(Lanet::IpGenAddr const& sender, Entry& entry, bool isSteady);

  std::map<Lanet::IpGenAddr, Entry, Zet::Meter::Less> bySender_;
  std::set<std::pair<double, Lanet::IpGenAddr>, Zet::Meter::Less> byExpiry_;
  Steady steady_;  ///< in the order in which they became steady
  bool isSteadyChanged_ = false;
};

}  // namespace pimbsr::host
