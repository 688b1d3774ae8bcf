#pragma once

#include <set>
#include <vector>

#include "model/Lanet.h"
#include "model/Pim.h"
#include "runtime/Ptr.h"

namespace pimbsr::agent {

/// A neighbor that came or went.
struct NeighborChange {
  Lanet::IntfId intfId;
  Lanet::IpGenAddr address;  ///< its primary address
  bool isThere = false;      ///< it came
  bool hasExpired = false;   ///< it went since its holdtime was over
  bool isCleared = false;    ///< it went since an operator cleared it; the watch leaves this false
};

/// Follows the neighbors on the interfaces of PIM's status tree. A change costs O(its addresses); without a
/// change there is no cost.
class NeighborWatch {
 public:
  /// Keeps a reference to the status tree. Present neighbors count as changed.
  explicit NeighborWatch(Zet::Ptr<Routing::Pim::Status const> const& status);
  ~NeighborWatch();
  NeighborWatch(NeighborWatch const&) = delete;
  NeighborWatch& operator=(NeighborWatch const&) = delete;

  /// The interfaces of which neighbors, or addresses of neighbors, came or went since the last call; also
  /// those that came themselves.
  std::set<Lanet::IntfId> takeChanged();
  /// The neighbors that came or went since the last call, in that order, without those of interfaces that
  /// went themselves.
  std::vector<NeighborChange> takeNeighborChanges();
  /// The IPv4 addresses of an interface's neighbors: first the primary ones, then the secondary ones, each
  /// sorted; none for an interface that is unknown.
  std::vector<Lanet::IpAddr> addressesOf(Lanet::IntfId const& intfId) const;

 private:
  class Tree;
  Zet::Ptr<Tree> tree_;
};

}  // namespace pimbsr::agent
