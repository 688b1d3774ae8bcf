#include <algorithm>
#include <set>

#include "agent/views/ViewParts.h"
#include "host/Machines.h"

namespace pimbsr::agent {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

// What is configured and doesn't stand ------------------------------------------------------------------

/// The lists by which the candidacies of an interface are configured.
static std::set<std::string> listsOf(host::ByRange<host::BsrTerms> const& terms) {
  return namesOf(terms.lists);
}
static std::set<std::string> listsOf(host::RpTerms const& terms) { return namesOf(terms.ranges.lists); }

/// As in "sites, lab (not there)".
static std::string told(std::set<std::string> const& lists, std::set<std::string> const& absent) {
  std::string text;
  for (std::string const& list : lists) {
    text += (text.empty() ? "" : ", ") + list + (absent.contains(list) ? " (not there)" : "");
  }
  return text;
}

/// Why nothing comes of the candidacies of an interface.
static std::string whyIdle(KernelView const& kernel, std::string const& intf, std::string const& lists) {
  auto link = kernel.links.find(intf);
  if (link == kernel.links.end()) return "there is no such interface";
  if (!link->second.up) return "the interface is down";
  if (link->second.addresses.empty()) return "the interface has no IPv4 address";
  return "its lists permit no group range: " + lists;
}

/// Interfaces of a configured map to which no entry of the status tree belongs, and those that wait for a
/// list.
template <class Configured, class Walk>
static Json idleOf(Observed const& observed, Configured const& configured, Walk entries) {
  std::set<std::string> standing;
  for (; entries; ++entries) standing.insert(textOf(entries->intfId()));
  Json idle = Json::array();
  for (auto const& [intf, terms] : configured) {
    std::set<std::string> lists = listsOf(terms);
    std::set<std::string> absent = absentOf(observed, lists);
    if (!standing.contains(intf)) {
      std::string why = whyIdle(observed.kernel, intf, told(lists, absent));
      idle.push_back({{"interface", intf}, {"because", why}});
    } else if (!absent.empty()) {
      idle.push_back({{"interface", intf}, {"because", "list " + told(absent, absent)}});
    }
  }
  return idle;
}

// As BSR ------------------------------------------------------------------------------------------------

static Json bsrCandidateJson(Observed const& observed, Bsr::BsrCandidate const& candidate) {
  host::MachineView machine = host::machineOf(observed.router, candidate.zone(), observed.now());
  return {{"zone", jsonOf(candidate.zone())},
          {"interface", jsonOf(candidate.intfId())},
          {"address", jsonOf(candidate.address())},
          {"priority", candidate.priority()},
          {"hashMaskLen", candidate.hashMaskLen()},
          {"interval", candidate.bsPeriod()},
          {"state", jsonOfState(machine.state)},
          {"elected", machine.elected},
          {"nextMessage", machine.elected ? jsonOfTime(machine.bootstrapTimer) : Json()}};
}

static Json bsrCandidates(Observed const& observed) {
  std::map<IpGenPrefix, Json> byZone;
  for (auto at = observed.router.status()->cbsrIterator(); at; ++at) {
    byZone[at->zone()] = bsrCandidateJson(observed, *at);
  }
  Json candidates = Json::array();
  for (auto& [zone, json] : byZone) candidates.push_back(std::move(json));
  return candidates;
}

// As RP -------------------------------------------------------------------------------------------------

/// The zone in whose advertisement a range stands; the unset prefix if no zone with a BSR covers it.
static IpGenPrefix zoneOf(Bsr::RpCandidateSm const& machine, IpGenPrefix const& range) {
  for (auto set = machine.crpAdvSetIterator(); set; ++set) {
    if (set->prefixSet(range)) return set->zone();
  }
  return {};
}

static Json rangeJson(Observed const& observed, Bsr::RpCandidate const& candidate, IpGenPrefix const& range) {
  auto options = candidate.prefixOptions(range);
  Json json = {{"range", jsonOf(range)},
               {"priority", nullptr},
               {"zone", nullptr},
               {"bsr", nullptr},
               {"nextAdvertisement", nullptr}};
  bool hasPriority = options && options->priority() != Routing::Pim::RpPriority();
  if (!hasPriority) return json;
  json["priority"] = options->priority().value();
  auto machine = observed.router.root()->rpCandidateSm({candidate.address(), options->priority()});
  IpGenPrefix zone = machine ? zoneOf(*machine, range) : IpGenPrefix();
  auto bsr = observed.router.status()->bootstrapRouter(zone);
  if (!bsr) return json;
  json["zone"] = jsonOf(zone);
  json["bsr"] = jsonOf(bsr->ipAddr());
  json["nextAdvertisement"] = jsonOfTime(host::leftOf(machine->zetCrpAdvTimer(), observed.now()));
  return json;
}

static Json rpCandidateJson(Observed const& observed, Bsr::RpCandidate const& candidate) {
  std::set<IpGenPrefix> ranges;
  for (auto at = candidate.prefixSetIterator(); at; ++at) {
    if (candidate.prefixSet(at.key())) ranges.insert(at.key());
  }
  Json json = Json::array();
  for (IpGenPrefix const& range : ranges) json.push_back(rangeJson(observed, candidate, range));
  return {{"interface", jsonOf(candidate.intfId())},
          {"address", jsonOf(candidate.address())},
          {"interval", candidate.interval().value()},
          {"ranges", json}};
}

static Json rpCandidates(Observed const& observed) {
  std::map<Lanet::IpGenAddr, Json> byAddress;
  for (auto at = observed.router.status()->crpIterator(); at; ++at) {
    byAddress[at->address()] = rpCandidateJson(observed, *at);
  }
  Json candidates = Json::array();
  for (auto& [address, json] : byAddress) candidates.push_back(std::move(json));
  return candidates;
}

Json showCandidates(Observed const& observed) {
  host::Configuration const& configured = observed.settings.router;
  auto status = observed.router.status();
  return {{"bsr", bsrCandidates(observed)},
          {"idleBsr", idleOf(observed, configured.candidateBsrs, status->cbsrIterator())},
          {"rp", rpCandidates(observed)},
          {"idleRp", idleOf(observed, configured.candidateRps, status->crpIterator())}};
}

}  // namespace pimbsr::agent
