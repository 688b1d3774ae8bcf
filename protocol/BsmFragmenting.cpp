#include "protocol/BsmFragmenting.h"

#include <algorithm>

#include "runtime/Meter.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

U32 bsmLength(Packet::BootstrapMessage const& bsm) {
  U32 groups = 0;
  U32 rps = 0;
  Ptr<Packet::BootstrapOptionalData> data = bsm.groupRpData();
  for (auto at = data->groupDataIterator(); at; ++at) {
    ++groups;
    rps += at->rpCount();
  }
  ZET_TRACE(trace, 8, "Number of Groups: " << groups << ", Total number of RPs: " << rps);
  return bsmHeaderLength + groups * bsmGroupLength + rps * bsmRpLength;
}

U32 fragmentEstimate(U32 length, U32 mtu, bool scoped) {
  U32 whole = length / mtu;
  U32 adjusted = scoped ? length + bsmGroupLength * whole - bsmGroupLength : length;
  U32 total = adjusted + bsmHeaderLength * (whole - 1);
  return total / mtu + (total % mtu != 0 ? 1 : 0);
}

namespace {

/// One group record on its way into the fragments.
class Placement {
 public:
  Placement(IpGenPrefix const& zone, U32 zoneRpCount, PimBsrTxFragments& fragments, U32 mtu,
            BootstrapGroupData const& group)
      : zone_(zone), zoneRpCount_(zoneRpCount), fragments_(fragments), mtu_(mtu), group_(group) {}

  bool placeWhole();
  void placeSplit();

 private:
  bool needsZone(PimBsrTxFragment const& fragment) const;
  void addZone(PimBsrTxFragment& fragment) const;
  Ptr<BootstrapGroupData> addRecord(PimBsrTxFragment& fragment, U8 fragRpCount) const;

  IpGenPrefix const& zone_;
  U32 zoneRpCount_;
  PimBsrTxFragments& fragments_;
  U32 mtu_;
  BootstrapGroupData const& group_;
};

void copyRp(BootstrapGroupData& to, Packet::BootstrapRpData const& rp) {
  Ptr<Packet::BootstrapRpData> copy = to.rpListIs(rp.rpAddress());
  copy->rpHoldtimeIs(rp.rpHoldtime());
  copy->rpPriorityIs(rp.rpPriority());
}

/// A fragment of a scoped zone that is still empty must begin with the zone's own record.
bool Placement::needsZone(PimBsrTxFragment const& fragment) const {
  return zone_ != Lanet::allGroups() && fragment.length() == bsmHeaderLength && group_.prefix() != zone_;
}

void Placement::addZone(PimBsrTxFragment& fragment) const {
  auto record = Zet::make<BootstrapGroupData>(zone_);
  record->groupFlagsIs(Packet::GroupFlags(1));
  record->rpCountIs(static_cast<U8>(zoneRpCount_));
  record->fragRpCountIs(0);
  fragment.lengthInc(bsmGroupLength);
  fragment.bsm()->groupRpData()->groupDataEnq(record);
}

Ptr<BootstrapGroupData> Placement::addRecord(PimBsrTxFragment& fragment, U8 fragRpCount) const {
  auto record = Zet::make<BootstrapGroupData>(group_.prefix());
  record->groupFlagsIs(group_.groupFlags());
  record->rpCountIs(group_.rpCount());
  record->fragRpCountIs(fragRpCount);
  fragment.lengthInc(bsmGroupLength);
  return record;
}

bool Placement::placeWhole() {
  for (U32 i = 0; i < fragments_.fragmentCount(); ++i) {
    Zet::Meter::visit();
    Ptr<PimBsrTxFragment> fragment = fragments_.fragment(i);
    ZET_TRACE(trace, 8, "Length of fragment " << i << " is " << fragment->length());
    U32 needed = fragment->length() + bsmRpLength * group_.rpCount() + bsmGroupLength;
    bool opens = needsZone(*fragment);
    if (opens) needed += bsmGroupLength;
    if (needed > mtu_) continue;
    if (opens) addZone(*fragment);
    ZET_TRACE(trace, 8,
              "Fragment " << i << " to house prefix " << group_.prefix() << " with " << U32{group_.rpCount()}
                          << " RPs");
    Ptr<BootstrapGroupData> record = addRecord(*fragment, group_.fragRpCount());
    for (auto rp = group_.rpListIterator(); rp; ++rp) copyRp(*record, *rp);
    fragment->lengthInc(bsmRpLength * group_.rpCount());
    fragment->bsm()->groupRpData()->groupDataEnq(record);
    return true;
  }
  return false;
}

void Placement::placeSplit() {
  U32 const total = group_.rpCount();
  ZET_TRACE(trace, 8,
            "Splitting fragment for prefix " << group_.prefix() << " containing " << total << " RPs");
  auto rp = group_.rpListIterator();
  U32 added = 0;
  for (U32 i = 0; i < fragments_.fragmentCount(); ++i) {
    Ptr<PimBsrTxFragment> fragment = fragments_.fragment(i);
    if (needsZone(*fragment)) addZone(*fragment);
    U32 available = mtu_ > fragment->length() ? mtu_ - fragment->length() : 0;
    if (available <= bsmGroupLength + bsmRpLength) {
      ZET_TRACE(trace, 8,
                "Fragment " << i << " does not have space. Required Space:" << bsmGroupLength + bsmRpLength
                            << ", Available space:" << available);
      continue;
    }
    U32 most = (available - bsmGroupLength) / bsmRpLength;
    U32 n = std::min(most, total - added);
    ZET_TRACE(trace, 8, "    into fragment " << i << " with " << n << " Rps ( max " << most << " RPs )");
    Ptr<BootstrapGroupData> record = addRecord(*fragment, static_cast<U8>(n));
    for (U32 copied = 0; copied < n && rp; ++copied, ++rp) copyRp(*record, *rp);
    fragment->lengthInc(bsmRpLength * n);
    fragment->bsm()->groupRpData()->groupDataEnq(record);
    added += n;
    if (added == total) return;
  }
}

}  // namespace

Zet::S32 doAddGroupData(IpGenPrefix const& zone, U32 zoneRpCount, PimBsrTxFragments& fragments, U32 mtu,
                        BootstrapGroupData const& groupData, bool split) {
  Placement placement(zone, zoneRpCount, fragments, mtu, groupData);
  if (placement.placeWhole()) return 0;
  if (!split) return -1;
  placement.placeSplit();
  return 0;
}

}  // namespace Routing::Pim::Bsr
