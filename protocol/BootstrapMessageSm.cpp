#include "protocol/BootstrapMessageSm.h"

#include "model/DropReason.h"
#include "runtime/Assert.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using pimbsr::DropReason;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::IO", "BootstrapMessageSm");

// Construction ----------------------------------------------------------------------------------------

void BootstrapMessageSm::handleConstruction() {
  handleCounters();
  handleBootstrapMessage();
  handleInitialize();
}

void BootstrapMessageSm::handleInitialize() {
  if (initialized()) return;
  startupTimeIs(Zet::now());
  if (bsrStatus()->af() == Lanet::AddressFamily::ipv4) globalZoneIs(Lanet::allGroups());
  Ptr<PimBsrCounters> counts = counters();
  counts->rxIs(0);
  counts->rxErrorIs(0);
  counts->rxSuccessIs(0);
  counts->txIs(0);
  counts->txErrorIs(0);
  counts->txSuccessIs(0);
  counts->errCountersIs(PimBsrErrorCounters());
  initializedIs(true);
}

void BootstrapMessageSm::handleCounters() { countersIs(bsrStatus()->counters()); }

// Receive ---------------------------------------------------------------------------------------------

void BootstrapMessageSm::handleBootstrapMessage() {
  if (!initialized()) return;
  if (bsrStatus()->af() == Lanet::AddressFamily::ipv4) {
    handleV4BSM();
  } else {
    handleV6BSM();
  }
}

void BootstrapMessageSm::handleV6BSM() { ZET_ASSERT(false, "IPV6 not implemented"); }

namespace {

/// The checks of one message, each true if the message passes. One that fails traces and counts.
class Check {
 public:
  Check(BootstrapMessageSm& gate, BootstrapMessage const& message, IpGenPrefix const& zone)
      : gate_(gate), message_(message), zone_(zone) {}

  bool destination() const;
  bool rpf() const;
  bool quickRefresh() const;
  bool border() const;

 private:
  bool fail(U32 PimBsrErrorCounters::*member, DropReason reason) const;
  U32 period() const;

  BootstrapMessageSm& gate_;
  BootstrapMessage const& message_;
  IpGenPrefix const& zone_;
};

bool Check::fail(U32 PimBsrErrorCounters::*member, DropReason reason) const {
  Ptr<PimBsrCounters> counters = gate_.counters();
  counters->rxErrorInc(1);
  counters->rxBsmErrorInc(1);
  PimBsrErrorCounters errors = counters->errCounters();
  errors.*member += 1;
  counters->errCountersIs(errors);
  pimbsr::reportDrop(reason);
  return false;
}

bool Check::destination() const {
  Lanet::IpAddr destination = message_.dstAddr().v4Addr();
  if (destination == Lanet::allPimRouters) return true;
  if (destination.isMulticast()) {
    ZET_TRACE(trace, 1, "RX - Error - Do not know what we are dealing with here: " << message_.dstAddr());
    return fail(&PimBsrErrorCounters::rxInvalid, DropReason::bootstrapDestination);
  }
  ZET_TRACE(trace, 1, "RX - Error - Unicast BSM not supported.");
  return fail(&PimBsrErrorCounters::rxUnicastBsm, DropReason::unicastBootstrap);
}

bool Check::rpf() const {
  IpGenAddr neighbor = gate_.rpfTable()->doLookup(message_.bsrAddress(), IpGenAddr()).rpfNeighbor;
  if (neighbor.isEmpty()) {
    ZET_TRACE(trace, 1,
              "RX - Error - Dropping BSM since BSM src " << message_.srcAddr() << " for BSR address "
                                                         << message_.bsrAddress()
                                                         << " - RPF neighbor not available.");
    return fail(&PimBsrErrorCounters::rxNbrRpfCheck, DropReason::noRpfNeighbor);
  }
  if (message_.srcAddr() != neighbor) {
    ZET_TRACE(trace, 1,
              "RX - Error - Dropping BSM since BSM src " << message_.srcAddr() << " is not from neighbor "
                                                         << neighbor << " for BSR address "
                                                         << message_.bsrAddress());
    return fail(&PimBsrErrorCounters::rxNbrRpfCheck, DropReason::notRpfNeighbor);
  }
  return true;
}

U32 Check::period() const {
  Ptr<BsrCandidate> candidate = gate_.bsrStatus()->cbsr(zone_);
  return candidate ? candidate->bsPeriod() : BootstrapMessageSm::bsPeriodDefault();
}

bool Check::quickRefresh() const {
  bool isFirst = !gate_.lastBsm(zone_);
  double sinceStartup = Zet::now() - gate_.startupTime();
  if (isFirst && sinceStartup <= period()) return true;
  ZET_TRACE(trace, 1,
            "RX - Error - Dropping BSM. We expect no-forward BSM only if quick refresh. "
                << "lastBsm=" << (isFirst ? "NULL" : "Set") << ", TimeSince startup=" << sinceStartup
                << ", bsPeriod=" << period());
  return fail(&PimBsrErrorCounters::rxNoForwardBsm, DropReason::noForward);
}

bool Check::border() const {
  Ptr<PimBsrBorder> border = gate_.bsrStatus()->bsBorder(zone_);
  Lanet::IntfId intfId = gate_.bsmInfo()->intfId();
  if (!border || !border->intfId(intfId)) return true;
  ZET_TRACE(trace, 1,
            "RX: Error - Dropping BSM since the interface " << intfId << " the message "
                                                            << "arrived on is a BSR border for group"
                                                            << zone_);
  return fail(&PimBsrErrorCounters::rxFilter, DropReason::border);
}

}  // namespace

void BootstrapMessageSm::handleV4BSM() {
  Ptr<BootstrapMessage> message = bsmInfo()->bootstrapMessage();
  if (!message) return;
  counters()->rxInc(1);
  counters()->rxBsmInc(1);
  Ptr<BootstrapGroupData> firstGroup = message->groupRpData()->groupDataFirst();
  bool scoped = firstGroup && firstGroup->groupFlags().scoped();
  IpGenPrefix zone = scoped ? firstGroup->prefix() : globalZone();

  Check check(*this, *message, zone);
  if (!check.destination()) return;
  if (!(message->forward() ? check.rpf() : check.quickRefresh())) return;
  if (!check.border()) return;
  ZET_TRACE(trace, 4, "RX - Accepted BSM from " << message->srcAddr());

  // The message kept for the zone is the one accepted before this one, of whatever zone; null at the very
  // first.
  lastBsmIs(zone, bsmStatus()->rxBsm());
  bsmStatus()->iifIntfIdIs(bsmInfo()->intfId());
  bsmStatus()->firstGroupIs(firstGroup);
  // Last: the root machine handles the message within this write, and reads the two fields above.
  bsmStatus()->rxBsmIs(message);
  counters()->rxBsmSuccessInc(1);
  counters()->rxSuccessInc(1);
}

// Transmit --------------------------------------------------------------------------------------------

void BootstrapMessageSm::handleTransmission() {
  if (!initialized()) return;
  Ptr<IO::PamCounter> sent = pimPamManager()->txPamCounter();
  Ptr<IO::MessageInfo> txMessageInfo = pimPamManager()->txMessageInfo();
  U32 before = sent->txCount();
  txMessageInfo->intfIdIs(bsmStatus()->oifIntfId());
  txMessageInfo->messageIs(bsmStatus()->txBsm());
  txMessageInfo->countInc(1);
  counters()->txInc(1);
  if (before < sent->txCount()) {
    counters()->txSuccessInc(1);
  } else {
    counters()->txErrorInc(1);
  }
}

}  // namespace Routing::Pim::Bsr
