#include "agent/config/ConfigLint.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>
#include <set>
#include <tuple>

#include "config/AclToPrefix.h"
#include "host/Limits.h"
#include "host/PreferredRps.h"

namespace pimbsr::agent {

using AclPrefix::AclToPrefix;
using host::BsrTerms;
using Lanet::IpGenPrefix;
using Lanet::IpGenPrefixSet;
using Zet::U64;

static std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

/// Ranges that a rule stands for: one for each setting of the bits that its mask leaves open above its
/// lowest.
static U64 rangesOf(Acl::IpRuleConfig const& rule) {
  U32 mask = rule.filter.sourceMask.hostWord();
  U32 below = mask == 0 ? ~U32{0} : (mask & -mask) - 1;
  return U64{1} << std::popcount(~(mask | below));
}

namespace {

/// Walks one configuration and notes what is unwise in it.
class Linter {
 public:
  explicit Linter(ConfigReading const& reading)
      : reading_(reading), router_(reading.settings.router), findings_(reading.remarks) {
    for (ConfigFinding const& fault : reading.faults) faulty_.insert(fault.at);
  }

  std::vector<ConfigFinding> run();

 private:
  void lintTimers();
  void lintBsrs();
  void lintBsr(std::string const& place, BsrTerms const& terms);
  void lintZones();
  void lintZone(IpGenPrefix const& zone, std::string const& intf, BsrTerms const& terms,
                std::string const& place);
  void lintRps();
  void lintRpRange(IpGenPrefix const& range, std::string const& intf, std::optional<U64> const& priority,
                   std::string const& place);
  void lintBorders();
  void lintInterfaces();
  void lintSenders();
  void lintPreferredRps();
  void lintLists();
  void lintScreening();
  void lintGroups(std::string const& place, IpGenPrefix const& range);
  void lintList(std::string const& place, std::string const& name);
  void lintCandidate(std::string const& role, std::string const& intf);
  template <class Terms>
  void lintRanges(std::string const& place, host::ByRange<Terms> const& ranges, char const* groups = "groups",
                  char const* lists = "lists");

  /// The ranges that a list permits to one that isn't a filter of senders, or the senders.
  IpGenPrefixSet permitted(std::string const& name, bool senders) const;
  bool isThere(std::string const& list) const { return router_.accessLists.contains(list); }
  /// Whether something was written for a place and couldn't be read.
  bool isFaulty(std::string const& place) const { return faulty_.contains(reading_.places.find(place)); }
  bool hasFaultyTerms(std::string const& place) const {
    return isFaulty(place + ", priority") || isFaulty(place + ", hash-mask-length") ||
           isFaulty(place + ", interval");
  }
  bool speaksPim(std::string const& intf) const { return reading_.settings.interfaces.contains(intf); }
  void tell(std::string const& place, std::string const& text) { tell(reading_.places.find(place), text); }
  void tellOf(std::string const& place, std::string const& text) { tell(place, keyOf(place) + ": " + text); }
  /// Tells of what isn't there, unless it may stand in a part of the file that couldn't be read.
  void tellMissing(std::string const& place, std::string const& text) {
    if (reading_.isSound()) tellOf(place, text);
  }
  void tell(TextPlace at, std::string const& text) { findings_.push_back({at, text}); }

  /// Who has claimed a range so far.
  template <class Terms>
  struct Claim {
    std::string intf;
    Terms terms;
  };

