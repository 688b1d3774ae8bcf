#pragma once

#include "host/Refusal.h"
#include "host/Screening.h"
#include "model/Status.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

using Zet::U64;

/// An upper estimate of how many of something are kept, which a count corrects from time to time.
///
/// Each message adds what it brings, known or not, while the engine removes by itself. A new count is due
/// once as many were added since the last as that had to walk, or after a second: so a message costs what it
/// names, and what has gone is noticed soon.
class PIMBSR_API Tally {
 public:
  /// Adds so many if they are within a bound; false, and nothing added, if they aren't. `count(tally)` calls
  /// `counted` for each group of those that are kept.
  template <class Count>
  bool add(U64 added, U64 bound, Count const& count) {
    sinceCount_ += added;
    if (estimate_ + added > bound && isDue()) {
      restart();
      count(*this);
    }
    if (estimate_ + added > bound) return false;
    estimate_ += added;
    return true;
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

/// Refuses messages that would make the router keep more than its Screening grants: scope zones, RPs in the
/// fragment stores, RPs in the RP sets.
///
/// What is known may always be told again, whatever the bounds. A message beyond a bound is refused whole,
/// since the part that fits would look like a full set. This router's own candidate RPs are no peer's and may
/// stand on top of the bound for RPs.
class PIMBSR_API Quotas {
 public:
  /// All are used for as long as this object is.
  Quotas(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
         Screening const& settings)
      : root_(root), gate_(gate), settings_(settings) {}

  /// Judges a Bootstrap Message that the gate is to see next.
  Refusal judge(Routing::Pim::Packet::BootstrapMessage const& message);
  /// Judges a Candidate-RP-Advertisement that was sent to this router.
  Refusal judge(Routing::Pim::Packet::CrpAdvMessage const& message);
  /// To be called after the settings have changed.
  void handleSettings() {
    rps_ = {};
    waiting_ = {};
  }

 private:
  bool isZoneTooMany(Lanet::IpGenPrefix const& zone);
  bool areRangesTooMany(Lanet::IpGenPrefix const& zone,
                        Routing::Pim::Packet::BootstrapMessage const& message) const;
  void forgetZones();
  bool areFragmentsTooMany(Routing::Pim::Packet::BootstrapMessage const& message);
  void countWaiting(Tally& tally) const;
  Zet::Ptr<Routing::Pim::Bsr::PimBsrRxFragment> waiting(
      Routing::Pim::Packet::BootstrapMessage const& message,
      Routing::Pim::Packet::BootstrapGroupData const& group) const;
  U64 namedRps(Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newRps(Lanet::IpGenPrefix const& zone, Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newRps(Routing::Pim::Packet::CrpAdvMessage const& message) const;
  Zet::Ptr<Routing::Pim::RpCandidateSet> known(Lanet::IpGenPrefix const& zone,
                                               Lanet::IpGenPrefix const& range) const;
  void countRps(Tally& tally) const;

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Routing::Pim::Bsr::BootstrapMessageSm& gate_;
  Screening const& settings_;
  Tally rps_;      ///< RPs in the sets of all zones
  Tally waiting_;  ///< RPs in the fragment stores of all tags
};

}  // namespace pimbsr::host
