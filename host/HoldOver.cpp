#include "host/HoldOver.h"

#include <algorithm>
#include <vector>

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::RpCandidateSet;
using Zet::Ptr;

/// Seconds from the first message of a BSR until it has named the RPs that advertise to it at once: they do
/// so within 3 s, and its second message comes BS_Min_Interval later.
static constexpr double namingTime = 20;
/// Where that message or an advertisement is lost, the next one comes a BS_Period later.
static constexpr double lossTime = namingTime + 65;

HoldOver::HoldOver(Ptr<Bsr::PimBsrSm> const& root, CorrectionSwitch& correction)
    : root_(root),
      correction_(correction),
      timer_(Zet::make<pim::Timer>(root->timerWheel(), [this] { handleExpiry(); })) {}

void HoldOver::stop() {
  timer_->notifierIs(nullptr);
  ranges_.clear();
  byExpiry_.clear();
  root_ = nullptr;
}

// What is kept --------------------------------------------------------------------------------------------

bool HoldOver::keeps(IpGenPrefix const& range, IpGenAddr const& rp) const {
  auto at = ranges_.find(range);
  return at != ranges_.end() && at->second.rps.contains(rp);
}

std::optional<IpGenPrefix> HoldOver::keptZone(IpGenPrefix const& range) const {
  auto at = ranges_.find(range);
  return at == ranges_.end() ? std::nullopt : std::optional(at->second.zone);
}

std::set<IpGenPrefix> HoldOver::zones() const {
  std::set<IpGenPrefix> found;
  for (auto const& [range, kept] : ranges_) found.insert(kept.zone);
  return found;
}

/// The range in the set that PIM reads.
Ptr<RpCandidateSet> HoldOver::mirror(IpGenPrefix const& range) const {
  return root_->rpCandidateStatus()->crpSet(range);
}

std::optional<RpView> HoldOver::viewOf(IpGenPrefix const& range, IpGenAddr const& rp) const {
  Ptr<RpCandidateSet> set = mirror(range);
  Ptr<Routing::Pim::RpCandidate> entry = set ? set->rp(rp) : nullptr;
  if (!entry) return std::nullopt;
  RpView view = host::viewOf(range, *entry);
  view.kept = true;
  return view;
}

/// PIM reads nothing of a wider zone while this one has a BSR.
bool HoldOver::isHeldByNarrower(IpGenPrefix const& zone, Key const& key) const {
  for (auto other = root_->bsrStatus()->crpStatusIterator(); other; ++other) {
    if (other->zone().length() <= zone.length() || !other->status()) continue;
    Ptr<RpCandidateSet const> set = other->status()->crpSet(key.first);
    if (set && set->rp(key.second)) return true;
  }
  return false;
}

/// PIM reads a range of the longest zone that covers it, and not that of a wider one. Null if that has none.
Ptr<RpCandidateSet> HoldOver::setOfBestZone(IpGenPrefix const& range) const {
  auto zone = root_->bsrStatus()->crpStatus(root_->bsrTrie()->longestMatch(range));
  return zone && zone->status() ? zone->status()->crpSet(range) : nullptr;
}

/// A follower renews the RPs of a BSR that it has lost (RFC 5059 section 3.1.2). With the next BSR that ends:
/// those that it doesn't name live as long as at a candidate. Those whose time is over before it can have
/// named them, since it came late, live until it has.
double HoldOver::endOf(IpGenPrefix const& zone, RpView const& view) const {
  auto heard = heard_.find(zone);
  if (heard == heard_.end()) return view.expires;
  double end = heard->second + view.holdTime;
  bool isTooSoon = end < Zet::now() + namingTime;
  return std::min(view.expires, isTooSoon ? Zet::now() + lossTime : end);
}

/// Whether a range is kept for a narrower zone, which PIM reads, or one of its RPs is kept already.
bool HoldOver::isKept(IpGenPrefix const& zone, Key const& key) const {
  auto at = ranges_.find(key.first);
  if (at == ranges_.end()) return false;
  return at->second.zone.length() > zone.length() || at->second.rps.contains(key.second);
}

