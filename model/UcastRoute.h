#pragma once

#include "model/Slosh.h"
#include "model/TrieGen.h"

namespace Routing::Pim {

/// The unicast routes as PIM reads them: a trie that finds the best route's prefix and a table that holds the
/// route. A host writes it; the machines only read.
class PIMBSR_API PimUcastRouteStatus : public Zet::PtrInterface {
 public:
  /// Routes by exactly their prefix; a prefix without a route reads as the default value, no route.
  using RouteTable = ::Slosh::SloshMap<::Slosh::Fib::Route, Lanet::Prefix>;

  /// Has no routes at first.
  PimUcastRouteStatus();

  /// The prefixes that have a route, to watch and for longest matches; IPv4 only. Never null.
  Zet::Ptr<Routing::TrieGen const> routeTrie() const { return trie_; }
  /// The routes themselves. Never null.
  Zet::Ptr<RouteTable const> routeTable() const { return table_; }
  /// The best route towards an address; the default route value if there is none, as for an
  /// address that isn't IPv4.
  ::Slosh::Fib::Route bestRoute(Lanet::IpGenAddr const& address) const;

  /// The host adds or replaces the route of a prefix. Watchers of the trie are woken by a new prefix alone.
  void routeIs(Lanet::Prefix const& prefix, ::Slosh::Fib::Route const& route);
  /// The host removes the route of exactly this prefix; without one there is no change.
  void routeDel(Lanet::Prefix const& prefix);

 private:
  using Written = ::Slosh::SloshTable<::Slosh::Fib::Route, Lanet::Prefix>;

  Zet::Ptr<Routing::TrieGen> trie_;
  Zet::Ptr<Written> written_;
  Zet::Ptr<RouteTable> table_;
};

}  // namespace Routing::Pim
