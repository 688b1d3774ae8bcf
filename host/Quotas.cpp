#include "host/Quotas.h"

#include <algorithm>
#include <set>

#include "host/Fragment.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

/// The zone of a message: that of its first record, if it is scoped.
static IpGenPrefix zoneOf(BootstrapMessage const& message, IpGenPrefix const& global) {
  Ptr<BootstrapGroupData> first = message.groupRpData()->groupDataFirst();
  return first && first->groupFlags().scoped() ? first->prefix() : global;
}

// A Bootstrap Message that is cut ------------------------------------------------------------------------

/// A copy of a message without what it adds beyond the bounds.
class Quotas::Cut {
 public:
  Cut(Quotas& quotas, IpGenPrefix const& zone, BootstrapMessage& message, Fits const& fits)
      : quotas_(quotas), zone_(zone), message_(message), fits_(fits) {
    Ptr<Routing::Pim::RpCandidateStatus> sets = quotas.setsOf(zone);
    ranges_ = sets ? sets->crpSetCount() : 0;
  }

  Verdict verdict() {
    verdict_.passed = copyOfHeader();
    Ptr<Packet::BootstrapOptionalData> groups = message_.groupRpData();
    for (auto group = groups->groupDataIterator(); group; ++group) {
      DropReason reason = check(*group);
      if (reason == DropReason::none) {
        add(group.ptr());
      } else {
        addRenewals(*group);
        if (verdict_.dropped++ == 0) verdict_.reason = reason;
      }
    }
    quotas_.waiting_.charge(waiting_);
    quotas_.charge(zone_, rps_);
    return verdict_;
  }

 private:
  Ptr<BootstrapMessage> copyOfHeader() const {
    auto copy = Zet::make<BootstrapMessage>();
    copy->srcAddrIs(message_.srcAddr());
    copy->dstAddrIs(message_.dstAddr());
    copy->forwardIs(message_.forward());
    copy->fragmentTagIs(message_.fragmentTag());
    copy->hashMaskLenIs(message_.hashMaskLen());
    copy->bsrPriorityIs(message_.bsrPriority());
    copy->bsrAddressIs(message_.bsrAddress());
    copy->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
    return copy;
  }

  /// The engine hears of no record before all are checked, so that those that pass are added up here.
  DropReason check(BootstrapGroupData const& group) {
    if (group.fragRpCount() == 0) return DropReason::none;
    U64 waiting = fits_.fragments ? 0 : quotas_.newWaiting(message_, group);
    U64 fresh = fits_.rps ? 0 : quotas_.newRps(zone_, message_, group, named_);
    if (waiting != 0 && !quotas_.hasRoomToWait(waiting_ + waiting)) return DropReason::fragmentQuota;
    if (!fits_.ranges && !hasRoom(group.prefix())) return DropReason::zoneRanges;
    if (fresh != 0 && !quotas_.hasRoomForRps(zone_, rps_ + fresh)) return DropReason::rpQuota;
    waiting_ += waiting;
    rps_ += fresh;
    if (!fits_.rps) named_[group.prefix()].isCharged = true;
    return DropReason::none;
  }

  /// A range counts once, however many records name it.
  bool hasRoom(IpGenPrefix const& range) {
    if (quotas_.known(zone_, range) || added_.contains(range)) return true;
    if (ranges_ + added_.size() >= quotas_.settings_.rangesPerZone) return false;
    added_.insert(range);
    return true;
  }

  void add(Ptr<BootstrapGroupData> const& group) { verdict_.passed->groupRpData()->groupDataEnq(group); }

  /// The RPs of a record that their set holds, as a record that is complete: also of a fragment, since the
  /// others of its range stay as they are. The record that names a scoped zone stays without any.
  void addRenewals(BootstrapGroupData const& group) {
    auto kept = Zet::make<BootstrapGroupData>(group.prefix());
    kept->groupFlagsIs(group.groupFlags());
    Ptr<RpCandidateSet> set = quotas_.known(zone_, group.prefix());
    for (auto rp = group.rpListIterator(); set && rp; ++rp) {
      if (!set->rp(rp->rpAddress())) continue;
      Ptr<Packet::BootstrapRpData> copy = kept->rpListIs(rp->rpAddress());
      copy->rpHoldtimeIs(rp->rpHoldtime());
      copy->rpPriorityIs(rp->rpPriority());
    }
    auto count = static_cast<U8>(kept->rpListCount());
    kept->rpCountIs(count);
    kept->fragRpCountIs(count);
    bool isOfZone = group.groupFlags().scoped() && group.prefix() == zone_;
    if (count != 0 || isOfZone) add(kept);
  }

