#pragma once

#include <compare>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "host/IngressSettings.h"
#include "model/DropReason.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"

namespace pimbsr::host {

using Zet::U64;

/// The RP set of a range in the zone of its longest match; null if there is none.
Zet::Ptr<Routing::Pim::RpCandidateSet> rpSetOf(Routing::Pim::Bsr::PimBsrSm const& root,
                                               Lanet::IpGenPrefix const& range);

/// Records which sender added which RPs and group ranges to the RP sets at the elected BSR, and bounds them
/// for each sender.
///
/// An RP that is its own sender has an account of its own, and so has each preferred RP, whoever sends for
/// it: what a forger adds for other RPs from the same address doesn't use that up. Such an account holds one
/// RP and IngressSettings::rangesPerSender ranges; the sender's account of other RPs has both bounds.
///
/// An RP of a range is in one account, that of its last sender. An entry of an RP that has left the sets is
/// dropped late: when its account is at a bound, at most once a second, and by a sweep over all entries that
/// each new entry moves by a few. So there are never more than twice the RPs that the sets held during a
/// sweep, and a constant, and no packet costs a walk over all of them.
class PIMBSR_INTERNAL SenderLedger {
 public:
  /// One RP of one range, and who adds it.
  struct Addition {
    Lanet::IpGenAddr const& sender;
    Lanet::IpGenAddr const& rp;
    Lanet::IpGenPrefix const& range;
    bool isPreferred = false;  ///< the RP is a preferred one
  };

  /// Both are read for as long as this object is.
  SenderLedger(Routing::Pim::Bsr::PimBsrSm const& root, IngressSettings const& settings)
      : root_(root), settings_(settings) {}
  SenderLedger(SenderLedger const&) = delete;
  SenderLedger& operator=(SenderLedger const&) = delete;

  /// Makes room in the account of an addition, where `ranges` more could be too many, and sweeps. To be
  /// called for a message before its first check: its own entries are in no set yet.
  void prepare(Addition const& addition, U64 ranges);
  /// Checks whether a sender may add an RP to a range that doesn't hold it.
  DropReason check(Addition const& addition) const;
  /// Records that it did. Has no effect while neither bound is set.
  void record(Addition const& addition);
  /// Number of RPs by range that are recorded, with those that have left the sets meanwhile.
  U64 size() const { return owners_.size(); }
  /// Number of accounts; none is empty.
  U64 accountCount() const { return accounts_.size(); }

 private:
  static constexpr U64 minSize = 1024;  ///< entries below which there is no sweep
  /// Entries that the sweep visits for each new one: with six, new ones come at a fifth of its pace at most.
  static constexpr U64 stepsPerEntry = 6;

  /// An RP, and whether the account is that RP's own; else a sender, whose account is of other RPs.
  struct Key {
    Lanet::IpGenAddr address;
    bool isRp = false;
    auto operator<=>(Key const&) const = default;
  };
  using Ranges = std::set<Lanet::IpGenPrefix, Zet::Meter::Less>;
  struct Account {
    std::map<Lanet::IpGenAddr, Ranges, Zet::Meter::Less> rps;
    U64 ranges = 0;
    double prunedAt = -std::numeric_limits<double>::infinity();
  };
  struct Entry {
    Lanet::IpGenAddr rp;
    Lanet::IpGenPrefix range;
    auto operator<=>(Entry const&) const = default;
  };
  using Accounts = std::map<Key, Account, Zet::Meter::Less>;
  using Owners = std::map<Entry, Accounts::iterator, Zet::Meter::Less>;

  static Key keyOf(Addition const& addition);
  bool isHeld(Entry const& entry) const;
  bool isNearBound(Account const& account, U64 ranges) const;
  void prune(Account& account);
  void sweep();
  void remove(Owners::iterator entry);

  Routing::Pim::Bsr::PimBsrSm const& root_;
  IngressSettings const& settings_;
  Accounts accounts_;
  Owners owners_;                           ///< the account of each RP of each range
  Owners::iterator swept_ = owners_.end();  ///< where the sweep goes on; its end means the start
  U64 sweepSteps_ = 0;                      ///< due before the next message is recorded
};

}  // namespace pimbsr::host
