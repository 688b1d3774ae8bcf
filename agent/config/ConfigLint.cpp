#include "agent/config/ConfigLint.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>
#include <set>

#include "agent/base/FilterAddresses.h"
#include "agent/config/ConfigTable.h"
#include "agent/config/Settings.keys.h"
#include "config/AclToPrefix.h"
#include "host/Configuration.keys.h"
#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"
#include "host/PreferredRps.h"
#include "host/RpMap.h"

namespace pimbsr::agent {

using AclPrefix::AclToPrefix;
using host::BsrTerms;
using host::BsrTermsKeys;
using host::ConfigPart;
using host::ConfigPlace;
using host::TimeoutsKeys;
using Lanet::IpGenPrefix;
using Lanet::IpGenPrefixSet;
using Zet::U64;

static std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

/// Ranges that a rule matches: one for each value of the zero bits of its mask above the lowest one bit.
static U64 rangesOf(Acl::IpRuleConfig const& rule) {
  U32 mask = rule.filter.sourceMask.hostWord();
  U32 below = mask == 0 ? ~U32{0} : (mask & -mask) - 1;
  return U64{1} << std::popcount(~(mask | below));
}

namespace {

/// Walks one configuration and reports its warnings.
class Linter {
 public:
  explicit Linter(ConfigReading const& reading)
      : reading_(reading), router_(reading.settings.router), findings_(reading.remarks) {
    for (ConfigFinding const& error : reading.errors) invalid_.insert(error.at);
  }

  std::vector<ConfigFinding> run();

 private:
  void lintTimers();
  void lintBsrs();
  void lintBsr(ConfigPlace const& place, BsrTerms const& terms);
  void lintPeriod(ConfigPlace const& place, U64 period);
  void lintZones();
  void lintZone(IpGenPrefix const& zone, std::string const& intf, BsrTerms const& terms,
                ConfigPlace const& place);
  void lintRps();
  void lintRpRange(IpGenPrefix const& range, std::string const& intf, std::optional<U64> const& priority,
                   ConfigPlace const& place);
  void lintBorders();
  void lintInterfaces();
  void lintNeighbors();
  void lintAddressLists(ConfigKey const& key, std::set<std::string> const& lists);
  std::string_view uselessReason(ConfigKey const& key, std::set<std::string> const& lists) const;
  void lintLists();
  template <class Keys, class Struct>
  void lintKeys(Struct const& values, ConfigPlace const& place);
  void lintGroups(ConfigPlace const& place, IpGenPrefix const& range);
  void lintList(ConfigPlace const& place, std::string const& name);
  void lintCandidate(ConfigPlace const& place);
  template <class Terms>
  void lintRanges(ConfigPlace const& place, host::ByRange<Terms> const& ranges,
                  ConfigKey const& groups = file::CandidateBsrKeys::groups,
                  ConfigKey const& lists = file::CandidateBsrKeys::lists);

  void lintUnicastRules(std::string const& name, std::string const& user);
  bool permitsUnicast(std::set<std::string> const& lists) const;

  /// What the rules of a list permit: group ranges, or with `unicast` any addresses.
  static IpGenPrefixSet prefixesOf(host::AccessList const& list, bool unicast);
  /// The group ranges that a list permits; none of a list that is read over senders.
  IpGenPrefixSet permitted(std::string const& name) const;
  bool isThere(std::string const& list) const { return router_.accessLists.contains(list); }
  /// Whether the value at a place is invalid.
  bool isInvalid(ConfigPlace const& place) const { return invalid_.contains(reading_.places.find(place)); }
  bool hasInvalidTerms(ConfigPlace const& place) const {
    bool any = false;
    BsrTermsKeys::forEach([&](ConfigKey const& key, auto) { any = any || isInvalid(place.at(key.name)); });
    return any;
  }
  bool speaksPim(std::string const& intf) const { return reading_.settings.interfaces.contains(intf); }
  void report(ConfigPlace const& place, std::string const& text) {
    reportAt(reading_.places.find(place), keyOf(place) + ": " + text);
  }
  /// Reports what is missing, unless an error may hide it.
  void reportMissing(ConfigPlace const& place, std::string const& text) {
    if (reading_.isSound()) report(place, text);
  }
  void reportAt(TextPlace at, std::string const& text) { findings_.push_back({at, text}); }

