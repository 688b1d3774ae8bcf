#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "agent/views/ViewParts.h"
#include "host/LastMessages.h"
#include "host/RpMap.h"
#include "host/Views.h"
#include "view/Digest.h"

namespace pimbsr::agent {

using host::MachineView;
using host::RangeView;
using host::ZoneView;

static std::size_t rpCount(ZoneView const& zone) {
  std::size_t count = 0;
  for (RangeView const& range : zone.rpSet) count += range.rps.size();
  return count;
}

// The BSR of each zone ----------------------------------------------------------------------------------

static view::KnownBsr viewOf(Observed const& observed, ZoneView const& zone, MachineView const& machine) {
  std::optional<double> since = observed.history.bsrSince(zone.zone);
  view::KnownBsr shown;
  view::fillTerms(shown, *zone.bsr);
  shown.own = machine.elected;
  if (since) shown.uptime = std::max(0.0, observed.now() - *since);
  // An elected BSR's timer is for its next message; nothing expires.
  if (!shown.own) shown.expiresIn = leftUntil(zone.bsr->expiryTime, observed.now());
  return shown;
}

static view::LearnedFrom viewOf(Observed const& observed, host::LastMessage const& last) {
  return {.neighbor = last.sender,
          .interface = textOf(last.intfId),
          .fragmentTag = last.fragmentTag,
          .noForward = !last.forward,
          .ago = std::max(0.0, observed.now() - last.time)};
}

static view::RpfPath viewOf(host::Router::RpfPath const& path) {
  view::RpfPath shown{.neighbor = path.neighbor};
  if (path.route.type == ::Slosh::Fib::RouteType::unset) return shown;
  shown.interface = textOf(path.route.intfId);
  shown.nextHop = path.route.nextHop;
  return shown;
}

/// From where the BSR of a zone is learned.
static void fillPath(view::BsrZone& shown, Observed const& observed) {
  if (!shown.bsr || shown.bsr->own) return;
  host::LastMessage const* last = observed.router.lastMessages().find(shown.zone);
  if (last != nullptr) shown.learnedFrom = viewOf(observed, *last);
  shown.rpf = viewOf(observed.router.rpfPath(shown.bsr->address));
}

static view::BsrZone bsrOf(Observed const& observed, ZoneView const& zone) {
  MachineView machine = host::machineOf(observed.router, zone.zone, observed.now());
  view::BsrZone shown;
  shown.zone = zone.zone;
  shown.scoped = zone.zone != observed.router.globalZone();
  shown.candidate = machine.candidate;
  shown.state = view::stateOf(machine);
  if (zone.bsr) shown.bsr = viewOf(observed, zone, machine);
  shown.bootstrapTimer = machine.bootstrapTimer;
  shown.scopeZoneTimer = machine.scopeZoneTimer;
  if (machine.elected) shown.nextMessage = machine.bootstrapTimer;
  shown.ranges = zone.rpSet.size();
  shown.rps = rpCount(zone);
  shown.digest = view::digestOf(zone, observed.now());
  fillPath(shown, observed);
  return shown;
}

view::Bsr showBsr(Observed const& observed) {
  view::Bsr shown;
  for (ZoneView const& zone : host::zonesOf(observed.router)) shown.zones.push_back(bsrOf(observed, zone));
  return shown;
}

// The RP set of each zone -------------------------------------------------------------------------------

/// What a prefix asks for: all for the empty one, a zone for its own, else the ranges that cover it or lie
/// within, with their zones.
static void restrict(std::vector<ZoneView>& zones, Lanet::IpGenPrefix const& prefix) {
  if (prefix.isEmpty()) return;
  auto isZone = [&](ZoneView const& zone) { return zone.zone == prefix; };
  if (std::any_of(zones.begin(), zones.end(), isZone)) {
    std::erase_if(zones, [&](ZoneView const& zone) { return !isZone(zone); });
    return;
  }
  for (ZoneView& zone : zones) {
    std::erase_if(zone.rpSet, [&](RangeView const& range) {
      return !range.range.contains(prefix) && !prefix.contains(range.range);
    });
  }
  std::erase_if(zones, [](ZoneView const& zone) { return zone.rpSet.empty(); });
}

static void fillUptimes(view::SetZone& shown, ZoneView const& zone, double now) {
  for (std::size_t range = 0; range < zone.rpSet.size(); ++range) {
    std::vector<host::RpView> const& rps = zone.rpSet[range].rps;
    for (std::size_t rp = 0; rp < rps.size(); ++rp)
      shown.rpSet[range].rps[rp].uptime = std::max(0.0, now - rps[rp].setupTime);
  }
}

view::RpSet showRpSet(Observed const& observed, Lanet::IpGenPrefix const& prefix) {
  view::RpSet shown;
  std::vector<ZoneView> zones = host::zonesOf(observed.router);
  restrict(zones, prefix);
  for (ZoneView const& zone : zones) {
    view::SetZone& set = shown.zones.emplace_back();
    view::fillZone(set, zone, observed.now());
    fillUptimes(set, zone, observed.now());
    set.rps = rpCount(zone);
  }
  return shown;
}

// The RP of a group -------------------------------------------------------------------------------------

/// The zones whose RP sets hold a range, or held it until the BSR changed.
static std::vector<Lanet::IpGenPrefix> zonesOf(Observed const& observed, Lanet::IpGenPrefix const& range) {
  std::set<Lanet::IpGenPrefix> zones;
  for (auto at = observed.router.status()->crpStatusIterator(); at; ++at) {
    if (at->status() && at->status()->crpSet(range)) zones.insert(at->zone());
  }
  if (auto kept = observed.router.keptZone(range)) zones.insert(*kept);
  return {zones.begin(), zones.end()};
}

/// A range that covers the group: where it is from, how many RPs it has, and how many whose time is not over.
static view::CoveringRange coveringOf(Observed const& observed, Lanet::IpGenPrefix const& range,
                                      bool chosen) {
  view::CoveringRange shown{.range = range, .zones = zonesOf(observed, range), .chosen = chosen};
  for (auto rp = observed.router.rpCandidateStatus()->crpSet(range)->rpIterator(); rp; ++rp) {
    ++shown.rps;
    shown.live += rp->expires() > observed.now() ? 1 : 0;
  }
  return shown;
}

static view::RpChoice viewOf(host::RpChoice const& choice) {
  return {.address = choice.address,
          .priority = choice.priority,
          .hashMaskLen = choice.hashMaskLen,
          .hash = choice.hash};
}

/// Link-local groups have no RP, whatever ranges cover them (RFC 5771 section 4).
static view::Rp linkLocal(Lanet::IpAddr group) {
  view::Rp shown;
  shown.group = group;
  shown.decidedBy = view::keyOf(host::RpTieBreak::noRp);
  shown.because = fmt::format("groups of {} stay on their link, and no RP serves them",
                              host::linkLocalGroups().stringValue().view());
  return shown;
}

view::Rp showRp(Observed const& observed, Lanet::IpAddr group) {
  if (host::linkLocalGroups().contains(group)) return linkLocal(group);
  host::RpAnswer answer = host::RpMap(observed.router.rpCandidateStatus()).lookup(group, observed.now());
  view::Rp shown;
  shown.group = group;
  shown.rp = answer.rp;
  shown.range = answer.range;
  shown.decidedBy = view::keyOf(answer.tieBreak);
  shown.because = host::sentenceOf(answer.tieBreak);
  for (Lanet::IpGenPrefix const& range : answer.ranges) {
    shown.ranges.push_back(coveringOf(observed, range, range == answer.range));
  }
  for (host::RpChoice const& choice : answer.choices) shown.candidates.push_back(viewOf(choice));
  return shown;
}

}  // namespace pimbsr::agent
