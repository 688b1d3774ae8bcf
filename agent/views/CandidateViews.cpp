#include <algorithm>
#include <set>

#include "agent/views/ViewParts.h"

namespace pimbsr::agent {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;

// Configured candidacies without effect -----------------------------------------------------------------

/// The lists by which the candidacies of an interface are configured.
static std::set<std::string> listsOf(host::ByRange<host::BsrTerms> const& terms) {
  return namesOf(terms.lists);
}
static std::set<std::string> listsOf(host::RpTerms const& terms) { return namesOf(terms.ranges.lists); }

/// As in "sites, lab (not there)".
static std::string describe(std::set<std::string> const& lists, std::set<std::string> const& absent) {
  std::string text;
  for (std::string const& list : lists) {
    text += (text.empty() ? "" : ", ") + list + (absent.contains(list) ? " (not there)" : "");
  }
  return text;
}

/// Whether candidacies are configured by group ranges, and not by lists alone.
static bool hasGroups(host::ByRange<host::BsrTerms> const& terms) { return !terms.groups.empty(); }
static bool hasGroups(host::RpTerms const& terms) { return !terms.ranges.groups.empty(); }

/// Why the candidacies of an interface have no effect.
static std::string whyIdle(KernelView const& kernel, std::string const& intf, bool hasGroups,
                           std::string const& lists) {
  auto link = kernel.links.find(intf);
  if (link == kernel.links.end()) return "there is no such interface";
  if (!link->second.up) return "the interface is down";
  std::vector<KernelAddress> const& addresses = link->second.addresses;
  if (addresses.empty()) return "the interface has no IPv4 address";
  if (std::none_of(addresses.begin(), addresses.end(), isUsable))
    return "the interface has no IPv4 address but those of 127.0.0.0/8, which no other router reaches";
  if (hasGroups) return "the candidacy of another interface has its group ranges";
  return "its lists permit no group range: " + lists;
}

/// Interfaces of a configured map to which no entry of the status tree belongs, and those that wait for a
/// list.
template <class Configured, class Walk>
static std::vector<view::IdleCandidate> idleOf(Observed const& observed, Configured const& configured,
                                               Walk entries) {
  std::set<std::string> active;
  for (; entries; ++entries) active.insert(textOf(entries->intfId()));
  std::vector<view::IdleCandidate> idle;
  for (auto const& [intf, terms] : configured) {
    std::set<std::string> lists = listsOf(terms);
    std::set<std::string> absent = absentOf(observed, lists);
    if (!active.contains(intf)) {
      std::string why = whyIdle(observed.kernel, intf, hasGroups(terms), describe(lists, absent));
      idle.push_back({.interface = intf, .because = why});
    } else if (!absent.empty()) {
      idle.push_back({.interface = intf, .because = "list " + describe(absent, absent)});
    }
  }
  return idle;
}

// As BSR ------------------------------------------------------------------------------------------------

static view::CandidateBsr viewOf(Observed const& observed, Bsr::BsrCandidate const& candidate) {
  host::MachineView machine = host::machineOf(observed.router, candidate.zone(), observed.now());
  view::CandidateBsr shown;
  shown.zone = candidate.zone();
  shown.interface = textOf(candidate.intfId());
  shown.address = candidate.address();
  shown.priority = candidate.priority();
  shown.hashMaskLen = candidate.hashMaskLen();
  shown.bsPeriod = candidate.bsPeriod();
  shown.state = view::stateOf(machine);
  shown.elected = machine.elected;
  if (machine.elected) shown.nextMessage = machine.bootstrapTimer;
  return shown;
}

static std::vector<view::CandidateBsr> bsrCandidates(Observed const& observed) {
  std::map<IpGenPrefix, view::CandidateBsr> byZone;
  for (auto at = observed.router.status()->cbsrIterator(); at; ++at) {
    byZone[at->zone()] = viewOf(observed, *at);
  }
  std::vector<view::CandidateBsr> candidates;
  candidates.reserve(byZone.size());
  for (auto& [zone, candidate] : byZone) candidates.push_back(std::move(candidate));
  return candidates;
}

// As RP -------------------------------------------------------------------------------------------------

static view::CandidateRange viewOf(Observed const& observed, Bsr::RpCandidate const& candidate,
                                   IpGenPrefix const& range) {
  auto options = candidate.prefixOptions(range);
  view::CandidateRange shown{.range = range};
  bool hasPriority = options && options->priority() != Routing::Pim::RpPriority();
  if (!hasPriority) return shown;
  shown.priority = options->priority().value();
  auto advertising = observed.router.advertising({candidate.address(), options->priority()}, range);
  if (!advertising) return shown;
  IpGenPrefix const& zone = advertising->zone;
  auto bsr = observed.router.status()->bootstrapRouter(zone);
  if (!bsr) return shown;
  shown.zone = zone;
  shown.bsr = bsr->ipAddr();
  if (advertising->next) shown.nextAdvertisement = leftUntil(*advertising->next, observed.now());
  return shown;
}

static view::CandidateRp viewOf(Observed const& observed, Bsr::RpCandidate const& candidate) {
  std::set<IpGenPrefix> ranges;
  for (auto at = candidate.prefixSetIterator(); at; ++at) {
    if (candidate.prefixSet(at.key())) ranges.insert(at.key());
  }
  view::CandidateRp shown;
  shown.interface = textOf(candidate.intfId());
  shown.address = candidate.address();
  shown.cRpAdvPeriod = candidate.interval().value();
  for (IpGenPrefix const& range : ranges) shown.ranges.push_back(viewOf(observed, candidate, range));
  return shown;
}

static std::vector<view::CandidateRp> rpCandidates(Observed const& observed) {
  std::map<Lanet::IpGenAddr, view::CandidateRp> byAddress;
  for (auto at = observed.router.status()->crpIterator(); at; ++at) {
    byAddress[at->address()] = viewOf(observed, *at);
  }
  std::vector<view::CandidateRp> candidates;
  candidates.reserve(byAddress.size());
  for (auto& [address, candidate] : byAddress) candidates.push_back(std::move(candidate));
  return candidates;
}

view::Candidates showCandidates(Observed const& observed) {
  host::Configuration const& configured = observed.settings.router;
  auto status = observed.router.status();
  return {.bsr = bsrCandidates(observed),
          .idleBsr = idleOf(observed, configured.candidateBsrs, status->cbsrIterator()),
          .rp = rpCandidates(observed),
          .idleRp = idleOf(observed, configured.candidateRps, status->crpIterator())};
}

}  // namespace pimbsr::agent
