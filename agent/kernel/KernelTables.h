#pragma once

#include <map>
#include <set>
#include <vector>

#include "agent/kernel/KernelMessage.h"
#include "agent/kernel/KernelView.h"

namespace pimbsr::agent {

/// The links, addresses and routes of a complete answer of the kernel.
struct KernelRecords {
  std::map<int, LinkRecord> links;                           ///< by index
  std::map<int, std::vector<KernelAddress>> addresses;       ///< by the link's index, in the kernel's order
  std::map<Lanet::Prefix, std::vector<RouteRecord>> routes;  ///< of each prefix, as a lookup tries them

  /// Adds the record of one message of an answer; a message of another type adds nothing.
  void add(nlmsghdr const& message);
};

/// The kernel's links, addresses and routes, kept from answers and notices of rtnetlink. This
/// class doesn't communicate with the kernel itself.
///
/// When a link or an address changes, all tables must be requested again: a link that goes down loses its
/// routes without a notice of each, and no notice has the order of addresses. Notices of routes are applied
/// one by one, at a cost that hardly depends on the number of routes. Notices older than the last answer do
/// no harm: those that led to it follow.
///
/// The routes are those that a packet without marks finds in the tables local and main; rules and other
/// tables are left out. A route of the main table counts even if it lies within a shorter one of the local
/// table.
class KernelTables {
 public:
  /// The result of applying a notice.
  enum class Outcome {
    nothing,
    changed,  ///< the view has changed
    unclear   ///< the tables must be requested again
  };

  /// Applies a complete answer; returns whether the view has changed.
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
