#include "sim/trial/OutageWatch.h"

#include <fmt/format.h>

#include <algorithm>

namespace pimbsr::sim {

using Lanet::IpAddr;
using Lanet::IpGenAddr;

/// Routers that are looked at, of a larger network.
static constexpr U32 maxWatched = 200;

static std::set<IpGenAddr> knownRps(Node const& node, IpAddr group) {
  std::set<IpGenAddr> rps;
  for (auto set = node.router()->rpCandidateStatus()->crpSetIterator(); set; ++set) {
    if (!set->prefix().contains(IpGenAddr(group))) continue;
    for (auto rp = set->rpIterator(); rp; ++rp) rps.insert(rp->address());
  }
  return rps;
}

OutageWatch::OutageWatch(Network const& network, std::span<IpAddr const> groups) : network_(network) {
  U32 step = 1 + network.nodeCount() / maxWatched;
  for (U32 number = 0; number < network.nodeCount(); number += step) {
    Node const& node = network.node(number);
    if (!node.isRunning()) continue;
    for (auto at = node.router()->status()->bootstrapRouterIterator(); at; ++at)
      watched_.push_back({.node = number, .zone = at->zone()});
    for (IpAddr group : groups) {
      if (!servingRp(network, node, group).isEmpty())
        watched_.push_back({.node = number, .group = group, .rps = knownRps(node, group)});
    }
  }
}

void OutageWatch::leaveOut(U32 node) {
  std::erase_if(watched_, [node](Watched const& watched) { return watched.node == node; });
}

void OutageWatch::expect(Expectation const& after) {
  std::erase_if(watched_, [&](Watched const& watched) {
    if (!network_.node(watched.node).isRunning()) return true;
    if (!watched.zone.isEmpty()) return !after.hasBsr(watched.node, watched.zone);
    return !watched.rps.contains(after.rpOf(watched.node, watched.group));
  });
}

bool OutageWatch::isServed(Watched const& watched) const {
  Node const& node = network_.node(watched.node);
  if (!node.isRunning()) return true;
  if (watched.zone.isEmpty()) return !servingRp(network_, node, watched.group).isEmpty();
  return node.router()->status()->bootstrapRouter(watched.zone) != nullptr;
}

void OutageWatch::sample() {
  for (Watched& watched : watched_) {
    watched.seconds = isServed(watched) ? 0 : watched.seconds + 1;
    watched.most = std::max(watched.most, watched.seconds);
  }
}

Findings OutageWatch::longerThan(Bounds const& bounds) const {
  Findings findings;
  for (Watched const& watched : watched_) {
    bool isZone = !watched.zone.isEmpty();
    if (watched.most <= (isZone ? bounds.bsr : bounds.rp)) continue;
    std::string what = isZone ? fmt::format("BSR of zone {}", watched.zone.stringValue().view())
                              : fmt::format("RP for group {}", IpGenAddr(watched.group).stringValue().view());
    findings.push_back(
        fmt::format("{} has no {} for {} s", network_.node(watched.node).name(), what, watched.most));
  }
  return findings;
}

}  // namespace pimbsr::sim
