#pragma once

#include <limits>
#include <map>
#include <set>

#include "host/Refusal.h"
#include "host/Screening.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

using Zet::U64;

/// The RP set of a range in the zone of its longest match; null if there is none.
Zet::Ptr<Routing::Pim::RpCandidateSet> rpSetOf(Routing::Pim::Bsr::PimBsrSm const& root,
                                               Lanet::IpGenPrefix const& range);

/// Records which sender added which RPs and group ranges to the RP sets at the elected BSR, and bounds them
/// for each sender.
///
/// An entry of an RP that has left the sets is dropped late: when its sender is at a bound, at most once a
/// second, and when the entries of all senders have doubled since the last time. So there are never more
/// than twice the RPs that the sets held then, and a constant.
class PIMBSR_API SenderLedger {
 public:
  /// Both are read for as long as this object is.
  SenderLedger(Routing::Pim::Bsr::PimBsrSm const& root, Screening const& settings)
      : root_(root), settings_(settings) {}

  /// Makes room in a sender's account, where `ranges` more could be too many. To be called for a message
  /// before the first check: its own entries are in no set yet.
  void prepare(Lanet::IpGenAddr const& sender, U64 ranges);
  /// Checks whether a sender may add an RP to a range that doesn't hold it.
  Refusal check(Lanet::IpGenAddr const& sender, Lanet::IpGenAddr const& rp,
                Lanet::IpGenPrefix const& range) const;
  /// Records that it did. Has no effect while neither bound is set.
  void record(Lanet::IpGenAddr const& sender, Lanet::IpGenAddr const& rp, Lanet::IpGenPrefix const& range);
  /// Number of RPs by sender and range that are recorded, with those that have left the sets meanwhile.
  U64 size() const { return size_; }

 private:
  static constexpr U64 minSize = 1024;  ///< entries below which those of all senders are not gone through

  struct Account {
    std::map<Lanet::IpGenAddr, std::set<Lanet::IpGenPrefix>> rps;
    U64 ranges = 0;
    double prunedAt = -std::numeric_limits<double>::infinity();
  };

  void prune(Account& account);
  void pruneAll();

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Screening const& settings_;
  std::map<Lanet::IpGenAddr, Account> accounts_;  ///< by sender
  U64 size_ = 0;
  U64 pruneAt_ = minSize;
};

}  // namespace pimbsr::host
