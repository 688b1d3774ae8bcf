#include <ostream>
#include <utility>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// Neighbors -------------------------------------------------------------------------------------------

void writeShown(std::ostream& out, view::Neighbors const& view) {
  if (view.neighbors.empty()) {
    out << "No PIM neighbor is known on any interface.\n";
    return;
  }
  out << "PIM neighbors (the highest DR priority wins, then the highest address)\n";
  tableOf(view.neighbors).write(out, 2);
}

// Interfaces ------------------------------------------------------------------------------------------

/// All kinds of packets together.
static view::PacketCounts sumOf(view::Map<view::PacketCounts> const& kinds) {
  view::PacketCounts sum;
  for (auto const& [kind, counts] : kinds) {
    sum.received += counts.received;
    sum.dropped += counts.dropped;
    sum.sent += counts.sent;
    sum.sendFailed += counts.sendFailed;
  }
  return sum;
}

/// Receive queues, and why packets couldn't be sent, of one interface.
template <class View>
static void addReport(Table& queues, Table& errors, std::string const& name, View const& report) {
  addGroup(queues, {name}, report.queues);
  if (report.lastSendError) errors.add({name, *report.lastSendError});
}

static void writeReports(std::ostream& out, view::Interfaces const& view) {
  Table queues(joined({"interface"}, view::headOf<view::Queue>()));
  Table errors({"interface", "last error"});
  for (view::Interface const& i : view.interfaces) addReport(queues, errors, i.interface, i);
  addReport(queues, errors, "any", view.unicast);
  out << (queues.empty() ? "" : "\nReceive queues\n");
  if (!queues.empty()) queues.write(out, 2);
  out << (errors.empty() ? "" : "\nPackets not sent\n");
  if (!errors.empty()) errors.write(out, 2);
}

void writeShown(std::ostream& out, view::Interfaces const& view) {
  if (view.interfaces.empty()) {
    out << "No interface is configured to speak PIM.\n";
    return;
  }
  out << "Interfaces that speak PIM (the highest DR priority wins, then the highest address)\n";
  tableOf(view.interfaces).write(out, 2);
  Table packets(joined({"interface"}, view::headOf<view::PacketCounts>()));
  for (view::Interface const& i : view.interfaces) {
    packets.add(joined({i.interface}, cellsOf(sumOf(i.traffic))));
  }
  out << "\nPackets\n";
  packets.write(out, 2);
  writeReports(out, view);
}

// Borders ---------------------------------------------------------------------------------------------

void writeShown(std::ostream& out, view::Borders const& view) {
  if (view.borders.empty()) {
    out << "No interface is a border.\n";
    return;
  }
  out << "Group ranges whose Bootstrap Messages don't cross an interface\n";
  Table table({"interface", "group range", "access lists"});
  for (view::Border const& border : view.borders) {
    std::string name = border.interface;
    std::string lists = borderListsOf(border);
    for (Lanet::IpGenPrefix const& range : border.blocked) {
      table.add({std::exchange(name, ""), view::cellOf(range, "-"), std::exchange(lists, "")});
    }
    if (border.blocked.empty()) table.add({name, "none: its lists permit none", lists});
  }
  table.write(out, 2);
}

}  // namespace pimbsr::cli
