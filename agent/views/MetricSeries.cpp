#include "agent/views/MetricSeries.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "host/Machines.h"

namespace pimbsr::agent {

using Lanet::IpGenPrefix;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

MetricSamples::MetricSamples(MetricFamilies& families, MetricType type, std::string name, std::string help)
    : families_(families), family_(families.size()) {
  families.push_back({"pimbsr_" + std::move(name), std::move(help), type, {}});
}

void MetricSamples::add(double value, MetricLabels labels) {
  MetricFamily& family = families_[family_];
  auto [place, isNew] = places_.try_emplace(labels, family.metric.size());
  if (isNew) family.metric.emplace_back().label = std::move(labels);
  ClientMetric& metric = family.metric[place->second];
  (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) += value;
}

// Zones -------------------------------------------------------------------------------------------------

/// Orders zones by how much they matter, then by prefix.
using Rank = std::tuple<bool, double, IpGenPrefix>;

static Rank rankOf(Observed const& observed, IpGenPrefix const& zone) {
  bool isOwn = zone == observed.router.globalZone() ||
               host::machineOf(observed.router, zone, observed.now()).candidate;
  double since = observed.history.bsrSince(zone).value_or(std::numeric_limits<double>::infinity());
  return {!isOwn, since, zone};
}

static std::set<IpGenPrefix> namesOf(Observed const& observed, std::vector<host::ZoneView> const& zones) {
  std::set<IpGenPrefix> names;
  for (auto const& [zone, totals] : observed.history.totals())
    if (!zone.isEmpty()) names.insert(zone);
  for (host::ZoneView const& zone : zones) names.insert(zone.zone);
  return names;
}

ShownZones::ShownZones(Observed const& observed, std::vector<host::ZoneView> const& zones) {
  std::vector<Rank> ranks;
  for (IpGenPrefix const& zone : namesOf(observed, zones)) ranks.push_back(rankOf(observed, zone));
  std::sort(ranks.begin(), ranks.end());
  ranks.resize(std::min(ranks.size(), SeriesLimits::zones));
  for (Rank const& rank : ranks) zones_.insert(std::get<IpGenPrefix>(rank));
}

std::string ShownZones::labelOf(IpGenPrefix const& zone) const {
  return has(zone) ? std::string(zone.stringValue().view()) : otherLabel;
}

std::size_t ShownZones::rangesPerZone() const {
  return std::min(SeriesLimits::rangesPerZone,
                  SeriesLimits::ranges / std::max<std::size_t>(1, zones_.size()));
}

// Interfaces --------------------------------------------------------------------------------------------

ShownInterfaces::ShownInterfaces(Observed const& observed) {
  for (auto const& [name, counts] : observed.traffic.byInterface()) names_.insert(name);
  for (auto const& [name, report] : observed.links) names_.insert(name);
  for (auto intf = observed.router.pimStatus()->pimIntfIterator(); intf; ++intf)
    names_.emplace(intf->intfId().stringValue().view());
  names_.erase("");
  while (names_.size() > SeriesLimits::interfaces) names_.erase(std::prev(names_.end()));
}

std::string ShownInterfaces::labelOf(std::string const& name) const {
  return name.empty() || names_.contains(name) ? name : otherLabel;
}

}  // namespace pimbsr::agent
