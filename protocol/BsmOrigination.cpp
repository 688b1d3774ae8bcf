#include "protocol/BsmOrigination.h"

#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::CandidateSm", "BsrCandidateSm");

static void addRp(BootstrapGroupData& group, Routing::Pim::RpCandidate& rp) {
  Ptr<Packet::BootstrapRpData> record = group.rpListIs(rp.address());
  record->rpHoldtimeIs(rp.holdTime().value());
  if (rp.holdTime().value() == 0) {
    rp.expiresIs(Zet::now());
    ZET_TRACE(trace, 8, "RP " << rp.address() << " to expire now since holdtime is 0");
  }
  record->rpPriorityIs(static_cast<U8>(rp.priority().value()));
}

void doAddGroupData(BootstrapMessage& bsm, Ptr<RpCandidateSet> const& set, IpGenPrefix const& zone,
                    U8 flags) {
  Ptr<BootstrapGroupData> group;
  if (set) {
    group = Zet::make<BootstrapGroupData>(set->prefix());
    ZET_TRACE(trace, 8, "Adding CRP prefix " << set->prefix() << " in BSM");
  } else if (flags != 0) {
    group = Zet::make<BootstrapGroupData>(zone);
    ZET_TRACE(trace, 8, "Adding Zone " << zone << " in BSM");
  } else {
    ZET_TRACE(trace, 8, "No zone or CRP set");
    return;
  }
  auto count = static_cast<U8>(set ? set->rpCount() : 0);
  group->groupFlagsIs(Packet::GroupFlags(flags));
  group->rpCountIs(count);
  group->fragRpCountIs(count);
  if (set) {
    for (auto rp = set->rpIterator(); rp; ++rp) addRp(*group, *rp);
  }
  ZET_TRACE(trace, 8, "RP count in BSM is " << U32{count});
  bsm.groupRpData()->groupDataEnq(group);
}

void addZoneGroups(BootstrapMessage& bsm, Ptr<RpCandidateStatus> const& rpSet, IpGenPrefix const& zone,
                   bool scoped) {
  if (!rpSet) return doAddGroupData(bsm, nullptr, zone, scoped ? 1 : 0);
  if (scoped) doAddGroupData(bsm, rpSet->crpSet(zone), zone, 1);
  for (auto set = rpSet->crpSetIterator(); set; ++set) {
    if (!scoped || set->prefix() != zone) doAddGroupData(bsm, set.ptr(), zone, 0);
  }
}

}  // namespace Routing::Pim::Bsr
