#include "config/AclToPrefix.h"

#include <bit>
#include <boost/icl/interval_set.hpp>
#include <limits>

#include "runtime/Trace.h"

namespace AclPrefix {

using Lanet::IpAddr;
using Lanet::IpGenPrefix;
using Lanet::IpGenPrefixSet;
using Zet::U32;
using Zet::U64;

static Zet::TraceSource const trace("Pim::Bsr::Config", "AclToPrefix");

using Interval = boost::icl::discrete_interval<U32>;
using IntervalSet = boost::icl::interval_set<U32>;

static constexpr U32 lastAddress = std::numeric_limits<U32>::max();
static constexpr U32 firstGroup = Lanet::firstGroup.hostWord();
static constexpr U32 endOfGroups = Lanet::lastGroup.hostWord() + 1;

struct AclToPrefix::Sets {
  IntervalSet working{Interval::right_open(firstGroup, endOfGroups)};
  IntervalSet permitted;

  void permit(Interval const& range) {
    auto [at, end] = working.equal_range(range);
    for (; at != end; ++at) permitted.add(*at & range);
    working.subtract(range);
  }
};

AclToPrefix::AclToPrefix() : sets_(std::make_unique<Sets>()) {}
AclToPrefix::~AclToPrefix() = default;

void AclToPrefix::unicastModeIs() {
  sets_->working = IntervalSet(Interval::closed(0, lastAddress));
  mode_ = unicastMode;
}

/// Only the range that ends in the last address is closed, since the number after that doesn't exist.
static Interval intervalOf(U32 first, U32 last) {
  return last == lastAddress ? Interval::closed(first, last) : Interval::right_open(first, last + 1);
}

/// Addresses that agree with `address` where `mask` has a bit: ranges of equal size, one for each setting of
/// the bits that the mask leaves open above its lowest bit.
struct Ranges {
  U32 size;  ///< addresses of each range, less one
  U32 open;  ///< bits that are open above the lowest bit of the mask

  explicit Ranges(U32 mask) : size(mask == 0 ? lastAddress : (mask & -mask) - 1), open(~(mask | size)) {}
  U64 count() const { return U64{1} << std::popcount(open); }
};

template <class Act>
static void forEachRange(Ranges const& ranges, U32 address, Act const& act) {
  U32 setting = 0;
  do {
    act(intervalOf(address | setting, address | setting | ranges.size));
    setting = (setting - ranges.open) & ranges.open;
  } while (setting != 0);
}

static bool isLimited(Acl::IpFilter const& filter) {
  return filter.protocol != 0 || filter.sourcePort != 0 || filter.destinationPort != 0;
}

void AclToPrefix::handleRule(Acl::IpRuleConfig const& rule) {
  if (rule.action == Acl::Action::unset || isLimited(rule.filter)) return;
  U32 mask = rule.filter.sourceMask.hostWord();
  Ranges ranges(mask);
  if (ranges.count() > maxRanges) {
    ZET_TRACE(trace, 1,
              "Skipping rule with mask " << rule.filter.sourceMask << " of " << ranges.count() << " ranges");
    return;
  }
  forEachRange(ranges, rule.filter.source.hostWord() & mask, [&](Interval const& range) {
    if (rule.action == Acl::Action::permit) {
      sets_->permit(range);
    } else {
      sets_->working.subtract(range);
    }
  });
}

void AclToPrefix::PermittedPrefixes(IpGenPrefixSet& set) const {
  for (Interval const& range : sets_->permitted) {
    ip4RangeToPrefixes(range.lower(), range.upper() - 1, set);
  }
}

void AclToPrefix::ip4RangeToPrefixes(U32 first, U32 last, IpGenPrefixSet& set) {
  U64 at = first;
  while (at <= last) {
    // The largest block that begins here and doesn't go beyond the end.
    U64 aligned = at == 0 ? U64{1} << 32 : at & -at;
    U64 block = std::min(aligned, std::bit_floor(U64{last} - at + 1));
    U32 length = 32 - static_cast<U32>(std::countr_zero(block));
    set.insert(IpGenPrefix(IpAddr::fromHost(static_cast<U32>(at)), length));
    at += block;
  }
}

}  // namespace AclPrefix
