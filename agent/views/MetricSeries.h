#pragma once

#include <prometheus/metric_family.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/views/Observed.h"
#include "host/Views.h"

namespace pimbsr::agent {

/// How many series a label may make, so that an agent has at most 2,000, whatever its peers send. Further
/// series are summed up under the label value "other".
struct SeriesLimits {
  static constexpr std::size_t zones = 32;
  static constexpr std::size_t ranges = 600;         ///< of all zones together, each with an equal share
  static constexpr std::size_t rangesPerZone = 100;  ///< at most, however few zones there are
  static constexpr std::size_t interfaces = 16;      ///< besides the empty one
  static constexpr std::size_t drops = 150;          ///< pairs of reason and kind
};

/// The label value that sums up the rest.
inline constexpr char const* otherLabel = "other";

using MetricFamilies = std::vector<prometheus::MetricFamily>;
using MetricLabels = std::vector<prometheus::ClientMetric::Label>;

/// One metric by its name, without "pimbsr_", of which samples are added with their labels. Values with equal
/// labels are summed up, so that no series is there twice.
class MetricSamples {
 public:
  /// `families` outlives this object.
  MetricSamples(MetricFamilies& families, prometheus::MetricType type, std::string name, std::string help);

  void add(double value, MetricLabels labels = {});
  void add(U64 value, MetricLabels labels = {}) { add(static_cast<double>(value), std::move(labels)); }

 private:
  MetricFamilies& families_;
  std::size_t family_;
  std::map<MetricLabels, std::size_t> places_;  ///< in its family
};

/// The zones with series of their own. This router's candidacies and the zone of all groups come first, then
/// those whose BSR is known for longest: a flood of new zones displaces none of them.
class ShownZones {
 public:
  /// `zones` are those that the router follows now.
  ShownZones(Observed const& observed, std::vector<host::ZoneView> const& zones);

  bool has(Lanet::IpGenPrefix const& zone) const { return zones_.contains(zone); }
  /// The value of the label "zone".
  std::string labelOf(Lanet::IpGenPrefix const& zone) const;
  /// How many group ranges of each zone have series of their own.
  std::size_t rangesPerZone() const;

 private:
  std::set<Lanet::IpGenPrefix> zones_;
};

/// The interfaces with series of their own: the first ones by name.
class ShownInterfaces {
 public:
  explicit ShownInterfaces(Observed const& observed);
  /// The value of the label "interface"; empty for the empty name.
  std::string labelOf(std::string const& name) const;

 private:
  std::set<std::string> names_;
};

}  // namespace pimbsr::agent
