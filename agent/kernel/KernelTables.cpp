#include "agent/kernel/KernelTables.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <utility>

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::Prefix;
using Slosh::Fib::Route;
using Slosh::Fib::RouteType;

using Routes = std::vector<RouteRecord>;

/// Whether a lookup tries `a` before `b`, both to one prefix.
static bool comesFirst(RouteRecord const& a, RouteRecord const& b) {
  return a.inLocalTable != b.inLocalTable ? a.inLocalTable : a.metric < b.metric;
}

/// Whether both are the same route. Its next hops may have become dead.
static bool isSame(RouteRecord const& a, RouteRecord b) {
  b.isDead = a.isDead;
  return a == b;
}

// Answers -----------------------------------------------------------------------------------------------

void KernelRecords::add(nlmsghdr const& message) {
  if (message.nlmsg_type == RTM_NEWLINK) {
    if (auto link = readLink(message)) links[link->link.index] = std::move(*link);
  } else if (message.nlmsg_type == RTM_NEWADDR) {
    if (auto address = readAddress(message)) addresses[address->interfaceIndex].push_back(address->address);
  } else if (message.nlmsg_type == RTM_NEWROUTE) {
    if (auto route = readRoute(message)) {
      Routes& others = routes[route->prefix];
      others.insert(std::upper_bound(others.begin(), others.end(), *route, comesFirst), *route);
    }
  }
}

/// The prefixes whose routes differ, in ascending order.
static std::vector<Prefix> differences(std::map<Prefix, Route> const& before,
                                       std::map<Prefix, Route> const& after) {
  std::vector<Prefix> found;
  auto old = before.begin();
  for (auto const& [prefix, route] : after) {
    for (; old != before.end() && old->first < prefix; ++old) found.push_back(old->first);
    bool wasThere = old != before.end() && old->first == prefix;
    if (!wasThere || old->second != route) found.push_back(prefix);
    if (wasThere) ++old;
  }
  for (; old != before.end(); ++old) found.push_back(old->first);
  return found;
}

/// An address or a route of an unknown link is of one just added or deleted, whose notice follows.
bool KernelTables::replace(KernelRecords records) {
  records_ = std::move(records);
  names_.clear();
  KernelView after;
  for (auto const& [index, record] : records_.links) {
    names_[index] = IntfId(record.link.name.c_str());
    KernelLink& link = after.links[record.link.name] = record.link;
    if (auto at = records_.addresses.find(index); at != records_.addresses.end()) link.addresses = at->second;
  }
  for (auto const& [prefix, routes] : records_.routes) {
    if (auto best = bestOf(routes)) after.routes.emplace_hint(after.routes.end(), prefix, *best);
  }
  std::vector<Prefix> changed = differences(view_.routes, after.routes);
  bool isOther = !changed.empty() || after.links != view_.links;
  changed_.insert(changed.begin(), changed.end());
  view_ = std::move(after);
  return isOther;
}

/// A dead route is skipped, so that another one of this prefix or of a shorter one is found.
std::optional<Route> KernelTables::bestOf(Routes const& routes) const {
  auto best = std::find_if(routes.begin(), routes.end(), [](RouteRecord const& at) { return !at.isDead; });
  if (best == routes.end()) return {};
  Route route{.type = best->type, .metric = best->metric};
  if (auto name = names_.find(best->interfaceIndex); name != names_.end()) route.intfId = name->second;
  if (best->nextHop != IpAddr()) route.nextHop = IpGenAddr(best->nextHop);
  return route;
}

std::vector<Prefix> KernelTables::takeChangedRoutes() {
  std::set<Prefix> changed = std::exchange(changed_, {});
  return {changed.begin(), changed.end()};
}

// Notices -----------------------------------------------------------------------------------------------

/// The deletion of a next-hop object deletes its routes without a notice of them.
KernelTables::Outcome KernelTables::follow(nlmsghdr const& message) {
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return followLink(message);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return readAddress(message) ? Outcome::unclear : Outcome::nothing;
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
      return Outcome::unclear;
    case RTM_NEWROUTE:
      if (auto route = readRoute(message)) return addRoute(*route, message);
      return Outcome::nothing;
    case RTM_DELROUTE:
      if (auto route = readRoute(message)) return removeRoute(*route);
      return Outcome::nothing;
    default:
      return Outcome::nothing;
  }
}

/// Many notices of links change nothing relevant, such as promiscuous mode.
KernelTables::Outcome KernelTables::followLink(nlmsghdr const& message) const {
  auto link = readLink(message);
  if (!link) return Outcome::nothing;
  auto known = records_.links.find(link->link.index);
  bool isKnown = known != records_.links.end();
  if (message.nlmsg_type == RTM_DELLINK) return isKnown ? Outcome::unclear : Outcome::nothing;
  return isKnown && known->second == *link ? Outcome::nothing : Outcome::unclear;
}

/// Among routes of one metric the first is used, and an old notice may have another order; so the outcome is
/// unclear where one of several is added or changed.
KernelTables::Outcome KernelTables::addRoute(RouteRecord const& route, nlmsghdr const& message) {
  Routes& routes = records_.routes[route.prefix];
  auto [first, last] = std::equal_range(routes.begin(), routes.end(), route, comesFirst);
  auto same = std::find_if(first, last, [&](RouteRecord const& at) { return isSame(at, route); });
  bool isOnly = last - first == 1;
  if (same != last) {
    *same = route;
    return isOnly ? settle(route.prefix) : Outcome::unclear;
  }
  if (isOnly && (message.nlmsg_flags & NLM_F_REPLACE) != 0) {
    *first = route;
    return settle(route.prefix);
  }
  bool isFirst = first == last;
  routes.insert(last, route);
  return isFirst ? settle(route.prefix) : Outcome::unclear;
}

/// The notice of a deleted route may differ from that of its addition, as with dead next hops.
KernelTables::Outcome KernelTables::removeRoute(RouteRecord const& route) {
  auto at = records_.routes.find(route.prefix);
  if (at == records_.routes.end()) return Outcome::nothing;
  Routes& routes = at->second;
  auto [first, last] = std::equal_range(routes.begin(), routes.end(), route, comesFirst);
  if (first == last) return Outcome::nothing;
  auto same = std::find_if(first, last, [&](RouteRecord const& one) { return isSame(one, route); });
  if (same == last) return Outcome::unclear;
  routes.erase(same);
  return settle(route.prefix);
}

/// Takes the best route of a prefix into the view.
KernelTables::Outcome KernelTables::settle(Prefix const& prefix) {
  auto routes = records_.routes.find(prefix);
  std::optional<Route> best = bestOf(routes->second);
  if (routes->second.empty()) records_.routes.erase(routes);
  auto old = view_.routes.find(prefix);
  if (!best && old == view_.routes.end()) return Outcome::nothing;
  if (best && old != view_.routes.end() && old->second == *best) return Outcome::nothing;
  changed_.insert(prefix);
  if (best) {
    view_.routes[prefix] = *best;
  } else {
    view_.routes.erase(old);
  }
  return Outcome::changed;
}

}  // namespace pimbsr::agent