/// An RP that PIM doesn't read, or that a narrower zone has too, needs no keeping.
bool HoldOver::keep(IpGenPrefix const& zone, Key const& key) {
  auto const& [range, rp] = key;
  std::optional<RpView> view = viewOf(range, rp);
  if (!view || view->expires <= Zet::now() || isHeldByNarrower(zone, key) || isKept(zone, key)) return false;
  view->expires = endOf(zone, *view);
  mirror(range)->rp(rp)->expiresIs(view->expires);
  Range& kept = ranges_[range];
  kept.zone = zone;
  kept.rps.emplace(rp, *view);
  byExpiry_.emplace(view->expires, key);
  return true;
}

// The end of keeping --------------------------------------------------------------------------------------

void HoldOver::forget(Ranges::iterator range, IpGenAddr const& rp) {
  auto at = range->second.rps.find(rp);
  byExpiry_.erase({at->second.expires, Key(range->first, rp)});
  range->second.rps.erase(at);
  if (range->second.rps.empty()) ranges_.erase(range);
}

/// Takes a kept RP out of what PIM reads, and its range with the last one that no zone has. RpSweep may have
/// taken out one whose time is over.
void HoldOver::remove(Key const& key, End end) {
  IpGenPrefix range = key.first;
  IpGenAddr rp = key.second;
  auto at = ranges_.find(range);
  IpGenPrefix zone = at->second.zone;
  RpView view = at->second.rps.at(rp);
  forget(at, rp);
  if (Ptr<RpCandidateSet> set = mirror(range)) {
    Ptr<RpCandidateSet> held = setOfBestZone(range);
    if (!held || !held->rp(rp)) set->rpDel(rp);
    if (!held && set->rpCount() == 0) root_->rpCandidateStatus()->crpSetDel(range);
  }
  view.kept = false;
  if (sink_ != nullptr) sink_->onKeptGone(zone, view, end == End::expired);
}

/// Also where the range is kept for a wider zone, of which PIM reads nothing any more.
void HoldOver::release(IpGenPrefix const& zone, IpGenPrefix const& range, End end) {
  for (auto at = ranges_.find(range); at != ranges_.end() && at->second.zone.length() <= zone.length();
       at = ranges_.find(range))
    remove({range, at->second.rps.begin()->first}, end);
}

bool HoldOver::withdraw(IpGenPrefix const& zone, IpGenPrefix const& range, IpGenAddr const& rp) {
  auto at = ranges_.find(range);
  if (at == ranges_.end() || at->second.zone != zone || !at->second.rps.contains(rp)) return false;
  remove({range, rp}, End::removed);
  return true;
}

void HoldOver::drop(IpGenPrefix const& zone) {
  std::vector<IpGenPrefix> ranges;
  for (auto const& [range, kept] : ranges_) {
    if (kept.zone == zone) ranges.push_back(range);
  }
  for (IpGenPrefix const& range : ranges) release(zone, range, End::removed);
}

void HoldOver::handleSwitch() {
  if (correction_.isOn()) return;
  makeRoom(count());
  heard_.clear();
}

U64 HoldOver::makeRoom(U64 count) {
  U64 removed = 0;
  for (; removed < count && !byExpiry_.empty(); ++removed) remove(byExpiry_.begin()->second, End::removed);
  return removed;
}

void HoldOver::arm() { timer_->timeMinIs(byExpiry_.empty() ? Kiv::never : byExpiry_.begin()->first); }

void HoldOver::handleExpiry() {
  while (!byExpiry_.empty() && byExpiry_.begin()->first <= Zet::now())
    remove(byExpiry_.begin()->second, End::expired);
  arm();
}

// Events --------------------------------------------------------------------------------------------------

/// The narrowest zone that has RPs and covers a range, with or without a BSR; all groups if there is none.
IpGenPrefix HoldOver::narrowestZone(IpGenPrefix const& range) const {
  IpGenPrefix narrowest = root_->globalOrNonScopeZone();
  for (auto other = root_->bsrStatus()->crpStatusIterator(); other; ++other) {
    bool isNarrower = other->zone().length() > narrowest.length();
    if (isNarrower && other->zone().contains(range)) narrowest = other->zone();
  }
  return narrowest;
}

void HoldOver::takeUp() {
  if (!correction_.isOn()) return;
  for (auto set = root_->rpCandidateStatus()->crpSetIterator(); set; ++set) {
    IpGenPrefix zone = narrowestZone(set->prefix());
    Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_->bsrStatus(), zone);
    Ptr<RpCandidateSet const> held = sets ? sets->crpSet(set->prefix()) : nullptr;
    for (auto rp = set->rpIterator(); rp; ++rp) {
      if (!held || !held->rp(rp->address())) keep(zone, {set->prefix(), rp->address()});
    }
  }
  arm();
}

