#include "sim/Spans.h"

namespace pimbsr::sim {

using host::Change;
using host::ChangeKind;
using Lanet::IpGenPrefix;
using Routing::Pim::Bsr::BsrCandidateState;

NodeTracks& SpanRecorder::tracksOf(Node const& node) {
  if (node.id() >= nodes_.size()) nodes_.resize(node.id() + 1);
  return nodes_[node.id()];
}

ZoneTracks& SpanRecorder::tracksOf(Node const& node, IpGenPrefix const& zone) {
  return tracksOf(node).zones[zone];
}

void SpanRecorder::onChanges(Node const& node, std::span<Change const> changes) {
  double now = node.network().now();
  for (Change const& change : changes) {
    switch (change.kind) {
      case ChangeKind::bsrElected:
      case ChangeKind::bsrChanged:
        tracksOf(node, change.zone)
            .bsr.valueIs(now, {change.bsr.address, node.isOwnAddress(change.bsr.address)});
        break;
      case ChangeKind::bsrLost:
      case ChangeKind::zoneForgotten:
        tracksOf(node, change.zone).bsr.valueDel(now);
        break;
      default:
        break;
    }
  }
}

void SpanRecorder::onState(Node const& node, IpGenPrefix const& zone, BsrCandidateState state) {
  tracksOf(node, zone).state.valueIs(node.network().now(), state);
}

void SpanRecorder::onStateEnd(Node const& node, IpGenPrefix const& zone) {
  tracksOf(node, zone).state.valueDel(node.network().now());
}

/// A router that has ended reports neither the loss of its BSR nor the end of its candidacies.
static void endZones(NodeTracks& node, double now) {
  for (auto& [zone, tracks] : node.zones) {
    tracks.bsr.valueDel(now);
    tracks.state.valueDel(now);
  }
}

void SpanRecorder::onRunning(Node const& node, bool running) {
  double now = node.network().now();
  NodeTracks& tracks = tracksOf(node);
  if (!running) endZones(tracks, now);
  tracks.running.valueIs(now, running);
}

void SpanRecorder::onLink(Network const& network, U32 link, bool up) {
  if (link >= links_.size()) links_.resize(link + 1);
  links_[link].valueIs(network.now(), up);
}

void SpanRecorder::end(double now) {
  for (NodeTracks& node : nodes_) {
    endZones(node, now);
    node.running.valueDel(now);
  }
  for (Track<bool>& link : links_) link.valueDel(now);
}

}  // namespace pimbsr::sim