  ConfigReading const& reading_;
  host::Configuration const& router_;
  std::vector<ConfigFinding> findings_;
  std::set<TextPlace> faulty_;
  std::map<IpGenPrefix, Claim<BsrTerms>> zones_;
  std::map<IpGenPrefix, std::vector<Claim<U64>>> rpRanges_;
  std::set<std::string> named_;  ///< the lists that somebody names
};

std::vector<ConfigFinding> Linter::run() {
  lintTimers();
  lintBsrs();
  lintZones();
  lintRps();
  lintBorders();
  lintInterfaces();
  lintSenders();
  lintPreferredRps();
  lintLists();
  lintScreening();
  auto before = [](ConfigFinding const& a, ConfigFinding const& b) { return a.at < b.at; };
  std::stable_sort(findings_.begin(), findings_.end(), before);
  // What couldn't be read has its default here, which is not the operator's.
  std::erase_if(findings_, [&](ConfigFinding const& finding) { return faulty_.contains(finding.at); });
  // What holds for each range of a block is told of the block once.
  findings_.erase(std::unique(findings_.begin(), findings_.end()), findings_.end());
  return findings_;
}

// Timers ----------------------------------------------------------------------------------------------

void Linter::lintTimers() {
  static constexpr U64 usualInterval = 60;
  U64 holdTime = router_.holdTime;
  if (isFaulty("hold-time")) return;
  if (router_.candidateBsrs.empty() && holdTime <= usualInterval) {
    tellOf("hold-time", fmt::format("{} is not above {} s, the interval of a BSR unless it is told "
                                    "otherwise: it would be given up between two messages",
                                    holdTime, usualInterval));
  }
  if (router_.zoneTimeout >= 10 * holdTime) return;
  TextPlace at = reading_.places.find("zone-timeout");
  tell(at == TextPlace() ? reading_.places.find("hold-time") : at,
       fmt::format(
           "timers.zone-timeout: {} is below {}, ten times timers.hold-time, which is used in its place",
           router_.zoneTimeout, 10 * holdTime));
}

// Candidate BSRs --------------------------------------------------------------------------------------

void Linter::lintBsr(std::string const& place, BsrTerms const& terms) {
  if (terms.priority == BsrTerms().priority) {
    tellMissing(place + ", priority",
                fmt::format("{} is what every candidate has that isn't told otherwise, and between equal "
                            "priorities the higher address decides; give each candidate its own",
                            terms.priority));
  }
  if (terms.hashMaskLen == 0) {
    tellOf(place + ", hash-mask-length",
           "with 0 all groups have one hash, so that of several RPs of equal "
           "priority one serves them all");
  }
  if (isFaulty("hold-time")) return;
  if (router_.holdTime <= terms.interval) {
    tellOf(place + ", interval",
           fmt::format("{} is not below timers.hold-time, {}: the BSR would be given up between "
                       "two of its messages",
                       terms.interval, router_.holdTime));
  } else if (router_.holdTime < 2 * terms.interval + 10) {
    tellOf(
        place + ", interval",
        fmt::format("timers.hold-time, {}, is below two intervals of {} s and 10 s (RFC 5059 section 5): one "
                    "lost message ends the BSR",
                    router_.holdTime, terms.interval));
  }
}

void Linter::lintBsrs() {
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    std::string place = "candidate-bsr " + intf;
    lintCandidate("candidate-bsr", intf);
    lintRanges(place, ranges);
    for (auto const& [range, terms] : ranges.groups) {
      lintGroups(fmt::format("{}, group {}", place, textOf(range)), range);
      lintBsr(fmt::format("{}, group {}", place, textOf(range)), terms);
    }
    for (auto const& [name, terms] : ranges.lists) {
      lintBsr(fmt::format("{}, access list {}", place, name), terms);
    }
  }
}

/// Groups first: the configuration lets no two interfaces claim one, so that each finding is of a list.
void Linter::lintZones() {
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    for (auto const& [range, terms] : ranges.groups) {
      if (hasFaultyTerms(fmt::format("candidate-bsr {}, group {}", intf, textOf(range)))) continue;
      zones_.try_emplace(range, intf, terms);
    }
  }
  for (auto const& [intf, ranges] : router_.candidateBsrs) {
    for (auto const& [name, terms] : ranges.lists) {
      for (IpGenPrefix const& zone : permitted(name, false)) {
        lintZone(zone, intf, terms, fmt::format("candidate-bsr {}, access list {}", intf, name));
      }
    }
  }
}

