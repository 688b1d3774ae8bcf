#pragma once

#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "model/Lanet.h"
#include "sim/Link.h"
#include "sim/Route.h"

namespace pimbsr::sim {

class Node;

/// The unicast routes of a network, as a routing protocol finds them: shortest paths by hops over links that
/// are up and routers that run, and among equal ones the neighbor with the lowest address.
///
/// Routes lead to addresses that are or were those of candidates, so that a thousand routers stay cheap. An
/// address is reached at its router as long as that runs, also while the address' own link is down. A router
/// attached to a link that is up needs no further route to an address on it. The network decides when a
/// change of its links and routers is noticed; until then routes lead where they led.
class Routes {
 public:
  /// Both outlive it; they grow, and what is in them keeps its number.
  Routes(std::deque<Node>& nodes, std::deque<Link> const& links) : nodes_(nodes), links_(links) {}

  /// Adds an address that routes are to lead to, before the next update().
  void destinationIs(Lanet::IpAddr address, U32 owner);
  /// Takes notice of which links are up and which routers run, before the next update().
  void notice();
  /// Finds all routes anew over what has been noticed, and writes those that changed to the routers.
  void update();
  /// Forgets the routes written to a router, which has stopped.
  void forget(U32 node);
  /// Where a router sends what is for an address that is not its own; nothing if it has no route.
  std::optional<NextHop> nextHop(Node const& node, Lanet::IpAddr destination) const;

 private:
  struct Destination {
    U32 owner = 0;
    std::vector<Way> written;  ///< by router, as the routers have it
    std::vector<Way> found;    ///< by router, as it is to be
  };

  void find(Lanet::IpAddr address, Destination& destination);
  void measure(U32 owner);
  void reach(U32 link, U32 hops);
  Way wayFrom(Node const& node, Lanet::IpAddr destination) const;
  void write(Node& node);
  bool runs(U32 node) const { return node < runs_.size() && runs_[node]; }
  bool isUp(U32 link) const { return link < up_.size() && up_[link]; }

  std::deque<Node>& nodes_;
  std::deque<Link> const& links_;
  std::map<Lanet::IpAddr, Destination> destinations_;
  // What has been noticed.
  std::vector<bool> runs_;
  std::vector<bool> up_;
  // Distances from the owner of one address, by router and by link, and who on a link is nearest to it.
  std::vector<U32> nodeHops_;
  std::vector<U32> linkHops_;
  std::vector<Lanet::IpAddr> nearest_;
  std::vector<U32> frontier_;
  std::vector<FoundRoute> changed_;
};

}  // namespace pimbsr::sim
