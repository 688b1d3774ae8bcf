#include "pim/RpfTable.h"

namespace pimbsr::pim {

using Lanet::IpGenAddr;
using Slosh::Fib::RouteType;

Routing::Pim::RpfLookupResult RpfTable::doLookup(IpGenAddr const& address, IpGenAddr const&) {
  if (port_.isOwnAddress(address)) return {};
  Slosh::Fib::Route route = routes_->bestRoute(address);
  if (route.type == RouteType::connected) return {neighbors_->owner(route.intfId, address)};
  if (route.type == RouteType::remote) return {neighbors_->owner(route.intfId, route.nextHop)};
  return {};
}

}  // namespace pimbsr::pim
