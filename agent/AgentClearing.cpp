// What an operator clears of an agent's learned state.

#include <fmt/format.h>

#include <algorithm>

#include "agent/Agent.h"
#include "agent/base/RequestError.h"
#include "host/Machines.h"
#include "host/Views.h"
#include "view/View.h"

namespace pimbsr::agent {

using Lanet::IpGenPrefix;

/// The zone itself if it is known, or all for the empty prefix.
std::vector<IpGenPrefix> Agent::zonesFor(IpGenPrefix const& zone) const {
  std::vector<IpGenPrefix> known;
  std::vector<std::string> names;
  for (host::ZoneView const& one : host::zonesOf(*router_)) {
    known.push_back(one.zone);
    names.push_back(view::cellOf(one.zone, ""));
  }
  if (zone.isEmpty()) return known;
  if (std::find(known.begin(), known.end(), zone) != known.end()) return {zone};
  throw RequestError(
      fmt::format("there is no zone {}; {}", view::cellOf(zone, ""),
                  names.empty() ? "none is known" : fmt::format("known are {}", fmt::join(names, ", "))));
}

void Agent::clearBsr(IpGenPrefix const& zone) {
  std::vector<IpGenPrefix> zones = zonesFor(zone);
  for (IpGenPrefix const& one : zones) {
    if (!host::machineOf(*router_, one, context_.now()).elected) continue;
    throw RequestError(
        fmt::format("this router is the elected BSR of zone {}, and has learned no other; end "
                    "its candidacy in the configuration file, or clear another zone",
                    view::cellOf(one, "")));
  }
  callFor({.kind = CauseKind::command}, [&] {
    for (IpGenPrefix const& one : zones) router_->clearBsr(one);
    if (zone.isEmpty()) router_->clearLeftoverRps();
  });
}

void Agent::clearRpSet(IpGenPrefix const& zone) {
  std::vector<IpGenPrefix> zones = zonesFor(zone);
  callFor({.kind = CauseKind::command}, [&] {
    for (IpGenPrefix const& one : zones) router_->clearRpSet(one);
    if (zone.isEmpty()) router_->clearLeftoverRps();
  });
}

void Agent::clearNeighbors(std::string const& intf) {
  std::vector<Lanet::IntfId> interfaces;
  std::vector<std::string> names;
  for (auto const& [name, applied] : applied_) {
    if (!applied.speaksPim) continue;
    names.push_back(name);
    if (intf.empty() || intf == name) interfaces.emplace_back(name.c_str());
  }
  if (!intf.empty() && interfaces.empty()) {
    throw RequestError(
        fmt::format("interface {} speaks no PIM; {}", intf,
                    names.empty() ? "none does" : fmt::format("valid are {}", fmt::join(names, ", "))));
  }
  callFor({.kind = CauseKind::command}, [&] {
    for (Lanet::IntfId const& one : interfaces) router_->clearNeighbors(one);
  });
}

}  // namespace pimbsr::agent
