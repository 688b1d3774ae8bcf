#include "crp/CrpMessageSm.h"

#include "model/DropReason.h"
#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::CrpAdvMessage;
using Packet::CrpGroupInfo;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::IO", "CrpMessageSm");

// Construction ----------------------------------------------------------------------------------------

/// A message that waits already is deliberately not read: the gate isn't open yet.
void CrpMessageSm::handleConstruction() {
  handleCounters();
  globalZoneIs(IpGenPrefix());
  handleCrpAdvMessage();
  handleInitialize();
}

void CrpMessageSm::handleInitialize() {
  Lanet::AddressFamily af = bsrStatus()->af();
  if (af == Lanet::AddressFamily::ipv4) globalZoneIs(Lanet::allGroups());
  crpPermitTrieIs("CrpPermitTrie", af);
  crpPermitTrieBuilderIs(bsrStatus(), crpPermitTrie());
  initializedIs(true);
}

void CrpMessageSm::handleCounters() { countersIs(bsrStatus()->counters()); }

// Receive ---------------------------------------------------------------------------------------------

void CrpMessageSm::handleCrpAdvMessage() {
  if (!initialized()) return;
  if (bsrStatus()->af() != Lanet::AddressFamily::ipv4) return handleV6CRPAdv();
  if (Ptr<CrpAdvMessage> message = crpMsgInfo()->crpAdvMessage()) handleV4CRPAdv(message);
}

void CrpMessageSm::handleV6CRPAdv() { ZET_ASSERT(false, "0 && \"IPV6 not implemented\""); }

static void countFiltered(PimBsrCounters& counters) {
  counters.rxErrorInc(1);
  counters.rxCrpAdvErrorInc(1);
  PimBsrErrorCounters errors = counters.errCounters();
  errors.rxFilter += 1;
  counters.errCountersIs(errors);
  pimbsr::reportDrop(pimbsr::DropReason::senderFilter);
}

/// Publishes one group of the advertisement whose fields are already written; the root machine handles it
/// within the raise.
static void publish(PimCrpMsgStatus& status, Ptr<CrpGroupInfo> const& group) {
  status.groupInfoIs(group);
  status.readCountInc(1);
}

void CrpMessageSm::handleV4CRPAdv(Ptr<CrpAdvMessage> const& msg) {
  Ptr<CrpAdvMessage> held(msg);
  counters()->rxInc(1);
  counters()->rxCrpAdvInc(1);
  if (crpPermitTrie()->longestMatch(IpGenPrefix(held->srcAddr())).isEmpty()) {
    ZET_TRACE(trace, 1,
              "RX - Dropping CRP Adv since Crp Adv Message from " << held->srcAddr() << " is not permitted");
    return countFiltered(*counters());
  }
  ZET_TRACE(trace, 4, "RX - Accepted CrpAdv from " << held->srcAddr());
  Ptr<PimCrpMsgStatus> status = crpMsgStatus();
  status->bsrIpIs(held->dstAddr());
  status->rpIs(held->rpAddress());
  status->priorityIs(U32{held->priority()});
  status->holdTimeIs(held->holdtime());
  status->rxCrpMsgIs(held);
  Ptr<Packet::CrpGroupData> groups = held->groupData();
  if (groups && groups->groupInfoCount() != 0) {
    for (auto group = groups->groupInfoIterator(); group; ++group) publish(*status, group.ptr());
  } else {
    ZET_TRACE(trace, 8, "RX - Received CRP Advertisement with 0 groups. Assuming 224.0.0.0/4");
    publish(*status, Zet::make<CrpGroupInfo>(globalZone()));
  }
  counters()->rxCrpAdvSuccessInc(1);
  counters()->rxSuccessInc(1);
}

// Transmit --------------------------------------------------------------------------------------------

void CrpMessageSm::handleTransmission() {
  if (!initialized()) {
    ZET_TRACE(trace, 8, "Uninitialized. Not Sending");
    return;
  }
  Ptr<CrpAdvMessage> message = crpMsgStatus()->txCrpMsg();
  if (isLocalHost(message->dstAddr())) {
    ZET_TRACE(trace, 8, "TX - Sending CRP Advertisement locally");
    counters()->txSuccessInc(1);
    handleV4CRPAdv(message);
    return;
  }
  Ptr<IO::PamCounter> sent = pimPamManager()->txPamCounter();
  Ptr<IO::MessageInfo> txMessageInfo = pimPamManager()->txMessageInfo();
  U32 before = sent->txCount();
  txMessageInfo->intfIdIs(Lanet::IntfId());
  txMessageInfo->messageIs(message);
  txMessageInfo->countInc(1);
  counters()->txInc(1);
  if (before < sent->txCount()) {
    counters()->txSuccessInc(1);
    return;
  }
  counters()->txErrorInc(1);
  ZET_TRACE(trace, 1, "TX - Error sending CRP Advertisement");
}

bool CrpMessageSm::isLocalHost(IpGenAddr const& address) const {
  Lanet::AddressFamily af = bsrStatus()->af();
  ZET_ASSERT(af != Lanet::AddressFamily::unset, "0 && \"Address Family unknown\"");
  ZET_ASSERT(af != Lanet::AddressFamily::ipv6, "0 && \"IPV6 not supported\"");
  if (af != Lanet::AddressFamily::ipv4) return false;
  IpGenPrefix best = ucastRouteStatus()->routeTrie()->longestMatch(IpGenPrefix(address));
  ::Slosh::Fib::Route route = ucastRouteStatus()->routeTable()->lookup(best.v4Prefix());
  if (route == ::Slosh::Fib::Route()) return false;
  return route.type == ::Slosh::Fib::RouteType::local;
}

}  // namespace Routing::Pim::Bsr
