#include "cli/sim/SimJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/sim/SimRows.h"
#include "cli/sim/SimTables.h"
#include "host/Machines.h"
#include "host/Views.h"

namespace pimbsr::cli {

using host::Change;
using host::ChangeKind;
using host::MachineView;
using host::RangeView;
using host::ZoneView;

/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

struct SimJson::Document {
  Json timeline = Json::array();
};

SimJson::SimJson(std::ostream& out, std::ostream& traceOut)
    : out_(out), traceOut_(traceOut), document_(std::make_unique<Document>()) {}

SimJson::~SimJson() = default;

// Values ----------------------------------------------------------------------------------------------

template <class Value>
static Json jsonOf(Value const& value) {
  return std::string(value.stringValue().view());
}

/// Times are told to the millisecond, as in text.
static Json jsonOfTime(double seconds) { return std::stod(textOfTime(seconds)); }

static Json bsrJson(host::BsrView const& bsr) {
  return {{"address", jsonOf(bsr.address)}, {"priority", bsr.priority}, {"hashMaskLen", bsr.hashMaskLen}};
}

static Json rpJson(host::RpView const& rp) {
  return {{"address", jsonOf(rp.address)}, {"priority", rp.priority}, {"holdTime", rp.holdTime}};
}

static std::string linkName(sim::Node const& node, sim::NodeInterface const& intf) {
  return node.network().link(intf.link).options.name;
}

static Json eventOf(sim::Network const& network, sim::Node const* node, std::string_view name) {
  Json event = {{"time", jsonOfTime(network.now())}};
  if (node != nullptr) event["router"] = node->name();
  event["event"] = name;
  return event;
}

static Json eventOf(sim::Node const& node, std::string_view name) {
  return eventOf(node.network(), &node, name);
}

// Events ----------------------------------------------------------------------------------------------

static std::string_view nameOf(ChangeKind kind) {
  constexpr std::string_view names[] = {"bsrElected", "bsrChanged", "bsrLost",   "rpAdded",
                                        "rpUpdated",  "rpRemoved",  "rpExpired", "zoneForgotten"};
  return names[static_cast<std::size_t>(kind)];
}

static Json eventOf(sim::Node const& node, Change const& change) {
  Json event = eventOf(node, nameOf(change.kind));
  event["zone"] = jsonOf(change.zone);
  if (!change.bsr.address.isEmpty()) {
    event["bsr"] = bsrJson(change.bsr);
    event["own"] = node.isOwnAddress(change.bsr.address);
  }
  if (!change.formerBsr.address.isEmpty()) event["former"] = bsrJson(change.formerBsr);
  if (!change.rp.address.isEmpty()) {
    event["group"] = jsonOf(change.rp.range);
    event["rp"] = rpJson(change.rp);
  }
  if (!change.formerRp.address.isEmpty()) event["former"] = rpJson(change.formerRp);
  return event;
}

void SimJson::onChanges(sim::Node const& node, std::span<Change const> changes) {
  for (Change const& change : changes) document_->timeline.push_back(eventOf(node, change));
}

void SimJson::onReception(sim::Node const& node, sim::NodeInterface const& intf,
                          host::Reception const& reception) {
  bool silent = reception.accepted() && reception.kind == host::MessageKind::hello;
  if (silent) return;
  Json event = eventOf(node, reception.accepted() ? "accepted" : "refused");
  event["link"] = linkName(node, intf);
  event["source"] = jsonOf(reception.source);
  event["told"] = cli::rowOf(intf, reception).event;
  if (!reception.accepted()) event["reason"] = reception.reason;
  document_->timeline.push_back(std::move(event));
}

void SimJson::onSent(sim::Node const& node, sim::NodeInterface const& intf, sim::Bytes packet) {
  Json event = eventOf(node, "sent");
  event["link"] = linkName(node, intf);
  event["kind"] = cli::nameOf(sim::kindOf(packet));
  event["bytes"] = packet.size();
  document_->timeline.push_back(std::move(event));
}

void SimJson::onNeighbor(sim::Node const& node, sim::NodeInterface const& intf,
                         Lanet::IpGenAddr const& neighbor, bool up) {
  Json event = eventOf(node, up ? "neighborUp" : "neighborDown");
  event["link"] = linkName(node, intf);
  event["neighbor"] = jsonOf(neighbor);
  document_->timeline.push_back(std::move(event));
}

void SimJson::onDr(sim::Node const& node, sim::NodeInterface const& intf, Lanet::IpGenAddr const& dr) {
  Json event = eventOf(node, "designatedRouter");
  event["link"] = linkName(node, intf);
  event["address"] = jsonOf(dr);
  document_->timeline.push_back(std::move(event));
}

void SimJson::onState(sim::Node const& node, Lanet::IpGenPrefix const& zone,
                      Routing::Pim::Bsr::BsrCandidateState state) {
  Json event = eventOf(node, "state");
  event["zone"] = jsonOf(zone);
  event["state"] = host::nameOf(state);
  document_->timeline.push_back(std::move(event));
}

void SimJson::onLoss(sim::Network const& network, sim::Link const* link, sim::Node const* node,
                     sim::Loss loss, sim::Bytes packet) {
  Json event = eventOf(network, node, "lost");
  if (link != nullptr) event["link"] = link->options.name;
  event["kind"] = cli::nameOf(sim::kindOf(packet));
  event["reason"] = sim::textOf(loss);
  document_->timeline.push_back(std::move(event));
}

void SimJson::onCommand(sim::Network const& network, sim::Statement const& statement) {
  Json event = eventOf(network, nullptr, "command");
  event["statement"] = statement.text;
  document_->timeline.push_back(std::move(event));
}

void SimJson::onTrace(sim::Node const& node, Zet::TraceLine const& line) {
  writeTrace(traceOut_, node, line);
}

void SimJson::onLog(sim::Node const& node, Zet::LogHandle const& handle, std::string const& text) {
  writeLog(traceOut_, node, handle, text);
}

// The end ---------------------------------------------------------------------------------------------

static Json rangeJson(RangeView const& range) {
  Json rps = Json::array();
  for (host::RpView const& rp : range.rps) rps.push_back(rpJson(rp));
  return {{"group", jsonOf(range.range)}, {"rps", rps}};
}

static Json zoneJson(sim::Node const& node, ZoneView const& zone) {
  MachineView machine = machineOf(*node.router(), zone.zone, node.localTime(node.network().now()));
  Json rpSet = Json::array();
  for (RangeView const& range : zone.rpSet) rpSet.push_back(rangeJson(range));
  return {{"zone", jsonOf(zone.zone)},
          {"candidate", machine.candidate},
          {"state", machine.state},
          {"bsr", zone.bsr ? bsrJson(*zone.bsr) : Json()},
          {"timer", machine.bootstrapTimer ? jsonOfTime(*machine.bootstrapTimer) : Json()},
          {"rpSet", rpSet}};
}

static Json routerJson(sim::Node const& node) {
  Json zones = Json::array();
  if (node.isRunning()) {
    for (ZoneView const& zone : zonesOf(*node.router())) zones.push_back(zoneJson(node, zone));
  }
  Json refused = Json::object();
  for (auto const& [reason, refusal] : node.refused()) refused[std::string(reason)] = refusal.count;
  return {{"name", node.name()}, {"running", node.isRunning()}, {"zones", zones}, {"refused", refused}};
}

void SimJson::onEnd(sim::Network const& network) {
  Json routers = Json::array();
  for (sim::Node const* node : nodesOf(network, {})) routers.push_back(routerJson(*node));
  Json document = {{"seed", network.seed()},
                   {"end", jsonOfTime(network.now())},
                   {"timeline", std::move(document_->timeline)},
                   {"routers", routers}};
  out_ << document.dump(2) << '\n';
}

}  // namespace pimbsr::cli
