#include <map>
#include <ostream>
#include <utility>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// The filter ------------------------------------------------------------------------------------------

static void writeClosed(std::ostream& out, view::Filter const& view) {
  if (!view.closed.empty()) {
    out << fmt::format("Closed to Bootstrap Messages (bsm = false): {}. Dropped since the last clear: {}.\n",
                       view::cellOf(view.closed, "-"), countOf(view.droppedAtClosed, "message"));
  }
  if (view.borders.empty()) return;
  out << fmt::format("Borders, which 'pimbsr show borders' lists: {}. Dropped since the last clear: {}.\n",
                     view::cellOf(view.borders, "-"), countOf(view.droppedAtBorders, "message"));
}

void writeShown(std::ostream& out, view::Filter const& view) {
  out << "Candidate-RP-Advertisements are taken from "
      << (view.permitsAll ? "every sender.\n" : "senders in\n");
  if (!view.permitsAll) {
    for (auto const& prefix : view.permitted) out << fmt::format("  {}\n", view::cellOf(prefix, "-"));
  }
  out << fmt::format("Sender lists: {}. Dropped since the last clear: {}.\n",
                     view::listsOf(view.lists, view.absentLists), countOf(view.dropped, "advertisement"));
  out << fmt::format(
      "Bootstrap Messages are taken from {}.\nBSR lists: {}. Dropped since the last clear: {}.\n",
      view.permitsAllBsrs ? "every BSR" : "the BSRs that these lists permit",
      view::listsOf(view.bsrLists, view.absentBsrLists), countOf(view.droppedBsms, "message"));
  writeClosed(out, view);
}

// Counters --------------------------------------------------------------------------------------------

static void writeTimers(std::ostream& out, view::Counters const& view) {
  view::Timers const& timers = view.timers;
  out << fmt::format(
      "Up for {}. {} armed; timers were served {} times, {:.3f} s late in the mean and {:.3f} s at worst.\n",
      view::spanOf(view.uptime), countOf(timers.armed, "timer"), timers.served, timers.meanLateness,
      timers.worstLateness);
  if (view.notificationExceptions == 0) return;
  out << fmt::format("The engine caught {} inside; that is a defect of this program.\n",
                     countOf(view.notificationExceptions, "exception"));
}

static void writeEngineCounters(std::ostream& out, std::vector<view::Counter> const& counters) {
  Table table(view::headOf<view::Counter>());
  for (view::Counter const& counter : counters) {
    if (counter.value != 0) table.add(cellsOf(counter));
    for (view::CounterPart const& part : counter.parts) {
      if (part.value != 0) table.add({"  " + part.name, fmt::to_string(part.value), ""});
    }
  }
  out << "\nBootstrap messages and advertisements"
      << (table.empty() ? ": none yet\n" : ", without those that are 0\n");
  if (!table.empty()) table.write(out, 2);
}

static void writeTraffic(std::ostream& out, std::vector<view::InterfaceTraffic> const& traffic) {
  view::Cells head = joined(view::headOf<view::InterfaceTraffic>(), {"kind"});
  Table table(joined(head, view::headOf<view::PacketCounts>()));
  for (view::InterfaceTraffic const& intf : traffic) {
    view::Cells name = cellsOf(intf);
    for (auto const& [kind, counts] : intf.packets) {
      table.add(joined(joined(std::exchange(name, {""}), {view::shownMessageKind(kind)}), cellsOf(counts)));
    }
  }
  out << "\nPackets" << (table.empty() ? ": none yet\n" : "\n");
  if (!table.empty()) table.write(out, 2);
}

void writeShown(std::ostream& out, view::Counters const& view) {
  writeTimers(out, view);
  writeEngineCounters(out, view.counters);
  writeTraffic(out, view.traffic);
}

// Dropped messages ------------------------------------------------------------------------------------

static void writeKernelLosses(std::ostream& out, Zet::U64 lost) {
  if (lost == 0) return;
  out << fmt::format(
      "The kernel lost {} whose receive buffer was full; \"pimbsr show interfaces\" has the queues.\n",
      countOf(lost, "packet"));
}

void writeShown(std::ostream& out, view::Drops const& view) {
  writeKernelLosses(out, view.kernelLost);
  if (view.drops.empty()) {
    out << "No message was dropped since the last clear.\n";
    return;
  }
  std::map<std::string, std::string> sentences;
  Table table(joined(view::headOf<view::Drop>(), view::headOf<view::LastDrop>()));
  for (view::Drop const& drop : view.drops) {
    sentences[drop.reason] = drop.sentence;
    table.add(joined(cellsOf(drop), cellsOf(drop.last)));
  }
  out << "Dropped messages\n";
  table.write(out, 2);
  out << "\nWhy\n";
  Table why({"reason", "meaning"});
  for (auto const& [reason, sentence] : sentences) why.add({reason, sentence});
  why.write(out, 2);
}

// Corrections -----------------------------------------------------------------------------------------

void writeShown(std::ostream& out, view::Corrections const& view) {
  out << "Corrections\n";
  tableOf(view.corrections).write(out, 2);
}

// Control sockets -------------------------------------------------------------------------------------

void writeShown(std::ostream& out, view::Control const& view) {
  Table users(joined({"socket"}, view::headOf<view::User>()));
  for (view::Socket const& socket : view.sockets) {
    for (view::User const& user : socket.users) users.add(joined({socket.socket}, cellsOf(user)));
  }
  out << "Control sockets\n";
  tableOf(view.sockets).write(out, 2);
  out << "\nUsers that are connected" << (users.empty() ? ": none\n" : "\n");
  if (!users.empty()) users.write(out, 2);
}

}  // namespace pimbsr::cli
