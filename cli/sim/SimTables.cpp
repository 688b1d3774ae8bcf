#include "cli/sim/SimTables.h"

#include <map>
#include <ostream>

#include "cli/base/Columns.h"
#include "cli/base/Table.h"
#include "host/Machines.h"
#include "host/RpMap.h"
#include "host/Views.h"

namespace pimbsr::cli {

using host::CounterView;
using host::MachineView;
using host::RangeView;
using host::ZoneView;
using Lanet::IpGenAddr;
using sim::Network;
using sim::Node;
using sim::View;
using Zet::U32;
using Zet::U64;

static std::string textOfTimer(std::optional<double> const& left) { return left ? textOfTime(*left) : "-"; }

std::vector<Node const*> nodesOf(Network const& network, std::span<U32 const> numbers) {
  std::vector<Node const*> nodes;
  for (U32 number : numbers) nodes.push_back(&network.node(number));
  for (U32 number = 0; numbers.empty() && number < network.nodeCount(); ++number) {
    nodes.push_back(&network.node(number));
  }
  return nodes;
}

static double nowAt(Node const& node) { return node.localTime(node.network().now()); }

// Views -----------------------------------------------------------------------------------------------

static void addBsrRow(Table& table, Node const& node, ZoneView const& zone, std::string const& name) {
  MachineView machine = machineOf(*node.router(), zone.zone, nowAt(node));
  std::size_t count = 0;
  for (RangeView const& range : zone.rpSet) count += range.rps.size();
  table.add({name, textOf(zone.zone), std::string(machine.state), zone.bsr ? textOf(zone.bsr->address) : "-",
             zone.bsr ? fmt::to_string(zone.bsr->priority) : "-", textOfTimer(machine.bootstrapTimer),
             fmt::to_string(zone.rpSet.size()), fmt::to_string(count)});
}

static Table bsrTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "zone", "state", "BSR", "priority", "timer", "ranges", "RPs"});
  for (Node const* node : nodes) {
    if (!node->isRunning()) {
      table.add({node->name(), "stopped", "", "", "", "", "", ""});
      continue;
    }
    std::string name = node->name();
    for (ZoneView const& zone : zonesOf(*node->router()))
      addBsrRow(table, *node, zone, std::exchange(name, ""));
  }
  return table;
}

static Table rpSetTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "zone", "group range", "RP", "priority", "holdtime", "expires in"});
  for (Node const* node : nodes) {
    if (!node->isRunning()) continue;
    std::string name = node->name();
    for (ZoneView const& zone : zonesOf(*node->router())) {
      std::string zoneName = textOf(zone.zone);
      for (RangeView const& range : zone.rpSet) {
        std::string rangeName = textOf(range.range);
        for (host::RpView const& rp : range.rps) {
          table.add({std::exchange(name, ""), std::exchange(zoneName, ""), std::exchange(rangeName, ""),
                     textOf(rp.address), fmt::to_string(rp.priority), fmt::to_string(rp.holdTime),
                     textOfTime(rp.expires - nowAt(*node)) + (rp.kept ? ", kept" : "")});
        }
      }
    }
  }
  return table;
}

static void addNeighborRows(Table& table, Node const& node, sim::NodeInterface const& intf) {
  auto status = node.router()->pimStatus()->pimIntf(intf.intfId);
  if (!status) return;
  std::map<IpGenAddr, Zet::Ptr<Routing::Pim::Neighbor>> byAddress;
  for (auto at = status->neighborIterator(); at; ++at) byAddress[at->address()] = at.ptr();
  for (auto const& [address, neighbor] : byAddress) {
    bool forEver = !Kiv::isTimeSet(neighbor->expiryTime());
    table.add({node.name(), textOf(intf.intfId), node.network().link(intf.link).options.name, textOf(address),
               neighbor->hasDrPriority() ? fmt::to_string(neighbor->drPriority()) : "-",
               status->drAddress() == address ? "yes" : "no",
               forEver ? "never" : textOfTime(neighbor->expiryTime() - nowAt(node))});
  }
}

static Table neighborTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "interface", "link", "neighbor", "DR priority", "DR", "expires in"});
  for (Node const* node : nodes) {
    if (!node->isRunning()) continue;
    for (sim::NodeInterface const& intf : node->interfaces()) addNeighborRows(table, *node, intf);
  }
  return table;
}