void Linter::lintZone(IpGenPrefix const& zone, std::string const& intf, BsrTerms const& terms,
                      std::string const& place) {
  if (hasFaultyTerms(place)) return;
  auto [claim, isFirst] = zones_.try_emplace(zone, intf, terms);
  if (isFirst || (claim->second.intf == intf && claim->second.terms == terms)) return;
  tellOf(place,
         fmt::format(
             "it permits {}, for which {} is a candidate BSR with other terms; of both, those count that "
             "were applied last",
             textOf(zone), claim->second.intf));
}

// Candidate RPs ---------------------------------------------------------------------------------------

void Linter::lintRps() {
  for (auto const& [intf, terms] : router_.candidateRps) {
    std::string place = "candidate-rp " + intf;
    lintCandidate("candidate-rp", intf);
    lintRanges(place, terms.ranges);
    for (auto const& [range, priority] : terms.ranges.groups) {
      std::string where = fmt::format("{}, group {}", place, textOf(range));
      lintGroups(where, range);
      lintRpRange(range, intf, priority, where);
    }
    for (auto const& [name, priority] : terms.ranges.lists) {
      for (IpGenPrefix const& range : permitted(name, false)) {
        lintRpRange(range, intf, priority, fmt::format("{}, access list {}", place, name));
      }
    }
  }
}

