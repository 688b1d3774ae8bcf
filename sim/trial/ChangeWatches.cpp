#include "sim/trial/ChangeWatches.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace pimbsr::sim {

using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;

/// Routers that are looked at, of a larger network.
static constexpr U32 maxWatched = 200;

/// The distance between the numbers of routers that are looked at.
static U32 stepOf(Network const& network) { return 1 + network.nodeCount() / maxWatched; }

static std::set<IpGenAddr> knownRps(Node const& node, IpAddr group) {
  std::set<IpGenAddr> rps;
  for (auto set = node.router()->rpCandidateStatus()->crpSetIterator(); set; ++set) {
    if (!set->prefix().contains(IpGenAddr(group))) continue;
    for (auto rp = set->rpIterator(); rp; ++rp) rps.insert(rp->address());
  }
  return rps;
}

OutageWatch::OutageWatch(Network const& network, std::span<IpAddr const> groups) : network_(network) {
  for (U32 number = 0; number < network.nodeCount(); number += stepOf(network)) {
    Node const& node = network.node(number);
    if (!node.isRunning()) continue;
    for (auto at = node.router()->status()->bootstrapRouterIterator(); at; ++at)
      watched_.push_back({.node = number, .zone = at->zone()});
    for (IpAddr group : groups) {
      if (!servingRp(network, node, group).isEmpty())
        watched_.push_back({.node = number, .group = group, .rps = knownRps(node, group)});
    }
  }
}

void OutageWatch::leaveOut(U32 node) {
  std::erase_if(watched_, [node](Watched const& watched) { return watched.node == node; });
}

void OutageWatch::expect(Expectation const& after) {
  std::erase_if(watched_, [&](Watched const& watched) {
    if (!network_.node(watched.node).isRunning()) return true;
    if (!watched.zone.isEmpty()) return !after.hasBsr(watched.node, watched.zone);
    return !watched.rps.contains(after.rpOf(watched.node, watched.group));
  });
}

bool OutageWatch::isServed(Watched const& watched) const {
  Node const& node = network_.node(watched.node);
  if (!node.isRunning()) return true;
  if (watched.zone.isEmpty()) return !servingRp(network_, node, watched.group).isEmpty();
  return node.router()->status()->bootstrapRouter(watched.zone) != nullptr;
}

void OutageWatch::sample() {
  for (Watched& watched : watched_) {
    watched.seconds = isServed(watched) ? 0 : watched.seconds + 1;
    watched.most = std::max(watched.most, watched.seconds);
  }
}

Findings OutageWatch::longerThan(Bounds const& bounds) const {
  Findings findings;
  for (Watched const& watched : watched_) {
    bool isZone = !watched.zone.isEmpty();
    if (watched.most <= (isZone ? bounds.bsr : bounds.rp)) continue;
    std::string what = isZone ? fmt::format("BSR of zone {}", watched.zone.stringValue().view())
                              : fmt::format("RP for group {}", IpGenAddr(watched.group).stringValue().view());
    findings.push_back(
        fmt::format("{} has no {} for {} s", network_.node(watched.node).name(), what, watched.most));
  }
  return findings;
}

// Agreement -------------------------------------------------------------------------------------------

/// What routers that use the same RPs have in common: the BSRs that they know and those that they are to
/// have, by zone.
using Known = std::pair<std::vector<std::pair<IpGenPrefix, IpGenAddr>>, std::vector<U32>>;

static Known knownOf(Expectation const& after, Network const& network, U32 node) {
  Known known;
  for (auto at = network.node(node).router()->status()->bootstrapRouterIterator(); at; ++at)
    known.first.emplace_back(at->zone(), at->ipAddr());
  for (ZoneParts const& zone : after.zones()) known.second.push_back(zone.bsrNodeOf(node));
  return known;
}

AgreementWatch::AgreementWatch(Network const& network, Expectation const& after,
                               std::span<IpAddr const> groups)
    : network_(network) {
  std::map<Known, std::vector<U32>> alike;
  for (U32 number = 0; number < network.nodeCount(); number += stepOf(network))
    if (network.node(number).isRunning()) alike[knownOf(after, network, number)].push_back(number);
  for (auto const& [known, nodes] : alike) {
    for (IpAddr group : groups) {
      std::set<RangeRp> rps = after.rpsFor(nodes.front(), group);
      if (!rps.empty()) watched_.push_back({.nodes = nodes, .group = group, .rps = std::move(rps)});
    }
  }
}

void AgreementWatch::leaveOut(U32 node) {
  for (Watched& watched : watched_) std::erase(watched.nodes, node);
}

/// Two routers that use different RPs; empty if there are none.
std::string AgreementWatch::differing(Watched const& watched, Compared compared) const {
  Node const* first = nullptr;
  IpGenAddr firstUsed;
  for (U32 number : watched.nodes) {
    Node const& node = network_.node(number);
    RangeRp used = node.isRunning() ? usedRp(network_, node, watched.group) : RangeRp();
    if (used.second.isEmpty() || used.second == firstUsed) continue;
    if (compared == Compared::lasting && !watched.rps.contains(used)) continue;
    if (first != nullptr)
      return fmt::format("{} uses {} and {} uses {}", first->name(), firstUsed, node.name(), used.second);
    first = &node;
    firstUsed = used.second;
  }
  return {};
}

void AgreementWatch::sample() {
  auto note = [](Difference& difference, std::string&& used) {
    difference.seconds = used.empty() ? 0 : difference.seconds + 1;
    if (difference.seconds <= difference.most) return;
    difference.most = difference.seconds;
    difference.used = std::move(used);
  };
  for (Watched& watched : watched_) {
    std::string used = differing(watched, Compared::all);
    note(watched.lasting, used.empty() ? std::string() : differing(watched, Compared::lasting));
    note(watched.ending, std::move(used));
  }
}

Findings AgreementWatch::longerThan(Bounds const& bounds) const {
  Findings findings;
  auto add = [&](IpAddr group, Difference const& difference, U32 most) {
    if (difference.most > most)
      findings.push_back(
          fmt::format("{} for group {}, for {} s", difference.used, IpGenAddr(group), difference.most));
  };
  for (Watched const& watched : watched_) {
    add(watched.group, watched.lasting, bounds.lasting);
    add(watched.group, watched.ending, bounds.ending);
  }
  return findings;
}

}  // namespace pimbsr::sim
