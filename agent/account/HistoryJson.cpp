#include "agent/account/HistoryJson.h"

#include <algorithm>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "view/Fill.h"
#include "view/Json.h"

namespace pimbsr::agent {

using view::Json;
using view::keyOf;

// Writing -----------------------------------------------------------------------------------------------

/// A state by its name; nothing for "-", which is none.
static std::optional<std::string> nameOf(std::string const& state) {
  return state == "-" ? std::nullopt : std::optional(state);
}

static view::RpCounts viewOf(RpCounts const& counts) {
  return {.added = counts.added,
          .updated = counts.updated,
          .kept = counts.kept == 0 ? std::nullopt : std::optional(counts.kept),
          .removed = counts.removed,
          .expired = counts.expired};
}

static view::Cause viewOf(Cause const& cause) {
  view::Cause shown{.kind = std::string(keyOf(cause.kind))};
  if (cause.kind != CauseKind::message) return shown;
  shown.message = keyOf(cause.message);
  shown.sender = cause.sender;
  shown.interface = cause.intf;
  return shown;
}

/// What only entries of some kinds have, beside BSR and RP.
static void fillByKind(view::Event& shown, HistoryEntry const& entry) {
  if (entry.kind == HistoryKind::rpSetChanged) {
    shown.rps = viewOf(entry.rps);
    shown.firstRps = entry.firstRps;
    shown.moreRps = entry.moreRps;
  }
  if (entry.kind == HistoryKind::candidateState) {
    shown.state = nameOf(entry.state);
    shown.formerState = nameOf(entry.formerState);
  }
  shown.orderly = entry.orderly;
}

view::Event viewOf(HistoryEntry const& entry) {
  view::Event shown;
  shown.time = entry.time;
  shown.event = keyOf(entry.kind);
  view::fillChange(shown, entry);
  if (shown.bsr) shown.own = entry.own;
  if (shown.formerBsr) shown.formerOwn = entry.formerOwn;
  fillByKind(shown, entry);
  shown.cause = viewOf(entry.cause);
  if (entry.count > 1) {
    shown.count = entry.count;
    shown.firstTime = entry.firstTime;
  }
  return shown;
}

Json jsonOf(HistoryEntry const& entry) { return jsonOf(viewOf(entry)); }

// Reading -----------------------------------------------------------------------------------------------

static Cause causeOf(view::Cause const& read) {
  Cause cause{.kind = view::causeKindOf(read.kind)};
  if (cause.kind != CauseKind::message) return cause;
  cause.message = view::messageKindOf(read.message.value());
  cause.sender = read.sender.value();
  cause.intf = read.interface.value();
  return cause;
}

static RpCounts countsOf(view::RpCounts const& read) {
  return {.added = read.added,
          .updated = read.updated,
          .kept = read.kept.value_or(0),
          .removed = read.removed,
          .expired = read.expired};
}

/// Throws for a time before 1970 or thousands of years ahead.
static double timeOf(double seconds) {
  constexpr double latest = 1e11;
  bool isTime = seconds >= 0 && seconds <= latest;
  return isTime ? seconds : throw std::out_of_range("no time");
}

/// Throws for an entry without the members of its kind, or with more RPs than an entry names.
static void readByKind(HistoryEntry& entry, view::Event const& read) {
  if (entry.kind == HistoryKind::rpSetChanged) {
    if (read.firstRps.size() > maxNamedRps) throw std::out_of_range("too many RPs");
    entry.rps = countsOf(read.rps.value());
    entry.firstRps = read.firstRps;
    entry.moreRps = read.moreRps.value();
  }
  if (entry.kind == HistoryKind::candidateState) {
    entry.state = read.state.value().value_or("-");
    entry.formerState = read.formerState.value().value_or("-");
  }
}

static void readCount(HistoryEntry& entry, view::Event const& read) {
  entry.orderly = read.orderly;
  if (!read.count) return;
  entry.count = *read.count;
  entry.firstTime = timeOf(read.firstTime.value());
}

static HistoryEntry entryOf(view::Event const& read) {
  HistoryEntry entry{.time = timeOf(read.time),
                     .kind = view::eventKindOf(read.event),
                     .cause = causeOf(read.cause),
                     .zone = read.zone};
  if (read.bsr) {
    entry.bsr = view::bsrOf(*read.bsr);
    entry.own = read.own.value();
  }
  if (read.formerBsr) {
    entry.formerBsr = view::bsrOf(*read.formerBsr);
    entry.formerOwn = read.formerOwn.value();
  }
  if (read.rp) entry.rp = view::rpOf(*read.rp);
  if (read.formerRp) entry.formerRp = view::rpOf(*read.formerRp);
  readByKind(entry, read);
  readCount(entry, read);
  return entry;
}

/// The entry's id; 0 in a line of an earlier version. Throws for one that is out of range.
static U64 idOf(view::Event const& read) {
  constexpr U64 maxId = U64{1} << 53;
  U64 id = read.id.value_or(0);
  return id <= maxId ? id : throw std::out_of_range("no id");
}

/// Damage costs the entry of its line alone.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line) {
  try {
    auto read = view::readView<view::Event>(Json::parse(line));
    HistoryEntry entry = entryOf(read);
    entry.id = idOf(read);
    return entry;
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

// Files -------------------------------------------------------------------------------------------------

std::string lineOf(HistoryEntry const& entry) {
  view::Event shown = viewOf(entry);
  shown.id = entry.id;
  return view::jsonOf(shown).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string linesOf(HistoryStore const& store) {
  std::string text;
  for (HistoryEntry const& entry : store.entries()) text += lineOf(entry);
  return text;
}

/// The last line of an id counts, at its place.
static std::list<HistoryEntry> lastOfEach(std::list<HistoryEntry> entries) {
  std::map<U64, std::list<HistoryEntry>::iterator> byId;
  for (auto at = entries.begin(); at != entries.end(); ++at) {
    if (at->id == 0) continue;
    auto [former, isFirst] = byId.try_emplace(at->id, at);
    if (isFirst) continue;
    entries.erase(former->second);
    former->second = at;
  }
  return entries;
}

HistoryLines restoreLines(HistoryStore& store, std::string_view text) {
  HistoryLines lines;
  std::list<HistoryEntry> entries;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    ++lines.all;
    if (auto entry = readHistoryEntry(line)) {
      entries.push_back(*entry);
    } else {
      ++lines.damaged;
    }
  }
  for (HistoryEntry const& entry : lastOfEach(std::move(entries))) store.restore(entry);
  return lines;
}

}  // namespace pimbsr::agent
