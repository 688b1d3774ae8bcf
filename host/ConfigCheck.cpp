#include <algorithm>
#include <limits>

#include "host/Configuration.h"
#include "model/Config.h"
#include "runtime/Exceptions.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::U64;

/// The longest interval of which three times, the holdtime, still fits what receivers take.
static constexpr U64 longestInterval = 13652;
static constexpr char const* refusedHoldtime = "three times that is a holdtime that receivers refuse";

namespace {

template <class... Parts>
std::string join(Parts const&... parts) {
  std::string text;
  ((text += parts), ...);
  return text;
}

std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

/// Walks one configuration and notes its faults.
class Checker {
 public:
  explicit Checker(Configuration const& configuration) : configuration_(configuration) {}

  std::vector<ConfigFault> run();

 private:
  void checkTimers();
  void checkLists();
  void checkBsr(std::string const& place, BsrTerms const& terms);
  void checkBsrs();
  void checkRps();
  void checkRp(std::string const& place, std::optional<U64> const& priority);
  void checkBorders();
  void checkAtMost(std::string const& place, U64 value, U64 most, char const* why);
  void checkRange(std::string const& place, IpGenPrefix const& range);
  template <class Key>
  void claim(std::map<Key, std::string>& claims, Key const& key, std::string const& intf,
             std::string const& place);
  template <class Terms, class Check>
  void checkRanges(std::string const& place, ByRange<Terms> const& ranges, Check const& check);
  template <class Number, class Set>
  void tryValue(std::string const& place, U64 value, Set const& set);
  void fault(std::string const& place, std::string const& text) { faults_.push_back({place, text}); }

