#include "agent/EventLog.h"

#include <fmt/format.h>

#include "agent/account/HistoryJson.h"
#include "agent/base/Log.h"
#include "view/History.h"

namespace pimbsr::agent {

// Changes -----------------------------------------------------------------------------------------------

/// The kind of line for a change; null for what only fills an RP set.
static LogEvent const* eventOf(HistoryKind kind) {
  switch (kind) {
    case HistoryKind::bsrElected:
      return &logEvents::bsrElected;
    case HistoryKind::bsrChanged:
      return &logEvents::bsrChanged;
    case HistoryKind::bsrLost:
      return &logEvents::bsrLost;
    case HistoryKind::candidateState:
      return &logEvents::candidateState;
    default:
      return nullptr;
  }
}

static std::string zoneText(HistoryEntry const& change) { return view::cellOf(change.zone, "-"); }

static void write(HistoryEntry const& change, LogEvent const& event, std::string const& what) {
  view::Event shown = viewOf(change);
  log({.event = event,
       .subject = {{"ZONE", zoneText(change)}},
       .text = fmt::format("zone {}: {}: {} ({})", zoneText(change), what, view::detailsOf(shown),
                           view::causeTextOf(shown))});
}

static bool takesRp(HistoryKind kind) {
  return kind == HistoryKind::rpRemoved || kind == HistoryKind::rpExpired;
}

void EventLog::count(HistoryEntry const& change) {
  RpKey key(change.zone, change.rp.range, change.rp.address);
  if (change.kind == HistoryKind::rpKept) kept_.insert(key);
  if (change.kind == HistoryKind::rpAdded && kept_.erase(key) == 0) ++rps_[change.zone];
  if (!takesRp(change.kind)) return;
  kept_.erase(key);
  auto zone = rps_.find(change.zone);
  if (zone != rps_.end() && --zone->second == 0) rps_.erase(zone);
}

/// Only the end of an event shows whether a zone has no RP left.
void EventLog::logEmptied(std::vector<HistoryEntry> const& changes) {
  std::map<Lanet::IpGenPrefix, HistoryEntry const*> last;
  for (HistoryEntry const& change : changes) {
    if (takesRp(change.kind) && !rps_.contains(change.zone)) last[change.zone] = &change;
  }
  for (auto const& [zone, change] : last) {
    bool expired = change->kind == HistoryKind::rpExpired;
    write(*change, logEvents::rpSetEmptied,
          expired ? "RP set is empty; expired" : "RP set is empty; removed");
  }
}

void EventLog::onChanges(std::vector<HistoryEntry> const& changes) {
  for (HistoryEntry const& change : changes) {
    count(change);
    if (LogEvent const* event = eventOf(change.kind))
      write(change, *event, view::shownEventKind(view::keyOf(change.kind)));
  }
  logEmptied(changes);
}

// Interfaces and neighbors ------------------------------------------------------------------------------

void logNeighbor(NeighborChange const& change) {
  std::string intf = std::string(change.intfId.stringValue().view());
  std::string address = view::cellOf(change.address, "-");
  std::string how = change.isThere      ? "up"
                    : change.isCleared  ? "down: it was cleared"
                    : change.hasExpired ? "down: its holdtime is over"
                                        : "down: it sent a Hello with zero holdtime";
  log({.event = change.isThere ? logEvents::neighborUp : logEvents::neighborDown,
       .subject = {{"INTERFACE", intf}, {"NEIGHBOR", address}},
       .text = fmt::format("interface {}: neighbor {} is {}", intf, address, how)});
}

void logInterface(LogEvent const& event, std::string const& name, std::string const& text) {
  log({.event = event,
       .subject = {{"INTERFACE", name}},
       .text = fmt::format("interface {}: {}", name, text)});
}

void logDuplicateAddress(std::string const& name, Lanet::IpAddr address, std::string const& sender,
                         Zet::U64 packets) {
  std::string const text = view::cellOf(Lanet::IpGenAddr(address), "-");
  logInterface(
      logEvents::duplicateAddress, name,
      fmt::format("{} is also the address of another system{}, which has sent PIM packets: {} since the "
                  "last such line",
                  text, sender.empty() ? "" : " with hardware address " + sender, packets));
}

void logInterfaceUp(std::string const& name, Lanet::IpGenAddr const& address) {
  logInterface(logEvents::interfaceUp, name, "up, with " + view::cellOf(address, "no IPv4 address"));
}

void logInterfaceDown(std::string const& name, std::string const& why) {
  logInterface(logEvents::interfaceDown, name, "down: " + why);
}

}  // namespace pimbsr::agent
