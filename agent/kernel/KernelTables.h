#pragma once

#include <map>
#include <set>
#include <vector>

#include "agent/kernel/KernelMessage.h"
#include "agent/kernel/KernelView.h"

namespace pimbsr::agent {

/// What a complete answer of the kernel says of its links, addresses and routes.
struct KernelRecords {
  std::map<int, LinkRecord> links;                           ///< by index
  std::map<int, std::vector<KernelAddress>> addresses;       ///< by the link's index, in the kernel's order
  std::map<Lanet::Prefix, std::vector<RouteRecord>> routes;  ///< of each prefix, as a lookup tries them

  /// Adds what one message of an answer tells; one of another kind, or of no concern, adds nothing.
  void add(nlmsghdr const& message);
};

/// The kernel's links, addresses and routes, kept from answers and notices of rtnetlink. Nothing here talks
/// to a kernel.
///
/// When a link or an address changes, everything has to be asked for anew: a link that goes down takes its
/// routes along without a notice of each, and the order of addresses is in no notice. Notices of routes are
/// followed one by one, at a cost that depends little on how many routes there are. Notices may be older than
/// the last answer, and do no harm then: they are followed by those that led to it.
///
/// The routes are those that a packet without marks finds in the tables local and main; rules and other
/// tables are left out. A route of the main table counts even if it lies within a shorter one of the local
/// table.
class KernelTables {
 public:
  /// What following a notice came to.
  enum class Outcome {
    nothing,
    changed,  ///< the view is another one now
    unclear   ///< the tables have to be asked for anew
  };

  /// Takes a complete answer; returns whether the view is another one now.
  bool replace(KernelRecords records);
  Outcome follow(nlmsghdr const& message);

  KernelView const& view() const { return view_; }
  /// The prefixes whose best route has come, changed or gone since this was called last, in ascending order.
  std::vector<Lanet::Prefix> takeChangedRoutes();

 private:
  Outcome followLink(nlmsghdr const& message) const;
  Outcome addRoute(RouteRecord const& route, nlmsghdr const& message);
  Outcome removeRoute(RouteRecord const& route);
  Outcome settle(Lanet::Prefix const& prefix);
  std::optional<::Slosh::Fib::Route> bestOf(std::vector<RouteRecord> const& routes) const;

  KernelRecords records_;
  std::map<int, Lanet::IntfId> names_;  ///< by index
  KernelView view_;
  std::set<Lanet::Prefix> changed_;
};

}  // namespace pimbsr::agent
