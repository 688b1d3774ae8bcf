#include "pim/RpfTable.h"

namespace pimbsr::pim {

using Lanet::IpGenAddr;
using Slosh::Fib::RouteType;
using Zet::Ptr;

Routing::Pim::RpfLookupResult RpfTable::doLookup(IpGenAddr const& address, IpGenAddr const&) {
  if (port_.isOwnAddress(address)) return {};
  Slosh::Fib::Route route = routes_->bestRoute(address);
  if (route.type == RouteType::connected) return {ownerOn(route.intfId, address)};
  if (route.type == RouteType::remote) return {ownerOn(route.intfId, route.nextHop)};
  return {};
}

IpGenAddr RpfTable::ownerOn(Lanet::IntfId const& intfId, IpGenAddr const& address) const {
  Ptr<Routing::Pim::Intf> intf = pimStatus_->pimIntf(intfId);
  if (!intf) return {};
  if (intf->neighbor(address)) return address;
  for (auto at = intf->neighborIterator(); at; ++at) {
    if (at->secondary(address)) return at->address();
  }
  return {};
}

}  // namespace pimbsr::pim
