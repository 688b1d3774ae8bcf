#include "agent/account/HistoryStore.h"

#include <algorithm>

namespace pimbsr::agent {

HistoryClass classOf(HistoryKind kind) {
  switch (kind) {
    case HistoryKind::bsrElected:
    case HistoryKind::bsrChanged:
    case HistoryKind::bsrLost:
    case HistoryKind::candidateState:
      return HistoryClass::elections;
    case HistoryKind::zoneForgotten:
      return HistoryClass::zones;
    case HistoryKind::agentStarted:
    case HistoryKind::agentStopped:
      return HistoryClass::runs;
    default:
      return HistoryClass::rps;
  }
}

static std::size_t indexOf(HistoryClass ofClass) { return static_cast<std::size_t>(ofClass); }

// Repetition --------------------------------------------------------------------------------------------

/// Whether two changes of one zone say the same. An RP may have other terms. Each run of the agent is one of
/// its own.
static bool saysTheSame(HistoryEntry const& a, HistoryEntry const& b) {
  if (a.kind != b.kind || classOf(a.kind) == HistoryClass::runs) return false;
  bool sameBsr = a.bsr.sameElection(b.bsr) && a.formerBsr.sameElection(b.formerBsr) && a.own == b.own;
  bool sameRp = a.rp.range == b.rp.range && a.rp.address == b.rp.address;
  return sameBsr && sameRp && a.state == b.state && a.formerState == b.formerState;
}

/// The entry to which a change adds; the end for none.
HistoryStore::Entries::iterator HistoryStore::repeatedBy(HistoryEntry const& change, Entries& entries) const {
  auto sameKind = entries.end();
  std::size_t recent = 0;
  for (auto at = entries.end(); at != entries.begin();) {
    HistoryEntry const& entry = *(--at)->entry;
    double age = change.time - entry.time;
    if (age < 0 || age > foldSpan) break;
    ++recent;
    if (saysTheSame(entry, change)) return at;
    if (sameKind == entries.end() && entry.kind == change.kind) sameKind = at;
  }
  return recent < foldBurst ? entries.end() : sameKind;
}

static void add(RpCounts& to, RpCounts const& from) {
  to.added += from.added;
  to.updated += from.updated;
  to.kept += from.kept;
  to.removed += from.removed;
  to.expired += from.expired;
}

/// The RPs of two changes, those of the first one first.
static void addRps(HistoryEntry& to, HistoryEntry const& former) {
  add(to.rps, former.rps);
  std::vector<Lanet::IpGenAddr> names = former.firstRps;
  to.moreRps = to.moreRps || former.moreRps;
  for (Lanet::IpGenAddr const& rp : to.firstRps) {
    if (std::find(names.begin(), names.end(), rp) != names.end()) continue;
    bool isNamed = names.size() < maxNamedRps;
    isNamed ? names.push_back(rp) : void(to.moreRps = true);
  }
  to.firstRps = std::move(names);
}

void HistoryStore::repeat(Entries& entries, Entries::iterator former, HistoryEntry const& change) {
  At at = former->entry;
  HistoryEntry sum = change;
  sum.id = at->id;
  sum.count = at->count + change.count;
  sum.firstTime = at->count > 1 ? at->firstTime : at->time;
  if (sum.kind == HistoryKind::rpSetChanged) addRps(sum, *at);
  *at = std::move(sum);
  entries.erase(former);
  entries.push_back({++changes_, at});
  entries_.splice(entries_.end(), entries_, at);
}

// Bounds ------------------------------------------------------------------------------------------------

HistoryStore::Size HistoryStore::sizeOf(Lanet::IpGenPrefix const& zone, Entries const& entries) {
  return {entries.size(), ~entries.front().change, zone};
}

template <class Act>
void HistoryStore::update(Subject const& subject, Act const& act) {
  std::set<Size>& sizes = sizes_[indexOf(subject.first)];
  auto at = bySubject_.try_emplace(subject).first;
  if (!at->second.empty()) sizes.erase(sizeOf(subject.second, at->second));
  act(at->second);
  if (at->second.empty()) {
    bySubject_.erase(at);
  } else {
    sizes.insert(sizeOf(subject.second, at->second));
  }
}

/// Of a class that is too large, the zone with the most entries loses the oldest.
void HistoryStore::bound(HistoryClass ofClass) {
  std::size_t& count = counts_[indexOf(ofClass)];
  while (count > maxEntries_) {
    Lanet::IpGenPrefix zone = std::get<2>(*sizes_[indexOf(ofClass)].rbegin());
    update({ofClass, zone}, [&](Entries& entries) {
      At oldest = entries.front().entry;
      entries.pop_front();
      unsaved_.erase(oldest->id);
      repeated_.erase(oldest->id);
      byId_.erase(oldest->id);
      entries_.erase(oldest);
      --count;
    });
  }
}

// Entries -----------------------------------------------------------------------------------------------

void HistoryStore::append(HistoryEntry const& entry) {
  HistoryClass ofClass = classOf(entry.kind);
  At at = entries_.insert(entries_.end(), entry);
  byId_[entry.id] = at;
  ++counts_[indexOf(ofClass)];
  update({ofClass, entry.zone}, [&](Entries& entries) { entries.push_back({++changes_, at}); });
}

void HistoryStore::add(HistoryEntry const& change) {
  HistoryClass ofClass = classOf(change.kind);
  bool isRepeated = false;
  update({ofClass, change.zone}, [&](Entries& entries) {
    auto former = repeatedBy(change, entries);
    isRepeated = former != entries.end();
    if (isRepeated) repeat(entries, former, change);
  });
  if (!isRepeated) {
    HistoryEntry entry = change;
    entry.id = ++lastId_;
    append(entry);
  }
  U64 id = entries_.back().id;
  bool isUrgent = !isRepeated || ofClass == HistoryClass::elections || ofClass == HistoryClass::runs;
  (isUrgent ? unsaved_ : repeated_).insert(id);
  bound(ofClass);
}

void HistoryStore::restore(HistoryEntry entry) {
  if (entry.id == 0 || byId_.contains(entry.id)) entry.id = lastId_ + 1;
  lastId_ = std::max(lastId_, entry.id);
  append(entry);
  bound(classOf(entry.kind));
}

void HistoryStore::clear() {
  entries_.clear();
  byId_.clear();
  bySubject_.clear();
  sizes_ = {};
  counts_ = {};
  unsaved_.clear();
  repeated_.clear();
}

std::vector<HistoryEntry> HistoryStore::taken(std::set<U64>& ids) {
  std::vector<HistoryEntry> entries;
  entries.reserve(ids.size());
  for (U64 id : ids) entries.push_back(*byId_.at(id));
  ids.clear();
  return entries;
}

}  // namespace pimbsr::agent
