#pragma once

#include <linux/netlink.h>

#include <optional>

#include "agent/kernel/KernelView.h"
#include "runtime/Types.h"

/// Decodes messages of rtnetlink into records, without reading beyond their ends. Each message is aligned to
/// 4 bytes and as long as its header says. Nothing is returned for a message that is too short, lacks a
/// required attribute, or isn't relevant.
namespace pimbsr::agent {

using Zet::U32;
using Zet::U8;

/// A link, with further state on which its routes depend.
struct LinkRecord {
  KernelLink link;  ///< without addresses
  /// Its flags (IFF_UP, IFF_LOWER_UP, IFF_RUNNING). Each matters: IFF_LOWER_UP is cleared when the carrier is
  /// lost, IFF_RUNNING a moment later with the update of the routes.
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
  Lanet::IpAddr preferredSource;  ///< with the next two: distinguishes routes with the same next hop
  U8 protocol = 0;
  U8 scope = 0;
  bool isDead = false;  ///< none of its next hops is reachable; a lookup skips it

  bool operator==(RouteRecord const&) const = default;
};

/// Of RTM_NEWLINK or RTM_DELLINK. A link is up when it is enabled and its carrier and queues are: before
/// that, packets sent are lost. Messages of a bridge on its ports are ignored.
std::optional<LinkRecord> readLink(nlmsghdr const& message);

/// Of RTM_NEWADDR or RTM_DELADDR. The address is the link's own, also on a point-to-point link, whose message
/// has the peer's too.
std::optional<AddressRecord> readAddress(nlmsghdr const& message);

/// Of RTM_NEWROUTE or RTM_DELROUTE, in the tables main and local, and not for one type of service alone. Of
/// several next hops the first one that isn't dead is used.
///
/// A route without a destination (unreachable, blackhole, prohibit, throw), and one of broadcasts or
/// multicast, is of type unset. It is kept since it hides shorter prefixes: without it a lookup would find
/// the default route, and a Bootstrap message would be accepted from a neighbor to which no packet is routed.
/// A route of this type has no RPF neighbor, and its address isn't one of this router.
std::optional<RouteRecord> readRoute(nlmsghdr const& message);

}  // namespace pimbsr::agent
