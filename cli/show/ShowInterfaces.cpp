#include <array>
#include <ostream>
#include <utility>

#include "cli/base/Table.h"
#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// Neighbours ------------------------------------------------------------------------------------------

void writeNeighbors(std::ostream& out, Json const& view) {
  Json const& neighbors = view.at("neighbors");
  if (neighbors.empty()) {
    out << "No PIM neighbour is known on any interface.\n";
    return;
  }
  out << "PIM neighbours (the highest DR priority wins, then the highest address)\n";
  Table table(
      {"interface", "address", "DR priority", "DR", "generation ID", "expires in", "other addresses"});
  for (Json const& n : neighbors) {
    table.add({textOf(n.at("interface")), textOf(n.at("address")),
               n.at("drPriority").is_null() ? "none told" : textOf(n.at("drPriority")), textOf(n.at("dr")),
               fmt::format("{:#010x}", n.at("generationId").get<unsigned>()),
               textOfSpanOrNever(n.at("expiresIn")), listOf(n.at("secondaryAddresses"), "none")});
  }
  table.write(out, 2);
}

// Interfaces ------------------------------------------------------------------------------------------

static std::string drOf(Json const& intf) {
  if (intf.at("dr").is_null()) return "-";
  return textOf(intf.at("dr")) + (intf.at("ownDr") ? " (this router)" : "");
}

/// All kinds of packets together: received, refused, sent and not sent.
static std::array<Zet::U64, 4> sumOf(Json const& kinds) {
  std::array<Zet::U64, 4> sum{};
  for (Json const& counts : kinds) {
    sum[0] += counts.at("received").get<Zet::U64>();
    sum[1] += counts.at("refused").get<Zet::U64>();
    sum[2] += counts.at("sent").get<Zet::U64>();
    sum[3] += counts.at("sendFailed").get<Zet::U64>();
  }
  return sum;
}

/// Receive queues, and why packets couldn't be sent, of one interface. An agent of an earlier version sends
/// neither.
static void addReport(Table& queues, Table& errors, std::string const& name, Json const& report) {
  std::string first = name;
  for (Json const& queue : report.value("queues", Json::array())) {
    queues.add({std::exchange(first, ""), textOf(queue.at("kind")), textOf(queue.at("queues")),
                textOf(queue.at("received")), textOf(queue.at("lost"))});
  }
  Json error = report.value("lastSendError", Json());
  if (!error.is_null()) errors.add({name, textOf(error)});
}

static void writeReports(std::ostream& out, Json const& view) {
  Table queues({"interface", "queue", "open", "received", "lost in the kernel"});
  Table errors({"interface", "last error"});
  for (Json const& i : view.at("interfaces")) addReport(queues, errors, textOf(i.at("interface")), i);
  addReport(queues, errors, "any", view.value("unicast", Json::object()));
  out << (queues.empty() ? "" : "\nReceive queues\n");
  if (!queues.empty()) queues.write(out, 2);
  out << (errors.empty() ? "" : "\nPackets not sent\n");
  if (!errors.empty()) errors.write(out, 2);
}

void writeInterfaces(std::ostream& out, Json const& view) {
  Json const& interfaces = view.at("interfaces");
  if (interfaces.empty()) {
    out << "No interface is configured to speak PIM.\n";
    return;
  }
  out << "Interfaces that speak PIM (the highest DR priority wins, then the highest address)\n";
  Table table({"interface", "state", "address", "MTU", "DR", "own DR priority", "neighbours", "next Hello"});
  Table packets({"interface", "received", "refused", "sent", "not sent"});
  for (Json const& i : interfaces) {
    std::string name = textOf(i.at("interface"));
    table.add({name, textOf(i.at("state")), textOf(i.at("address")), textOf(i.at("mtu")), drOf(i),
               textOf(i.at("drPriority")), textOf(i.at("neighbors")), textOfSpan(i.at("nextHello"))});
    auto sum = sumOf(i.at("traffic"));
    packets.add({name, fmt::to_string(sum[0]), fmt::to_string(sum[1]), fmt::to_string(sum[2]),
                 fmt::to_string(sum[3])});
  }
  table.write(out, 2);
  out << "\nPackets\n";
  packets.write(out, 2);
  writeReports(out, view);
}

// Borders ---------------------------------------------------------------------------------------------

void writeBorders(std::ostream& out, Json const& view) {
  Json const& borders = view.at("borders");
  if (borders.empty()) {
    out << "No interface is a border.\n";
    return;
  }
  out << "Group ranges whose Bootstrap Messages don't cross an interface\n";
  Table table({"interface", "group range", "access lists"});
  for (Json const& border : borders) {
    std::string name = textOf(border.at("interface"));
    std::string lists = listsOf(border.at("lists"), border.at("absentLists"));
    for (Json const& range : border.at("blocked")) {
      table.add({std::exchange(name, ""), textOf(range), std::exchange(lists, "")});
    }
    if (border.at("blocked").empty()) table.add({name, "none: its lists permit none", lists});
  }
  table.write(out, 2);
}

}  // namespace pimbsr::cli
