#include "host/RangePlaces.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "host/LogFlags.h"
#include "protocol/BsrCandidateSm.h"
#include "runtime/Context.h"
#include "runtime/Log.h"
#include "wire/Wire.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::RpCandidate;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

static Zet::LogHandle const fullLog(
    "PIMBSR_RANGE_FULL", Zet::LogSeverity::warning, "Group range %s has reached limits.rps-per-range.",
    "The range holds as many RPs as it may. Further candidate RPs are dropped unless they are better.",
    "See who advertises them, and set filter.sender-lists and filter.rp-lists.", 0.0, 1.0, limitedByRange);

static Zet::LogHandle const displacedLog(
    "PIMBSR_RP_DISPLACED", Zet::LogSeverity::warning, "Group range %s, since the range is full.",
    "The RP leaves the RP set with the next Bootstrap Message, and the better one enters after it.",
    "List the RPs of the domain in filter.rp-lists, so that they stay.", 0.0, 1.0, limitedByRange);

void RangePlaces::preferredIs(PreferredRps const& preferred) {
  preferred_ = preferred;
  for (auto& [range, full] : ranges_) full.searchedAt = never;
}

// Notes of a range ------------------------------------------------------------------------------------

RangePlaces::Full* RangePlaces::find(IpGenPrefix const& range) {
  auto at = ranges_.find(range);
  return at == ranges_.end() ? nullptr : &at->second;
}

RangePlaces::Full& RangePlaces::add(IpGenPrefix const& range) {
  if (ranges_.size() >= dropAt_) dropIdle();
  Zet::log(fullLog, range.stringValue());
  return ranges_[range];
}

void RangePlaces::dropIdle() {
  double now = Zet::now();
  std::erase_if(ranges_, [now](auto const& entry) {
    Zet::Meter::visit();
    Full const& full = entry.second;
    return now >= std::max({full.reservedUntil, full.nextDisplacement, full.searchedAt + 1});
  });
  dropAt_ = std::max(minSize, 2 * ranges_.size());
}

// Places ------------------------------------------------------------------------------------------------

DropReason RangePlaces::checkRenewal(IpGenPrefix const& range, RpCandidate const& rp) const {
  auto full = ranges_.find(range);
  bool isLeaving = full != ranges_.end() && full->second.displaced == rp.address();
  return isLeaving && rp.holdTime().value() == 0 ? DropReason::displacedRp : DropReason::none;
}

/// An RP that was displaced and is a newcomer by now has left.
DropReason RangePlaces::request(Request const& request) {
  if (settings_.rpsPerRange == 0) return DropReason::none;
  Full* full = find(request.range);
  if (full && full->displaced == request.rp) full->displaced = {};
  bool isReserved = full && Zet::now() < full->reservedUntil;
  if (!isFull(request, isReserved ? full : nullptr)) {
    if (isReserved && full->newcomer == request.rp) full->reservedUntil = never;
    return DropReason::none;
  }
  if (!full) full = &add(request.range);
  if (!isReserved) {
    if (mayDisplace(request, *full)) displaceFor(request, *full);
  } else {
    takeOver(request, *full);
  }
  return DropReason::rangeFull;
}

/// A preferred newcomer gets the place that is reserved for another that is neither preferred nor this
/// router's own.
void RangePlaces::takeOver(Request const& request, Full& full) const {
  if (rankOf(request) != preferredRank || preferred_.contains(full.newcomer)) return;
  if (!isOwnRp(request.range, full.newcomer)) full.newcomer = request.rp;
}

/// Whether no place is left for a newcomer. A reserved place counts from the time at which the displaced RP
/// has left it; before, that RP counts. One for this router's own RP counts as missing. `reserved` is null
/// while nothing is.
bool RangePlaces::isFull(Request const& request, Full const* reserved) const {
  U32 taken = request.set ? request.set->rpCount() : 0;
  bool isForOther =
      reserved && reserved->newcomer != request.rp && !isOwnRp(request.range, reserved->newcomer);
  if (isForOther && !(request.set && request.set->rp(reserved->displaced))) ++taken;
  if (taken + root_.bsrStatus()->crpCount() < settings_.rpsPerRange) return false;
  return taken + missingOwnRps(request) >= settings_.rpsPerRange;
}

/// A range that is beyond a lowered bound has no place for a newcomer even if an RP leaves.
bool RangePlaces::mayDisplace(Request const& request, Full const& full) const {
  if (!request.set || Zet::now() < full.nextDisplacement) return false;
  if (request.set->rpCount() + missingOwnRps(request) > settings_.rpsPerRange) return false;
  bool isKnown = Zet::now() < full.searchedAt + 1;
  return !isKnown || full.worst > rankOf(request);
}