/// Between different ranges the longer decides, whatever the priorities are (RFC 7761 section 4.7.1).
void Linter::lintRpRange(IpGenPrefix const& range, std::string const& intf,
                         std::optional<U64> const& priority, std::string const& place) {
  if (hasFaultyTerms(place)) return;
  auto& claims = rpRanges_[range];
  for (auto const& claim : claims) {
    if (claim.intf == intf || claim.terms != priority) continue;
    tellOf(place,
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
void Linter::lintRanges(std::string const& place, host::ByRange<Terms> const& ranges, char const* groups,
                        char const* lists) {
  if (ranges.groups.empty() && ranges.lists.empty()) {
    tellMissing(place,
                fmt::format("neither {} nor {} names any, so that nothing comes of it", groups, lists));
  }
  for (auto const& [name, terms] : ranges.lists) {
    std::string where = fmt::format("{}, access list {}", place, name);
    named_.insert(name);
    lintList(where, name);
    if (!isThere(name)) continue;
    if (router_.senderLists.contains(name)) {
      tellOf(where,
             "it is one of filter.sender-lists, and so read over senders; it gives no group ranges here");
    } else if (permitted(name, false).empty()) {
      tellMissing(where, "it permits no groups, so that nothing comes of it");
    }
  }
}

void Linter::lintList(std::string const& place, std::string const& name) {
  if (isThere(name)) return;
  tellMissing(place, "there is no such list yet; until there is, it permits nothing");
}

void Linter::lintGroups(std::string const& place, IpGenPrefix const& range) {
  struct Special {
    char const* range;
    char const* why;
  };
  static constexpr Special specials[] = {
      {"224.0.0.0/24", "link-local groups, which are never routed, have no RP"},
      {"232.0.0.0/8", "groups of source-specific multicast have no RP (RFC 4607)"}};
  for (auto const& [special, why] : specials) {
    if (IpGenPrefix::parse(special).contains(range)) tellOf(place, why);
  }
}

IpGenPrefixSet Linter::permitted(std::string const& name, bool senders) const {
  IpGenPrefixSet prefixes;
  auto list = router_.accessLists.find(name);
  if (list == router_.accessLists.end() || senders != router_.senderLists.contains(name)) return prefixes;
  AclToPrefix reader;
  if (senders) reader.unicastModeIs();
  for (auto const& [sequence, rule] : list->second) {
    if (rangesOf(rule) <= AclToPrefix::maxRanges) reader.handleRule(rule);
  }
  reader.PermittedPrefixes(prefixes);
  return prefixes;
}

// Interfaces ------------------------------------------------------------------------------------------

/// An address of a loopback is reached over every interface.
static bool isLoopback(std::string const& intf) {
  return intf.starts_with("lo") || intf.starts_with("dummy");
}

void Linter::lintCandidate(std::string const& role, std::string const& intf) {
  if (speaksPim(intf) || isLoopback(intf)) return;
  tellMissing(fmt::format("{} {}, interface", role, intf),
              fmt::format("{} speaks no PIM and is no loopback; it lends its address, and speaks PIM with an "
                          "[interface.{}]",
                          intf, tomlKey(intf)));
}

void Linter::lintBorders() {
  for (auto const& [intf, ranges] : router_.borders) {
    lintRanges("border " + intf, ranges, "border", "border-lists");
    if (speaksPim(intf)) continue;
    tellMissing("interface " + intf,
                "nothing crosses an interface that speaks no PIM, so that its borders are of no use");
  }
}

void Linter::lintInterfaces() {
  if (!reading_.isSound() || !reading_.settings.interfaces.empty()) return;
  tell(TextPlace(),
       "no interface speaks PIM, so that nothing is heard and nothing sent; [interface.NAME] makes one");
}

// Lists -----------------------------------------------------------------------------------------------

void Linter::lintSenders() {
  bool permitsAny = false;
  for (std::string const& name : router_.senderLists) {
    std::string place = "senders, access list " + name;
    named_.insert(name);
    lintList(place, name);
    permitsAny = permitsAny || !permitted(name, true).empty();
  }
  if (permitsAny || router_.senderLists.empty()) return;
  if (!reading_.isSound()) return;
  tell("senders, access list " + *router_.senderLists.begin(),
       "filter.sender-lists: these lists permit no sender; while that is so, all senders are permitted");
}

void Linter::lintPreferredRps() {
  for (std::string const& name : router_.rpLists) {
    named_.insert(name);
    lintList("preferred-rps, access list " + name, name);
  }
  bool permitsAny = !host::PreferredRps(router_, router_.rpLists).isEmpty();
  if (permitsAny || router_.rpLists.empty() || !reading_.isSound()) return;
  tell("preferred-rps, access list " + *router_.rpLists.begin(),
       "filter.rp-lists: these lists permit no RP, so that none is preferred");
}

void Linter::lintLists() {
  for (auto const& [name, list] : router_.accessLists) {
    std::string place = "access-list " + name;
    if (!named_.contains(name)) tellMissing(place, "nobody names it");
    for (auto const& [sequence, rule] : list) {
      if (rangesOf(rule) <= AclToPrefix::maxRanges) continue;
      std::string where = fmt::format("{}, rule {}", place, sequence);
      tellOf(where,
             fmt::format("its mask has so many holes that it stands for {} ranges; above {} it is left out",
                         rangesOf(rule), AclToPrefix::maxRanges));
    }
  }
}

// What is let pass ------------------------------------------------------------------------------------

void Linter::lintScreening() {
  host::Screening const& screening = reading_.settings.screening;
  static constexpr char const* fromFarther = "off, messages can be forged from farther away";
  static constexpr char const* echo =
      "off, a candidate that starts anew can be deposed by its own messages, which neighbours send back";
  std::tuple<char const*, bool, char const*> const checks[] = {
      {"link-local-ttl", screening.linkLocalTtl, fromFarther},
      {"on-subnet", screening.onSubnet, fromFarther},
      {"from-neighbors", screening.fromNeighbors, fromFarther},
      {"not-own-bsr", screening.notOwnBsr, echo}};
  for (auto const& [name, on, why] : checks) {
    if (!on) tellOf(fmt::format("checks, {}", name), why);
  }
  for (host::Limit const& limit : host::limits()) {
    if (screening.*limit.value != 0) continue;
    bool isOfOneRange = limit.value == &host::Screening::rpsPerRange;
    tellOf(fmt::format("limits, {}", limit.name),
           isOfOneRange ? "0 is no bound, so that a range with 256 RPs is lost in the whole domain"
                        : "0 is no bound, so that a flood takes what time and memory there is");
  }
}

}  // namespace

std::vector<ConfigFinding> lint(ConfigReading const& reading) { return Linter(reading).run(); }

}  // namespace pimbsr::agent
