// The filter of Candidate-RP-Advertisements: Status.crpPermit holds the ranges of senders that the filter
// lists permit, counted over the lists. Where they permit none it holds 0.0.0.0/0, so that the filter is
// open.

#include "config/ConfigSm.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::String8;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

void ConfigSm::crpFilterAclPfxRefCountInc(IpGenPrefix const& prefix, U32 const& n) {
  crpFilterAclPfxRefCountIs(prefix, crpFilterAclPfxRefCount(prefix) + n);
}

void ConfigSm::crpFilterAclPfxRefCountDec(IpGenPrefix const& prefix, U32 const& n) {
  crpFilterAclPfxRefCountIs(prefix, crpFilterAclPfxRefCount(prefix) - n);
}

/// Takes 0.0.0.0/0 away once lists permit something, unless it is permitted by a list itself.
static void closeFilter(ConfigSm& machine) {
  IpGenPrefix zeroPfx = machine.zeroPfx();
  bool isOpen = machine.status()->crpPermit(zeroPfx) && machine.crpFilterAclPfxRefCount(zeroPfx) == 0;
  if (isOpen && machine.crpFilterAclPfxRefCountCount() != 0) machine.status()->crpPermitDel(zeroPfx);
}

static void openFilterIfEmpty(ConfigSm& machine) {
  if (machine.status()->crpPermitCount() == 0) machine.status()->crpPermitIs(machine.zeroPfx(), true);
}

// Lists -----------------------------------------------------------------------------------------------

void ConfigSm::handleFilterAcl() {
  ZET_TRACE_ENTRY(trace);
  if (config()->crpFilterAclCount() == 0) {
    status()->crpPermitIs(zeroPfx(), true);
    return;
  }
  for (auto at = config()->crpFilterAclIterator(); at; ++at) handleFilterAcl(at.key());
  // Lists that permit nothing leave the filter open.
  openFilterIfEmpty(*this);
}

void ConfigSm::handleFilterAcl(String8 const& aclName) {
  ZET_TRACE_ENTRY(trace);
  if (config()->crpFilterAcl(aclName)) {
    doFilterAclAdd(aclName);
    closeFilter(*this);
  } else {
    doFilterAclRemove(aclName);
    openFilterIfEmpty(*this);
  }
}

/// A new record is counted while it loads, which sets its flag. One that was loaded for another role holds no
/// senders yet, so that it adds nothing until one of its rules changes.
void ConfigSm::doFilterAclAdd(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = doUseAcl(aclName);
  if (!record->usedByCrpAdvAclFilter()) {
    for (auto at = record->prefixIterator(); at; ++at) {
      IpGenPrefix prefix = at.key();
      if (crpFilterAclPfxRefCount(prefix) == 0) {
        crpFilterAclPfxRefCountIs(prefix, 0);
        ZET_TRACE(trace, 8, "Added new prefix " << prefix << " into filter acl prefix counter");
        status()->crpPermitIs(prefix, true);
        ZET_TRACE(trace, 8, "Added prefix " << prefix << " to status");
      }
      crpFilterAclPfxRefCountInc(prefix, 1);
    }
  }
  record->usedByCrpAdvAclFilterIs(true);
}

void ConfigSm::doFilterAclRemove(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = bsrConfigAcl(aclName);
  if (!record) return;
  for (auto at = record->prefixIterator(); at; ++at) {
    IpGenPrefix prefix = at.key();
    crpFilterAclPfxRefCountDec(prefix, 1);
    U32 count = crpFilterAclPfxRefCount(prefix);
    ZET_TRACE(trace, 8, "Filter ACL PrefixCounter for prefix " << prefix << " is " << count);
    if (count != 0) continue;
    crpFilterAclPfxRefCountDel(prefix);
    ZET_TRACE(trace, 8, "Deleted refcount for prefix " << prefix);
    status()->crpPermitDel(prefix);
    ZET_TRACE(trace, 8, "Deleted prefix " << prefix << " from status");
  }
  record->usedByCrpAdvAclFilterIs(false);
  doReleaseAcl(aclName);
}

// Prefixes of a list that counts ----------------------------------------------------------------------

void ConfigSm::doFilterAclPrefixActivate(IpGenPrefix const& prefix) {
  if (crpFilterAclPfxRefCount(prefix) == 0) {
    crpFilterAclPfxRefCountIs(prefix, 0);
    ZET_TRACE(trace, 8, "Added new prefix " << prefix << " into filter acl prefix counter");
    status()->crpPermitIs(prefix, true);
    closeFilter(*this);
  }
  crpFilterAclPfxRefCountInc(prefix, 1);
}

void ConfigSm::doFilterAclPrefixDeactivate(IpGenPrefix const& prefix) {
  crpFilterAclPfxRefCountDec(prefix, 1);
  if (crpFilterAclPfxRefCount(prefix) != 0) return;
  crpFilterAclPfxRefCountDel(prefix);
  status()->crpPermitDel(prefix);
  openFilterIfEmpty(*this);
}

}  // namespace Routing::Pim::Bsr
