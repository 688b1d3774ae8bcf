#include "agent/views/Metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <limits>
#include <map>

#include "agent/base/Version.h"
#include "agent/views/MetricSeries.h"
#include "host/Machines.h"
#include "host/Views.h"
#include "view/Kinds.h"

namespace pimbsr::agent {

using host::MessageKind;
using prometheus::MetricType;
using view::keyOf;

namespace {

using Families = MetricFamilies;
using Labels = MetricLabels;
using Family = MetricSamples;

/// What every part of the text is made from.
struct Source {
  Observed const& observed;
  std::vector<host::ZoneView> zones = host::zonesOf(observed.router);
  ShownZones shownZones{observed, zones};
  ShownInterfaces shownInterfaces{observed};
};

void addBuild(Families& families) {
  Family(families, MetricType::Gauge, "build_info", "1, with the version of the agent.")
      .add(1.0, {{"version", version}});
}

// Zones -------------------------------------------------------------------------------------------------

void addTotals(Families& families, Source const& source) {
  std::string const ofZones =
      " When a zone is forgotten, its count moves into zone=\"other\": rate() of that jumps then, though "
      "nothing happened.";
  auto each = [&](char const* name, char const* help, U64 ZoneTotals::*total) {
    Family family(families, MetricType::Counter, name, help + ofZones);
    for (auto const& [zone, totals] : source.observed.history.totals()) {
      family.add(totals.*total, {{"zone", source.shownZones.labelOf(zone)}});
    }
  };
  each("elections_total",
       "Times that a zone without a BSR got one, or that this router became the BSR of a zone, also in place "
       "of another.",
       &ZoneTotals::elections);
  each(
      "bsr_changes_total",
      "Times that the BSR of a zone was replaced by another, or that the same one announced another priority "
      "or hash mask length, or became or ceased to be this router.",
      &ZoneTotals::bsrChanges);
  each("bsr_losses_total", "Times that a zone lost its BSR and had none then.", &ZoneTotals::bsrLosses);
  Family churn(families, MetricType::Counter, "rp_set_changes_total",
               "RPs of a zone that changed, by change." + ofZones);
  for (auto const& [zone, totals] : source.observed.history.totals()) {
    std::string label = source.shownZones.labelOf(zone);
    churn.add(totals.rps.added, {{"zone", label}, {"change", "added"}});
    churn.add(totals.rps.updated, {{"zone", label}, {"change", "updated"}});
    churn.add(totals.rps.kept, {{"zone", label}, {"change", "kept"}});
    churn.add(totals.rps.removed, {{"zone", label}, {"change", "removed"}});
    churn.add(totals.rps.expired, {{"zone", label}, {"change", "expired"}});
  }
}

void addBsrs(Families& families, Source const& source) {
  Family(families, MetricType::Gauge, "zones", "Zones that the router follows, those without series too.")
      .add(static_cast<double>(source.zones.size()));
  auto each = [&](char const* name, char const* help, auto const& addTo) {
    Family family(families, MetricType::Gauge, name, help);
    for (host::ZoneView const& zone : source.zones)
      if (source.shownZones.has(zone.zone)) addTo(family, zone, source.shownZones.labelOf(zone.zone));
  };
  each("bsr_known", "1 if a zone has a BSR.", [](Family& family, auto& zone, std::string const& label) {
    family.add(zone.bsr ? 1.0 : 0.0, {{"zone", label}});
  });
  each("bsr_elected", "1 if this router is the elected BSR of a zone.",
       [&](Family& family, auto& zone, std::string const& label) {
         Observed const& observed = source.observed;
         bool elected = host::machineOf(observed.router, zone.zone, observed.now()).elected;
         family.add(elected ? 1.0 : 0.0, {{"zone", label}});
       });
  each("bsr_info", "1, with the address of the BSR of a zone.",
       [](Family& family, auto& zone, std::string const& label) {
         if (!zone.bsr) return;
         family.add(1.0, {{"zone", label}, {"bsr", std::string(zone.bsr->address.stringValue().view())}});
       });
}

void addRpSets(Families& families, Source const& source) {
  auto each = [&](char const* name, char const* help, auto const& addTo) {
    Family family(families, MetricType::Gauge, name, help);
    for (host::ZoneView const& zone : source.zones) addTo(family, zone, source.shownZones.labelOf(zone.zone));
  };
  each("rp_set_ranges", "Group ranges in the RP set of a zone.",
       [](Family& family, auto& zone, std::string const& label) {
         family.add(zone.rpSet.size(), {{"zone", label}});
       });
  each("rp_set_rps", "RPs in the RP set of a zone, counted once for each group range.",
       [](Family& family, auto& zone, std::string const& label) {
         U64 count = 0;
         for (host::RangeView const& range : zone.rpSet) count += range.rps.size();
         family.add(count, {{"zone", label}});
       });
  each("rp_set_kept_rps", "RPs of a former BSR of a zone that stay in use, among those of the RP set.",
       [](Family& family, auto& zone, std::string const& label) {
         U64 count = 0;
         for (host::RangeView const& range : zone.rpSet)
           for (host::RpView const& rp : range.rps) count += rp.kept ? 1 : 0;
         family.add(count, {{"zone", label}});
       });
  each("rp_set_range_rps",
       "RPs of a group range in the RP set of a zone; those of ranges beyond 100 in a zone, or 600 in all, "
       "are in range=\"other\".",
       [&](Family& family, auto& zone, std::string const& label) {
         std::size_t shown = source.shownZones.has(zone.zone) ? source.shownZones.rangesPerZone() : 0;
         for (std::size_t i = 0; i < zone.rpSet.size(); ++i) {
           host::RangeView const& range = zone.rpSet[i];
           std::string name = i < shown ? std::string(range.range.stringValue().view()) : otherLabel;
           family.add(range.rps.size(), {{"zone", label}, {"range", std::move(name)}});
         }
       });
}

// Messages ----------------------------------------------------------------------------------------------

void addMessages(Families& families, Source const& source) {
  auto each = [&](char const* name, char const* help, auto const& addTo) {
    Family family(families, MetricType::Counter, name, help);
    for (auto const& [intf, kinds] : source.observed.traffic.byInterface()) {
      std::string label = source.shownInterfaces.labelOf(intf);
      for (auto const& [kind, counts] : kinds) {
        addTo(family, Labels{{"interface", label}, {"kind", std::string(keyOf(kind))}}, counts);
      }
    }
  };
  auto with = [](Labels labels, char const* outcome) {
    labels.push_back({"outcome", outcome});
    return labels;
  };
  each("messages_received_total", "PIM messages that arrived, by outcome.",
       [&](Family& family, Labels const& labels, PacketCounts const& counts) {
         if (counts.received == 0) return;
         family.add(counts.received - counts.dropped, with(labels, "accepted"));
         family.add(counts.dropped, with(labels, "dropped"));
       });
  each("messages_sent_total",
       "PIM messages given to the kernel, by outcome. Those sent by unicast routes have an empty interface.",
       [&](Family& family, Labels const& labels, PacketCounts const& counts) {
         if (counts.sent + counts.sendFailed == 0) return;
         family.add(counts.sent, with(labels, "sent"));
         family.add(counts.sendFailed, with(labels, "failed"));
       });
}

void addDrops(Families& families, Observed const& observed) {
  std::map<std::pair<std::string_view, MessageKind>, U64> counts;
  for (auto const& [key, row] : observed.drops.rows()) counts[{key.reason, key.kind}] += row.count;
  Family drops(families, MetricType::Counter, "drops_total", "PIM messages that were dropped, by reason.");
  std::size_t shown = 0;
  for (auto const& [key, count] : counts) {
    bool isOther = ++shown >= SeriesLimits::drops;
    drops.add(count, {{"reason", isOther ? otherLabel : std::string(key.first)},
                      {"kind", isOther ? otherLabel : std::string(keyOf(key.second))}});
  }
}

void addCorrections(Families& families, Observed const& observed) {
  Family acts(families, MetricType::Counter, "corrections_total",
              "How often a correction changed what the machines would have done.");
  for (host::Correction const& row : host::corrections()) {
    CorrectionSwitch const& state = observed.router.corrections().of(row.isOn);
    acts.add(state.acts(), {{"correction", std::string(row.key->name)}});
  }
}

void addKernelLosses(Families& families, Source const& source) {
  Family losses(
      families, MetricType::Counter, "kernel_lost_packets_total",
      "Packets that found the receive buffer of their queue full. Those to single addresses have an "
      "empty interface.");
  for (auto const& [intf, report] : source.observed.links) {
    for (auto const& [kind, counts] : report.queues) {
      std::string label = source.shownInterfaces.labelOf(intf);
      losses.add(counts.lost, {{"interface", std::move(label)}, {"queue", std::string(keyOf(kind))}});
    }
  }
}

void addNeighbors(Families& families, Source const& source) {
  Family neighbors(families, MetricType::Gauge, "neighbors", "PIM neighbors of an interface.");
  for (auto intf = source.observed.router.pimStatus()->pimIntfIterator(); intf; ++intf) {
    std::string name(intf->intfId().stringValue().view());
    neighbors.add(U64{intf->neighborCount()}, {{"interface", source.shownInterfaces.labelOf(name)}});
  }
}

// Control sockets ---------------------------------------------------------------------------------------

void addControls(Families& families, Observed const& observed) {
  auto labels = [](ControlStatus const& control, Labels more = {}) {
    more.insert(more.begin(), {"socket", control.readOnly ? "read-only" : "full"});
    return more;
  };
  Family clients(families, MetricType::Gauge, "control_clients", "Connections to a control socket now.");
  for (ControlStatus const& control : observed.controls)
    clients.add(static_cast<double>(control.counts.clients), labels(control));
  Family watchers(families, MetricType::Gauge, "control_watchers", "Watches of a control socket now.");
  for (ControlStatus const& control : observed.controls)
    watchers.add(static_cast<double>(control.counts.watchers), labels(control));
  Family requests(families, MetricType::Counter, "control_requests_total",
                  "Requests that were answered, with a result or an error.");
  for (ControlStatus const& control : observed.controls)
    requests.add(control.counts.requests, labels(control));
  Family over(families, MetricType::Counter, "control_limited_total",
              "Connections that were rejected or ended and requests that were rejected, by reason.");
  static constexpr std::pair<char const*, U64 ControlCounts::*> reasons[] = {
      {"rejected", &ControlCounts::rejected}, {"rejectedRequests", &ControlCounts::rejectedRequests},
      {"gaveWay", &ControlCounts::gaveWay},   {"slow", &ControlCounts::slow},
      {"silent", &ControlCounts::silent},     {"failed", &ControlCounts::failed}};
  for (ControlStatus const& control : observed.controls)
    for (auto const& [reason, count] : reasons)
      over.add(control.counts.*count, labels(control, {{"reason", reason}}));
}

// The history --------------------------------------------------------------------------------------------

void addHistory(Families& families, Observed const& observed) {
  Family(families, MetricType::Gauge, "history_entries", "Entries that the history has now.")
      .add(static_cast<double>(observed.history.entries().size()));
  HistoryFile const& file = observed.historyFile;
  if (!file.path && file.error.empty()) return;  // none is configured
  Family(families, MetricType::Counter, "history_unsaved_total",
         "Entries of the history that were not written at once, since the disk was slow or full. They "
         "are written later if it recovers.")
      .add(file.unsaved);
  Family(families, MetricType::Gauge, "history_complete", "1 if all entries of the history are in its file.")
      .add(file.error.empty() ? 1.0 : 0.0);
  Family(
      families, MetricType::Counter, "state_writer_restarts_total",
      "Deaths of the process that writes the files of the state directory, after which another was started.")
      .add(file.writerRestarts);
}

// The log -----------------------------------------------------------------------------------------------

void addLog(Families& families, Observed const& observed) {
  Family lines(
      families, MetricType::Counter, "log_lines_total",
      "Lines of the log by outcome: suppressed ones are those that its limit held back, of which the "
      "last of a subject is written later; lost ones were not taken.");
  lines.add(observed.log.written, {{"outcome", "written"}});
  lines.add(observed.log.suppressed, {{"outcome", "suppressed"}});
  lines.add(observed.log.lost, {{"outcome", "lost"}});
}

// The change command --------------------------------------------------------------------------------------

void addChangeRuns(Families& families, Observed const& observed) {
  ChangeRuns const& runs = observed.changeRuns;
  if (runs.command.empty()) return;
  Family ended(families, MetricType::Counter, "change_command_runs_total",
               "Runs of the change command that have ended, by outcome.");
  ended.add(runs.succeeded, {{"outcome", "succeeded"}});
  ended.add(runs.failed, {{"outcome", "failed"}});
  ended.add(runs.timedOut, {{"outcome", "timedOut"}});
  Family(families, MetricType::Gauge, "change_command_running_seconds",
         "How long the present run of the change command has lasted; 0 for none.")
      .add(runs.runningFor.value_or(0));
  Family(families, MetricType::Counter, "change_command_helper_restarts_total",
         "Deaths of the process that runs the change command, after which another was started.")
      .add(runs.helperRestarts);
  Family(families, MetricType::Gauge, "change_command_ready",
         "0 if the process that runs the change command has ended, so that it does not run any more.")
      .add(runs.helperEnded ? 0.0 : 1.0);
}

// Timers and the process --------------------------------------------------------------------------------

void addLateness(Families& families, TimerLatency const& timerLatency) {
  families.push_back({"pimbsr_timer_lateness_seconds",
                      "How late due timers were served, in real time.",
                      MetricType::Histogram,
                      {}});
  auto& histogram = families.back().metric.emplace_back().histogram;
  histogram.sample_count = timerLatency.count();
  histogram.sample_sum = timerLatency.sum();
  for (std::size_t i = 0; i < TimerLatency::bounds.size(); ++i) {
    histogram.bucket.push_back({timerLatency.atMost(i), TimerLatency::bounds[i]});
  }
  histogram.bucket.push_back({timerLatency.count(), std::numeric_limits<double>::infinity()});
}

void addProcess(Families& families, Observed const& observed) {
  Family(families, MetricType::Gauge, "timers_armed", "Timers that are running.")
      .add(static_cast<double>(observed.router.armedTimers()));
  addLateness(families, observed.timerLatency);
  Family(families, MetricType::Counter, "notification_exceptions_total",
         "Exceptions caught inside the engine; each is a bug of this program.")
      .add(observed.router.context().notificationExceptions());
  Family(families, MetricType::Gauge, "uptime_seconds", "Time since the agent started, on its own clock.")
      .add(std::max(0.0, observed.now() - observed.startTime));
}

}  // namespace

std::string metricsText(Observed const& observed) {
  Families families;
  Source const source{.observed = observed};
  addBuild(families);
  addTotals(families, source);
  addBsrs(families, source);
  addRpSets(families, source);
  addMessages(families, source);
  addDrops(families, observed);
  addCorrections(families, observed);
  addKernelLosses(families, source);
  addNeighbors(families, source);
  addControls(families, observed);
  addHistory(families, observed);
  addLog(families, observed);
  addChangeRuns(families, observed);
  addProcess(families, observed);
  return prometheus::TextSerializer().Serialize(families);
}

}  // namespace pimbsr::agent
