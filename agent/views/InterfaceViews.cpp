#include <algorithm>
#include <set>

#include "agent/views/ViewParts.h"
#include "host/Machines.h"

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::Intf;
using Routing::Pim::Neighbor;
using Zet::Ptr;

// Neighbors ---------------------------------------------------------------------------------------------

static view::Neighbor viewOf(Observed const& observed, Intf const& intf, Neighbor const& neighbor) {
  std::set<IpGenAddr> secondary;
  for (auto at = neighbor.secondaryIterator(); at; ++at) secondary.insert(at.key());
  view::Neighbor shown;
  shown.interface = textOf(intf.intfId());
  shown.address = neighbor.address();
  if (neighbor.hasDrPriority()) shown.drPriority = neighbor.drPriority();
  shown.dr = intf.drAddress() == neighbor.address();
  shown.generationId = neighbor.generationId();
  shown.expiresIn = leftUntil(neighbor.expiryTime(), observed.now());
  shown.secondaryAddresses.assign(secondary.begin(), secondary.end());
  return shown;
}

view::Neighbors showNeighbors(Observed const& observed) {
  std::map<std::pair<IntfId, IpGenAddr>, view::Neighbor> sorted;
  for (auto intf = observed.router.pimStatus()->pimIntfIterator(); intf; ++intf) {
    for (auto at = intf->neighborIterator(); at; ++at) {
      sorted[{intf->intfId(), at->address()}] = viewOf(observed, *intf, *at);
    }
  }
  view::Neighbors shown;
  for (auto& [key, neighbor] : sorted) shown.neighbors.push_back(std::move(neighbor));
  return shown;
}

// Interfaces --------------------------------------------------------------------------------------------

static KernelLink const* linkOf(Observed const& observed, std::string const& name) {
  auto link = observed.kernel.links.find(name);
  return link == observed.kernel.links.end() ? nullptr : &link->second;
}

static view::InterfaceState stateOf(KernelLink const* link, Ptr<Intf const> const& intf) {
  if (link == nullptr) return view::InterfaceState::missing;
  if (!link->up || !intf) return view::InterfaceState::down;
  return link->addresses.empty() ? view::InterfaceState::noAddress : view::InterfaceState::up;
}

static void fill(view::Interface& shown, KernelLink const& link) {
  shown.mtu = link.mtu;
  if (!link.addresses.empty()) shown.address = link.addresses.front().address;
  for (KernelAddress const& own : link.addresses) {
    shown.addresses.push_back(textOf(own.address) + "/" + std::to_string(own.prefixLength));
  }
}

/// The router's state of an interface. Without an address nothing is sent, even if the timer runs.
static void fill(view::Interface& shown, Observed const& observed, Intf const& intf) {
  shown.dr = intf.drAddress();
  shown.ownDr = intf.iAmDr();
  shown.neighbors = intf.neighborCount();
  auto hello = observed.router.helloState(intf.intfId());
  if (!hello) return;
  shown.generationId = hello->generationId;
  if (!shown.addresses.empty()) shown.nextHello = leftUntil(hello->next, observed.now());
}

/// Receive queues and errors of an interface, or of unicast packets on all interfaces.
template <class View>
static void fillReport(View& shown, Observed const& observed, std::string const& name) {
  auto found = observed.links.find(name);
  if (found == observed.links.end()) return;
  LinkReport const& report = found->second;
  for (auto const& [kind, counts] : report.queues) {
    shown.queues.push_back({.kind = std::string(keyOf(kind)),
                            .queues = counts.queues,
                            .received = counts.received,
                            .lost = counts.lost});
  }
  if (!report.sendError.empty()) shown.lastSendError = report.sendError;
}

static view::Interface viewOf(Observed const& observed, std::string const& name,
                              InterfaceSettings const& settings) {
  KernelLink const* link = linkOf(observed, name);
  Ptr<Intf const> intf = observed.router.pimStatus()->pimIntf(IntfId(name.c_str()));
  view::Interface shown;
  shown.interface = name;
  shown.state = keyOf(stateOf(link, intf));
  fillInterface(shown, settings);
  if (link != nullptr) fill(shown, *link);
  if (intf) fill(shown, observed, *intf);
  auto traffic = observed.traffic.byInterface().find(name);
  if (traffic != observed.traffic.byInterface().end()) shown.traffic = viewOf(traffic->second);
  shown.duplicates = observed.traffic.duplicates(name);
  fillReport(shown, observed, name);
  return shown;
}

view::Interfaces showInterfaces(Observed const& observed) {
  view::Interfaces shown;
  for (auto const& [name, settings] : observed.settings.interfaces) {
    shown.interfaces.push_back(viewOf(observed, name, settings));
  }
  fillReport(shown.unicast, observed, "");
  return shown;
}

// Borders -----------------------------------------------------------------------------------------------

/// The ranges that don't cross an interface, those of its lists too.
static std::vector<IpGenPrefix> blockedRanges(Observed const& observed, std::string const& name) {
  std::set<IpGenPrefix> ranges;
  IntfId intfId(name.c_str());
  for (auto border = observed.router.status()->bsBorderIterator(); border; ++border) {
    if (border->intfId(intfId)) ranges.insert(border->prefix());
  }
  return {ranges.begin(), ranges.end()};
}

std::set<std::string> absentOf(Observed const& observed, std::set<std::string> const& lists) {
  std::set<std::string> absent = lists;
  for (auto const& [name, rules] : observed.settings.router.accessLists) absent.erase(name);
  return absent;
}

view::Borders showBorders(Observed const& observed) {
  view::Borders shown;
  for (auto const& [name, configured] : observed.settings.router.borders) {
    view::Border& border = shown.borders.emplace_back();
    border.interface = name;
    for (auto const& [range, present] : configured.groups) border.ranges.push_back(range);
    std::set<std::string> lists = namesOf(configured.lists);
    std::set<std::string> absent = absentOf(observed, lists);
    border.lists.assign(lists.begin(), lists.end());
    border.absentLists.assign(absent.begin(), absent.end());
    border.blocked = blockedRanges(observed, name);
  }
  return shown;
}

}  // namespace pimbsr::agent
