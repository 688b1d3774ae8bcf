#include "host/Quotas.h"

#include <algorithm>
#include <set>

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

static bool isFragment(BootstrapGroupData const& group) {
  return group.fragRpCount() != 0 && group.rpCount() != group.fragRpCount();
}

Refusal Quotas::judge(BootstrapMessage const& message) {
  IpGenPrefix zone = zoneOf(message, root_.globalOrNonScopeZone());
  if (settings_.learnedZones != 0 && isZoneTooMany(zone)) return Refusal::zoneQuota;
  if (settings_.fragmentRps != 0 && areFragmentsTooMany(message)) return Refusal::fragmentQuota;
  if (settings_.rangesPerZone != 0 && areRangesTooMany(zone, message)) return Refusal::zoneRanges;
  auto takes = [this](U64 rps) {
    return rps_.add(rps, settings_.rps, [this](Tally& tally) { countRps(tally); });
  };
  if (settings_.rps == 0 || takes(namedRps(message))) return Refusal::none;
  U64 fresh = newRps(zone, message);
  return fresh == 0 || takes(fresh) ? Refusal::none : Refusal::rpQuota;
}

Refusal Quotas::judge(Packet::CrpAdvMessage const& message) {
  if (settings_.rps == 0 || message.holdtime() == 0) return Refusal::none;
  U64 fresh = newRps(message);
  if (fresh == 0) return Refusal::none;
  bool taken = rps_.add(fresh, settings_.rps, [this](Tally& tally) { countRps(tally); });
  return taken ? Refusal::none : Refusal::rpQuota;
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
/// after the start. After that a zone that nobody follows any more needs none. More messages than machines
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
  Ptr<Bsr::PimBsrRpCandidateStatus> zoneStatus = root_.bsrStatus()->crpStatus(zone);
  Ptr<Routing::Pim::RpCandidateStatus> sets = zoneStatus ? zoneStatus->status() : nullptr;
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

bool Quotas::areFragmentsTooMany(BootstrapMessage const& message) {
  U64 added = 0;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    if (!isFragment(*group)) continue;
    Ptr<Bsr::PimBsrRxFragment> held = waiting(message, *group);
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      if (!held || !held->rp(rp->rpAddress())) ++added;
    }
  }
  if (added == 0) return false;
  return !waiting_.add(added, settings_.fragmentRps, [this](Tally& tally) { countWaiting(tally); });
}

// RPs -------------------------------------------------------------------------------------------------

Ptr<RpCandidateSet> Quotas::known(IpGenPrefix const& zone, IpGenPrefix const& range) const {
  Ptr<Bsr::PimBsrRpCandidateStatus> zoneStatus = root_.bsrStatus()->crpStatus(zone);
  Ptr<Routing::Pim::RpCandidateStatus> sets = zoneStatus ? zoneStatus->status() : nullptr;
  return sets ? sets->crpSet(range) : nullptr;
}

/// All RPs that a message could add, known or not; with those of its fragments that came before.
U64 Quotas::namedRps(BootstrapMessage const& message) const {
  U64 named = 0;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    named += group->fragRpCount();
    if (Ptr<Bsr::PimBsrRxFragment> held = waiting(message, *group)) named += held->rps();
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
U64 Quotas::newRps(IpGenPrefix const& zone, BootstrapMessage const& message) const {
  U64 all = 0;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    if (group->fragRpCount() == 0) continue;
    Ptr<RpCandidateSet> set = known(zone, group->prefix());
    Ptr<Bsr::PimBsrRxFragment> held = waiting(message, *group);
    U64 fresh = countNew(group->rpListIterator(), set,
                         [&](auto const& address) { return held && held->rp(address); });
    if (held) fresh += countNew(held->rpIterator(), set, [](auto const&) { return false; });
    all += set ? fresh : std::max<U64>(fresh, 1);
  }
  return all;
}

/// An advertisement without ranges speaks for the global zone's.
U64 Quotas::newRps(Packet::CrpAdvMessage const& message) const {
  U64 fresh = 0;
  auto look = [&](IpGenPrefix const& range) {
    Ptr<RpCandidateSet> set = known(root_.bsrTrie()->longestMatch(range), range);
    if (!set || !set->rp(message.rpAddress())) ++fresh;
  };
  Ptr<Packet::CrpGroupData> groups = message.groupData();
  if (!groups || groups->groupInfoCount() == 0) {
    look(root_.globalOrNonScopeZone());
  } else {
    for (auto group = groups->groupInfoIterator(); group; ++group) look(group->prefix());
  }
  return fresh;
}

void Quotas::countRps(Tally& tally) const {
  for (auto zone = root_.bsrStatus()->crpStatusIterator(); zone; ++zone) {
    Ptr<Routing::Pim::RpCandidateStatus> sets = zone->status();
    if (!sets) continue;
    for (auto set = sets->crpSetIterator(); set; ++set) tally.counted(std::max<U64>(set->rpCount(), 1));
  }
}

}  // namespace pimbsr::host