void HoldOver::handleElection(IpGenPrefix const& zone) {
  if (!correction_.isOn()) return;
  Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_->bsrStatus(), zone);
  bool keepsAny = false;
  for (auto set = sets->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp)
      keepsAny = keep(zone, {set->prefix(), rp->address()}) || keepsAny;
  }
  if (keepsAny) correction_.noteAct();
  arm();
}

void HoldOver::handleMirrored(IpGenPrefix const& range, IpGenAddr const& rp) {
  auto at = ranges_.find(range);
  if (at != ranges_.end() && at->second.rps.contains(rp)) forget(at, rp);
}

static IpGenAddr electedOf(Bsr::Status const& status, IpGenPrefix const& zone) {
  Ptr<Bsr::ElectedBsrStatus const> elected = status.bootstrapRouter(zone);
  return elected ? elected->ipAddr() : IpGenAddr();
}

void HoldOver::prepare(Message const& message) {
  bsrBefore_ = electedOf(*root_->bsrStatus(), zoneOf(message));
}

static bool hasRps(Ptr<Routing::Pim::RpCandidateStatus> const& sets, IpGenPrefix const& range) {
  Ptr<RpCandidateSet const> set = sets ? sets->crpSet(range) : nullptr;
  return set && set->rpCount() != 0;
}

/// A zone's set holds a range once all of its fragments came.
void HoldOver::handleAccepted(Message const& message) {
  if (!correction_.isOn()) return;
  IpGenPrefix zone = zoneOf(message);
  Ptr<Bsr::BsrCandidateSm> candidate = root_->candidateSm(zone);
  if (candidate && candidate->state() == Bsr::BsrCandidateState::eBsr) return;
  if (electedOf(*root_->bsrStatus(), zone) != message.bsrAddress()) return;
  noteHeard(zone);
  if (candidate && bsrBefore_ != message.bsrAddress()) keepFormer(zone, message);
  if (ranges_.empty()) return;
  Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_->bsrStatus(), zone);
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    if (hasRps(sets, group->prefix())) {
      release(zone, group->prefix(), End::named);
      continue;
    }
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      if (rp->rpHoldtime() == 0) withdraw(zone, group->prefix(), rp->rpAddress());
    }
  }
}

/// A candidate that follows one BSR after the other adds the RPs of both to one set: those that the new one
/// doesn't name are kept until it names their range, as by a follower.
void HoldOver::keepFormer(IpGenPrefix const& zone, Message const& message) {
  std::set<Key> named;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    for (auto rp = group->rpListIterator(); rp; ++rp) named.emplace(group->prefix(), rp->rpAddress());
  }
  std::vector<Key> former;
  Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_->bsrStatus(), zone);
  if (!sets) return;
  for (auto set = sets->crpSetIterator(); set; ++set) {
    for (auto rp = set->rpIterator(); rp; ++rp) {
      Key key(set->prefix(), rp->address());
      if (!named.contains(key)) former.push_back(key);
    }
  }
  if (former.empty()) return;
  correction_.noteAct();
  for (Key const& key : former) keep(zone, key);
  arm();
  for (auto const& [range, rp] : former) {
    if (Ptr<RpCandidateSet> set = sets->crpSet(range)) set->rpDel(rp);
  }
}

/// Zones that are gone are forgotten once there are as many of them as there are others.
void HoldOver::noteHeard(IpGenPrefix const& zone) {
  heard_[zone] = Zet::now();
  Ptr<Bsr::Status> status = root_->bsrStatus();
  if (heard_.size() <= 2 * status->crpStatusCount() + 1) return;
  std::erase_if(heard_, [&](auto const& entry) { return !status->crpStatus(entry.first); });
}

void HoldOver::handleOriginated(IpGenPrefix const& zone, Message const& message) {
  heard_.erase(zone);
  if (ranges_.empty()) return;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    bool isNamed = false;
    for (auto rp = group->rpListIterator(); rp && !isNamed; ++rp) isNamed = rp->rpHoldtime() != 0;
    if (isNamed) release(zone, group->prefix(), End::named);
  }
}

}  // namespace pimbsr::host
