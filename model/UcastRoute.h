#pragma once

#include "model/Slosh.h"
#include "model/TrieGen.h"

namespace Routing::Pim {

/// The unicast routes as PIM reads them: a trie that finds the best route's prefix and a table that holds the
/// route. A host writes it; the machines only read.
class PIMBSR_API PimUcastRouteStatus : public Zet::PtrInterface {
 public:
  using RouteTable = ::Slosh::SloshMap<::Slosh::Fib::Route, Lanet::Prefix>;

  PimUcastRouteStatus();

  Zet::Ptr<Routing::TrieGen const> routeTrie() const { return trie_; }
  Zet::Ptr<RouteTable const> routeTable() const { return table_; }
  /// The best route towards an address; the default route value if there is none.
  ::Slosh::Fib::Route bestRoute(Lanet::IpGenAddr const& address) const;

  /// The host's side: adds or replaces a route, removes one.
  void routeIs(Lanet::Prefix const& prefix, ::Slosh::Fib::Route const& route);
  void routeDel(Lanet::Prefix const& prefix);

 private:
  using Written = ::Slosh::SloshTable<::Slosh::Fib::Route, Lanet::Prefix>;

  Zet::Ptr<Routing::TrieGen> trie_;
  Zet::Ptr<Written> written_;
  Zet::Ptr<RouteTable> table_;
};

}  // namespace Routing::Pim