void RangePlaces::displaceFor(Request const& request, Full& full) {
  Worst worst = worstOf(*request.set, rankOf(request));
  if (worst.rp) return displace(*worst.rp, request, full);
  full.worst = worst.priority;
  full.searchedAt = Zet::now();
}

/// Withdraws an RP as its own advertisement with holdtime 0 would, but leaves the Bootstrap Timer alone: a
/// stranger must not make this router send more messages.
void RangePlaces::displace(RpCandidate& rp, Request const& request, Full& full) const {
  std::string text(request.range.stringValue().view());
  text += " loses RP " + std::string(rp.address().stringValue().view());
  text += " to " + std::string(request.rp.stringValue().view());
  Zet::log(displacedLog, Zet::String8(text.c_str()));
  if (rp.holdTime().value() != 0) {
    rp.expiresIs(Zet::now() + rp.holdTime().value());
    rp.holdTimeIs(0);
  }
  full.displaced = rp.address();
  full.nextDisplacement = Zet::now() + periodOf(request.zone);
  reserve(request, full);
}

void RangePlaces::reserve(Request const& request, Full& full) const {
  full.newcomer = request.rp;
  full.reservedUntil = Zet::now() + 3 * periodOf(request.zone);
}

double RangePlaces::periodOf(IpGenPrefix const& zone) const {
  return root_.bsrStatus()->cbsr(zone)->bsPeriod();
}

// The worst RP ------------------------------------------------------------------------------------------

int RangePlaces::rankOf(Request const& request) const {
  return preferred_.contains(request.rp) ? preferredRank : static_cast<int>(request.priority);
}

/// Of the RPs with a worse priority than `rank`: one that leaves already, then the worst priority, then the
/// one that came last.
RangePlaces::Worst RangePlaces::worstOf(RpCandidateSet const& set, int rank) const {
  Worst worst;
  auto order = [](RpCandidate const& rp) {
    return std::tuple(rp.holdTime().value() == 0, rp.priority().value(), rp.setupTime());
  };
  for (auto rp = set.rpIterator(); rp; ++rp) {
    if (isOwnRp(set.prefix(), rp->address()) || preferred_.contains(rp->address())) continue;
    int priority = static_cast<int>(rp->priority().value());
    worst.priority = std::max(worst.priority, priority);
    if (priority > rank && (!worst.rp || order(*rp) >= order(*worst.rp))) worst.rp = rp.ptr();
  }
  return worst;
}

// This router's own candidate RPs -----------------------------------------------------------------------

bool RangePlaces::isOwnRp(IpGenPrefix const& range, IpGenAddr const& rp) const {
  Ptr<Bsr::RpCandidate> own = root_.bsrStatus()->crp(rp);
  return own && own->prefixSet(range);
}

/// This router's candidate RPs for a range that are not in its set yet.
U32 RangePlaces::missingOwnRps(Request const& request) const {
  U32 missing = 0;
  for (auto own = root_.bsrStatus()->crpIterator(); own; ++own) {
    bool isHeld = request.set && request.set->rp(own->address());
    if (own->prefixSet(request.range) && !isHeld) ++missing;
  }
  return missing;
}

/// The RP that leaves already, for whichever newcomer, leaves its place to this router's own.
bool RangePlaces::requestOwn(Request const& request) {
  if (settings_.rpsPerRange == 0) return true;
  Full* full = find(request.range);
  if (request.set->rpCount() < settings_.rpsPerRange) {
    if (full && full->newcomer == request.rp) full->reservedUntil = never;
    return true;
  }
  if (!full) full = &add(request.range);
  Ptr<RpCandidate> displaced = request.set->rp(full->displaced);
  if (!displaced || displaced->holdTime().value() != 0) return displaceForOwn(request, *full);
  reserve(request, *full);
  return false;
}

/// The operator of this router has configured the RP, so that it displaces others whatever their priority,
/// though no second one in a BS_Period. Returns whether it may enter at once, since none can be displaced.
bool RangePlaces::displaceForOwn(Request const& request, Full& full) const {
  Worst worst = worstOf(*request.set, preferredRank);
  if (!worst.rp) return request.set->rpCount() < wire::maxRpCount;
  if (Zet::now() < full.nextDisplacement) {
    reserve(request, full);
  } else {
    displace(*worst.rp, request, full);
  }
  return false;
}

}  // namespace pimbsr::host
