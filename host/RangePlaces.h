#pragma once

#include <limits>
#include <map>

#include "host/IngressSettings.h"
#include "host/PreferredRps.h"
#include "model/DropReason.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"

namespace pimbsr::host {

using Zet::U64;

/// Gives out the places of group ranges at the elected BSR: a range holds at most
/// IngressSettings::rpsPerRange RPs, since RP Count has 8 bits (RFC 5059 section 4.1) and a range announced
/// with too many RPs would lose all.
///
/// A newcomer to a full range displaces a worse RP, one in a BS_Period. The displaced RP is withdrawn as if
/// it had withdrawn itself, except that no message is sent earlier for it; the newcomer enters with its next
/// advertisement after the displaced RP has left, and its place is reserved for three BS_Periods, the least
/// time for which an advertisement counts. Preferred RPs count as better than all others and are not
/// displaced. This router's own candidate RPs are not displaced either, and places are kept for those that
/// have not advertised themselves yet; one that finds a full range displaces an RP in the same way, also one
/// in a BS_Period, and enters with its next advertisement after that has left.
///
/// The record of a range is dropped once it has no effect any more: there are never more than twice the
/// ranges that were full in the last three BS_Periods, and a constant.
class PIMBSR_INTERNAL RangePlaces {
 public:
  /// An advertisement of one RP for one range, and the range's set.
  struct Request {
    Lanet::IpGenPrefix const& range;
    Lanet::IpGenPrefix const& zone;  ///< the range's zone, for which this router is the elected BSR
    Lanet::IpGenAddr const& rp;
    U32 priority = 0;                                   ///< lower is better
    Zet::Ptr<Routing::Pim::RpCandidateSet> const& set;  ///< null for a new range
  };

  /// Both are read for as long as this object is.
  RangePlaces(Routing::Pim::Bsr::PimBsrSm const& root, IngressSettings const& settings)
      : root_(root), settings_(settings) {}

  /// Replaces the preferred RPs.
  void preferredIs(PreferredRps const& preferred);
  PreferredRps const& preferred() const { return preferred_; }

  /// Checks an RP that its range holds already: a displaced one is dropped until it has left.
  DropReason checkRenewal(Lanet::IpGenPrefix const& range, Routing::Pim::RpCandidate const& rp) const;
  /// Asks for a place for an RP that its range doesn't hold. May displace another RP.
  DropReason request(Request const& request);
  /// Asks for a place for this router's own candidate RP in a range that has a set without it; false if it
  /// has to wait. Displaces the worst RP of a full range, whatever its priority; a range with preferred RPs
  /// and this router's own alone takes these up to wire::maxRpCount.
  bool requestOwn(Request const& request);
  /// Number of ranges of which something is kept.
  std::size_t size() const { return ranges_.size(); }

 private:
  static constexpr double never = -std::numeric_limits<double>::infinity();
  static constexpr std::size_t minSize = 64;  ///< ranges below which those without effect are not dropped
  /// Priority that counts for a preferred newcomer; all others are worse.
  static constexpr int preferredRank = -1;

  /// What is kept of a range that was full.
  struct Full {
    Lanet::IpGenAddr displaced;  ///< unset if none is, or it has come back since
    Lanet::IpGenAddr newcomer;   ///< for which the place is reserved
    double reservedUntil = never;
    double nextDisplacement = never;  ///< no other one before
    double searchedAt = never;        ///< when no worse RP was found for some newcomer
    int worst = preferredRank;        ///< worst priority of an RP that could be displaced, found then
  };
  /// What a search for an RP to displace found.
  struct Worst {
    Zet::Ptr<Routing::Pim::RpCandidate> rp;  ///< the one to displace; null if none is worse
    int priority = preferredRank;            ///< worst priority of all that could be displaced
  };

  Full* find(Lanet::IpGenPrefix const& range);
  Full& add(Lanet::IpGenPrefix const& range);
  void dropIdle();
  bool isFull(Request const& request, Full const* reserved) const;
  void takeOver(Request const& request, Full& full) const;
  bool mayDisplace(Request const& request, Full const& full) const;
  void displaceFor(Request const& request, Full& full);
  void displace(Routing::Pim::RpCandidate& rp, Request const& request, Full& full) const;
  void reserve(Request const& request, Full& full) const;
  double periodOf(Lanet::IpGenPrefix const& zone) const;
  U32 missingOwnRps(Request const& request) const;
  bool isOwnRp(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const;
  bool displaceForOwn(Request const& request, Full& full) const;
  Worst worstOf(Routing::Pim::RpCandidateSet const& set, int rank) const;
  int rankOf(Request const& request) const;

  Routing::Pim::Bsr::PimBsrSm const& root_;
  IngressSettings const& settings_;
  PreferredRps preferred_;
  std::map<Lanet::IpGenPrefix, Full, Zet::Meter::Less> ranges_;
  std::size_t dropAt_ = minSize;
};

}  // namespace pimbsr::host
