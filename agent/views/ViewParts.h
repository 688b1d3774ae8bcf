#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "agent/views/Observed.h"
#include "host/Machines.h"
#include "host/ModelTree.h"
#include "view/Candidates.h"
#include "view/Counts.h"
#include "view/Fill.h"
#include "view/History.h"
#include "view/Interfaces.h"
#include "view/Tree.h"
#include "view/Zones.h"

/// The views by theme, each in a source of its own, for Views.cpp alone.
namespace pimbsr::agent {

// ZoneViews.cpp
view::Bsr showBsr(Observed const& observed);
view::RpSet showRpSet(Observed const& observed, Lanet::IpGenPrefix const& prefix);
view::Rp showRp(Observed const& observed, Lanet::IpAddr group);

// CandidateViews.cpp
view::Candidates showCandidates(Observed const& observed);

// InterfaceViews.cpp
view::Neighbors showNeighbors(Observed const& observed);
view::Interfaces showInterfaces(Observed const& observed);
view::Borders showBorders(Observed const& observed);

// CountViews.cpp
view::Filter showFilter(Observed const& observed);
view::Counters showCounters(Observed const& observed);
view::Drops showDrops(Observed const& observed);
view::Corrections showCorrections(Observed const& observed);
view::History showHistory(Observed const& observed);
view::Control showControl(Observed const& observed);
view::OnChange showOnChange(Observed const& observed);

// ModelViews.cpp
view::Tree showModel(host::Router const& router, std::string const& path, host::TreeBounds const& bounds);
view::ModelValue showModelValue(host::Router const& router, std::string const& path);

/// The names of access lists by which something is configured.
template <class Terms>
std::set<std::string> namesOf(std::map<std::string, Terms> const& lists) {
  std::set<std::string> names;
  for (auto const& [name, terms] : lists) names.insert(name);
  return names;
}

/// The referenced access lists that don't exist.
std::set<std::string> absentOf(Observed const& observed, std::set<std::string> const& lists);

/// Counts of an interface by kind of message.
view::Map<view::PacketCounts> viewOf(InterfaceCounts const& counts);

/// A network value as text; empty for the unset one.
template <Lanet::NetworkValue Value>
std::string textOf(Value const& value) {
  return view::cellOf(value, "");
}

/// Seconds until a time on the agent's clock, at least 0; infinity stays.
inline double leftUntil(double time, double now) { return std::max(0.0, time - now); }

}  // namespace pimbsr::agent
