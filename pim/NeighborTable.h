#pragma once

#include <list>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "model/Pim.h"
#include "wire/Wire.h"

namespace pimbsr::pim {

using Zet::U32;
using Zet::U64;

/// The neighbors of one interface, found by any of their addresses and ordered for the election of the DR.
///
/// It follows the status tree, whoever writes that, so that no packet needs a walk over all neighbors: each
/// query, and each change of one neighbor or address, costs O(log n) of the addresses kept.
class PIMBSR_INTERNAL LinkNeighbors : public Routing::Pim::Intf::Notifiee {
 public:
  explicit LinkNeighbors(Zet::Ptr<Routing::Pim::Intf> const& intf);
  ~LinkNeighbors() override;

  /// Primary address of the neighbor that owns an address, primary before secondary; unset if none does.
  Lanet::IpGenAddr owner(Lanet::IpGenAddr const& address) const;
  /// Primary address of a neighbor other than `primary` that lists an address as a secondary one; unset if
  /// none does.
  Lanet::IpGenAddr otherOwner(Lanet::IpGenAddr const& address, Lanet::IpGenAddr const& primary) const;
  /// All addresses of all neighbors, primary and secondary ones.
  U64 addressCount() const { return neighbors_.size() + secondaries_.size(); }
  /// Address of the winner of the DR election among the neighbors and this router (RFC 7761 section 4.3.2),
  /// which doesn't take part with the unset address; unset among none.
  Lanet::IpGenAddr electDr(Lanet::IpGenAddr const& own, U32 ownPriority) const;

  /// Seconds after which a neighbor that sends no Hello can be displaced from a full table, whatever its
  /// holdtime: 3.5 times the default Hello_Period (RFC 7761 section 4.11).
  static constexpr double maxSilence = 105;
  /// Bounds the addresses of all neighbors; 0 is no bound. Addresses beyond a lowered bound stay.
  void maxAddressesIs(U64 maxAddresses) { maxAddresses_ = maxAddresses; }
  /// Notes that a Hello of a neighbor, named by its primary address, is received now. A neighbor of which no
  /// Hello was noted is never displaced.
  void noteHello(Lanet::IpGenAddr const& neighbor);
  /// The neighbors to be removed before a Hello is taken, so that the bound has room for the addresses that
  /// it adds: those silent for longest, each for more than `maxSilence`, without its sender. Empty if none
  /// has to be; unset if that isn't enough, so that the Hello must be dropped. O(log n), and one
  /// step for each address in the Hello.
  std::optional<std::vector<Lanet::IpGenAddr>> displacedBy(wire::HelloMessage const& hello) const;

  void onNeighbor(Lanet::IpGenAddr const& address) override;

 private:
  class Watch;
  using Rank = std::pair<U32, Lanet::IpGenAddr>;  ///< DR priority, then primary address
  using ByHello = std::list<Watch*>;

  U64 excess(wire::HelloMessage const& hello) const;

  std::map<Lanet::IpGenAddr, Zet::Ptr<Watch>> neighbors_;  ///< by primary address
  /// Each secondary address with its owner's primary address.
  std::set<std::pair<Lanet::IpGenAddr, Lanet::IpGenAddr>> secondaries_;
  std::set<Rank> ranks_;  ///< of the neighbors whose Hellos carry a DR priority
  ByHello byHello_;       ///< the neighbors of which a Hello was noted, in the order of their last ones
  U64 maxAddresses_ = 0;
};

/// The neighbors of all interfaces that speak PIM.
class PIMBSR_INTERNAL NeighborTable : public Routing::Pim::Status::Notifiee {
 public:
  explicit NeighborTable(Zet::Ptr<Routing::Pim::Status> const& pimStatus);

  /// The neighbors of an interface; null if it speaks no PIM.
  Zet::Ptr<LinkNeighbors> link(Lanet::IntfId const& intfId) const;
  /// Primary address of the neighbor of an interface that owns an address; unset if none does.
  Lanet::IpGenAddr owner(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const;
  /// Bounds the addresses of all neighbors of each interface; 0 is no bound. Addresses beyond a lowered bound
  /// stay.
  void maxAddressesIs(U64 maxAddresses);

  void onPimIntf(Lanet::IntfId const& intfId) override;

 private:
  std::map<Lanet::IntfId, Zet::Ptr<LinkNeighbors>> links_;
  U64 maxAddresses_ = 0;
};

}  // namespace pimbsr::pim
