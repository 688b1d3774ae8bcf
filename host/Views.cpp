#include "host/Views.h"

#include <algorithm>
#include <set>

#include "host/HoldOver.h"
#include "host/RouterParts.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Reflection.h"
#include "runtime/Strep.h"

namespace pimbsr::host {

using Lanet::IpGenPrefix;
using Routing::Pim::Bsr::PimBsrCounters;
using Zet::String8;
using Zet::U64;

// Zones -----------------------------------------------------------------------------------------------

static std::set<IpGenPrefix> zoneNames(Router const& router) {
  std::set<IpGenPrefix> zones = partsOf(router).correctors->holdOver().zones();
  for (auto at = router.status()->bootstrapRouterIterator(); at; ++at) zones.insert(at.key());
  for (auto at = router.status()->crpStatusIterator(); at; ++at) zones.insert(at.key());
  for (auto at = partsOf(router).root->nonCandidateSmIterator(); at; ++at) zones.insert(at.key());
  for (auto at = partsOf(router).root->candidateSmIterator(); at; ++at) zones.insert(at.key());
  return zones;
}

/// Adds a kept RP, which no RP of the zone's own set equals, in the order of ranges and addresses.
static void addKept(std::vector<RangeView>& ranges, RpView const& rp) {
  auto range =
      std::lower_bound(ranges.begin(), ranges.end(), rp.range,
                       [](RangeView const& view, auto const& wanted) { return view.range < wanted; });
  if (range == ranges.end() || range->range != rp.range) range = ranges.insert(range, {rp.range, {}});
  auto at = std::lower_bound(range->rps.begin(), range->rps.end(), rp.address,
                             [](RpView const& view, auto const& wanted) { return view.address < wanted; });
  range->rps.insert(at, rp);
}

static RangeView rangeView(Routing::Pim::RpCandidateSet const& set) {
  RangeView view{set.prefix(), {}};
  for (auto rp = set.rpIterator(); rp; ++rp) view.rps.push_back(viewOf(view.range, *rp));
  std::sort(view.rps.begin(), view.rps.end(), [](auto& a, auto& b) { return a.address < b.address; });
  return view;
}

static std::vector<RangeView> rpSetView(Routing::Pim::RpCandidateStatus const& rpSet) {
  std::vector<RangeView> ranges;
  for (auto set = rpSet.crpSetIterator(); set; ++set) ranges.push_back(rangeView(*set));
  std::sort(ranges.begin(), ranges.end(), [](auto& a, auto& b) { return a.range < b.range; });
  return ranges;
}

std::vector<ZoneView> zonesOf(Router const& router) {
  std::vector<ZoneView> zones;
  for (IpGenPrefix const& zone : zoneNames(router)) {
    ZoneView& view = zones.emplace_back();
    view.zone = zone;
    if (auto bsr = router.status()->bootstrapRouter(zone)) view.bsr = viewOf(*bsr);
    auto rpSet = router.status()->crpStatus(zone);
    if (rpSet && rpSet->status()) view.rpSet = rpSetView(*rpSet->status());
    partsOf(router).correctors->holdOver().forEach(zone, [&](RpView const& rp) { addKept(view.rpSet, rp); });
  }
  return zones;
}

// Counters --------------------------------------------------------------------------------------------

/// A counter's value, which is a number, or a structure of numbers by name.
static void readCounter(String8 const& text, char const* type, CounterView& counter) {
  Zet::StrepPos cur = text.begin();
  if (*cur >= '0' && *cur <= '9') {
    counter.value = Zet::readUnsigned(cur, text.end());
    return;
  }
  Zet::readStructured(cur, text.end(), type, [&](String8 const& name, Zet::StrepPos& at, Zet::StrepPos end) {
    U64 value = Zet::readUnsigned(at, end);
    counter.parts.push_back({std::string(name.view()), "", value, {}});
    counter.value += value;
    return true;
  });
}

static std::string qualified(char const* type) {
  std::string owner = PimBsrCounters::_fwkType().name;
  return owner.substr(0, owner.rfind(':') + 1) + type;
}

std::vector<CounterView> countersOf(PimBsrCounters const& counters) {
  std::vector<CounterView> views;
  for (Zet::AttributeRow const& row : PimBsrCounters::_fwkType().rows) {
    bool counts = row.kind == Zet::AttributeKind::counter || row.kind == Zet::AttributeKind::value;
    if (!counts) continue;
    CounterView& view = views.emplace_back(CounterView{row.name, row.sentence, 0, {}});
    readCounter(row.read(counters, String8()), qualified(row.type).c_str(), view);
  }
  return views;
}

}  // namespace pimbsr::host
