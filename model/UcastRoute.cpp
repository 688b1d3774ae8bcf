#include "model/UcastRoute.h"

namespace Routing::Pim {

using Lanet::IpGenPrefix;
using ::Slosh::Fib::Route;

PimUcastRouteStatus::PimUcastRouteStatus()
    : trie_(Routing::trieGenFactory("UcastRouteTrie", Lanet::AddressFamily::ipv4)),
      written_(Zet::make<Written>()),
      table_(Zet::make<RouteTable>(Zet::Ptr<Written const>(written_))) {}

Route PimUcastRouteStatus::bestRoute(Lanet::IpGenAddr const& address) const {
  IpGenPrefix best = trie_->longestMatch(IpGenPrefix(address));
  return best.isEmpty() ? Route() : table_->lookup(best.v4Prefix());
}

void PimUcastRouteStatus::routeIs(Lanet::Prefix const& prefix, Route const& route) {
  written_->entries[prefix] = route;
  trie_->routeIs(IpGenPrefix(prefix), true);
}

void PimUcastRouteStatus::routeDel(Lanet::Prefix const& prefix) {
  if (written_->entries.erase(prefix) != 0) trie_->routeDel(IpGenPrefix(prefix));
}

}  // namespace Routing::Pim
