#pragma once

#include <map>
#include <set>
#include <string>

#include "agent/base/Json.h"
#include "agent/views/Observed.h"

/// The views by theme, each in a source of its own, for Views.cpp alone.
namespace pimbsr::agent {

// ZoneViews.cpp
Json showBsr(Observed const& observed);
Json showRpSet(Observed const& observed);
Json showRp(Observed const& observed, Lanet::IpAddr group);

// CandidateViews.cpp
Json showCandidates(Observed const& observed);

// InterfaceViews.cpp
Json showNeighbors(Observed const& observed);
Json showInterfaces(Observed const& observed);
Json showBorders(Observed const& observed);

// CountViews.cpp
Json showFilter(Observed const& observed);
Json showCounters(Observed const& observed);
Json showDrops(Observed const& observed);
Json showHistory(Observed const& observed);
Json showControl(Observed const& observed);

/// The names of access lists by which something is configured.
template <class Terms>
std::set<std::string> namesOf(std::map<std::string, Terms> const& lists) {
  std::set<std::string> names;
  for (auto const& [name, terms] : lists) names.insert(name);
  return names;
}

/// Those of the access lists that aren't there: who names them waits for them.
std::set<std::string> absentOf(Observed const& observed, std::set<std::string> const& lists);

/// Counts of an interface by kind, as in show "counters".
Json jsonOf(InterfaceCounts const& counts);

}  // namespace pimbsr::agent
