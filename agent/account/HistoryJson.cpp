#include "agent/account/HistoryJson.h"

#include <algorithm>
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
  return {
      .added = counts.added, .updated = counts.updated, .removed = counts.removed, .expired = counts.expired};
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
  return {.added = read.added, .updated = read.updated, .removed = read.removed, .expired = read.expired};
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
  return entry;
}

/// An invalid line loses its own entry alone.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line) {
  try {
    return entryOf(view::readView<view::Event>(Json::parse(line)));
  } catch (std::exception const&) {
    return std::nullopt;
  }
}

std::string linesOf(History const& history) {
  std::string text;
  for (HistoryEntry const& entry : history.entries())
    text += jsonOf(entry).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
  return text;
}

std::size_t prependLines(History& history, std::string_view text) {
  std::deque<HistoryEntry> entries;
  std::size_t damaged = 0;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (auto entry = readHistoryEntry(line)) {
      entries.push_back(*entry);
    } else {
      ++damaged;
    }
  }
  history.prepend(std::move(entries));
  return damaged;
}

}  // namespace pimbsr::agent