  /// The interface that has a range, with its terms.
  template <class Terms>
  struct Claim {
    std::string intf;
    Terms terms;
  };

  ConfigReading const& reading_;
  host::Configuration const& router_;
  std::vector<ConfigFinding> findings_;
  std::set<TextPlace> invalid_;
  std::map<IpGenPrefix, Claim<BsrTerms>> zones_;
  std::map<IpGenPrefix, std::vector<Claim<U64>>> rpRanges_;
  std::set<std::string> named_;  ///< the lists that are referenced
};

std::vector<ConfigFinding> Linter::run() {
  lintTimers();
  lintBsrs();
  lintZones();
  lintRps();
  lintBorders();
  lintInterfaces();
  host::FilterListsKeys::forEach(
      [&](ConfigKey const& key, auto member) { lintAddressLists(key, router_.*member); });
  lintLists();
  lintNeighbors();
  lintKeys<host::ChecksKeys>(reading_.settings.ingress, {.part = ConfigPart::checks});
  lintKeys<host::LimitsKeys>(reading_.settings.ingress, {.part = ConfigPart::limits});
  lintKeys<host::CorrectionsKeys>(reading_.settings.corrections, {.part = ConfigPart::corrections});
  auto before = [](ConfigFinding const& a, ConfigFinding const& b) { return a.at < b.at; };
  std::stable_sort(findings_.begin(), findings_.end(), before);
  // An invalid value was replaced by its default, which is not the operator's choice.
  std::erase_if(findings_, [&](ConfigFinding const& finding) { return invalid_.contains(finding.at); });
  // A warning for each range of a block is reported once.
  findings_.erase(std::unique(findings_.begin(), findings_.end()), findings_.end());
  return findings_;
}

// Timers ----------------------------------------------------------------------------------------------

void Linter::lintTimers() {
  U64 const defaultPeriod = BsrTerms().bsPeriod;
  ConfigPlace const timers{.part = ConfigPart::timers};
  ConfigPlace const bsTimeoutAt = timers.at(TimeoutsKeys::bsTimeout.name);
  ConfigPlace const szTimeoutAt = timers.at(TimeoutsKeys::szTimeout.name);
  U64 bsTimeout = router_.bsTimeout;
  if (isInvalid(bsTimeoutAt)) return;
  if (router_.candidateBsrs.empty() && bsTimeout <= defaultPeriod) {
    report(bsTimeoutAt, fmt::format("{} is not above {} s, the default BS_Period: the BSR "
                                    "would be given up between two messages",
                                    bsTimeout, defaultPeriod));
  }
  if (router_.szTimeout >= 10 * bsTimeout) return;
  TextPlace at = reading_.places.find(szTimeoutAt);
  reportAt(at == TextPlace() ? reading_.places.find(bsTimeoutAt) : at,
           fmt::format("{}: {} is below {}, ten times {}, which is used in its place", keyOf(szTimeoutAt),
                       router_.szTimeout, 10 * bsTimeout, keyOf(bsTimeoutAt)));
}

/// A filter of the kernel, which knows the neighbors of an interface, has room for so many addresses.
void Linter::lintNeighbors() {
  U64 neighbors = reading_.settings.ingress.neighborsPerInterface;
  if (neighbors <= maxFilterAddresses) return;
  report(ConfigPlace{.part = ConfigPart::limits}.at(host::LimitsKeys::neighborsPerInterface.name),
         fmt::format("{} is above {}, the neighbors that the kernel's filter separates from others: a flood "
                     "can displace the packets of those beyond",
                     neighbors, maxFilterAddresses));
}

// Candidate BSRs --------------------------------------------------------------------------------------

/// Reports the values that are declared unwise.
template <class Keys, class Struct>
void Linter::lintKeys(Struct const& values, ConfigPlace const& place) {
  forEachUnwise<Keys>(values, [&](ConfigKey const& key, std::string_view reason) {
    report(place.at(key.name), std::string(reason));
  });
}

void Linter::lintBsr(ConfigPlace const& place, BsrTerms const& terms) {
  if (terms.priority == BsrTerms().priority) {
    reportMissing(place.at(BsrTermsKeys::priority.name),
                  fmt::format("{} is the default of every candidate, and between equal "
                              "priorities the higher address decides; give each candidate its own",
                              terms.priority));
  }
  lintKeys<BsrTermsKeys>(terms, place);
  lintPeriod(place.at(BsrTermsKeys::bsPeriod.name), terms.bsPeriod);
}

void Linter::lintPeriod(ConfigPlace const& place, U64 period) {
  ConfigPlace const bsTimeout = ConfigPlace{.part = ConfigPart::timers}.at(TimeoutsKeys::bsTimeout.name);
  if (isInvalid(bsTimeout)) return;
  if (router_.bsTimeout <= period) {
    report(place, fmt::format("{} is not below {}, {}: the BSR would be given up between two of its messages",
                              period, keyOf(bsTimeout), router_.bsTimeout));
  } else if (router_.bsTimeout < 2 * period + 10) {
    report(place, fmt::format("{}, {}, is below two intervals of {} s and 10 s (RFC 5059 section 5): one "
                              "lost message ends the BSR",
                              keyOf(bsTimeout), router_.bsTimeout, period));
  }
}

void Linter::lintBsrs() {
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    ConfigPlace place{.part = ConfigPart::candidateBsr, .name = intf};
    lintCandidate(place);
    lintRanges(place, ranges);
    for (auto const& [range, terms] : ranges.groups) {
      lintGroups(place.group(range), range);
      lintBsr(place.group(range), terms);
    }
    for (auto const& [name, terms] : ranges.lists) lintBsr(place.list(name), terms);
  }
}

/// Groups first: every finding is of a list. A configuration without errors has each zone on one interface.
void Linter::lintZones() {
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    ConfigPlace place{.part = ConfigPart::candidateBsr, .name = intf};
    for (auto const& [range, terms] : ranges.groups) {
      if (!hasInvalidTerms(place.group(range))) zones_.try_emplace(range, Claim<BsrTerms>{intf, terms});
    }
  }
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    ConfigPlace place{.part = ConfigPart::candidateBsr, .name = intf};
    for (auto const& [name, terms] : ranges.lists) {
      for (IpGenPrefix const& zone : permitted(name)) lintZone(zone, intf, terms, place.list(name));
    }
  }
}

