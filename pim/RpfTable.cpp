#include "pim/RpfTable.h"

namespace pimbsr::pim {

using Lanet::IpGenAddr;
using Slosh::Fib::RouteType;

Slosh::Fib::Route routeTo(IpGenAddr const& address, Routing::Pim::PimUcastRouteStatus const& routes,
                          Port const& port) {
  auto found = port.routeTo(address);
  return found ? *found : routes.bestRoute(address);
}

Routing::Pim::RpfLookupResult RpfTable::doLookup(IpGenAddr const& address, IpGenAddr const&) {
  if (port_.isOwnAddress(address)) return {};
  Slosh::Fib::Route route = routeTo(address, *routes_, port_);
  if (route.type == RouteType::connected) return {neighbors_->owner(route.intfId, address)};
  if (route.type == RouteType::remote) return {neighbors_->owner(route.intfId, route.nextHop)};
  return {};
}

}  // namespace pimbsr::pim
