#include "config/ConfigSm.h"

#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Zet::Ptr;
using Zet::String8;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

// Construction ----------------------------------------------------------------------------------------

/// The reactors on access lists and on the configuration are bound after this, so that a former run's entries
/// are gone before any of them adds one.
void ConfigSm::handleConstruction() {
  handleBsrHoldTime();
  handleSzTimeout();
  handleAclConfig();
  handleInitialized();
}

void ConfigSm::handleInitialized() {
  ZET_TRACE_ENTRY(trace);
  if (initialized()) return;
  ZET_ASSERT(status()->af() == Lanet::AddressFamily::ipv4, "IPV6 or Unknown Address Family not supported");
  globalOrNonScopedZoneIs(Lanet::allGroups());
  bool isRestart = status()->bsBorderCount() != 0 || status()->cbsrCount() != 0 ||
                   status()->crpCount() != 0 || status()->crpPermitCount() != 0;
  if (isRestart) {
    doBuildBsrConfigAcl();
    doRemoveExtraStatusEntries();
  }
  zeroPfxIs(Lanet::Prefix());
  handleFilterAcl();
  initializedIs(true);
}

// Timeouts and counters -------------------------------------------------------------------------------

/// A BS_Timeout that exceeds SZ_Timeout changes SZ_Timeout in Status only once SZ_Timeout itself is written.
void ConfigSm::handleBsrHoldTime() {
  status()->bsTimeoutIs(config()->holdTime());
  ZET_TRACE(trace, 8, "BSR Hold Time is " << config()->holdTime());
}

/// The floor wraps at 32 bits, for a BS_Timeout from 429496730 on.
void ConfigSm::handleSzTimeout() {
  U32 floor = config()->holdTime() * 10;
  U32 szTimeout = config()->szTimeout();
  if (szTimeout < floor) {
    status()->szTimeoutIs(floor);
    ZET_TRACE(
        trace, 8,
        "Scoped Zone timeout " << szTimeout << " secs too low. Setting it to " << floor << " secs in status");
    return;
  }
  status()->szTimeoutIs(szTimeout);
  ZET_TRACE(trace, 8, "Scoped Zone timeout is " << szTimeout << " secs");
}

void ConfigSm::handleClearCounters() {
  ZET_TRACE_ENTRY(trace);
  IO::clearMessageCounters(pimCounters());
}

// Records of access lists -----------------------------------------------------------------------------

/// The reactor loads the list before the maker of the record gets hold of it.
void ConfigSm::handleBsrConfigAcl(String8 const& aclName) {
  if (Ptr<BsrConfigAcl> record = bsrConfigAcl(aclName)) {
    bsrConfigAclSmIs(record);
  } else {
    bsrConfigAclSmDel(aclName);
  }
}

Ptr<BsrConfigAcl> ConfigSm::doUseAcl(String8 const& aclName) {
  if (Ptr<BsrConfigAcl> record = bsrConfigAcl(aclName)) return record;
  Ptr<BsrConfigAcl> made = bsrConfigAclIs(aclName);
  ZET_TRACE(trace, 8, "Created BsrConfigAcl object for acl " << aclName);
  return made;
}

void ConfigSm::doReleaseAcl(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = bsrConfigAcl(aclName);
  if (!record || record->isUsed()) return;
  bsrConfigAclDel(aclName);
  ZET_TRACE(trace, 8, "Deleted BsrConfigAcl object for acl " << aclName);
}

void ConfigSm::handleAclConfig() {
  if (!ipAclConfig()) return;
  for (auto at = bsrConfigAclIterator(); at; ++at) {
    if (ipAclConfig()->acl(at.key())) bsrConfigAclSm(at.key())->initializeIs(true);
  }
}

/// Only the first appearance of a list is taken up here; later ones reach the record through the reactor on
/// the list.
void ConfigSm::handleAclConfig(Zet::Name const& aclName) {
  ZET_TRACE_ENTRY(trace);
  Ptr<BsrConfigAcl> record = bsrConfigAcl(aclName);
  if (!record) return;
  if (ipAclConfig() && ipAclConfig()->acl(aclName)) {
    bsrConfigAclSm(aclName)->initializeIs(true);
    return;
  }
  record->grpPrefixDelAll();
  record->prefixDelAll();
}

// End -------------------------------------------------------------------------------------------------

/// The reactors are unbound already, so Status keeps its entries.
void ConfigSm::handleEnd() {
  bsrConfigAclDelAll();
  borderPfxRefCountDelAll();
  cbsrPfxRefCountDelAll();
  crpPfxRefCountDelAll();
}

}  // namespace Routing::Pim::Bsr
