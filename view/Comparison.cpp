#include "view/Comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "model/DropReason.h"
#include "view/View.h"

namespace pimbsr::view {

using Lanet::IpGenPrefix;

namespace {

/// Two timers of one BSR differ by less while both routers have heard the same message.
constexpr double sameMessage = 2;

/// An agent with what it has of the zone in hand; null where it doesn't follow it.
struct Row {
  AgentState const* agent;
  BsrZone const* zone;

  bool hasBsr() const { return zone != nullptr && zone->bsr.has_value(); }
  bool isBsr() const { return hasBsr() && zone->bsr->own; }
};

std::string keyOf(Row const& row) { return row.zone == nullptr ? "" : row.zone->digest; }

// Why -------------------------------------------------------------------------------------------------

std::string borderOf(AgentState const& agent, IpGenPrefix const& zone) {
  for (Border const& border : agent.borders.borders)
    for (IpGenPrefix const& range : border.blocked)
      if (range.contains(zone))
        return fmt::format("a border of {} on {}", cellOf(range, "-"), border.interface);
  return "";
}

/// Reasons that leave a router without a message that another has.
constexpr DropReason losing[] = {DropReason::foreignSubnet, DropReason::ttl,       DropReason::notNeighbor,
                                 DropReason::bsmTooLong,    DropReason::zoneQuota, DropReason::fragmentQuota,
                                 DropReason::noRpfNeighbor, DropReason::rpQuota,   DropReason::zoneRanges,
                                 DropReason::weakerBsr,     DropReason::bsmOff,    DropReason::bsrFilter};

bool losesMessages(std::string const& reason) {
  return std::ranges::count(losing, reason, [](DropReason one) { return pimbsr::name(one); }) != 0;
}

std::string filterOf(AgentState const& agent, IpGenPrefix const& zone) {
  std::string const name = cellOf(zone, "-");
  for (Drop const& drop : agent.drops.drops)
    if (drop.zone == name && losesMessages(drop.reason))
      return fmt::format("a filter: {} drops as {}", cellOf(drop.interface, "-"), drop.reason);
  return "";
}

/// What keeps messages of a zone from one router or the other.
std::string obstacleBetween(Row const& row, Row const& other, IpGenPrefix const& zone) {
  if (row.agent->neighbors.neighbors.empty()) return "no neighbor";
  if (std::string border = borderOf(*row.agent, zone); !border.empty()) return border;
  if (std::string border = borderOf(*other.agent, zone); !border.empty())
    return border + " of " + other.agent->name;
  return filterOf(*row.agent, zone);
}

/// Of two routers with the same BSR, what is known of the message that made them differ.
std::string ageOf(Row const& row, Row const& other) {
  if (other.isBsr()) return fmt::format("an older message: {} is the BSR", other.agent->name);
  auto mine = row.zone->bsr->expiresIn;
  auto its = other.zone->bsr->expiresIn;
  if (!mine || !its || *its - *mine < sameMessage) return "";
  return fmt::format("an older message: the BSR was heard {} before {} heard it", spanOf(*its - *mine),
                     other.agent->name);
}

std::string whyDiffers(Row const& row, Row const& other, IpGenPrefix const& zone) {
  bool hasOther = row.hasBsr() && other.hasBsr() && row.zone->bsr->address != other.zone->bsr->address;
  bool isSame = row.hasBsr() && other.hasBsr() && !hasOther;
  std::string cause = obstacleBetween(row, other, zone);
  if (isSame) {
    std::string age = ageOf(row, other);
    std::string filter = filterOf(*row.agent, zone);
    if (!filter.empty()) return filter;
    return age.empty() ? "other RPs" : age;
  }
  std::string what = hasOther ? "another BSR" : row.zone == nullptr ? "does not follow it" : "no BSR";
  return cause.empty() ? what : what + ": " + cause;
}

// Zones -----------------------------------------------------------------------------------------------

/// The letter of a group by its rank: A to Z, then numbers.
std::string letterOf(std::size_t rank) {
  return rank < 26 ? std::string(1, static_cast<char>('A' + rank)) : std::to_string(rank + 1);
}

/// The digests of the rows, those of most routers first; of equal ones that of the BSR, then the first.
std::vector<std::string> ranked(std::vector<Row> const& rows) {
  std::vector<std::string> keys;
  std::map<std::string, int> weights;
  for (Row const& row : rows) {
    if (weights.emplace(keyOf(row), 0).second) keys.push_back(keyOf(row));
    // A router without a BSR weighs less than any with one.
    weights[keyOf(row)] += row.hasBsr() ? 1'000'000 + (row.isBsr() ? 1 : 0) : 2;
  }
  std::stable_sort(keys.begin(), keys.end(),
                   [&](auto const& a, auto const& b) { return weights.at(a) > weights.at(b); });
  return keys;
}

ComparedRouter viewOf(Row const& row) {
  ComparedRouter shown;
  shown.router = row.agent->name;
  if (row.zone == nullptr) return shown;
  if (row.hasBsr()) {
    shown.bsr = row.zone->bsr->address;
    shown.own = row.zone->bsr->own;
    shown.priority = row.zone->bsr->priority;
  }
  shown.ranges = row.zone->ranges;
  shown.rps = row.zone->rps;
  shown.digest = row.zone->digest;
  return shown;
}

ComparedZone zoneOf(IpGenPrefix const& zone, std::vector<Row> const& rows) {
  ComparedZone shown;
  shown.zone = zone;
  std::vector<std::string> keys = ranked(rows);
  shown.agree = keys.size() == 1;
  auto hasFirstKey = [&](Row const& row) { return keyOf(row) == keys.front(); };
  auto isFirstBsr = [&](Row const& row) { return hasFirstKey(row) && row.isBsr(); };
  auto reference = std::find_if(rows.begin(), rows.end(), isFirstBsr);
  if (reference == rows.end()) reference = std::find_if(rows.begin(), rows.end(), hasFirstKey);
  for (Row const& row : rows) {
    ComparedRouter& router = shown.routers.emplace_back(viewOf(row));
    auto rank = std::find(keys.begin(), keys.end(), keyOf(row)) - keys.begin();
    router.group = letterOf(static_cast<std::size_t>(rank));
    if (rank != 0) router.why = whyDiffers(row, *reference, zone);
  }
  return shown;
}

}  // namespace

Comparison compare(std::vector<AgentState> const& agents) {
  Comparison shown;
  std::map<IpGenPrefix, std::map<AgentState const*, BsrZone const*>> zones;
  for (AgentState const& agent : agents) {
    if (!agent.error.empty()) shown.silent.push_back({.router = agent.name, .error = agent.error});
    for (BsrZone const& zone : agent.bsr.zones) zones[zone.zone][&agent] = &zone;
  }
  for (auto& [zone, followers] : zones) {
    std::vector<Row> rows;
    for (AgentState const& agent : agents)
      if (agent.error.empty()) rows.push_back({&agent, followers[&agent]});
    shown.zones.push_back(zoneOf(zone, rows));
  }
  shown.agree = shown.silent.empty() && std::all_of(shown.zones.begin(), shown.zones.end(),
                                                    [](auto const& zone) { return zone.agree; });
  return shown;
}

}  // namespace pimbsr::view
