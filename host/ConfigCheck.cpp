#include <algorithm>
#include <limits>

#include "config/AclToPrefix.h"
#include "host/Configuration.h"
#include "host/Configuration.keys.h"
#include "model/Config.h"
#include "runtime/Exceptions.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::U64;

static constexpr char const* excessiveHoldtime = "three times that is a holdtime that receivers reject";

namespace {

template <class... Parts>
std::string join(Parts const&... parts) {
  std::string text;
  ((text += parts), ...);
  return text;
}

/// Walks one configuration and notes its errors.
class Checker {
 public:
  explicit Checker(Configuration const& configuration) : configuration_(configuration) {}

  std::vector<ConfigError> run();

 private:
  void checkTimers();
  void checkLists();
  void checkBsr(ConfigPlace const& place, BsrTerms const& terms);
  void checkBsrs();
  void checkListZones();
  Lanet::IpGenPrefixSet zonesOf(std::string const& list) const;
  void checkRps();
  void checkRp(ConfigPlace const& place, std::optional<U64> const& priority);
  void checkBorders();
  void checkAtMost(ConfigPlace const& place, U64 value, U64 most, char const* why);
  void checkRange(ConfigPlace const& place, IpGenPrefix const& range);
  template <class Key>
  void claim(std::map<Key, std::string>& claims, Key const& key, std::string const& intf,
             ConfigPlace const& place);
  template <class Terms, class Check>
  void checkRanges(ConfigPlace const& place, ByRange<Terms> const& ranges, Check const& check);
  template <class Number, class Set>
  void tryValue(ConfigPlace const& place, U64 value, Set const& set);
  void error(ConfigPlace const& place, std::string const& text) { errors_.push_back({place, text}); }

