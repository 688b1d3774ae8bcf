// The reactors of ConfigSm on the borders of interfaces: they keep Status.bsBorder, the interfaces at which
// messages of a scope zone turn back (RFC 5059 section 3.1.3), and count per interface why each is there.

#include "config/ConfigSm.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IntfId;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::String8;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

IntfId ConfigSm::ZetActiveConfig::intfId() const { return IntfId(fwkKey()); }

void ConfigSm::ZetActiveConfig::handleInitialized() {
  handleBsrBorderGrp();
  handleBsrBorderAcl();
}

// Events ----------------------------------------------------------------------------------------------

void ConfigSm::ZetActiveConfig::handleBsrBorderGrp() {
  for (auto at = notifier()->bsrBorderGrpIterator(); at; ++at) handleBsrBorderGrp(at.key());
}

void ConfigSm::ZetActiveConfig::handleBsrBorderAcl() {
  for (auto at = notifier()->bsrBorderAclIterator(); at; ++at) handleBsrBorderAcl(at.key());
}

void ConfigSm::ZetActiveConfig::handleBsrBorderGrp(IpGenPrefix const& prefix) {
  ZET_TRACE_ENTRY(trace);
  if (notifier()->bsrBorderGrp(prefix)) {
    doGroupAdd(prefix);
  } else {
    doGroupRemove(prefix);
  }
}

void ConfigSm::ZetActiveConfig::handleBsrBorderAcl(String8 const& aclName) {
  ZET_TRACE_ENTRY(trace);
  if (notifier()->bsrBorderAcl(aclName)) {
    doAclAdd(aclName);
  } else {
    doAclRemove(aclName);
  }
}

// Steps: one reason more or less for a border ---------------------------------------------------------

/// The words in which a rule of a list and a group range differ.
struct BorderTexts {
  char const* created;
  char const* added;
  char const* deleted;
};
static constexpr BorderTexts groupTexts{" BSR Border set", " BSR border set.", "Deleted interface "};
static constexpr BorderTexts ruleTexts{" Bsr Border set", " BSR border.", "Deleted interface"};

static void addReason(ConfigSm& machine, IntfId const& intfId, IpGenPrefix const& prefix,
                      BorderTexts const& texts) {
  Ptr<Status> status = machine.status();
  Ptr<BsrBorderPrefixRefCount> counts = machine.borderPfxRefCount(intfId);
  if (!counts) {
    counts = machine.borderPfxRefCountIs(intfId);
    counts->counterIs(prefix, 0);
    ZET_TRACE(trace, 8, "Created refcount object for interface " << intfId);
  }
  Ptr<PimBsrBorder> border = status->bsBorder(prefix);
  if (!border) {
    border = status->bsBorderIs(prefix);
    ZET_TRACE(trace, 8, "Created group " << prefix << texts.created);
  }
  border->intfIdIs(intfId, true);
  ZET_TRACE(trace, 8, "Added interface " << intfId << " into " << prefix << texts.added);
  counts->counterInc(prefix, 1);
  ZET_TRACE(trace, 8, "PrefixCounter for prefix " << prefix << " is " << counts->counter(prefix));
}

static void removeReason(ConfigSm& machine, IntfId const& intfId, IpGenPrefix const& prefix,
                         BorderTexts const& texts) {
  Ptr<BsrBorderPrefixRefCount> counts = machine.borderPfxRefCountIs(intfId);
  counts->counterDec(prefix, 1);
  U32 count = counts->counter(prefix);
  ZET_TRACE(trace, 8, "PrefixCounter for prefix " << prefix << " is " << count);
  if (count != 0) return;
  counts->counterDel(prefix);
  ZET_TRACE(trace, 8, "Deleted refcount object for interface " << intfId);
  Ptr<PimBsrBorder> border = machine.status()->bsBorder(prefix);
  if (!border) return;
  border->intfIdDel(intfId);
  ZET_TRACE(trace, 8, texts.deleted << intfId << " from " << prefix << " BSR border set.");
  if (border->intfIdCount() != 0) return;
  machine.status()->bsBorderDel(prefix);
  ZET_TRACE(trace, 8, "Deleted group " << prefix << " BSR border set");
}

void ConfigSm::ZetActiveConfig::doGroupAdd(IpGenPrefix const& prefix) {
  addReason(*configSm(), intfId(), prefix, groupTexts);
}

void ConfigSm::ZetActiveConfig::doGroupRemove(IpGenPrefix const& prefix) {
  removeReason(*configSm(), intfId(), prefix, groupTexts);
}

// Steps: access lists ---------------------------------------------------------------------------------

void ConfigSm::ZetActiveConfig::doAclAdd(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->doUseAcl(aclName);
  record->borderIntfIs(intfId(), true);
  ZET_TRACE(trace, 8, "Added interface " << intfId() << " to BsrConfigAcl object for acl " << aclName);
  for (auto at = record->grpPrefixIterator(); at; ++at) doGroupAdd(at.key());
}

void ConfigSm::ZetActiveConfig::doAclRemove(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(aclName);
  if (!record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) doGroupRemove(at.key());
  record->borderIntfDel(intfId());
  ZET_TRACE(trace, 8, "Deleted interface " << intfId() << "from BsrConfigAcl object for acl " << aclName);
  configSm()->doReleaseAcl(aclName);
}

void ConfigSm::ZetActiveConfig::doAclPrefixActivate(IpGenPrefix const& prefix) {
  ZET_TRACE(trace, 8, "Writing to Status for " << prefix << " and interface  " << intfId());
  addReason(*configSm(), intfId(), prefix, ruleTexts);
}

void ConfigSm::ZetActiveConfig::doAclPrefixDeactivate(IpGenPrefix const& prefix) {
  ZET_TRACE(trace, 8, "Removing interface " << intfId() << " for prefix " << prefix);
  removeReason(*configSm(), intfId(), prefix, ruleTexts);
}

// End -------------------------------------------------------------------------------------------------

void ConfigSm::ZetActiveConfig::handleDel() {
  ZET_TRACE(trace, 8, "Deleting BSR borders for " << intfId());
  for (auto at = notifier()->bsrBorderGrpIterator(); at; ++at) doGroupRemove(at.key());
  for (auto at = notifier()->bsrBorderAclIterator(); at; ++at) doAclRemove(at.key());
}

}  // namespace Routing::Pim::Bsr
