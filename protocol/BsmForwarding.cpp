// Sending Bootstrap Messages along the interfaces, whole or in fragments (RFC 5059 section 3.4).
//
// A message goes out of every interface that has a neighbor and is no border of its zone, the one that it
// came in on included; whether it may be forwarded at all is for the zone machines to say. One write of
// bsmStatus.txBsm with a raise of writeCount is one transmission, finished when the raise returns.

#include "protocol/BsmFragmenting.h"
#include "protocol/PimBsrSm.h"
#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IntfId;
using Lanet::IpGenPrefix;
using Packet::BootstrapMessage;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

/// Whether an interface is a border of exactly this zone.
static bool isBorder(Status const& status, IpGenPrefix const& zone, IntfId const& intfId) {
  Ptr<PimBsrBorder> border = status.bsBorder(zone);
  return border && border->intfId(intfId);
}

static void transmit(PimBsmStatus& bsmStatus, Ptr<BootstrapMessage> const& bsm) {
  bsmStatus.txBsmIs(bsm);
  bsmStatus.writeCountInc(1);
}

// Whole messages --------------------------------------------------------------------------------------

U32 PimBsrSm::doComputeBsmLength(Ptr<BootstrapMessage> const& bsm) const { return bsmLength(*bsm); }

void PimBsrSm::forwardBsm(IpGenPrefix const& zone, Ptr<BootstrapMessage> const& bsm) {
  if (!initialized()) return;
  U32 length = doComputeBsmLength(bsm);
  ZET_TRACE(trace, 8, "BSM length is " << length);
  for (auto intf = pimStatus()->pimIntfIterator(); intf; ++intf) {
    IntfId intfId = intf->intfId();
    if (intf->neighborCount() == 0 || isBorder(*bsrStatus(), zone, intfId)) continue;
    U32 mtu = allIntfStatusDir()->mtu(intfId);
    ZET_TRACE(trace, 8, "MTU of interface " << intfId << " is " << mtu);
    bsmStatus()->oifIntfIdIs(intfId);
    if (Ptr<ZetPimIntf> reactor = pimIntf(intfId)) reactor->wasDrIs(false);
    if (length > mtu) {
      fragmentAndSendBsm(zone, mtu, length, intfId, bsm);
      continue;
    }
    // The source of a received message is the hop before; the sender puts its own there.
    bsm->srcAddrIs(Lanet::IpGenAddr());
    transmit(*bsmStatus(), bsm);
    ZET_TRACE(trace, 8, " Forwarding BSM to oif=" << intfId << " for zone " << zone);
  }
  bsmFragmentsDelAll();
}

void PimBsrSm::doSendTriggeredBsm(IpGenPrefix const& zone, bool const& forward, IntfId const& intfId,
                                  Ptr<BootstrapMessage> const& bsm) {
  if (!initialized() || isBorder(*bsrStatus(), zone, intfId)) return;
  U32 length = doComputeBsmLength(bsm);
  U32 mtu = allIntfStatusDir()->mtu(intfId);
  ZET_TRACE(trace, 8, "MTU of interface " << intfId << " is " << mtu);
  // The kept message itself carries the flag from here on.
  bsm->forwardIs(forward);
  bsmStatus()->oifIntfIdIs(intfId);
  if (length > mtu) {
    fragmentAndSendBsm(zone, mtu, length, intfId, bsm);
    return;
  }
  transmit(*bsmStatus(), bsm);
  ZET_TRACE(trace, 8,
            "Sending BSM along oif=" << intfId << " for zone " << zone << " with forward bit set to "
                                     << (forward ? "True" : "False"));
}

// Fragments -------------------------------------------------------------------------------------------

static Ptr<PimBsrTxFragment> emptyFragment(BootstrapMessage const& whole) {
  auto bsm = Zet::make<BootstrapMessage>();
  bsm->forwardIs(whole.forward());
  bsm->fragmentTagIs(whole.fragmentTag());
  bsm->hashMaskLenIs(whole.hashMaskLen());
  bsm->bsrPriorityIs(whole.bsrPriority());
  bsm->bsrAddressIs(whole.bsrAddress());
  bsm->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  auto fragment = Zet::make<PimBsrTxFragment>();
  fragment->bsmIs(bsm);
  fragment->lengthInc(bsmHeaderLength);
  return fragment;
}

/// Puts the records of a message into its fragments: those that fit whole first, then those that must be
/// split.
static void fillFragments(PimBsrSm& machine, IpGenPrefix const& zone, bool scoped,
                          PimBsrTxFragments& fragments, U32 mtu, BootstrapMessage const& bsm) {
  U32 zoneRpCount = 0;
  auto group = bsm.groupRpData()->groupDataIterator();
  if (scoped && group) {
    zoneRpCount = group->rpCount();
    Zet::S32 placed = doAddGroupData(zone, zoneRpCount, fragments, mtu, *group, false);
    if (placed < 0) doAddGroupData(zone, zoneRpCount, fragments, mtu, *group, true);
    ++group;
  }
  for (; group; ++group) {
    Zet::S32 placed = doAddGroupData(zone, zoneRpCount, fragments, mtu, *group, false);
    if (placed < 0) machine.splitGroupRpDataIs(machine.splitGroupRpDataCount(), group.ptr());
  }
  if (machine.splitGroupRpDataCount() == 0) return;
  ZET_TRACE(trace, 8, " Group-Rp data needs to be split across fragments");
  for (U32 i = 0; i < machine.splitGroupRpDataCount(); ++i) {
    ZET_ASSERT(!doAddGroupData(zone, zoneRpCount, fragments, mtu, *machine.splitGroupRpData(i), true),
               "!doAddGroupData( zone, zoneRpCount, fragments, mtu, splitGroupRpData( i ), true )");
  }
  machine.splitGroupRpDataDelAll();
}

void PimBsrSm::fragmentAndSendBsm(IpGenPrefix const& zone, U32 const& mtu, U32 const& length,
                                  IntfId const& intfId, Ptr<BootstrapMessage> const& bsm) {
  Ptr<PimBsrTxFragments> fragments = bsmFragments(mtu);
  if (!fragments) {
    bool scoped = zone != globalOrNonScopeZone();
    U32 count = fragmentEstimate(length, mtu, scoped);
    ZET_TRACE(trace, 8, count << " fragments to be generated");
    fragments = bsmFragmentsIs(mtu);
    fragments->numFragmentsIs(count);
    for (U32 i = 0; i < count; ++i) fragments->fragmentIs(i, emptyFragment(*bsm));
    fillFragments(*this, zone, scoped, *fragments, mtu, *bsm);
  }
  for (U32 i = 0; i < fragments->fragmentCount(); ++i) {
    transmit(*bsmStatus(), fragments->fragment(i)->bsm());
    ZET_TRACE(trace, 8, " Forwarding BSM fragment to oif=" << intfId << " for zone " << zone);
  }
}

}  // namespace Routing::Pim::Bsr