void Linter::lintZone(IpGenPrefix const& zone, std::string const& intf, BsrTerms const& terms,
                      ConfigPlace const& place) {
  if (hasInvalidTerms(place)) return;
  auto [claim, isFirst] = zones_.try_emplace(zone, Claim<BsrTerms>{intf, terms});
  bool isOthers = claim->second.intf != intf;
  if (isFirst || isOthers || claim->second.terms == terms) return;
  report(place,
         fmt::format(
             "it permits {}, for which {} is a candidate BSR with other terms; of both, those count that "
             "were applied last",
             textOf(zone), claim->second.intf));
}

// Candidate RPs ---------------------------------------------------------------------------------------

void Linter::lintRps() {
  for (auto const& [intf, terms] : router_.candidateRps) {
    ConfigPlace place{.part = ConfigPart::candidateRp, .name = intf};
    lintCandidate(place);
    lintRanges(place, terms.ranges);
    for (auto const& [range, priority] : terms.ranges.groups) {
      lintGroups(place.group(range), range);
      lintRpRange(range, intf, priority, place.group(range));
    }
    for (auto const& [name, priority] : terms.ranges.lists) {
      for (IpGenPrefix const& range : permitted(name)) {
        lintRpRange(range, intf, priority, place.list(name));
      }
    }
  }
}

