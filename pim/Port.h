#pragma once

#include <optional>
#include <span>
#include <vector>

#include "model/Lanet.h"
#include "model/Slosh.h"

namespace pimbsr::pim {

/// The outside of one router: where its packets go and which addresses are its own. A host implements it over
/// sockets, a simulated network or nothing at all, and outlives the router with it.
class PIMBSR_API Port {
 public:
  virtual ~Port() = default;

  /// Sends one IPv4 packet along an interface; the empty interface leaves the choice to the routes. Returns
  /// whether it was sent. It never delivers a packet to a router within the call.
  virtual bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) = 0;
  /// Primary IPv4 address of an interface; the unset address if it has none.
  virtual Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const = 0;
  /// The other IPv4 addresses of an interface, which its Hellos list; none by default.
  virtual std::vector<Lanet::IpGenAddr> secondaryAddresses(Lanet::IntfId const&) const { return {}; }
  /// Whether an address belongs to this router.
  virtual bool isOwnAddress(Lanet::IpGenAddr const& address) const = 0;
  /// Whether an address lies in a subnet of an interface; by default all do. Asked only by a router that
  /// has an ingress filter.
  virtual bool isOnSubnet(Lanet::IntfId const&, Lanet::IpGenAddr const&) const { return true; }
  /// The best unicast route to an address, where the outside looks it up; the default value if there is none.
  /// Nothing, by default, where the routes are those that the router was given.
  virtual std::optional<::Slosh::Fib::Route> routeTo(Lanet::IpGenAddr const&) const { return {}; }
};

}  // namespace pimbsr::pim
