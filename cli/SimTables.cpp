#include "cli/SimTables.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "cli/Columns.h"
#include "cli/SimRows.h"
#include "host/RpMap.h"

namespace pimbsr::cli {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using sim::Network;
using sim::Node;
using sim::View;
using Zet::U32;
using Zet::U64;

// Tables of text --------------------------------------------------------------------------------------

namespace {

/// Rows of cells, written in columns as wide as their widest cell. Numbers stand to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> head) : numeric_(head.size(), true) {
    rows_.push_back(std::move(head));
  }

  void add(std::vector<std::string> row) {
    for (std::size_t i = 0; i < row.size(); ++i) numeric_[i] = numeric_[i] && isNumber(row[i]);
    rows_.push_back(std::move(row));
  }
  bool empty() const { return rows_.size() == 1; }
  void write(std::ostream& out) const;

 private:
  static bool isNumber(std::string const& cell) {
    bool isAddress = std::count(cell.begin(), cell.end(), '.') > 1;
    return !isAddress && cell.find_first_not_of("0123456789.-") == cell.npos;
  }

  std::vector<std::vector<std::string>> rows_;
  std::vector<bool> numeric_;
};

void Table::write(std::ostream& out) const {
  std::vector<std::size_t> widths(numeric_.size());
  for (auto const& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (auto const& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      std::string_view gap = i == 0 ? "" : "  ";
      line += numeric_[i] ? fmt::format("{}{:>{}}", gap, row[i], widths[i])
                          : fmt::format("{}{:<{}}", gap, row[i], widths[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

std::string textOfTimer(std::optional<double> const& left) { return left ? textOfTime(*left) : "-"; }

}  // namespace

std::vector<Node const*> nodesOf(Network const& network, std::span<U32 const> numbers) {
  std::vector<Node const*> nodes;
  for (U32 number : numbers) nodes.push_back(&network.node(number));
  for (U32 number = 0; numbers.empty() && number < network.nodeCount(); ++number) {
    nodes.push_back(&network.node(number));
  }
  return nodes;
}

static double nowAt(Node const& node) { return node.localTime(node.network().now()); }

// Machines --------------------------------------------------------------------------------------------

static std::optional<double> leftOf(Kiv::TimerWheel::NotifieeConst const* timer, double now) {
  if (timer == nullptr || !timer->isArmed()) return std::nullopt;
  return std::max(0.0, timer->timeMin() - now);
}

MachineView machineOf(Node const& node, IpGenPrefix const& zone) {
  auto root = node.router()->root();
  if (auto machine = root->candidateSm(zone)) {
    return {nameOf(machine->state()), true, leftOf(machine->zetBsTimer(), nowAt(node)), std::nullopt};
  }
  if (auto machine = root->nonCandidateSm(zone)) {
    return {nameOf(machine->state()), false, leftOf(machine->zetBsTimer(), nowAt(node)),
            leftOf(machine->zetSzTimer(), nowAt(node))};
  }
  return {};
}

// Views -----------------------------------------------------------------------------------------------

static void addBsrRow(Table& table, Node const& node, ZoneView const& zone, std::string const& name) {
  MachineView machine = machineOf(node, zone.zone);
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
                     textOfTime(rp.expires - nowAt(*node))});
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
      MachineView machine = machineOf(*node, zone.zone);
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
    for (CounterView const& counter : countersOf(*node->router()->status()->counters())) {
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

// Which RP serves a group -----------------------------------------------------------------------------

static std::string reasonOf(host::RpAnswer const& answer) {
  switch (answer.tieBreak) {
    case host::RpTieBreak::onlyOne:
      return "the only RP of its range";
    case host::RpTieBreak::priority:
      return "the lowest priority";
    case host::RpTieBreak::hash:
      return "the highest hash among the lowest priority";
    case host::RpTieBreak::address:
      return "the highest address among equals";
    default:
      return "";
  }
}

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
                     reasonOf(answer));
  Table table({"RP", "priority", "hash mask length", "hash"});
  for (host::RpChoice const& choice : answer.choices) {
    table.add({textOf(choice.address), fmt::to_string(choice.priority), fmt::to_string(choice.hashMaskLen),
               fmt::to_string(choice.hash)});
  }
  table.write(out);
}

// Refusals --------------------------------------------------------------------------------------------

void writeRefusals(std::ostream& out, Network const& network) {
  std::map<std::string_view, sim::RefusalCount> all;
  for (Node const* node : nodesOf(network, {})) {
    for (auto const& [reason, refusal] : node->refused()) {
      all[reason].count += refusal.count;
      all[reason].sentence = refusal.sentence;
    }
  }
  if (all.empty()) return;
  out << "\nRefused messages\n";
  Table table({"reason", "count", "why"});
  for (auto const& [reason, refusal] : all) {
    table.add({std::string(reason), fmt::to_string(refusal.count), std::string(refusal.sentence)});
  }
  table.write(out);
}

}  // namespace pimbsr::cli