  Configuration const& configuration_;
  std::vector<ConfigError> errors_;
  std::map<IpGenPrefix, std::string> groupClaims_;
  std::map<std::string, std::string> listClaims_;
};

/// Asks the attribute itself: the range and its text are in the declaration alone.
template <class Number, class Set>
void Checker::tryValue(ConfigPlace const& place, U64 value, Set const& set) {
  constexpr U64 most = std::numeric_limits<Number>::max();
  try {
    set(static_cast<Number>(std::min(value, most)));
    if (value > most)
      error(place, join(std::to_string(value), ": at most ", std::to_string(most), " is valid"));
  } catch (Zet::RangeException const& reason) {
    error(place, join(std::to_string(value), ": ", reason.what()));
  }
}

std::vector<ConfigError> Checker::run() {
  checkTimers();
  checkLists();
  checkBsrs();
  checkListZones();
  checkRps();
  checkBorders();
  return errors_;
}

void Checker::checkTimers() {
  Ptr<Bsr::Config> config = Bsr::configFactory("check");
  ConfigPlace timers{.part = ConfigPart::timers};
  tryValue<U32>(timers.at(TimeoutsKeys::bsTimeout.name), configuration_.bsTimeout,
                [&](U32 value) { config->holdTimeIs(value); });
  tryValue<U32>(timers.at(TimeoutsKeys::szTimeout.name), configuration_.szTimeout,
                [&](U32 value) { config->szTimeoutIs(value); });
}

/// A filter keeps a number that it rejected, and a copy of it is rejected with the same text.
void Checker::checkLists() {
  for (auto const& [name, list] : configuration_.accessLists) {
    for (auto const& [sequence, rule] : list) {
      ConfigPlace place = ConfigPlace{.part = ConfigPart::accessList, .name = name}.rule(sequence);
      Acl::IpFilterBase filter;
      tryValue<U32>(place.at("tni"), rule.filter.tni(), [&](U32 value) { filter.tniIs(value); });
      tryValue<U32>(place.at("vni"), rule.filter.vni(), [&](U32 value) { filter.vniIs(value); });
    }
  }
}

// Candidates and borders ------------------------------------------------------------------------------

template <class Terms, class Check>
void Checker::checkRanges(ConfigPlace const& place, ByRange<Terms> const& ranges, Check const& check) {
  for (auto const& [range, terms] : ranges.groups) {
    checkRange(place.group(range), range);
    check(place.group(range), terms);
  }
  for (auto const& [name, terms] : ranges.lists) check(place.list(name), terms);
}

void Checker::checkBsrs() {
  for (auto const& [intf, ranges] : configuration_.candidateBsrs) {
    ConfigPlace place{.part = ConfigPart::candidateBsr, .name = intf};
    checkRanges(place, ranges, [&](auto const& where, BsrTerms const& terms) { checkBsr(where, terms); });
    for (auto const& [range, terms] : ranges.groups) claim(groupClaims_, range, intf, place.group(range));
    for (auto const& [name, terms] : ranges.lists) claim(listClaims_, name, intf, place.list(name));
  }
}

/// A second claim would end the process.
template <class Key>
void Checker::claim(std::map<Key, std::string>& claims, Key const& key, std::string const& intf,
                    ConfigPlace const& place) {
  auto [at, isFirst] = claims.try_emplace(key, intf);
  if (!isFirst) error(place, join("claimed by ", at->second, " already; one interface may claim it"));
}

/// The ranges that a list gives to who names it; a list of senders gives none.
Lanet::IpGenPrefixSet Checker::zonesOf(std::string const& list) const {
  Lanet::IpGenPrefixSet zones;
  auto rules = configuration_.accessLists.find(list);
  if (rules == configuration_.accessLists.end() || configuration_.senderLists.contains(list)) return zones;
  AclPrefix::AclToPrefix reader;
  for (auto const& [sequence, rule] : rules->second) reader.handleRule(rule);
  reader.PermittedPrefixes(zones);
  return zones;
}

/// A zone has one entry, which the first of two interfaces that stops claiming it would take from the other.
/// A list that both name is reported as such.
void Checker::checkListZones() {
  std::map<IpGenPrefix, ConfigPlace> claims;
  for (auto const& [intf, ranges] : configuration_.candidateBsrs) {
    ConfigPlace place{.part = ConfigPart::candidateBsr, .name = intf};
    for (auto const& [zone, terms] : ranges.groups) claims.try_emplace(zone, place.group(zone));
  }
  for (auto const& [intf, ranges] : configuration_.candidateBsrs) {
    for (auto const& [name, terms] : ranges.lists) {
      ConfigPlace place = ConfigPlace{.part = ConfigPart::candidateBsr, .name = intf}.list(name);
      for (IpGenPrefix const& zone : zonesOf(name)) {
        ConfigPlace const& first = claims.try_emplace(zone, place).first->second;
        bool isSameList = first.entry == place.entry;
        if (first.name == intf || isSameList) continue;
        error(place, join("permits ", std::string(zone.stringValue().view()), ", which ", textOf(first),
                          " claims already; one interface may claim it"));
      }
    }
  }
}

void Checker::checkBsr(ConfigPlace const& place, BsrTerms const& terms) {
  Ptr<Bsr::BsrCandidateGroup> group = Bsr::bsrCandidateGroupFactory(IpGenPrefix());
  tryValue<U16>(place.at(BsrTermsKeys::priority.name), terms.priority,
                [&](U16 value) { group->priorityIs(value); });
  ConfigPlace where = place.at(BsrTermsKeys::hashMaskLen.name);
  tryValue<U32>(where, terms.hashMaskLen, [&](U32 value) { group->hashMaskLenIs(value); });
  bool isUnknown = terms.hashMaskLen == Bsr::BsrCandidateGroup::hashMaskLenUnknown();
  if (!isUnknown) checkAtMost(where, terms.hashMaskLen, 32, "IPv4 has no more bits");
  where = place.at(BsrTermsKeys::bsPeriod.name);
  tryValue<U32>(where, terms.bsPeriod, [&](U32 value) { group->intervalIs(value); });
  checkAtMost(where, terms.bsPeriod, BsrTermsKeys::bsPeriod.most, excessiveHoldtime);
}

void Checker::checkRps() {
  for (auto const& [intf, terms] : configuration_.candidateRps) {
    ConfigPlace place{.part = ConfigPart::candidateRp, .name = intf};
    checkRanges(place, terms.ranges,
                [&](auto const& where, std::optional<U64> const& priority) { checkRp(where, priority); });
    ConfigPlace where = place.at(RpAdvertisingKeys::cRpAdvPeriod.name);
    tryValue<U32>(where, terms.cRpAdvPeriod, [](U32 value) { Bsr::CrpAdvInterval interval(value); });
    checkAtMost(where, terms.cRpAdvPeriod, RpAdvertisingKeys::cRpAdvPeriod.most, excessiveHoldtime);
  }
}

void Checker::checkRp(ConfigPlace const& place, std::optional<U64> const& priority) {
  if (!priority) return;
  tryValue<U32>(place.at(BsrTermsKeys::priority.name), *priority,
                [](U32 value) { Routing::Pim::RpPriority checked(value); });
}

void Checker::checkBorders() {
  for (auto const& [intf, ranges] : configuration_.borders)
    checkRanges({.part = ConfigPart::border, .name = intf}, ranges, [](auto const&, Present) {});
}

// Values ----------------------------------------------------------------------------------------------

/// For values that the attribute takes and that have no use; those that it rejects have been reported.
void Checker::checkAtMost(ConfigPlace const& place, U64 value, U64 most, char const* why) {
  bool isReported = !errors_.empty() && errors_.back().place == place;
  if (value <= most || isReported) return;
  error(place, join(std::to_string(value), ": ", why, "; at most ", std::to_string(most), " is valid"));
}

void Checker::checkRange(ConfigPlace const& place, IpGenPrefix const& range) {
  if (range.af() != Lanet::AddressFamily::ipv4) {
    error(place, "not of IPv4, which alone is served");
  } else if (!Lanet::allGroups().contains(range)) {
    error(place, join("no range of multicast groups; a part of ", Lanet::allGroups().stringValue().view(),
                      " is valid"));
  }
}

}  // namespace

std::vector<ConfigError> check(Configuration const& configuration) { return Checker(configuration).run(); }

}  // namespace pimbsr::host
