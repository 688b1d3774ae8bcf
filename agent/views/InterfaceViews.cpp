#include <algorithm>
#include <set>

#include "agent/base/Names.h"
#include "agent/views/ViewParts.h"
#include "host/Machines.h"

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Pim::Intf;
using Routing::Pim::Neighbor;
using Zet::Ptr;

// Neighbours --------------------------------------------------------------------------------------------

static Json neighborJson(Observed const& observed, Intf const& intf, Neighbor const& neighbor) {
  std::set<IpGenAddr> secondary;
  for (auto at = neighbor.secondaryIterator(); at; ++at) secondary.insert(at.key());
  Json addresses = Json::array();
  for (IpGenAddr const& address : secondary) addresses.push_back(jsonOf(address));
  return {{"interface", jsonOf(intf.intfId())},
          {"address", jsonOf(neighbor.address())},
          {"drPriority", neighbor.hasDrPriority() ? Json(neighbor.drPriority()) : Json()},
          {"dr", intf.drAddress() == neighbor.address()},
          {"generationId", neighbor.generationId()},
          {"expiresIn", jsonOfTime(std::max(0.0, neighbor.expiryTime() - observed.now()))},
          {"secondaryAddresses", addresses}};
}

Json showNeighbors(Observed const& observed) {
  std::map<std::pair<IntfId, IpGenAddr>, Json> sorted;
  for (auto intf = observed.router.pimStatus()->pimIntfIterator(); intf; ++intf) {
    for (auto at = intf->neighborIterator(); at; ++at) {
      sorted[{intf->intfId(), at->address()}] = neighborJson(observed, *intf, *at);
    }
  }
  Json neighbors = Json::array();
  for (auto& [key, json] : sorted) neighbors.push_back(std::move(json));
  return {{"neighbors", neighbors}};
}

// Interfaces --------------------------------------------------------------------------------------------

static KernelLink const* linkOf(Observed const& observed, std::string const& name) {
  auto link = observed.kernel.links.find(name);
  return link == observed.kernel.links.end() ? nullptr : &link->second;
}

static std::string_view stateOf(KernelLink const* link, Ptr<Intf const> const& intf) {
  if (link == nullptr) return "missing";
  if (!link->up || !intf) return "down";
  return link->addresses.empty() ? "no address" : "up";
}

static Json addressesOf(KernelLink const& link) {
  Json addresses = Json::array();
  for (KernelAddress const& own : link.addresses) {
    addresses.push_back(textOf(own.address) + "/" + std::to_string(own.prefixLength));
  }
  return addresses;
}

static Json linkJson(KernelLink const* link) {
  if (link == nullptr) return {{"address", nullptr}, {"addresses", Json::array()}, {"mtu", nullptr}};
  Json address = link->addresses.empty() ? Json() : jsonOf(link->addresses.front().address);
  return {{"address", address}, {"addresses", addressesOf(*link)}, {"mtu", link->mtu}};
}

static Json nextHello(Observed const& observed, pim::HelloSm const* hello) {
  return hello ? jsonOfTime(std::max(0.0, hello->nextHello() - observed.now())) : Json();
}

/// Without an address nothing can be sent, whatever the timer says.
static Json pimJson(Observed const& observed, KernelLink const* link, Ptr<Intf const> const& intf) {
  if (!intf)
    return {{"dr", nullptr},
            {"ownDr", false},
            {"neighbors", 0},
            {"nextHello", nullptr},
            {"generationId", nullptr}};
  bool canSend = link != nullptr && !link->addresses.empty();
  pim::HelloSm const* hello = observed.router.hello(intf->intfId());
  return {{"dr", jsonOf(intf->drAddress())},
          {"ownDr", intf->iAmDr()},
          {"neighbors", intf->neighborCount()},
          {"nextHello", canSend ? nextHello(observed, hello) : Json()},
          {"generationId", hello ? Json(hello->generationId()) : Json()}};
}

/// How packets of an interface, or of all by single addresses, came and went.
static Json reportJson(Observed const& observed, std::string const& name) {
  Json queues = Json::array();
  auto found = observed.links.find(name);
  if (found == observed.links.end()) return {{"queues", queues}, {"lastSendError", nullptr}};
  LinkReport const& report = found->second;
  for (auto const& [kind, counts] : report.queues) {
    queues.push_back({{"kind", keyOf(kind)},
                      {"queues", counts.queues},
                      {"received", counts.received},
                      {"lost", counts.lost}});
  }
  return {{"queues", queues}, {"lastSendError", report.sendError.empty() ? Json() : Json(report.sendError)}};
}

static Json interfaceJson(Observed const& observed, std::string const& name,
                          InterfaceSettings const& settings) {
  KernelLink const* link = linkOf(observed, name);
  Ptr<Intf const> intf = observed.router.pimStatus()->pimIntf(IntfId(name.c_str()));
  Json json = {{"interface", name}, {"state", stateOf(link, intf)}};
  json.update(linkJson(link));
  json["drPriority"] = settings.drPriority;
  json["helloInterval"] = settings.helloInterval;
  json.update(pimJson(observed, link, intf));
  auto traffic = observed.traffic.byInterface().find(name);
  bool isQuiet = traffic == observed.traffic.byInterface().end();
  json["traffic"] = jsonOf(isQuiet ? InterfaceCounts() : traffic->second);
  json.update(reportJson(observed, name));
  return json;
}

Json showInterfaces(Observed const& observed) {
  Json interfaces = Json::array();
  for (auto const& [name, settings] : observed.settings.interfaces) {
    interfaces.push_back(interfaceJson(observed, name, settings));
  }
  return {{"interfaces", interfaces}, {"unicast", reportJson(observed, "")}};
}

// Borders -----------------------------------------------------------------------------------------------

/// The ranges that don't cross an interface, those of its lists too.
static Json standingBorders(Observed const& observed, std::string const& name) {
  std::set<IpGenPrefix> ranges;
  IntfId intfId(name.c_str());
  for (auto border = observed.router.status()->bsBorderIterator(); border; ++border) {
    if (border->intfId(intfId)) ranges.insert(border->prefix());
  }
  Json json = Json::array();
  for (IpGenPrefix const& range : ranges) json.push_back(jsonOf(range));
  return json;
}

std::set<std::string> absentOf(Observed const& observed, std::set<std::string> const& lists) {
  std::set<std::string> absent = lists;
  for (auto const& [name, rules] : observed.settings.router.accessLists) absent.erase(name);
  return absent;
}

Json showBorders(Observed const& observed) {
  Json borders = Json::array();
  for (auto const& [name, configured] : observed.settings.router.borders) {
    Json ranges = Json::array();
    for (auto const& [range, present] : configured.groups) ranges.push_back(jsonOf(range));
    std::set<std::string> lists = namesOf(configured.lists);
    borders.push_back({{"interface", name},
                       {"ranges", ranges},
                       {"lists", lists},
                       {"absentLists", absentOf(observed, lists)},
                       {"blocked", standingBorders(observed, name)}});
  }
  return {{"borders", borders}};
}

}  // namespace pimbsr::agent
