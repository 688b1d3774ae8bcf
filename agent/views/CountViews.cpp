#include <sys/wait.h>

#include <algorithm>
#include <set>

#include "agent/account/HistoryJson.h"
#include "agent/views/ViewParts.h"
#include "host/Views.h"

namespace pimbsr::agent {

using host::MessageKind;
using view::keyOf;
using view::messageKinds;

/// Seconds since a time on the agent's clock.
static double ago(Observed const& observed, double time) { return std::max(0.0, observed.now() - time); }

// The filter of advertisements --------------------------------------------------------------------------

static U64 droppedFor(Drops const& drops, DropReason reason) {
  U64 count = 0;
  for (auto const& [key, row] : drops.rows()) {
    if (key.reason == name(reason)) count += row.count;
  }
  return count;
}

static void fillBsmFilter(view::Filter& shown, Observed const& observed) {
  std::set<std::string> const& lists = observed.settings.router.bsrLists;
  std::set<std::string> absent = absentOf(observed, lists);
  shown.bsrLists.assign(lists.begin(), lists.end());
  shown.absentBsrLists.assign(absent.begin(), absent.end());
  shown.permitsAllBsrs = observed.router.bsmPolicy().bsrs.isEmpty();
  shown.droppedBsms = droppedFor(observed.drops, DropReason::bsrFilter);
}

/// The interfaces that Bootstrap Messages don't cross, whoever the BSR is.
static void fillClosed(view::Filter& shown, Observed const& observed) {
  for (auto const& [name, intf] : observed.settings.interfaces) {
    if (!intf.bsm) shown.closed.push_back(name);
  }
  for (auto const& [name, border] : observed.settings.router.borders) shown.borders.push_back(name);
  shown.droppedAtClosed = droppedFor(observed.drops, DropReason::bsmOff);
  shown.droppedAtBorders = droppedFor(observed.drops, DropReason::border);
}

view::Filter showFilter(Observed const& observed) {
  std::set<Lanet::IpGenPrefix> permitted;
  for (auto at = observed.router.status()->crpPermitIterator(); at; ++at) {
    if (observed.router.status()->crpPermit(at.key())) permitted.insert(at.key());
  }
  std::set<std::string> const& lists = observed.settings.router.senderLists;
  std::set<std::string> absent = absentOf(observed, lists);
  view::Filter shown;
  shown.lists.assign(lists.begin(), lists.end());
  shown.absentLists.assign(absent.begin(), absent.end());
  shown.permitted.assign(permitted.begin(), permitted.end());
  shown.permitsAll =
      std::any_of(permitted.begin(), permitted.end(), [](auto& senders) { return senders.length() == 0; });
  shown.dropped = droppedFor(observed.drops, DropReason::senderFilter);
  fillBsmFilter(shown, observed);
  fillClosed(shown, observed);
  return shown;
}

// Counters ----------------------------------------------------------------------------------------------

view::Map<view::PacketCounts> viewOf(InterfaceCounts const& counts) {
  view::Map<view::PacketCounts> shown;
  for (MessageKind kind : messageKinds) {
    auto at = counts.find(kind);
    if (at == counts.end()) continue;
    PacketCounts const& packets = at->second;
    shown.emplace_back(keyOf(kind), view::PacketCounts{.received = packets.received,
                                                       .dropped = packets.dropped,
                                                       .sent = packets.sent,
                                                       .sendFailed = packets.sendFailed});
  }
  return shown;
}

static std::vector<view::InterfaceTraffic> viewOf(Traffic const& traffic) {
  std::vector<view::InterfaceTraffic> shown;
  for (auto const& [intf, counts] : traffic.byInterface()) {
    view::InterfaceTraffic& one = shown.emplace_back();
    if (!intf.empty()) one.interface = intf;
    one.packets = viewOf(counts);
  }
  return shown;
}

static view::Timers timersOf(Observed const& observed) {
  TimerLatency const& timerLatency = observed.timerLatency;
  double mean =
      timerLatency.count() == 0 ? 0 : timerLatency.sum() / static_cast<double>(timerLatency.count());
  return {.armed = observed.router.armedTimers(),
          .served = timerLatency.count(),
          .meanLateness = mean,
          .worstLateness = timerLatency.worst()};
}

view::Counters showCounters(Observed const& observed) {
  view::Counters shown;
  shown.uptime = ago(observed, observed.startTime);
  shown.counters = view::viewOf(host::countersOf(*observed.router.status()->counters()));
  shown.traffic = viewOf(observed.traffic);
  shown.timers = timersOf(observed);
  shown.notificationExceptions = observed.router.context().notificationExceptions();
  return shown;
}

// Dropped messages --------------------------------------------------------------------------------------

static std::optional<std::string> zoneOf(DropKey const& key) {
  if (key.others) return "other";
  return key.zone.isEmpty() ? std::nullopt : std::optional(textOf(key.zone));
}

static view::Drop viewOf(Observed const& observed, DropKey const& key, DropRow const& row) {
  view::Drop shown;
  shown.reason = key.reason;
  shown.sentence = row.sentence;
  shown.message = keyOf(key.kind);
  if (!key.intf.empty()) shown.interface = key.intf;
  shown.zone = zoneOf(key);
  shown.count = row.count;
  for (TopSenders::Sender const& one : row.senders.list())
    shown.senders.push_back({.sender = one.address, .count = one.count});
  shown.last = {.ago = ago(observed, row.last.time),
                .sender = row.last.sender,
                .destination = row.last.destination,
                .summary = summaryOf(key.kind, row.last)};
  return shown;
}

/// Packets of all interfaces that found a receive buffer full.
static U64 lostInKernel(Observed const& observed) {
  U64 lost = 0;
  for (auto const& [intf, report] : observed.links) {
    for (auto const& [kind, counts] : report.queues) lost += counts.lost;
  }
  return lost;
}

view::Drops showDrops(Observed const& observed) {
  view::Drops shown;
  for (auto const& [key, row] : observed.drops.rows()) shown.drops.push_back(viewOf(observed, key, row));
  shown.kernelLost = lostInKernel(observed);
  return shown;
}

// Corrections -------------------------------------------------------------------------------------------

view::Corrections showCorrections(Observed const& observed) {
  view::Corrections shown;
  for (host::Correction const& row : host::corrections()) {
    CorrectionSwitch const& state = observed.router.corrections().of(row.isOn);
    shown.corrections.push_back({.correction = std::string(row.key->name),
                                 .on = state.isOn(),
                                 .acts = state.acts(),
                                 .engine = std::string(row.engine),
                                 .instead = std::string(row.key->sentence),
                                 .source = std::string(row.source)});
  }
  return shown;
}

// Control sockets ---------------------------------------------------------------------------------------

static view::User viewOf(ControlUser const& user) {
  return {.uid = user.uid, .clients = user.clients, .watchers = user.watchers, .unread = user.unread};
}

static view::Socket viewOf(ControlStatus const& control) {
  ControlCounts const& counts = control.counts;
  view::Socket shown{.socket = control.path,
                     .readOnly = control.readOnly,
                     .clients = counts.clients,
                     .watchers = counts.watchers,
                     .requests = counts.requests,
                     .rejected = counts.rejected,
                     .rejectedRequests = counts.rejectedRequests,
                     .gaveWay = counts.gaveWay,
                     .slow = counts.slow,
                     .silent = counts.silent,
                     .failed = counts.failed};
  for (ControlUser const& user : control.users) shown.users.push_back(viewOf(user));
  return shown;
}

view::Control showControl(Observed const& observed) {
  view::Control shown;
  for (ControlStatus const& control : observed.controls) shown.sockets.push_back(viewOf(control));
  return shown;
}

// The change command --------------------------------------------------------------------------------------

static view::RunOutcome outcomeOf(EndedRun const& run) {
  if (run.timedOut) return view::RunOutcome::timedOut;
  return run.status == 0 ? view::RunOutcome::succeeded : view::RunOutcome::failed;
}

static view::ChangeRun viewOf(EndedRun const& run) {
  view::ChangeRun shown{
      .ago = run.ago, .duration = run.duration, .outcome = std::string(keyOf(outcomeOf(run)))};
  if (WIFEXITED(run.status)) shown.status = WEXITSTATUS(run.status);
  if (WIFSIGNALED(run.status)) shown.signal = WTERMSIG(run.status);
  return shown;
}

view::OnChange showOnChange(Observed const& observed) {
  ChangeRuns const& runs = observed.changeRuns;
  view::OnChange shown;
  if (!runs.command.empty()) {
    shown.command = runs.command;
    shown.timeLimit = runs.timeLimit;
  }
  shown.runningFor = runs.runningFor;
  shown.waiting = runs.waiting;
  shown.succeeded = runs.succeeded;
  shown.failed = runs.failed;
  shown.timedOut = runs.timedOut;
  if (runs.last) shown.lastRun = viewOf(*runs.last);
  shown.helperRestarts = runs.helperRestarts;
  shown.helperEnded = runs.helperEnded;
  return shown;
}

// History -----------------------------------------------------------------------------------------------

/// A former run's clock may have been ahead of this one's: nothing is known of such a time.
static std::optional<double> knownAgo(Observed const& observed, double time) {
  return time <= observed.now() ? std::optional(observed.now() - time) : std::nullopt;
}

view::History showHistory(Observed const& observed) {
  HistoryFile const& file = observed.historyFile;
  view::History shown;
  shown.maxEntries = observed.history.maxEntries();
  shown.wasCleared = observed.history.wasCleared();
  shown.file = file.path;
  if (!file.error.empty()) shown.fileError = file.error;
  shown.unsaved = file.unsaved;
  for (HistoryEntry const& entry : observed.history.entries()) {
    shown.entries.push_back(viewOf(entry));
    shown.entries.back().ago = knownAgo(observed, entry.time);
  }
  return shown;
}

}  // namespace pimbsr::agent