  Quotas& quotas_;
  IpGenPrefix zone_;
  BootstrapMessage& message_;
  Fits fits_;
  U64 ranges_;                   ///< in the zone's RP set
  U64 waiting_ = 0;              ///< RPs that the message adds to the fragment stores
  U64 rps_ = 0;                  ///< RPs that it adds to the sets
  std::set<IpGenPrefix> added_;  ///< ranges that the message adds
  NamedRanges named_;
  Verdict verdict_;
};

Quotas::Verdict Quotas::validate(BootstrapMessage& message) {
  IpGenPrefix zone = zoneOf(message, root_.globalOrNonScopeZone());
  if (settings_.learnedZones != 0 && isZoneTooMany(zone)) return {.reason = DropReason::zoneQuota};
  Fits fits = fit(zone, message);
  if (fits.fragments && fits.ranges && fits.rps) return {.passed = Ptr<BootstrapMessage>(&message)};
  return Cut(*this, zone, message, fits).verdict();
}

/// The RPs are compared with those known only where all that are named wouldn't fit.
Quotas::Fits Quotas::fit(IpGenPrefix const& zone, BootstrapMessage const& message) {
  U64 waiting = settings_.fragmentRps == 0 ? 0 : newWaiting(message);
  Fits fits;
  auto count = [this](Tally& tally) { countWaiting(tally); };
  fits.fragments = waiting == 0 || waiting_.add(waiting, settings_.fragmentRps, count);
  fits.ranges = settings_.rangesPerZone == 0 || !areRangesTooMany(zone, message);
  if (settings_.rps == 0 || takesRps(zone, namedRps(message))) return fits;
  U64 fresh = newRps(zone, message);
  // Kept RPs that had to go may be among those that the message names.
  if (fresh != 0 && makeRoom(fresh, settings_.rps)) fresh = newRps(zone, message);
  fits.rps = fresh == 0 || takesRps(zone, fresh);
  return fits;
}

DropReason Quotas::validate(Packet::CrpAdvMessage const& message, PreferredRps const& preferred) {
  if (settings_.rps == 0 || message.holdtime() == 0) return DropReason::none;
  U64 fresh = newRps(message);
  U64 bound = rpBound(message.rpAddress(), preferred);
  if (fresh != 0) makeRoom(fresh, bound);
  bool fits = fresh == 0 || takesRps(fresh, bound);
  return fits ? DropReason::none : DropReason::rpQuota;
}

// Counts ----------------------------------------------------------------------------------------------

bool Tally::isDue() const {
  return estimate_ == unknown || sinceCount_ >= walked_ || Zet::now() >= countedAt_ + 1;
}

void Tally::restart() {
  estimate_ = sinceCount_ = walked_ = 0;
  countedAt_ = Zet::now();
}

// Zones -----------------------------------------------------------------------------------------------

bool Quotas::isZoneTooMany(IpGenPrefix const& zone) {
  IpGenPrefix global = root_.globalOrNonScopeZone();
  if (zone == global || root_.candidateSm(zone) || root_.nonCandidateSm(zone)) return false;
  forgetZones();
  U32 learned = root_.nonCandidateSmCount() - (root_.nonCandidateSm(global) ? 1 : 0);
  return learned >= settings_.learnedZones;
}

/// The gate keeps a message of every zone that it ever let in, to know whether another is its first soon
/// after the start. After that a zone without a follower needs none. More messages than machines
/// show that a zone has ended, so that each walk is paid for by such an end and no packet of a stranger costs
/// one.
void Quotas::forgetZones() {
  if (gate_.lastBsmCount() <= root_.candidateSmCount() + root_.nonCandidateSmCount()) return;
  if (Zet::now() <= gate_.startupTime() + Bsr::BootstrapMessageSm::bsPeriodDefault()) return;
  for (auto at = gate_.lastBsmIterator(); at; ++at) {
    IpGenPrefix zone = at.key();
    if (!root_.candidateSm(zone) && !root_.nonCandidateSm(zone)) gate_.lastBsmDel(zone);
  }
}

