#include "agent/History.h"

#include <algorithm>
#include <utility>

#include "agent/HistoryJson.h"
#include "agent/Json.h"
#include "host/Machines.h"
#include "protocol/BsrCandidateSm.h"

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
    case HistoryKind::rpRemoved:
      return counts.removed;
    default:
      return counts.expired;
  }
}

/// Puts one RP's change into the entry of its zone: as it is where it is the only one, else as a number.
static void gather(std::map<IpGenPrefix, HistoryEntry>& sets, HistoryEntry const& entry) {
  auto [at, isFirst] = sets.try_emplace(entry.zone, entry);
  HistoryEntry& set = at->second;
  ++countOf(set.rps, entry.kind);
  if (isFirst) return;
  set.kind = HistoryKind::rpSetChanged;
  set.rp = {};
  set.formerRp = {};
}

void History::noteStates(host::Router const& router) {
  std::map<IpGenPrefix, HistoryEntry> sets;
  host::sortByAddress(gathered_);
  for (Change const& change : gathered_) {
    HistoryEntry entry = entryOf(router, change);
    count(entry);
    fresh_.push_back(entry);
    if (isOfRp(entry.kind)) {
      gather(sets, entry);
    } else {
      keep(entry);
    }
  }
  gathered_.clear();
  for (auto& [zone, set] : sets) {
    if (set.kind != HistoryKind::rpSetChanged) set.rps = {};
    keep(set);
  }
  followStates(router);
}

HistoryEntry History::blank(HistoryKind kind, IpGenPrefix const& zone) const {
  return {.time = now_, .kind = kind, .cause = cause_, .zone = zone};
}

/// A BSR that was lost was this router itself if its candidacy stood as elected before.
HistoryEntry History::entryOf(host::Router const& router, Change const& change) const {
  HistoryEntry entry = blank(static_cast<HistoryKind>(change.kind), change.zone);
  entry.bsr = change.bsr;
  entry.formerBsr = change.formerBsr;
  entry.rp = change.rp;
  entry.formerRp = change.formerRp;
  if (change.kind == ChangeKind::bsrLost) {
    auto former = states_.find(change.zone);
    entry.own =
        former != states_.end() && former->second == host::nameOf(Routing::Pim::Bsr::BsrCandidateState::eBsr);
  } else if (!change.bsr.address.isEmpty()) {
    auto candidate = router.status()->cbsr(change.zone);
    bool elected = host::machineOf(router, change.zone, now_).elected;
    entry.own = elected && candidate && candidate->address() == change.bsr.address;
  }
  return entry;
}

/// States that come and go within one event are not seen.
void History::followStates(host::Router const& router) {
  for (auto at = states_.begin(); at != states_.end();) {
    auto former = at++;
    if (router.root()->candidateSm(former->first)) continue;
    tellState(former->first, former->second, noCandidacy);
    states_.erase(former);
  }
  for (auto at = router.root()->candidateSmIterator(); at; ++at) states_.try_emplace(at.key(), noCandidacy);
  for (auto& [zone, known] : states_) {
    std::string_view state = host::nameOf(router.root()->candidateSm(zone)->state());
    if (known != state) tellState(zone, std::exchange(known, state), state);
  }
}

void History::tellState(IpGenPrefix const& zone, std::string_view former, std::string_view state) {
  HistoryEntry entry = blank(HistoryKind::candidateState, zone);
  entry.formerState = former;
  entry.state = state;
  fresh_.push_back(entry);
  keep(entry);
}

void History::keep(HistoryEntry const& entry) {
  entries_.push_back(entry);
  if (entries_.size() > mostEntries_) entries_.pop_front();
}

// Totals ------------------------------------------------------------------------------------------------

ZoneTotals& History::totalsOf(IpGenPrefix const& zone) {
  bool hasRoom = totals_.size() < mostZones || totals_.contains(zone);
  return totals_[hasRoom ? zone : IpGenPrefix()];
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

// Keeping it over a restart -----------------------------------------------------------------------------

std::string History::text() const {
  std::string text;
  for (HistoryEntry const& entry : entries_)
    text += jsonOf(entry).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
  return text;
}

std::size_t History::load(std::string_view text) {
  std::deque<HistoryEntry> loaded;
  std::size_t damaged = 0;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (auto entry = readHistoryEntry(line)) {
      loaded.push_back(*entry);
    } else {
      ++damaged;
    }
  }
  loaded.insert(loaded.end(), entries_.begin(), entries_.end());
  entries_ = std::move(loaded);
  while (entries_.size() > mostEntries_) entries_.pop_front();
  return damaged;
}

}  // namespace pimbsr::agent
