#include "sim/trial/TrialReport.h"

#include "host/BsmCutter.h"
#include "wire/Wire.h"

namespace pimbsr::sim {

Findings TrialReport::findings() const {
  Findings all = borders_.findings();
  for (Findings const* more :
       {&sizes_.findings(), &floods_.findings(), &pace_.findings(), &answers_.findings()})
    all.insert(all.end(), more->begin(), more->end());
  return all;
}

void TrialReport::onSent(Node const& node, NodeInterface const& intf, Bytes packet) {
  if (kindOf(packet) != PacketKind::bootstrap) return;
  auto ip = wire::parseIpv4(packet);
  auto message = wire::decodeBootstrap(ip->payload, ip->source, ip->destination);
  if (!message) return;
  borders_.onSent(*network_, node, intf, **message);
  floods_.onSent(*network_, node, intf, {**message, packet.size(), packet});
  pace_.onSent(*network_, node, **message);
  answers_.onSent(*network_, node, intf, **message);
}

void TrialReport::onReception(Node const& node, NodeInterface const& intf, host::Reception const& reception) {
  borders_.onReception(*network_, node, intf, reception);
  if (reception.kind == host::MessageKind::bootstrap && !reception.dropped()) {
    auto const& message = static_cast<BootstrapMessage const&>(*reception.message);
    floods_.onAccepted(*network_, node, {message, host::encodedSize(message) + host::ipHeaderSize});
    pace_.onReceived(*network_, node, message);
  }
  if (other_ != nullptr && !reception.accepted()) other_->onReception(node, intf, reception);
}

/// A link that is down takes no packet, and its MTU is not one of the router's.
void TrialReport::onLoss(Network const& network, Link const* link, Node const* node, Loss loss,
                         Bytes packet) {
  if (link == nullptr || link->up) sizes_.onLoss(network, node, loss, packet);
}

void TrialReport::onRunning(Node const& node, bool) {
  floods_.onRunning(node);
  pace_.onRunning(node);
  answers_.onRunning(node);
}

void TrialReport::onLink(Network const&, U32 link, bool) { answers_.onLink(link); }

void TrialReport::onChanges(Node const& node, std::span<host::Change const> changes) {
  if (other_ != nullptr) other_->onChanges(node, changes);
}

void TrialReport::onCommand(Network const& network, Statement const& statement) {
  pace_.onCommand(network);
  if (other_ != nullptr) other_->onCommand(network, statement);
}

void TrialReport::onEnd(Network const& network) {
  if (other_ != nullptr) other_->onEnd(network);
}

}  // namespace pimbsr::sim