/// A range that is still in fragments counts too, since its set follows. Renewals alone add nothing.
bool Quotas::areRangesTooMany(IpGenPrefix const& zone, BootstrapMessage const& message) const {
  Ptr<Routing::Pim::RpCandidateStatus> sets = setsOf(zone);
  U64 held = sets ? sets->crpSetCount() : 0;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  if (held + groups->groupDataCount() <= settings_.rangesPerZone) return false;
  std::set<IpGenPrefix> added;
  for (auto group = groups->groupDataIterator(); group; ++group) {
    if (group->fragRpCount() != 0 && !(sets && sets->crpSet(group->prefix()))) added.insert(group->prefix());
  }
  return !added.empty() && held + added.size() > settings_.rangesPerZone;
}

// Fragments -------------------------------------------------------------------------------------------

Ptr<Bsr::PimBsrRxFragment> Quotas::waiting(BootstrapMessage const& message,
                                           BootstrapGroupData const& group) const {
  if (!isFragment(group)) return nullptr;
  Ptr<Bsr::PimBsrRxFragments> fragments = root_.bsmRxFragments(message.fragmentTag());
  return fragments ? fragments->groupRpData(group.prefix()) : nullptr;
}

void Quotas::countWaiting(Tally& tally) const {
  for (auto tag = root_.bsmRxFragmentsIterator(); tag; ++tag) {
    for (auto group = tag->groupRpDataIterator(); group; ++group) tally.counted(group->rps());
  }
}

/// RPs of a fragment that the store doesn't hold.
U64 Quotas::newWaiting(BootstrapMessage const& message, BootstrapGroupData const& group) const {
  if (!isFragment(group)) return 0;
  Ptr<Bsr::PimBsrRxFragment> held = waiting(message, group);
  U64 added = 0;
  for (auto rp = group.rpListIterator(); rp; ++rp) {
    if (!held || !held->rp(rp->rpAddress())) ++added;
  }
  return added;
}

U64 Quotas::newWaiting(BootstrapMessage const& message) const {
  U64 added = 0;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) added += newWaiting(message, *group);
  return added;
}

bool Quotas::hasRoomToWait(U64 rps) {
  return waiting_.hasRoom(rps, settings_.fragmentRps, [this](Tally& tally) { countWaiting(tally); });
}

// RPs -------------------------------------------------------------------------------------------------

Ptr<Routing::Pim::RpCandidateStatus> Quotas::setsOf(IpGenPrefix const& zone) const {
  Ptr<Bsr::PimBsrRpCandidateStatus> zoneStatus = root_.bsrStatus()->crpStatus(zone);
  return zoneStatus ? zoneStatus->status() : nullptr;
}

Ptr<RpCandidateSet> Quotas::known(IpGenPrefix const& zone, IpGenPrefix const& range) const {
  Ptr<Routing::Pim::RpCandidateStatus> sets = setsOf(zone);
  return sets ? sets->crpSet(range) : nullptr;
}

static U64 halfOf(U32 bound) { return (U64{bound} + 1) / 2; }

/// RPs that may be in the sets once an advertisement of `rp` has passed.
U64 Quotas::rpBound(Lanet::IpGenAddr const& rp, PreferredRps const& preferred) const {
  bool isWhole = preferred.isEmpty() || preferred.contains(rp);
  return isWhole ? settings_.rps : halfOf(settings_.rps);
}

/// Removes kept RPs where so many new ones have no room, and returns whether it did. The RPs of a new BSR are
/// worth more than those that are kept until it has named its own.
bool Quotas::makeRoom(U64 rps, U64 bound) {
  bool fits = rps_.hasRoom(rps, bound, [this](Tally& tally) { countRps(tally); });
  if (fits || holdOver_ == nullptr || holdOver_->count() == 0) return false;
  rps_.discharge(holdOver_->makeRoom(rps_.missing(rps, bound)));
  return true;
}

bool Quotas::takesRps(U64 rps, U64 bound) {
  return rps_.add(rps, bound, [this](Tally& tally) { countRps(tally); });
}

/// Takes RPs that a zone's message names, if they are within the bounds.
bool Quotas::takesRps(IpGenPrefix const& zone, U64 rps) {
  if (isScoped(zone) && !hasRoomForScopedRps(rps)) return false;
  if (!takesRps(rps, settings_.rps)) return false;
  if (isScoped(zone)) scopedRps_.charge(rps);
  return true;
}

bool Quotas::hasRoomForRps(IpGenPrefix const& zone, U64 rps) {
  if (isScoped(zone) && !hasRoomForScopedRps(rps)) return false;
  return rps_.hasRoom(rps, settings_.rps, [this](Tally& tally) { countRps(tally); });
}

