// What a new neighbor gets at once: the last message of every zone, from the router that is or was the DR of
// the link, with the No-Forward bit set (RFC 5059 section 3.5).

#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

void PimBsrSm::ZetPimIntf::handleDrChange() {
  if (notifier()->iAmDr()) return;
  ZET_TRACE(trace, 8, "We are no longer DR on interface " << fwkKey());
  wasDrIs(true);
}

void PimBsrSm::ZetPimIntf::handleTriggeredHelloSent() {
  Ptr<Intf const> intf = notifier();
  bool isDr = intf->iAmDr();
  if ((isDr || wasDr()) && intf->neighborCount() > 0) {
    ZET_TRACE(trace, 8,
              "Send No Forward BSM since " << (isDr ? "we are DR " : "we were DR ") << " on interface "
                                           << fwkKey());
    doSendNoFwdBsm();
  }
  wasDrIs(false);
}

/// Sends the kept messages of one kind of zone machine.
template <class MachineWalk>
static void sendKept(PimBsrSm& root, Lanet::IntfId const& intfId, MachineWalk machine) {
  for (; machine; ++machine) {
    Ptr<Packet::BootstrapMessage> last = machine->lastBsm();
    if (last) {
      root.doSendTriggeredBsm(machine->zone(), false, intfId, last);
    } else {
      ZET_TRACE(trace, 8, "No last BSM available to send triggered BSM");
    }
  }
}

void PimBsrSm::ZetPimIntf::doSendNoFwdBsm() {
  PimBsrSm& root = *pimBsrSm();
  sendKept(root, fwkKey(), root.nonCandidateSmIterator());
  sendKept(root, fwkKey(), root.candidateSmIterator());
}

}  // namespace Routing::Pim::Bsr
