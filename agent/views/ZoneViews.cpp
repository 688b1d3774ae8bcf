#include <algorithm>
#include <set>

#include "agent/views/ViewParts.h"
#include "host/Machines.h"
#include "host/RpMap.h"
#include "host/Views.h"

namespace pimbsr::agent {

using host::MachineView;
using host::RangeView;
using host::RpView;
using host::ZoneView;

/// Seconds until a time on the agent's clock, at least 0; null for never.
static Json leftUntil(double time, double now) { return jsonOfTime(std::max(0.0, time - now)); }

static std::size_t rpCount(ZoneView const& zone) {
  std::size_t count = 0;
  for (RangeView const& range : zone.rpSet) count += range.rps.size();
  return count;
}

// The BSR of each zone ----------------------------------------------------------------------------------

static Json bsrJson(Observed const& observed, ZoneView const& zone, MachineView const& machine) {
  if (!zone.bsr) return nullptr;
  double now = observed.now();
  std::optional<double> since = observed.history.bsrSince(zone.zone);
  // An elected BSR's timer is for its next message; nothing expires.
  bool own = machine.elected;
  return {{"address", jsonOf(zone.bsr->address)},
          {"own", own},
          {"priority", zone.bsr->priority},
          {"hashMaskLen", zone.bsr->hashMaskLen},
          {"uptime", since ? jsonOfTime(std::max(0.0, now - *since)) : Json()},
          {"expiresIn", own ? Json() : leftUntil(zone.bsr->expiryTime, now)}};
}

static Json bsrZoneJson(Observed const& observed, ZoneView const& zone) {
  MachineView machine = host::machineOf(observed.router, zone.zone, observed.now());
  bool isGlobal = zone.zone == observed.router.root()->globalOrNonScopeZone();
  return {{"zone", jsonOf(zone.zone)},
          {"scoped", !isGlobal},
          {"candidate", machine.candidate},
          {"state", jsonOfState(machine.state)},
          {"bsr", bsrJson(observed, zone, machine)},
          {"bootstrapTimer", jsonOfTime(machine.bootstrapTimer)},
          {"scopeZoneTimer", jsonOfTime(machine.scopeZoneTimer)},
          {"nextMessage", machine.elected ? jsonOfTime(machine.bootstrapTimer) : Json()},
          {"ranges", zone.rpSet.size()},
          {"rps", rpCount(zone)}};
}

Json showBsr(Observed const& observed) {
  Json zones = Json::array();
  for (ZoneView const& zone : host::zonesOf(observed.router)) zones.push_back(bsrZoneJson(observed, zone));
  return {{"zones", zones}};
}

// The RP set of each zone -------------------------------------------------------------------------------

static Json rpJson(RpView const& rp, double now) {
  return {{"address", jsonOf(rp.address)},
          {"priority", rp.priority},
          {"holdTime", rp.holdTime},
          {"expiresIn", leftUntil(rp.expires, now)},
          {"bidirectional", rp.mode == Routing::Pim::Mode::bidir}};
}

static Json rangeJson(RangeView const& range, double now) {
  Json rps = Json::array();
  for (RpView const& rp : range.rps) rps.push_back(rpJson(rp, now));
  return {{"range", jsonOf(range.range)}, {"rps", rps}};
}

Json showRpSet(Observed const& observed) {
  Json zones = Json::array();
  for (ZoneView const& zone : host::zonesOf(observed.router)) {
    Json ranges = Json::array();
    for (RangeView const& range : zone.rpSet) ranges.push_back(rangeJson(range, observed.now()));
    zones.push_back({{"zone", jsonOf(zone.zone)},
                     {"bsr", zone.bsr ? jsonOf(zone.bsr->address) : Json()},
                     {"hashMaskLen", zone.bsr ? Json(zone.bsr->hashMaskLen) : Json()},
                     {"rps", rpCount(zone)},
                     {"ranges", ranges}});
  }
  return {{"zones", zones}};
}

// Which RP serves a group -------------------------------------------------------------------------------

static std::string_view keyOf(host::RpTieBreak tieBreak) {
  constexpr std::string_view names[] = {"noRp", "onlyOne", "priority", "hash", "address"};
  return names[static_cast<std::size_t>(tieBreak)];
}

/// The zones whose RP sets hold a range.
static Json zonesOf(Observed const& observed, Lanet::IpGenPrefix const& range) {
  std::set<Lanet::IpGenPrefix> zones;
  for (auto at = observed.router.status()->crpStatusIterator(); at; ++at) {
    if (at->status() && at->status()->crpSet(range)) zones.insert(at->zone());
  }
  Json json = Json::array();
  for (Lanet::IpGenPrefix const& zone : zones) json.push_back(jsonOf(zone));
  return json;
}

/// A range that covers the group: where it is from, how many RPs it has, and how many whose time is not over.
static Json coveringJson(Observed const& observed, Lanet::IpGenPrefix const& range, bool chosen) {
  auto set = observed.router.rpCandidateStatus()->crpSet(range);
  std::size_t all = 0;
  std::size_t live = 0;
  for (auto rp = set->rpIterator(); rp; ++rp) {
    ++all;
    live += rp->expires() > observed.now() ? 1 : 0;
  }
  return {{"range", jsonOf(range)},
          {"zones", zonesOf(observed, range)},
          {"rps", all},
          {"live", live},
          {"chosen", chosen}};
}

static Json choiceJson(host::RpChoice const& choice) {
  return {{"address", jsonOf(choice.address)},
          {"priority", choice.priority},
          {"hashMaskLen", choice.hashMaskLen},
          {"hash", choice.hash}};
}

/// Link-local groups are no business of RPs, whatever ranges cover them (RFC 5771 section 4).
static Json linkLocalJson(Lanet::IpAddr group) {
  return {{"group", jsonOf(group)},
          {"rp", nullptr},
          {"range", nullptr},
          {"decidedBy", keyOf(host::RpTieBreak::noRp)},
          {"because", "groups of 224.0.0.0/24 stay on their link, and no RP serves them"},
          {"ranges", Json::array()},
          {"candidates", Json::array()}};
}

Json showRp(Observed const& observed, Lanet::IpAddr group) {
  constexpr Zet::U32 linkLocal = 0xe0000000;
  if ((group.hostWord() & 0xffffff00) == linkLocal) return linkLocalJson(group);
  host::RpAnswer answer = host::RpMap(observed.router.rpCandidateStatus()).lookup(group, observed.now());
  Json ranges = Json::array();
  for (Lanet::IpGenPrefix const& range : answer.ranges) {
    ranges.push_back(coveringJson(observed, range, range == answer.range));
  }
  Json candidates = Json::array();
  for (host::RpChoice const& choice : answer.choices) candidates.push_back(choiceJson(choice));
  return {{"group", jsonOf(group)},
          {"rp", jsonOf(answer.rp)},
          {"range", jsonOf(answer.range)},
          {"decidedBy", keyOf(answer.tieBreak)},
          {"because", host::sentenceOf(answer.tieBreak)},
          {"ranges", ranges},
          {"candidates", candidates}};
}

}  // namespace pimbsr::agent