bool Quotas::hasRoomForScopedRps(U64 rps) {
  return scopedRps_.hasRoom(rps, halfOf(settings_.rps), [this](Tally& tally) { countScopedRps(tally); });
}

void Quotas::charge(IpGenPrefix const& zone, U64 rps) {
  rps_.charge(rps);
  if (isScoped(zone)) scopedRps_.charge(rps);
}

/// All RPs that a message could add, known or not; with those of its fragments that came before, once for
/// each range.
U64 Quotas::namedRps(BootstrapMessage const& message) const {
  U64 named = 0;
  std::set<IpGenPrefix, Zet::Meter::Less> held;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    named += group->fragRpCount();
    Ptr<Bsr::PimBsrRxFragment> fragment = waiting(message, *group);
    if (fragment && held.insert(group->prefix()).second) named += fragment->rps();
  }
  return named;
}

/// How many of some RPs a set doesn't hold and would have to; null stands for no set.
template <class RpWalk, class Known>
static U64 countNew(RpWalk rps, Ptr<RpCandidateSet> const& set, Known const& isKnown) {
  U64 fresh = 0;
  for (; rps; ++rps) {
    bool isHeld = (set && set->rp(rps->rpAddress())) || isKnown(rps->rpAddress());
    if (rps->rpHoldtime() != 0 && !isHeld) ++fresh;
  }
  return fresh;
}

/// A range without a set costs one at least: withdrawing RPs that never were makes an empty set of it.
U64 Quotas::newRps(IpGenPrefix const& zone, BootstrapMessage const& message, BootstrapGroupData const& group,
                   NamedRanges& named) const {
  if (group.fragRpCount() == 0) return 0;
  Ptr<RpCandidateSet> set = known(zone, group.prefix());
  Ptr<Bsr::PimBsrRxFragment> held = waiting(message, group);
  auto isKeptRp = [&](auto const& address) { return isKept(group.prefix(), address); };
  U64 fresh = countNew(group.rpListIterator(), set,
                       [&](auto const& address) { return (held && held->rp(address)) || isKeptRp(address); });
  auto [at, isFirst] = named.try_emplace(group.prefix());
  if (at->second.isCharged) return fresh;
  if (isFirst && held) at->second.earlierRps = countNew(held->rpIterator(), set, isKeptRp);
  fresh += at->second.earlierRps;
  return set ? fresh : std::max<U64>(fresh, 1);
}

U64 Quotas::newRps(IpGenPrefix const& zone, BootstrapMessage const& message) const {
  U64 all = 0;
  NamedRanges named;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    all += newRps(zone, message, *group, named);
    if (group->fragRpCount() != 0) named[group->prefix()].isCharged = true;
  }
  return all;
}

/// An advertisement without ranges speaks for the global zone's.
U64 Quotas::newRps(Packet::CrpAdvMessage const& message) const {
  U64 fresh = 0;
  auto look = [&](IpGenPrefix const& range) {
    Ptr<RpCandidateSet> set = known(root_.bsrTrie()->longestMatch(range), range);
    bool isKnown = (set && set->rp(message.rpAddress())) || isKept(range, message.rpAddress());
    if (!isKnown) ++fresh;
  };
  Ptr<Packet::CrpGroupData> groups = message.groupData();
  if (!groups || groups->groupInfoCount() == 0) {
    look(root_.globalOrNonScopeZone());
  } else {
    for (auto group = groups->groupInfoIterator(); group; ++group) look(group->prefix());
  }
  return fresh;
}

static void countSets(Tally& tally, Bsr::PimBsrRpCandidateStatus const& zone) {
  Ptr<Routing::Pim::RpCandidateStatus> sets = zone.status();
  if (!sets) return;
  for (auto set = sets->crpSetIterator(); set; ++set) tally.counted(std::max<U64>(set->rpCount(), 1));
}

void Quotas::countRps(Tally& tally) const {
  for (auto zone = root_.bsrStatus()->crpStatusIterator(); zone; ++zone) countSets(tally, *zone);
  if (holdOver_ != nullptr && holdOver_->count() != 0) tally.counted(holdOver_->count());
}

void Quotas::countScopedRps(Tally& tally) const {
  for (auto zone = root_.bsrStatus()->crpStatusIterator(); zone; ++zone) {
    if (isScoped(zone.key())) countSets(tally, *zone);
  }
}

}  // namespace pimbsr::host
