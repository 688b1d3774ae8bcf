#pragma once

#include <linux/netlink.h>

#include <functional>
#include <optional>
#include <span>

#include "agent/kernel/KernelView.h"
#include "model/Slosh.h"
#include "runtime/Types.h"

/// Decodes messages of rtnetlink into records, without reading beyond their ends. Each message is aligned to
/// 4 bytes and as long as its header says. Nothing is returned for a message that is too short, lacks a
/// required attribute, or isn't relevant.
namespace pimbsr::agent {

using Zet::U32;
using Zet::U8;

/// Calls `handle` with each whole message of a datagram.
void forEachMessage(std::span<U8 const> datagram, std::function<void(nlmsghdr const&)> const& handle);

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

/// The kernel's answer to a request for the route to one address.
struct RouteRecord {
  ::Slosh::Fib::RouteType type = ::Slosh::Fib::RouteType::unset;
  int interfaceIndex = 0;
  Lanet::IpAddr nextHop;  ///< 0.0.0.0 for none that has an IPv4 address
  U32 metric = 0;         ///< lower wins

  bool operator==(RouteRecord const&) const = default;
};

/// Of RTM_NEWLINK or RTM_DELLINK. A link is up when it is enabled and its carrier and queues are: before
/// that, packets sent are lost. Messages of a bridge on its ports are ignored.
std::optional<LinkRecord> readLink(nlmsghdr const& message);

/// Of RTM_NEWADDR or RTM_DELADDR. The address is the link's own, also on a point-to-point link, whose message
/// has the peer's too.
std::optional<AddressRecord> readAddress(nlmsghdr const& message);

/// Of RTM_NEWROUTE, as an answer to RTM_GETROUTE for one address.
///
/// A route without a destination (unreachable, blackhole, prohibit, throw), and one of broadcasts or
/// multicast, is of type unset: it has no RPF neighbor, and its address isn't one of this router.
std::optional<RouteRecord> readRoute(nlmsghdr const& message);

}  // namespace pimbsr::agent