/// Between different ranges the longer decides, whatever the priorities are (RFC 7761 section 4.7.1).
void Linter::lintRpRange(IpGenPrefix const& range, std::string const& intf,
                         std::optional<U64> const& priority, ConfigPlace const& place) {
  if (hasInvalidTerms(place)) return;
  auto& claims = rpRanges_[range];
  for (auto const& claim : claims) {
    if (claim.intf == intf && priority && claim.terms != *priority) {
      report(place, fmt::format("{} offers {} with priority {} too, by another group range or list; of both "
                                "priorities the one counts that was applied last",
                                intf, textOf(range), claim.terms));
      break;
    }
    if (claim.intf == intf || claim.terms != priority) continue;
    report(place,
           fmt::format(
               "{} is a candidate RP of {} with the same priority {}, so that the hash splits the groups "
               "between two addresses of this router",
               claim.intf, textOf(range), claim.terms));
    break;
  }
  if (priority) claims.push_back({intf, *priority});
}

// Ranges ----------------------------------------------------------------------------------------------

template <class Terms>
void Linter::lintRanges(ConfigPlace const& place, host::ByRange<Terms> const& ranges, ConfigKey const& groups,
                        ConfigKey const& lists) {
  if (ranges.groups.empty() && ranges.lists.empty()) {
    reportMissing(
        place, fmt::format("neither {} nor {} names any, so that it has no effect", groups.name, lists.name));
  }
  for (auto const& [name, terms] : ranges.lists) {
    ConfigPlace where = place.list(name);
    named_.insert(name);
    lintList(where, name);
    if (!isThere(name)) continue;
    if (router_.senderLists.contains(name)) {
      report(where,
             "it is one of filter.sender-lists, and so read over senders; it gives no group ranges here");
    } else if (permitted(name).empty()) {
      reportMissing(where, "it permits no groups, so that it has no effect");
    }
  }
}

void Linter::lintList(ConfigPlace const& place, std::string const& name) {
  if (isThere(name)) return;
  reportMissing(place, "there is no such list yet; until there is, it permits nothing");
}

void Linter::lintGroups(ConfigPlace const& place, IpGenPrefix const& range) {
  static IpGenPrefix const sourceSpecific = Lanet::Prefix(Lanet::IpAddr::fromHost(0xe8000000), 8);
  if (host::linkLocalGroups().contains(range))
    report(place, "link-local groups, which are never routed, have no RP");
  if (sourceSpecific.contains(range))
    report(place, "groups of source-specific multicast have no RP (RFC 4607)");
}

IpGenPrefixSet Linter::prefixesOf(host::AccessList const& list, bool unicast) {
  IpGenPrefixSet prefixes;
  AclToPrefix reader;
  if (unicast) reader.unicastModeIs();
  for (auto const& [sequence, rule] : list) {
    if (rangesOf(rule) <= AclToPrefix::maxRanges) reader.handleRule(rule);
  }
  reader.PermittedPrefixes(prefixes);
  return prefixes;
}

IpGenPrefixSet Linter::permitted(std::string const& name) const {
  auto list = router_.accessLists.find(name);
  if (list == router_.accessLists.end() || router_.senderLists.contains(name)) return {};
  return prefixesOf(list->second, false);
}

// Interfaces ------------------------------------------------------------------------------------------

/// An address of a loopback is reached over every interface.
static bool isLoopback(std::string const& intf) {
  return intf.starts_with("lo") || intf.starts_with("dummy");
}

void Linter::lintCandidate(ConfigPlace const& place) {
  if (speaksPim(place.name) || isLoopback(place.name)) return;
  reportMissing(
      place.at(file::CandidateBsrKeys::interface.name),
      fmt::format("{} speaks no PIM and is no loopback; it lends its address, and speaks PIM with an "
                  "[interface.{}]",
                  place.name, tomlKey(place.name)));
}

void Linter::lintBorders() {
  using Keys = file::InterfaceKeys;
  for (auto const& [intf, ranges] : router_.borders) {
    lintRanges({.part = ConfigPart::border, .name = intf}, ranges, Keys::border, Keys::borderLists);
    bool isClosed = speaksPim(intf) && !reading_.settings.interfaces.at(intf).bsm;
    if (speaksPim(intf) && !isClosed) continue;
    reportMissing(
        {.part = ConfigPart::interface, .name = intf},
        isClosed
            ? "no Bootstrap Message crosses an interface with bsm = false, so that its borders are of no use"
            : "nothing crosses an interface that speaks no PIM, so that its borders are of no use");
  }
}

