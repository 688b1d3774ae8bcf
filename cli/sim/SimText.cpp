#include "cli/sim/SimText.h"

#include <algorithm>
#include <ostream>

#include "cli/sim/SimRows.h"
#include "cli/sim/SimTables.h"

namespace pimbsr::cli {

/// Routers are added and never removed, so each name is measured once.
std::size_t SimText::nameWidth(sim::Network const& network) {
  for (; measured_ < network.nodeCount(); ++measured_) {
    nameWidth_ = std::max(nameWidth_, network.node(measured_).name().size());
  }
  return nameWidth_;
}

void SimText::write(sim::Network const& network, sim::Node const* node, TimelineRow const& row) {
  if (last_ == Last::table) out_ << '\n';
  last_ = Last::line;
  std::string line = fmt::format("{:>9}  {:<{}}  {:<14}  {:<16}  {:<12}  {}", textOfTime(network.now()),
                                 node == nullptr ? "" : node->name(), nameWidth(network), row.event,
                                 row.where, row.who, row.details);
  line.erase(line.find_last_not_of(' ') + 1);
  out_ << line << '\n';
}

void SimText::startTable() {
  if (last_ != Last::nothing) out_ << '\n';
  last_ = Last::table;
}

// Events ----------------------------------------------------------------------------------------------

void SimText::onChanges(sim::Node const& node, std::span<host::Change const> changes) {
  for (host::Change const& change : changes) write(node.network(), &node, rowOf(node, change));
}

void SimText::onReception(sim::Node const& node, sim::NodeInterface const& intf,
                          host::Reception const& reception) {
  bool silent = reception.accepted() && reception.kind == host::MessageKind::hello;
  if (!silent) write(node.network(), &node, rowOf(intf, reception));
}

void SimText::onSent(sim::Node const& node, sim::NodeInterface const& intf, sim::Bytes packet) {
  write(node.network(), &node, rowOfSent(node.network().link(intf.link), packet));
}

void SimText::onNeighbor(sim::Node const& node, sim::NodeInterface const& intf,
                         Lanet::IpGenAddr const& neighbor, bool up) {
  write(node.network(), &node, rowOfNeighbor(node.network().link(intf.link), neighbor, up));
}

void SimText::onDr(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& dr) {
  write(node.network(), &node, rowOfDr(node, node.network().link(intf.link), dr));
}

void SimText::onState(sim::Node const& node, Lanet::IpGenPrefix const& zone,
                      Routing::Pim::Bsr::BsrCandidateState state) {
  write(node.network(), &node, rowOfState(zone, state));
}

void SimText::onLoss(sim::Network const& network, sim::Link const* link, sim::Node const* node,
                     sim::Loss loss, sim::Bytes packet) {
  write(network, node, rowOfLoss(link, loss, packet));
}

void SimText::onCommand(sim::Network const& network, sim::Statement const& statement) {
  write(network, nullptr, {.event = "> " + statement.text});
}

// Trace -----------------------------------------------------------------------------------------------

void SimText::onTrace(sim::Node const& node, Zet::TraceLine const& line) {
  writeTrace(traceOut_, node, line);
}

void SimText::onLog(sim::Node const& node, Zet::LogHandle const& handle, std::string const& text) {
  writeLog(traceOut_, node, handle, text);
}

// Tables ----------------------------------------------------------------------------------------------

void SimText::onShow(sim::Network const& network, sim::Show const& show) {
  startTable();
  writeView(out_, network, show);
}

void SimText::onShowRp(sim::Network const& network, sim::ShowRp const& show) {
  startTable();
  writeRpAnswer(out_, network.node(show.router), show.group);
}

void SimText::onEnd(sim::Network const& network) {
  startTable();
  out_ << fmt::format("Learned state of each router after {} s\n", textOfTime(network.now()));
  writeView(out_, network, {});
  writeDrops(out_, network);
  Zet::U64 exceptions = network.exceptions();
  if (exceptions == 0) return;
  out_ << fmt::format("\nThe engine caught {} exceptions inside; that is a defect of this program.\n",
                      exceptions);
}

}  // namespace pimbsr::cli