  Configuration const& configuration_;
  std::vector<ConfigFault> faults_;
  std::map<IpGenPrefix, std::string> groupClaims_;
  std::map<std::string, std::string> listClaims_;
};

/// Asks the attribute itself: the range and its text stand in the declaration alone.
template <class Number, class Set>
void Checker::tryValue(std::string const& place, U64 value, Set const& set) {
  constexpr U64 most = std::numeric_limits<Number>::max();
  try {
    set(static_cast<Number>(std::min(value, most)));
    if (value > most)
      fault(place, join(std::to_string(value), ": at most ", std::to_string(most), " is valid"));
  } catch (Zet::RangeException const& reason) {
    fault(place, join(std::to_string(value), ": ", reason.what()));
  }
}

std::vector<ConfigFault> Checker::run() {
  checkTimers();
  checkLists();
  checkBsrs();
  checkRps();
  checkBorders();
  return faults_;
}

void Checker::checkTimers() {
  Ptr<Bsr::Config> config = Bsr::configFactory("check");
  tryValue<U32>("hold-time", configuration_.holdTime, [&](U32 value) { config->holdTimeIs(value); });
  tryValue<U32>("zone-timeout", configuration_.zoneTimeout, [&](U32 value) { config->szTimeoutIs(value); });
}

/// A filter keeps a number that it refused, and a copy of it is refused with the same text.
void Checker::checkLists() {
  for (auto const& [name, list] : configuration_.accessLists) {
    for (auto const& [sequence, rule] : list) {
      std::string place = join("access-list ", name, ", rule ", std::to_string(sequence));
      Acl::IpFilterBase filter;
      tryValue<U32>(join(place, ", tni"), rule.filter.tni(), [&](U32 value) { filter.tniIs(value); });
      tryValue<U32>(join(place, ", vni"), rule.filter.vni(), [&](U32 value) { filter.vniIs(value); });
    }
  }
}

// Candidates and borders ------------------------------------------------------------------------------

template <class Terms, class Check>
void Checker::checkRanges(std::string const& place, ByRange<Terms> const& ranges, Check const& check) {
  for (auto const& [range, terms] : ranges.groups) {
    std::string where = join(place, ", group ", textOf(range));
    checkRange(where, range);
    check(where, terms);
  }
  for (auto const& [name, terms] : ranges.lists) {
    check(join(place, ", access list ", name), terms);
  }
}

void Checker::checkBsrs() {
  for (auto const& [intf, ranges] : configuration_.candidateBsrs) {
    std::string place = join("candidate-bsr ", intf);
    checkRanges(place, ranges, [&](auto const& where, BsrTerms const& terms) { checkBsr(where, terms); });
    for (auto const& [range, terms] : ranges.groups)
      claim(groupClaims_, range, intf, join(place, ", group ", textOf(range)));
    for (auto const& [name, terms] : ranges.lists)
      claim(listClaims_, name, intf, join(place, ", access list ", name));
  }
}

/// A second claim would end the process.
template <class Key>
void Checker::claim(std::map<Key, std::string>& claims, Key const& key, std::string const& intf,
                    std::string const& place) {
  auto [at, isFirst] = claims.try_emplace(key, intf);
  if (!isFirst) fault(place, join("claimed by ", at->second, " already; one interface may claim it"));
}

void Checker::checkBsr(std::string const& place, BsrTerms const& terms) {
  Ptr<Bsr::BsrCandidateGroup> group = Bsr::bsrCandidateGroupFactory(IpGenPrefix());
  std::string where = join(place, ", priority");
  tryValue<U16>(where, terms.priority, [&](U16 value) { group->priorityIs(value); });
  where = join(place, ", hash-mask-length");
  tryValue<U32>(where, terms.hashMaskLen, [&](U32 value) { group->hashMaskLenIs(value); });
  bool isUnknown = terms.hashMaskLen == Bsr::BsrCandidateGroup::hashMaskLenUnknown();
  if (!isUnknown) checkAtMost(where, terms.hashMaskLen, 32, "IPv4 has no more bits");
  where = join(place, ", interval");
  tryValue<U32>(where, terms.interval, [&](U32 value) { group->intervalIs(value); });
  checkAtMost(where, terms.interval, longestInterval, refusedHoldtime);
}

void Checker::checkRps() {
  for (auto const& [intf, terms] : configuration_.candidateRps) {
    std::string place = join("candidate-rp ", intf);
    checkRanges(place, terms.ranges,
                [&](auto const& where, std::optional<U64> const& priority) { checkRp(where, priority); });
    std::string where = join(place, ", interval");
    tryValue<U32>(where, terms.interval, [](U32 value) { Bsr::CrpAdvInterval interval(value); });
    checkAtMost(where, terms.interval, longestInterval, refusedHoldtime);
  }
}

void Checker::checkRp(std::string const& place, std::optional<U64> const& priority) {
  if (!priority) return;
  tryValue<U32>(join(place, ", priority"), *priority,
                [](U32 value) { Routing::Pim::RpPriority checked(value); });
}

void Checker::checkBorders() {
  for (auto const& [intf, ranges] : configuration_.borders)
    checkRanges(join("border ", intf), ranges, [](auto const&, Present) {});
}

// Values ----------------------------------------------------------------------------------------------

/// For what the attribute takes and nothing good comes of; what it refuses has been told already.
void Checker::checkAtMost(std::string const& place, U64 value, U64 most, char const* why) {
  bool isTold = !faults_.empty() && faults_.back().place == place;
  if (value <= most || isTold) return;
  fault(place, join(std::to_string(value), ": ", why, "; at most ", std::to_string(most), " is valid"));
}

void Checker::checkRange(std::string const& place, IpGenPrefix const& range) {
  if (range.af() != Lanet::AddressFamily::ipv4) {
    fault(place, "not of IPv4, which alone is served");
  } else if (!Lanet::allGroups().contains(range)) {
    fault(place, "no range of multicast groups; a part of 224.0.0.0/4 is valid");
  }
}

}  // namespace

std::vector<ConfigFault> check(Configuration const& configuration) { return Checker(configuration).run(); }

}  // namespace pimbsr::host