void Linter::lintInterfaces() {
  if (!reading_.isSound()) return;
  auto const& interfaces = reading_.settings.interfaces;
  auto isClosed = [](auto const& entry) { return !entry.second.bsm; };
  if (interfaces.empty()) {
    reportAt(
        TextPlace(),
        "no interface speaks PIM, so that nothing is heard and nothing sent; [interface.NAME] makes one");
  } else if (std::all_of(interfaces.begin(), interfaces.end(), isClosed)) {
    report({.part = ConfigPart::interface, .name = interfaces.begin()->first},
           "bsm is false on every interface that speaks PIM, so that no BSR is learned and none announced");
  }
}

// Lists -----------------------------------------------------------------------------------------------

/// Why lists of a key have no use; empty if they have one.
std::string_view Linter::uselessReason(ConfigKey const& key, std::set<std::string> const& lists) const {
  if (lists.empty() || !reading_.isSound()) return {};
  if (host::AddressLists(router_, lists).isEmpty()) return key.unwiseLists.none;
  return permitsUnicast(lists) ? std::string_view() : key.unwiseLists.groups;
}

void Linter::lintAddressLists(ConfigKey const& key, std::set<std::string> const& lists) {
  ConfigPlace const place{.part = ConfigPart::filter, .name = std::string(key.name)};
  std::string const user = keyOf(place.at(key.name));
  for (std::string const& name : lists) {
    named_.insert(name);
    lintList(place.list(name), name);
    if (!key.unwiseLists.groups.empty()) lintUnicastRules(name, user);
  }
  if (std::string_view reason = uselessReason(key, lists); !reason.empty())
    reportAt(reading_.places.find(place.list(*lists.begin())), fmt::format("{}: {}", user, reason));
}

static bool isUnicast(Lanet::IpAddr address) { return address < Lanet::firstGroup; }

/// Whether a rule matches no address below the groups: those begin with 1110, and none is used above them.
static bool matchesNoUnicast(Acl::IpRuleConfig const& rule) {
  static constexpr U32 highBits = Lanet::firstGroup.hostWord();
  return (rule.filter.sourceMask.hostWord() & rule.filter.source.hostWord() & highBits) == highBits;
}

/// A list of groups is easily taken for one of addresses.
void Linter::lintUnicastRules(std::string const& name, std::string const& user) {
  if (!isThere(name)) return;
  ConfigPlace const list{.part = ConfigPart::accessList, .name = name};
  for (auto const& [sequence, rule] : router_.accessLists.at(name)) {
    if (rule.action == Acl::Action::permit && matchesNoUnicast(rule))
      report(list.rule(sequence), "it permits no unicast address, as " + user + " needs");
  }
}

bool Linter::permitsUnicast(std::set<std::string> const& lists) const {
  for (std::string const& name : lists) {
    if (!isThere(name)) continue;
    for (IpGenPrefix const& prefix : prefixesOf(router_.accessLists.at(name), true)) {
      if (isUnicast(prefix.v4Prefix().address())) return true;
    }
  }
  return false;
}

void Linter::lintLists() {
  for (auto const& [name, list] : router_.accessLists) {
    ConfigPlace place{.part = ConfigPart::accessList, .name = name};
    if (!named_.contains(name)) reportMissing(place, "it is not referenced");
    for (auto const& [sequence, rule] : list) {
      if (rangesOf(rule) <= AclToPrefix::maxRanges) continue;
      report(place.rule(sequence),
             fmt::format("its mask has so many holes that it stands for {} ranges; above {} it is left out",
                         rangesOf(rule), AclToPrefix::maxRanges));
    }
  }
}

}  // namespace

std::vector<ConfigFinding> lint(ConfigReading const& reading) { return Linter(reading).run(); }

}  // namespace pimbsr::agent
