#include "cli/sim/SimJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/sim/SimRows.h"
#include "cli/sim/SimTables.h"
#include "cli/sim/SimViews.h"
#include "host/Machines.h"
#include "host/Views.h"
#include "view/Fill.h"
#include "view/Json.h"
#include "view/Simulation.h"

namespace pimbsr::cli {

using host::MessageKind;
using view::EventKind;
using view::SimulationEvent;
using view::SimulationEventKind;

struct SimJson::Document {
  view::Simulation simulation;
};

SimJson::SimJson(Take take, std::ostream& traceOut, bool linkBins)
    : take_(std::move(take)), traceOut_(traceOut), document_(std::make_unique<Document>()), load_(linkBins) {}

SimJson::SimJson(std::ostream& out, std::ostream& traceOut, bool linkBins)
    : SimJson([&out](view::Json const& document) { out << document.dump(2) << '\n'; }, traceOut, linkBins) {}

SimJson::~SimJson() = default;

void SimJson::onStart(sim::Simulation& simulation) {
  simulation.recorderIs(&spans_, sim::SpanRecorder::kinds);
  simulation.network().tapAdd(&load_);
}

// Events ----------------------------------------------------------------------------------------------

static std::string linkName(sim::Node const& node, sim::NodeInterface const& intf) {
  return node.network().link(intf.link).options.name;
}

static std::string messageOf(sim::Bytes packet) {
  constexpr MessageKind kinds[] = {MessageKind::hello, MessageKind::bootstrap, MessageKind::crpAdv,
                                   MessageKind::other};
  return std::string(view::keyOf(kinds[static_cast<std::size_t>(sim::kindOf(packet))]));
}

/// A new event of the timeline; of the network, where there is no router.
template <class Kind>
SimulationEvent& SimJson::add(sim::Network const& network, sim::Node const* node, Kind kind) {
  SimulationEvent& event = document_->simulation.timeline.emplace_back();
  event.time = network.now();
  if (node != nullptr) event.router = node->name();
  event.event = keyOf(kind);
  return event;
}

template <class Kind>
SimulationEvent& SimJson::add(sim::Node const& node, Kind kind) {
  return add(node.network(), &node, kind);
}

void SimJson::onChanges(sim::Node const& node, std::span<host::Change const> changes) {
  for (host::Change const& change : changes) {
    SimulationEvent& event = add(node, view::kindOf(change.kind));
    view::fillChange(event, change);
    if (event.bsr) event.own = node.isOwnAddress(change.bsr.address);
  }
}

void SimJson::onReception(sim::Node const& node, sim::NodeInterface const& intf,
                          host::Reception const& reception) {
  bool silent = reception.accepted() && reception.kind == MessageKind::hello;
  if (silent) return;
  bool accepted = reception.accepted();
  SimulationEvent& event = add(node, accepted ? SimulationEventKind::accepted : SimulationEventKind::dropped);
  event.link = linkName(node, intf);
  event.sender = reception.source;
  event.message = view::keyOf(reception.kind);
  if (!accepted) event.reason = reception.reason;
}

void SimJson::onSent(sim::Node const& node, sim::NodeInterface const& intf, sim::Bytes packet) {
  SimulationEvent& event = add(node, SimulationEventKind::sent);
  event.link = linkName(node, intf);
  event.message = messageOf(packet);
  event.bytes = packet.size();
}

void SimJson::onNeighbor(sim::Node const& node, sim::NodeInterface const& intf,
                         Lanet::IpGenAddr const& neighbor, bool up) {
  SimulationEvent& event =
      add(node, up ? SimulationEventKind::neighborUp : SimulationEventKind::neighborDown);
  event.link = linkName(node, intf);
  event.neighbor = neighbor;
}

void SimJson::onDr(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& dr) {
  SimulationEvent& event = add(node, SimulationEventKind::designatedRouter);
  event.link = linkName(node, intf);
  event.dr = dr;
}

void SimJson::onState(sim::Node const& node, Lanet::IpGenPrefix const& zone,
                      Routing::Pim::Bsr::BsrCandidateState state) {
  SimulationEvent& event = add(node, EventKind::candidateState);
  event.zone = zone;
  event.state = host::nameOf(state);
}

void SimJson::onLoss(sim::Network const& network, sim::Link const* link, sim::Node const* node,
                     sim::Loss loss, sim::Bytes packet) {
  SimulationEvent& event = add(network, node, SimulationEventKind::lost);
  if (link != nullptr) event.link = link->options.name;
  event.message = messageOf(packet);
  event.reason = sim::textOf(loss);
}

void SimJson::onCommand(sim::Network const& network, sim::Statement const& statement) {
  add(network, nullptr, SimulationEventKind::command).statement = statement.text;
}

void SimJson::onTrace(sim::Node const& node, Zet::TraceLine const& line) {
  writeTrace(traceOut_, node, line);
}

void SimJson::onLog(sim::Node const& node, Zet::LogHandle const& handle, std::string const& text) {
  writeLog(traceOut_, node, handle, text);
}

// The end ---------------------------------------------------------------------------------------------

static view::SimulatedZone viewOf(sim::Node const& node, host::ZoneView const& zone) {
  double now = node.localTime(node.network().now());
  host::MachineView machine = machineOf(*node.router(), zone.zone, now);
  view::SimulatedZone shown;
  view::fillZone(shown, zone, now);
  shown.candidate = machine.candidate;
  shown.state = view::stateOf(machine);
  shown.bootstrapTimer = machine.bootstrapTimer;
  return shown;
}

static view::SimulatedRouter viewOf(sim::Node const& node) {
  view::SimulatedRouter shown{.name = node.name(), .running = node.isRunning()};
  if (shown.running) {
    for (host::ZoneView const& zone : zonesOf(*node.router())) shown.zones.push_back(viewOf(node, zone));
  }
  for (auto const& [reason, drop] : node.drops()) {
    shown.drops.push_back(
        {.reason = std::string(reason), .sentence = std::string(drop.sentence), .count = drop.count});
  }
  return shown;
}

void SimJson::onEnd(sim::Network const& network) {
  spans_.end(network.now());
  load_.end(network.now(), network.linkCount());
  view::Simulation& simulation = document_->simulation;
  simulation.seed = network.seed();
  simulation.end = network.now();
  simulation.topology = topologyOf(network);
  simulation.spans = spansOf(network, spans_);
  simulation.load = loadOf(network, load_);
  for (sim::Node const* node : nodesOf(network, {})) simulation.routers.push_back(viewOf(*node));
  take_(jsonOf(simulation));
}

}  // namespace pimbsr::cli
