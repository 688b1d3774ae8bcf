#include "sim/Routes.h"

#include <algorithm>

#include "sim/Node.h"

namespace pimbsr::sim {

using Lanet::IpAddr;

static constexpr U32 unreached = ~U32{0};

void Routes::destinationIs(IpAddr address, U32 owner) { destinations_[address].owner = owner; }

void Routes::notice() {
  runs_.resize(nodes_.size());
  for (U32 node = 0; node < runs_.size(); ++node) runs_[node] = nodes_[node].isRunning();
  up_.resize(links_.size());
  for (U32 link = 0; link < up_.size(); ++link) up_[link] = links_[link].up;
}

void Routes::forget(U32 node) {
  for (auto& [address, destination] : destinations_) {
    if (node < destination.written.size()) destination.written[node] = {};
  }
}

void Routes::update() {
  for (auto& [address, destination] : destinations_) find(address, destination);
  for (U32 number = 0; number < nodes_.size(); ++number) write(nodes_[number]);
}

// Shortest paths --------------------------------------------------------------------------------------

void Routes::find(IpAddr address, Destination& destination) {
  destination.found.assign(nodes_.size(), {});
  destination.written.resize(nodes_.size());
  if (!runs(destination.owner)) return;
  measure(destination.owner);
  for (U32 node = 0; node < destination.found.size(); ++node) {
    if (node != destination.owner) destination.found[node] = wayFrom(nodes_[node], address);
  }
}

/// Counts the hops of every router and link, in a search that spreads out from one router.
void Routes::measure(U32 owner) {
  nodeHops_.assign(nodes_.size(), unreached);
  linkHops_.assign(links_.size(), unreached);
  nearest_.assign(links_.size(), {});
  frontier_.assign(1, owner);
  nodeHops_[owner] = 0;
  for (std::size_t i = 0; i < frontier_.size(); ++i) {
    U32 node = frontier_[i];
    for (NodeInterface const& intf : nodes_[node].interfaces()) {
      if (!isUp(intf.link)) continue;
      if (linkHops_[intf.link] == unreached) {
        nearest_[intf.link] = intf.address.v4Addr();
        reach(intf.link, nodeHops_[node]);
      } else if (linkHops_[intf.link] == nodeHops_[node]) {
        nearest_[intf.link] = std::min(nearest_[intf.link], intf.address.v4Addr());
      }
    }
  }
}

/// Goes on from a link to all routers on it that have not been reached.
void Routes::reach(U32 link, U32 hops) {
  linkHops_[link] = hops;
  for (Attachment const& at : links_[link].attached) {
    if (nodeHops_[at.node] != unreached || !runs(at.node)) continue;
    nodeHops_[at.node] = hops + 1;
    frontier_.push_back(at.node);
  }
}

Way Routes::wayFrom(Node const& node, IpAddr destination) const {
  Way best;
  U32 hops = nodeHops_[node.id()];
  if (hops == unreached || node.config().routes.contains({destination, 32})) return best;
  for (U32 intf = 0; intf < node.interfaces().size(); ++intf) {
    U32 link = node.interfaces()[intf].link;
    if (!isUp(link)) continue;
    if (links_[link].options.prefix.contains(destination)) return {};
    if (linkHops_[link] + 1 != hops || (best.hops != 0 && best.nextHop < nearest_[link])) continue;
    best = {hops, intf, nearest_[link]};
  }
  return best;
}

// Writing ---------------------------------------------------------------------------------------------

void Routes::write(Node& node) {
  if (!node.isRunning()) return;
  changed_.clear();
  for (auto& [address, destination] : destinations_) {
    Way const& way = destination.found[node.id()];
    if (way == destination.written[node.id()]) continue;
    destination.written[node.id()] = way;
    changed_.push_back({address, way});
  }
  if (!changed_.empty() || !node.config().routes.empty()) node.writeRoutes(changed_);
}

std::optional<NextHop> Routes::nextHop(Node const& node, IpAddr destination) const {
  std::optional<NextHop> best;
  U32 length = 0;
  auto take = [&](Lanet::Prefix const& prefix, U32 intf, IpAddr address) {
    if (!prefix.contains(destination) || (best && prefix.length() < length)) return;
    best = {intf, address};
    length = prefix.length();
  };
  auto at = destinations_.find(destination);
  if (at != destinations_.end() && node.id() < at->second.written.size()) {
    Way const& way = at->second.written[node.id()];
    if (way.hops != 0) take({destination, 32}, way.intf, way.nextHop);
  }
  for (U32 intf = 0; intf < node.interfaces().size(); ++intf) {
    Link const& link = links_[node.interfaces()[intf].link];
    if (!link.up) continue;
    take(link.options.prefix, intf, destination);
    for (auto const& [prefix, via] : node.config().routes) {
      if (link.options.prefix.contains(via)) take(prefix, intf, via);
    }
  }
  return best;
}

}  // namespace pimbsr::sim
