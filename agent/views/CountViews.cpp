#include <algorithm>
#include <set>

#include "agent/account/HistoryJson.h"
#include "agent/base/Names.h"
#include "agent/views/ViewParts.h"
#include "host/Views.h"

namespace pimbsr::agent {

using host::MessageKind;

/// Seconds since a time on the agent's clock; 0 for one that a former run's clock took for later than now.
static Json ago(Observed const& observed, double time) {
  return jsonOfTime(std::max(0.0, observed.now() - time));
}

// The filter of advertisements --------------------------------------------------------------------------

static U64 filteredAdvertisements(Drops const& drops) {
  U64 count = 0;
  for (auto const& [key, row] : drops.rows()) {
    if (key.reason == name(DropReason::senderFilter)) count += row.count;
  }
  return count;
}

Json showFilter(Observed const& observed) {
  std::set<Lanet::IpGenPrefix> permitted;
  for (auto at = observed.router.status()->crpPermitIterator(); at; ++at) {
    if (observed.router.status()->crpPermit(at.key())) permitted.insert(at.key());
  }
  Json prefixes = Json::array();
  for (Lanet::IpGenPrefix const& senders : permitted) prefixes.push_back(jsonOf(senders));
  bool open =
      std::any_of(permitted.begin(), permitted.end(), [](auto& senders) { return senders.length() == 0; });
  std::set<std::string> const& lists = observed.settings.router.senderLists;
  return {{"lists", lists},
          {"absentLists", absentOf(observed, lists)},
          {"permitted", prefixes},
          {"permitsAll", open},
          {"refused", filteredAdvertisements(observed.drops)}};
}

// Counters ----------------------------------------------------------------------------------------------

static Json jsonOf(host::CounterView const& counter) {
  Json json = {{"name", counter.name}, {"value", counter.value}, {"sentence", counter.sentence}};
  if (counter.parts.empty()) return json;
  json["parts"] = Json::array();
  for (host::CounterView const& part : counter.parts) {
    json["parts"].push_back({{"name", part.name}, {"value", part.value}});
  }
  return json;
}

Json jsonOf(InterfaceCounts const& counts) {
  Json json = Json::object();
  for (MessageKind kind : messageKinds) {
    auto at = counts.find(kind);
    if (at == counts.end()) continue;
    PacketCounts const& packets = at->second;
    json[std::string(keyOf(kind))] = {{"received", packets.received},
                                      {"refused", packets.refused},
                                      {"sent", packets.sent},
                                      {"sendFailed", packets.sendFailed}};
  }
  return json;
}

static Json trafficJson(Traffic const& traffic) {
  Json json = Json::array();
  for (auto const& [intf, counts] : traffic.byInterface()) {
    json.push_back({{"interface", intf.empty() ? Json() : Json(intf)}, {"packets", jsonOf(counts)}});
  }
  return json;
}

static Json timersJson(Observed const& observed) {
  Punctuality const& punctuality = observed.punctuality;
  double mean = punctuality.count() == 0 ? 0 : punctuality.sum() / static_cast<double>(punctuality.count());
  return {{"armed", observed.router.timerWheel()->armed()},
          {"served", punctuality.count()},
          {"meanLateness", jsonOfTime(mean)},
          {"worstLateness", jsonOfTime(punctuality.worst())}};
}

Json showCounters(Observed const& observed) {
  Json counters = Json::array();
  for (auto const& counter : host::countersOf(*observed.router.status()->counters())) {
    counters.push_back(jsonOf(counter));
  }
  return {{"uptime", ago(observed, observed.startTime)},
          {"counters", counters},
          {"traffic", trafficJson(observed.traffic)},
          {"timers", timersJson(observed)},
          {"notificationExceptions", observed.router.context().notificationExceptions()}};
}

// Refused messages --------------------------------------------------------------------------------------

static Json dropJson(Observed const& observed, DropKey const& key, DropRow const& row) {
  return {{"reason", key.reason},
          {"sentence", row.sentence},
          {"kind", keyOf(key.kind)},
          {"interface", key.intf.empty() ? Json() : Json(key.intf)},
          {"zone", key.others ? Json("other") : jsonOf(key.zone)},
          {"count", row.count},
          {"last",
           {{"ago", ago(observed, row.last.time)},
            {"sender", jsonOf(row.last.sender)},
            {"destination", jsonOf(row.last.destination)},
            {"message", summaryOf(key.kind, row.last)}}}};
}

/// Packets of all interfaces that found a receive buffer full.
static U64 lostInKernel(Observed const& observed) {
  U64 lost = 0;
  for (auto const& [intf, report] : observed.links) {
    for (auto const& [kind, counts] : report.queues) lost += counts.lost;
  }
  return lost;
}

Json showDrops(Observed const& observed) {
  Json drops = Json::array();
  for (auto const& [key, row] : observed.drops.rows()) drops.push_back(dropJson(observed, key, row));
  return {{"drops", drops}, {"kernelLost", lostInKernel(observed)}};
}

// Control sockets ---------------------------------------------------------------------------------------

static Json jsonOf(ControlUser const& user) {
  return {{"uid", user.uid}, {"clients", user.clients}, {"watchers", user.watchers}, {"unread", user.unread}};
}

static Json jsonOf(ControlStatus const& control) {
  ControlCounts const& counts = control.counts;
  Json users = Json::array();
  for (ControlUser const& user : control.users) users.push_back(jsonOf(user));
  return {{"socket", control.path},
          {"readOnly", control.readOnly},
          {"clients", counts.clients},
          {"watchers", counts.watchers},
          {"requests", counts.requests},
          {"refused", counts.refused},
          {"refusedRequests", counts.refusedRequests},
          {"gaveWay", counts.gaveWay},
          {"slow", counts.slow},
          {"silent", counts.silent},
          {"failed", counts.failed},
          {"users", users}};
}

Json showControl(Observed const& observed) {
  Json sockets = Json::array();
  for (ControlStatus const& control : observed.controls) sockets.push_back(jsonOf(control));
  return {{"sockets", sockets}};
}

// History -----------------------------------------------------------------------------------------------

Json showHistory(Observed const& observed) {
  Json entries = Json::array();
  for (HistoryEntry const& entry : observed.history.entries()) {
    Json json = jsonOf(entry);
    json["ago"] = ago(observed, entry.time);
    entries.push_back(std::move(json));
  }
  return {{"mostEntries", observed.history.mostEntries()},
          {"wasCleared", observed.history.wasCleared()},
          {"entries", entries}};
}

}  // namespace pimbsr::agent
