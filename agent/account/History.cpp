#include "agent/account/History.h"

#include <algorithm>
#include <utility>

#include "host/Machines.h"
#include "view/Fill.h"

namespace pimbsr::agent {

using host::Change;
using host::ChangeKind;
using Lanet::IpGenPrefix;

/// The state of a zone in which this router is no candidate.
static constexpr std::string_view noCandidacy = "-";

void History::causeIs(Cause const& cause, double now) {
  cause_ = cause;
  now_ = now;
  fresh_.clear();
}

void History::senderIs(host::Reception const& reception) {
  cause_.message = reception.kind;
  cause_.sender = reception.source;
}

// The end of an event -----------------------------------------------------------------------------------

static_assert(static_cast<int>(HistoryKind::zoneForgotten) == static_cast<int>(ChangeKind::zoneForgotten));

static bool isOfRp(HistoryKind kind) {
  return kind >= HistoryKind::rpAdded && kind <= HistoryKind::rpExpired;
}

static U64& countOf(RpCounts& counts, HistoryKind kind) {
  switch (kind) {
    case HistoryKind::rpAdded:
      return counts.added;
    case HistoryKind::rpUpdated:
      return counts.updated;
    case HistoryKind::rpKept:
      return counts.kept;
    case HistoryKind::rpRemoved:
      return counts.removed;
    default:
      return counts.expired;
  }
}

static void addName(HistoryEntry& set, Lanet::IpGenAddr const& rp) {
  if (std::find(set.firstRps.begin(), set.firstRps.end(), rp) != set.firstRps.end()) return;
  bool hasSpace = set.firstRps.size() < maxNamedRps;
  hasSpace ? set.firstRps.push_back(rp) : void(set.moreRps = true);
}

/// Adds one RP's change to the entry of its zone: the change itself if it is the only one, else a count.
static void gather(std::map<IpGenPrefix, HistoryEntry>& sets, HistoryEntry const& entry) {
  auto [at, isFirst] = sets.try_emplace(entry.zone, entry);
  HistoryEntry& set = at->second;
  ++countOf(set.rps, entry.kind);
  addName(set, entry.rp.address);
  if (isFirst) return;
  set.kind = HistoryKind::rpSetChanged;
  set.rp = {};
  set.formerRp = {};
}

void History::noteStates(host::Router const& router) {
  std::map<IpGenPrefix, HistoryEntry> sets;
  for (HistoryEntry const& entry : entriesOf(router)) {
    count(entry);
    follow(entry);
    fresh_.push_back(entry);
    if (isOfRp(entry.kind)) {
      gather(sets, entry);
    } else {
      store_.add(entry);
    }
  }
  for (auto& [zone, set] : sets) {
    if (set.kind != HistoryKind::rpSetChanged) {
      set.rps = {};
      set.firstRps.clear();
    }
    store_.add(set);
  }
  followStates(router);
}

/// Joins the loss of a BSR and the election of the next one to a change of the BSR.
static HistoryEntry replaced(HistoryEntry const& lost, HistoryEntry entry) {
  entry.kind = HistoryKind::bsrChanged;
  entry.formerBsr = lost.bsr;
  entry.formerOwn = lost.own;
  return entry;
}

/// A BSR that was lost and elected again, unchanged.
static bool isUnchanged(HistoryEntry const& entry) {
  return entry.kind == HistoryKind::bsrChanged && entry.bsr.sameElection(entry.formerBsr) &&
         entry.own == entry.formerOwn;
}

/// Takes the gathered changes. A state machine removes its BSR before it enters the next one.
std::vector<HistoryEntry> History::entriesOf(host::Router const& router) {
  std::vector<HistoryEntry> entries;
  std::map<IpGenPrefix, std::size_t> lost;
  host::sortByAddress(gathered_);
  for (Change const& change : std::exchange(gathered_, {})) {
    HistoryEntry entry = entryOf(router, change);
    auto former = entry.kind == HistoryKind::bsrElected ? lost.find(entry.zone) : lost.end();
    if (former != lost.end()) {
      entries[former->second] = replaced(entries[former->second], entry);
      lost.erase(former);
      continue;
    }
    if (entry.kind == HistoryKind::bsrLost) lost[entry.zone] = entries.size();
    entries.push_back(entry);
  }
  std::erase_if(entries, isUnchanged);
  return entries;
}

HistoryEntry History::blank(HistoryKind kind, IpGenPrefix const& zone) const {
  return {.time = now_, .kind = kind, .cause = cause_, .zone = zone};
}

static constexpr auto elected = Routing::Pim::Bsr::BsrCandidateState::eBsr;

/// Whether this router was the elected BSR before the event.
bool History::wasOwn(IpGenPrefix const& zone) const {
  auto former = states_.find(zone);
  return former != states_.end() && former->second == host::nameOf(elected);
}

HistoryEntry History::entryOf(host::Router const& router, Change const& change) const {
  HistoryEntry entry = blank(view::kindOf(change.kind), change.zone);
  entry.bsr = change.bsr;
  entry.formerBsr = change.formerBsr;
  entry.rp = change.rp;
  entry.formerRp = change.formerRp;
  entry.formerOwn = change.kind == ChangeKind::bsrChanged && wasOwn(change.zone);
  if (change.kind == ChangeKind::bsrLost) {
    entry.own = wasOwn(change.zone);
  } else if (!change.bsr.address.isEmpty()) {
    auto candidate = router.status()->cbsr(change.zone);
    bool isElected = host::machineOf(router, change.zone, now_).elected;
    entry.own = isElected && candidate && candidate->address() == change.bsr.address;
  }
  return entry;
}

/// A state entered and left within one event is not noted.
void History::followStates(host::Router const& router) {
  for (auto at = states_.begin(); at != states_.end();) {
    auto former = at++;
    if (router.candidateState(former->first)) continue;
    noteState(former->first, former->second, noCandidacy);
    states_.erase(former);
  }
  router.eachCandidacy([&](IpGenPrefix const& zone, auto) { states_.try_emplace(zone, noCandidacy); });
  for (auto& [zone, known] : states_) {
    std::string_view state = host::nameOf(*router.candidateState(zone));
    if (known != state) noteState(zone, std::exchange(known, state), state);
  }
}

/// This router's own election is counted also if it replaces a BSR, or if its entry was never removed.
void History::noteState(IpGenPrefix const& zone, std::string_view former, std::string_view state) {
  HistoryEntry entry = blank(HistoryKind::candidateState, zone);
  entry.formerState = former;
  entry.state = state;
  if (state == host::nameOf(elected)) {
    takeUp(zone);
    bool isCounted = std::any_of(fresh_.begin(), fresh_.end(), [&](HistoryEntry const& change) {
      return change.kind == HistoryKind::bsrElected && change.zone == zone;
    });
    if (!isCounted) ++totalsOf(zone).elections;
  }
  fresh_.push_back(entry);
  store_.add(entry);
}

void History::clear() {
  store_.clear();
  wasCleared_ = true;
}

// Runs --------------------------------------------------------------------------------------------------

/// Whether the run before ended in order; nothing for the first one.
static std::optional<bool> endedInOrder(std::list<HistoryEntry> const& entries) {
  auto last = std::find_if(entries.rbegin(), entries.rend(),
                           [](auto& entry) { return classOf(entry.kind) == HistoryClass::runs; });
  if (last == entries.rend()) return std::nullopt;
  return last->kind == HistoryKind::agentStopped;
}

void History::noteStart(double now) {
  store_.add({.time = now,
              .kind = HistoryKind::agentStarted,
              .cause = {.kind = CauseKind::start},
              .orderly = endedInOrder(store_.entries())});
}

void History::noteStop(double now) {
  store_.add({.time = now, .kind = HistoryKind::agentStopped, .cause = {.kind = CauseKind::stop}});
}

// The present BSRs --------------------------------------------------------------------------------------

std::optional<double> History::bsrSince(IpGenPrefix const& zone) const {
  auto at = bsrSince_.find(zone);
  return at == bsrSince_.end() ? std::nullopt : std::optional(at->second);
}

void History::takeUp(IpGenPrefix const& zone) {
  bool hasSpace = bsrSince_.size() < maxZones || bsrSince_.contains(zone);
  if (hasSpace) bsrSince_[zone] = now_;
}

void History::follow(HistoryEntry const& entry) {
  bool isOther = entry.kind == HistoryKind::bsrChanged && entry.bsr.address != entry.formerBsr.address;
  if (isOther || entry.kind == HistoryKind::bsrElected) takeUp(entry.zone);
  if (entry.kind == HistoryKind::bsrLost) bsrSince_.erase(entry.zone);
}

// Totals ------------------------------------------------------------------------------------------------

ZoneTotals& History::totalsOf(IpGenPrefix const& zone) {
  bool hasSpace = totals_.size() < maxZones || totals_.contains(zone);
  return totals_[hasSpace ? zone : IpGenPrefix()];
}

static void add(ZoneTotals& to, ZoneTotals const& from) {
  to.elections += from.elections;
  to.bsrChanges += from.bsrChanges;
  to.bsrLosses += from.bsrLosses;
  to.rps.added += from.rps.added;
  to.rps.updated += from.rps.updated;
  to.rps.removed += from.rps.removed;
  to.rps.expired += from.rps.expired;
}

void History::count(HistoryEntry const& entry) {
  ZoneTotals& totals = totalsOf(entry.zone);
  switch (entry.kind) {
    case HistoryKind::bsrElected:
      ++totals.elections;
      break;
    case HistoryKind::bsrChanged:
      ++totals.bsrChanges;
      break;
    case HistoryKind::bsrLost:
      ++totals.bsrLosses;
      break;
    case HistoryKind::zoneForgotten:
      if (auto gone = totals_.extract(entry.zone)) add(totals_[IpGenPrefix()], gone.mapped());
      break;
    default:
      ++countOf(totals.rps, entry.kind);
  }
}

}  // namespace pimbsr::agent
