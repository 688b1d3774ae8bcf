#pragma once

#include <algorithm>
#include <map>

#include "host/HoldOver.h"
#include "host/IngressSettings.h"
#include "host/PreferredRps.h"
#include "model/DropReason.h"
#include "model/Status.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"

namespace pimbsr::host {

using Zet::U64;

/// An upper estimate of how many of something are kept, which a count corrects from time to time.
///
/// Each message adds what it brings, known or not, while the engine removes by itself. A new count is due
/// once as many were added since the last as that had to walk, or after a second: so a message costs what it
/// names, and what has gone is noticed soon.
class PIMBSR_INTERNAL Tally {
 public:
  /// How many are missing for so many more to be within a bound.
  U64 missing(U64 more, U64 bound) const { return std::max(estimate_ + more, bound) - bound; }
  /// Takes away so many that were removed.
  void discharge(U64 removed) { estimate_ -= std::min(removed, estimate_); }
  /// Adds so many if they are within a bound; false, and nothing added, if they aren't. `count(tally)` calls
  /// `counted` for each group of those that are kept.
  template <class Count>
  bool add(U64 added, U64 bound, Count const& count) {
    sinceCount_ += added;
    if (!hasRoom(added, bound, count)) return false;
    estimate_ += added;
    return true;
  }
  /// Whether so many more are within a bound; nothing is added.
  template <class Count>
  bool hasRoom(U64 more, U64 bound, Count const& count) {
    if (estimate_ + more > bound && isDue()) {
      restart();
      count(*this);
    }
    return estimate_ + more <= bound;
  }
  /// Adds so many, whatever the bound.
  void charge(U64 added) {
    sinceCount_ += added;
    estimate_ += added;
  }
  void counted(U64 kept) {
    estimate_ += kept;
    ++walked_;
  }

 private:
  static constexpr U64 unknown = ~U64{0} / 2;

  bool isDue() const;
  void restart();

  U64 estimate_ = unknown;
  U64 sinceCount_ = 0;  ///< added since the last count
  U64 walked_ = 0;      ///< groups walked by the last count
  double countedAt_ = 0;
};

/// Keeps messages from making the router keep more than its IngressSettings grants: scope zones, group ranges
/// of a zone, RPs in the fragment stores, RPs in the RP sets.
///
/// Known entries may always be renewed or withdrawn, whatever the bounds. A Bootstrap Message beyond a bound
/// of RPs or ranges passes with its header, which renews the BSR, and with what it renews: a record that
/// would add too much is cut to the RPs that its set holds. The store takes a message as a change and not as
/// the whole set, so no range is emptied by it. This router's own candidate RPs are no peer's and come on top
/// of the bound for RPs. RPs that are kept of a former BSR count in that bound, and give way to RPs of the
/// present one. Scoped zones together add no more than half of IngressSettings::rps: any neighbor can claim
/// to be BSR of one, and must not keep the RPs of the global zone out.
class PIMBSR_INTERNAL Quotas {
 public:
  /// What becomes of a Bootstrap Message.
  struct Verdict {
    /// The message to hand on: the one received, or a copy with what fits; null if it is dropped whole.
    Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> passed;
    DropReason reason =
        DropReason::none;  ///< why the first of the cut records was cut, or the message dropped
    U32 dropped = 0;       ///< number of records that were cut
  };

  /// All are used for as long as this object is.
  Quotas(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
         IngressSettings const& settings)
      : root_(root), gate_(gate), settings_(settings) {}

  /// Validates a Bootstrap Message that the gate is to see next.
  Verdict validate(Routing::Pim::Packet::BootstrapMessage& message);
  /// Validates a Candidate-RP-Advertisement that was sent to this router. While there are preferred RPs, the
  /// others add no more than half of IngressSettings::rps, so that forged RPs keep no preferred one out.
  DropReason validate(Routing::Pim::Packet::CrpAdvMessage const& message, PreferredRps const& preferred);
  /// The RPs that are kept of former BSRs, used for as long as this object is; null, as at first, for none.
  void holdOverIs(HoldOver* holdOver) { holdOver_ = holdOver; }
  /// To be called after the settings have changed.
  void handleSettings() {
    rps_ = {};
    scopedRps_ = {};
    waiting_ = {};
  }

 private:
  /// Which of the bounds a whole message keeps.
  struct Fits {
    bool fragments = true;
    bool ranges = true;
    bool rps = true;
  };
  class Cut;

  bool isZoneTooMany(Lanet::IpGenPrefix const& zone);
  void forgetZones();
  Fits fit(Lanet::IpGenPrefix const& zone, Routing::Pim::Packet::BootstrapMessage const& message);
  bool areRangesTooMany(Lanet::IpGenPrefix const& zone,
                        Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newWaiting(Routing::Pim::Packet::BootstrapMessage const& message,
                 Routing::Pim::Packet::BootstrapGroupData const& group) const;
  U64 newWaiting(Routing::Pim::Packet::BootstrapMessage const& message) const;
  bool hasRoomToWait(U64 rps);
  void countWaiting(Tally& tally) const;
  Zet::Ptr<Routing::Pim::Bsr::PimBsrRxFragment> waiting(
      Routing::Pim::Packet::BootstrapMessage const& message,
      Routing::Pim::Packet::BootstrapGroupData const& group) const;
  U64 namedRps(Routing::Pim::Packet::BootstrapMessage const& message) const;
  /// A range that a message names: what is charged for it once, however many records name it.
  struct Named {
    U64 earlierRps = 0;  ///< new RPs of its fragments that came before
    bool isCharged = false;
  };
  using NamedRanges = std::map<Lanet::IpGenPrefix, Named, Zet::Meter::Less>;
  U64 newRps(Lanet::IpGenPrefix const& zone, Routing::Pim::Packet::BootstrapMessage const& message,
             Routing::Pim::Packet::BootstrapGroupData const& group, NamedRanges& named) const;
  U64 newRps(Lanet::IpGenPrefix const& zone, Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newRps(Routing::Pim::Packet::CrpAdvMessage const& message) const;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> setsOf(Lanet::IpGenPrefix const& zone) const;
  Zet::Ptr<Routing::Pim::RpCandidateSet> known(Lanet::IpGenPrefix const& zone,
                                               Lanet::IpGenPrefix const& range) const;
  U64 rpBound(Lanet::IpGenAddr const& rp, PreferredRps const& preferred) const;
  bool makeRoom(U64 rps, U64 bound);
  bool isKept(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const {
    return holdOver_ != nullptr && holdOver_->keeps(range, rp);
  }
  bool takesRps(U64 rps, U64 bound);
  bool takesRps(Lanet::IpGenPrefix const& zone, U64 rps);
  bool hasRoomForRps(Lanet::IpGenPrefix const& zone, U64 rps);
  bool hasRoomForScopedRps(U64 rps);
  void charge(Lanet::IpGenPrefix const& zone, U64 rps);
  void countRps(Tally& tally) const;
  void countScopedRps(Tally& tally) const;
  bool isScoped(Lanet::IpGenPrefix const& zone) const { return zone != root_.globalOrNonScopeZone(); }

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Routing::Pim::Bsr::BootstrapMessageSm& gate_;
  IngressSettings const& settings_;
  HoldOver* holdOver_ = nullptr;
  Tally rps_;        ///< RPs in the sets of all zones, and kept ones
  Tally scopedRps_;  ///< RPs in the sets of scoped zones
  Tally waiting_;    ///< RPs in the fragment stores of all tags
};

}  // namespace pimbsr::host
