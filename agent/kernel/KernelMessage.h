#pragma once

#include <linux/netlink.h>

#include <optional>

#include "agent/kernel/KernelView.h"
#include "runtime/Types.h"

/// Messages of rtnetlink to records, looking at nothing behind their ends. Each message lies at an address
/// divisible by 4 and is as long as its header says. Nothing is returned for a message that is too short,
/// lacks what it must tell, or is of no concern here.
namespace pimbsr::agent {

using Zet::U32;
using Zet::U8;

/// A link, with what else decides whether its routes may have changed.
struct LinkRecord {
  KernelLink link;  ///< without addresses
  /// Its state in the kernel's own words (IFF_UP, IFF_LOWER_UP, IFF_RUNNING). Each counts: a link shows that
  /// it lost its carrier a moment before its routes hear of that, and stops running when they do.
  U32 state = 0;
  U32 master = 0;  ///< index of the bridge or routing domain that it belongs to; 0 for none

  bool operator==(LinkRecord const&) const = default;
};

struct AddressRecord {
  int interfaceIndex = 0;
  KernelAddress address;

  bool operator==(AddressRecord const&) const = default;
};

/// One of the kernel's IPv4 routes to a prefix.
struct RouteRecord {
  Lanet::Prefix prefix;
  bool inLocalTable = false;  ///< the kernel looks there first, whatever the metrics are
  U32 metric = 0;             ///< lower wins
  ::Slosh::Fib::RouteType type = ::Slosh::Fib::RouteType::unset;
  int interfaceIndex = 0;
  Lanet::IpAddr nextHop;          ///< 0.0.0.0 for none that has an IPv4 address
  Lanet::IpAddr preferredSource;  ///< with the next two: what tells routes apart that lead the same way
  U8 protocol = 0;
  U8 scope = 0;
  bool isDead = false;  ///< none of its next hops can be reached; a lookup passes over it

  bool operator==(RouteRecord const&) const = default;
};

/// Of RTM_NEWLINK or RTM_DELLINK. A link is up when it is enabled and its carrier and queues are: before
/// that, what is sent is lost. What a bridge tells of its ports is no concern here.
std::optional<LinkRecord> readLink(nlmsghdr const& message);

/// Of RTM_NEWADDR or RTM_DELADDR. The address is the link's own, also where a far end's is told along with
/// it.
std::optional<AddressRecord> readAddress(nlmsghdr const& message);

/// Of RTM_NEWROUTE or RTM_DELROUTE, in the tables main and local, and not for one type of service alone. Of
/// several next hops the first one that lives counts.
///
/// A route that leads nowhere (unreachable, blackhole, prohibit, throw), and one to broadcasts or multicast,
/// is of type unset. It has to stay among the others since it hides shorter ones: without it a lookup would
/// find the default route, and a Bootstrap message would be taken from a neighbour towards which nothing is
/// ever sent. By this type there is no RPF neighbour, and an address is not taken for this router's own.
std::optional<RouteRecord> readRoute(nlmsghdr const& message);

}  // namespace pimbsr::agent