static Table stateTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "zone", "machine", "state", "bootstrap timer", "scope zone timer"});
  for (Node const* node : nodes) {
    if (!node->isRunning()) continue;
    for (ZoneView const& zone : zonesOf(*node->router())) {
      MachineView machine = machineOf(*node->router(), zone.zone, nowAt(*node));
      bool none = machine.state == "-";
      table.add({node->name(), textOf(zone.zone),
                 none                ? "none"
                 : machine.candidate ? "candidate"
                                     : "non-candidate",
                 std::string(machine.state), textOfTimer(machine.bootstrapTimer),
                 textOfTimer(machine.scopeZoneTimer)});
    }
  }
  return table;
}

static Table counterTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "counter", "count", "what it counts"});
  for (Node const* node : nodes) {
    if (!node->isRunning()) continue;
    std::string name = node->name();
    auto add = [&](std::string const& counter, U64 value, std::string const& sentence) {
      if (value != 0) table.add({std::exchange(name, ""), counter, fmt::to_string(value), sentence});
    };
    for (CounterView const& counter : host::countersOf(*node->router()->status()->counters())) {
      add(counter.name, counter.value, counter.sentence);
      for (CounterView const& part : counter.parts) add("  " + part.name, part.value, "");
    }
  }
  return table;
}

static Table packetTable(std::vector<Node const*> const& nodes) {
  Table table({"router", "link", "Hello", "BSM", "C-RP-Adv", "other"});
  for (Node const* node : nodes) {
    for (sim::NodeInterface const& intf : node->interfaces()) {
      std::vector<std::string> row = {node->name(), node->network().link(intf.link).options.name};
      for (U64 count : intf.sent) row.push_back(fmt::to_string(count));
      table.add(std::move(row));
    }
  }
  return table;
}

static Table tableOf(View view, std::vector<Node const*> const& nodes) {
  switch (view) {
    case View::rpSet:
      return rpSetTable(nodes);
    case View::neighbors:
      return neighborTable(nodes);
    case View::counters:
      return counterTable(nodes);
    case View::states:
      return stateTable(nodes);
    case View::packets:
      return packetTable(nodes);
    default:
      return bsrTable(nodes);
  }
}

void writeView(std::ostream& out, Network const& network, sim::Show const& show) {
  tableOf(show.view, nodesOf(network, show.routers)).write(out);
}

// The RP of a group -----------------------------------------------------------------------------------

void writeRpAnswer(std::ostream& out, Node const& node, Lanet::IpAddr group) {
  std::string name = fmt::format("{}: group {}", node.name(), textOf(group));
  if (!node.isRunning()) {
    out << name << ": the router is stopped\n";
    return;
  }
  host::RpAnswer answer = host::RpMap(node.router()->rpCandidateStatus()).lookup(group, nowAt(node));
  if (answer.rp.isEmpty()) {
    out << name << " has no RP\n";
    return;
  }
  out << fmt::format("{} is served by {} of range {}: {}\n", name, textOf(answer.rp), textOf(answer.range),
                     host::sentenceOf(answer.tieBreak));
  Table table({"RP", "priority", "hash mask length", "hash"});
  for (host::RpChoice const& choice : answer.choices) {
    table.add({textOf(choice.address), fmt::to_string(choice.priority), fmt::to_string(choice.hashMaskLen),
               fmt::to_string(choice.hash)});
  }
  table.write(out);
}

// Drops -----------------------------------------------------------------------------------------------

void writeDrops(std::ostream& out, Network const& network) {
  std::map<std::string_view, host::DropCount> all;
  for (Node const* node : nodesOf(network, {})) {
    for (auto const& [reason, drop] : node->drops()) {
      all[reason].count += drop.count;
      all[reason].sentence = drop.sentence;
    }
  }
  if (all.empty()) return;
  out << "\nDropped messages\n";
  Table table({"reason", "count", "why"});
  for (auto const& [reason, drop] : all) {
    table.add({std::string(reason), fmt::to_string(drop.count), std::string(drop.sentence)});
  }
  table.write(out);
}

}  // namespace pimbsr::cli
