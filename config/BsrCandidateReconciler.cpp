// The reactors of ConfigSm on candidate BSRs: they keep Status.cbsr, one entry per zone, and count per
// interface why each is there.
//
// A group range or access list waits until its interface has an address and its priority and hash mask length
// are known. Then it claims itself for the interface, which no other interface may have done, is counted and
// written. It stays live from then on: a lost address takes entries out of Status and leaves all counts, and
// the next address writes the entries back.
//
// A zone with several sources has the values of the one that wrote last, and keeps them when that one goes.
// If two interfaces have sources, each has its own count, and the first that counts down to 0 removes the
// entry.

#include "config/ConfigSm.h"
#include "config/SourceAddress.h"
#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::String8;
using CandidateSm = ConfigSm::ZetBsrCandidateConfig;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

// The address of the interface ------------------------------------------------------------------------

/// Binding the interface runs handleIpAddress, and so this handler, once more within.
void CandidateSm::handleInitialized() {
  ZET_TRACE_ENTRY(trace);
  if (initialized()) return;
  if (!intf()) {
    ZET_TRACE(trace, 8, "New BSR candidate configured for interface " << fwkKey());
    intfIs(configSm()->sourceIntfSm()->registerSourceIntf(fwkKey()));
  }
  if (kindOf(intf()->ipAddr()) != SourceAddress::set) {
    ZET_TRACE(trace, 8,
              "Deferred initialization since IP address "
                  << "for interface " << fwkKey() << " is not set");
    return;
  }
  initializedIs(true);
}

void CandidateSm::handleGroup() {
  if (!initialized()) return;
  for (auto at = groupIterator(); at; ++at) at->handleInitialize();
}

void CandidateSm::handleAcl() {
  if (!initialized()) return;
  for (auto at = aclIterator(); at; ++at) at->handleInitialize();
}

static IpGenAddr addressOf(CandidateSm const& sm) { return sm.intf()->ipAddr(); }

/// The values that a group range or an access list gives to a candidate.
template <class Source>
static void writeValues(BsrCandidate& candidate, Source const& source) {
  candidate.priorityIs(source.priority());
  candidate.hashMaskLenIs(source.hashMaskLen());
  candidate.bsPeriodIs(source.interval());
}

template <class Source>
static void writeCandidate(CandidateSm const& sm, IpGenPrefix const& zone, Source const& source) {
  Ptr<BsrCandidate> candidate = sm.configSm()->status()->cbsrIs(zone);
  candidate->addressIs(addressOf(sm));
  candidate->intfIdIs(sm.fwkKey());
  writeValues(*candidate, source);
}

/// An entry that is gone already is made anew also for the address 0, unlike that of an access list.
static void moveGroup(CandidateSm const& sm, BsrCandidateGroup const& group) {
  Ptr<Status> status = sm.configSm()->status();
  Ptr<BsrCandidate> candidate = status->cbsr(group.prefix());
  if (candidate && kindOf(addressOf(sm)) == SourceAddress::zero) {
    ZET_TRACE(trace, 8, "Interface " << sm.fwkKey() << " IP unset");
    status->cbsrDel(group.prefix());
    return;
  }
  ZET_TRACE(trace, 8, "Interface " << sm.fwkKey() << " assigned IP " << addressOf(sm));
  if (candidate) {
    candidate->addressIs(addressOf(sm));
  } else {
    writeCandidate(sm, group.prefix(), group);
  }
}

static void moveAclPrefix(CandidateSm const& sm, BsrCandidateAcl const& acl, IpGenPrefix const& prefix) {
  Ptr<Status> status = sm.configSm()->status();
  Ptr<BsrCandidate> candidate = status->cbsr(prefix);
  if (kindOf(addressOf(sm)) == SourceAddress::zero) {
    ZET_TRACE(trace, 8,
              "Interface " << sm.fwkKey() << (candidate ? " IP unset" : " IP already unset. Nothing to do."));
    if (candidate) status->cbsrDel(prefix);
    return;
  }
  if (candidate) {
    ZET_TRACE(trace, 8, "Interface " << sm.fwkKey() << " assigned IP " << addressOf(sm));
    candidate->addressIs(addressOf(sm));
  } else {
    writeCandidate(sm, prefix, acl);
  }
}

/// Calls `act` for each group range that the list of one reactor permits now.
template <class Act>
static void forEachPrefix(CandidateSm::ZetAcl const& acl, Act const& act) {
  Ptr<BsrConfigAcl> record = acl.configSm()->bsrConfigAcl(acl.fwkKey());
  if (!record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) act(at.key());
}

static void removeAll(CandidateSm const& sm) {
  Ptr<Status> status = sm.configSm()->status();
  ZET_TRACE(trace, 8, "Interface " << sm.fwkKey() << " IP unset");
  for (auto at = sm.groupIterator(); at; ++at) status->cbsrDel(at.key());
  for (auto at = sm.aclIterator(); at; ++at) {
    forEachPrefix(*at, [&](IpGenPrefix const& prefix) { status->cbsrDel(prefix); });
  }
}

/// A candidacy that still waits for its priority or hash mask length has no entry to move.
void CandidateSm::handleIpAddress() {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) {
    ZET_TRACE(trace, 8,
              "Interface " << fwkKey() << " assigned IP " << addressOf(*this) << " for the first time.");
    handleInitialized();
    handleGroup();
    handleAcl();
    return;
  }
  if (kindOf(addressOf(*this)) == SourceAddress::unset) return removeAll(*this);
  for (auto at = groupIterator(); at; ++at) {
    if (at->initialize()) moveGroup(*this, *at->notifier());
  }
  for (auto at = aclIterator(); at; ++at) {
    if (!at->initialize()) continue;
    forEachPrefix(*at, [&](IpGenPrefix const& prefix) { moveAclPrefix(*this, *at->notifier(), prefix); });
  }
}

// Claims ----------------------------------------------------------------------------------------------

static bool isKnown(U16 priority, U32 hashMaskLen) {
  bool known = priority != BsrCandidateGroup::priorityUnknown() &&
               hashMaskLen != BsrCandidateGroup::hashMaskLenUnknown();
  if (!known) {
    ZET_TRACE(trace, 8, "Skipping initialization since priority or hashmask lengths are not set");
  }
  return known;
}

/// Whether a range or list of an initialized candidate can be claimed.
template <class Entry>
static bool isReady(CandidateSm const& sm, Entry const& entry) {
  return sm.initialized() && isKnown(entry.priority(), entry.hashMaskLen());
}

/// Whether a range or list is still free for the interface; one that another interface holds ends the
/// process.
static bool isFree(IntfId const& holder, IntfId const& intfId) {
  if (holder.isEmpty()) return true;
  ZET_TRACE(trace, 8, "Interface " << holder << " already BSR for zone. Asserting...");
  ZET_ASSERT(holder == intfId, "intfId == zetBsrCandidateConfig()->intfId()");
  return false;
}

void CandidateSm::ZetGroup::handleInitialize() {
  if (!isReady(*owner(), *notifier())) return;
  Ptr<Status> status = configSm()->status();
  IntfId intfId = owner()->fwkKey();
  if (isFree(status->zoneGroup(fwkKey()), intfId)) status->zoneGroupIs(fwkKey(), intfId);
  ZET_TRACE(trace, 8, fwkKey() << " forms zone with interface " << intfId);
  owner()->doGroupAdd(fwkKey());
  initializeIs(true);
}

void CandidateSm::ZetAcl::handleInitialize() {
  if (!isReady(*owner(), *notifier())) return;
  Ptr<Status> status = configSm()->status();
  IntfId intfId = owner()->fwkKey();
  if (isFree(status->zoneAcl(fwkKey()), intfId)) status->zoneAclIs(fwkKey(), intfId);
  ZET_TRACE(trace, 8, "Acl " << fwkKey() << " forms zone with interface " << intfId);
  owner()->doAclAdd(fwkKey());
  initializeIs(true);
}

// Steps: one reason more or less for a candidate ------------------------------------------------------

static Ptr<BsrCandidatePrefixRefCount> useCounts(CandidateSm const& sm, IpGenPrefix const& prefix) {
  ConfigSm& machine = *sm.configSm();
  if (Ptr<BsrCandidatePrefixRefCount> counts = machine.cbsrPfxRefCount(sm.fwkKey())) return counts;
  Ptr<BsrCandidatePrefixRefCount> made = machine.cbsrPfxRefCountIs(sm.fwkKey());
  made->counterIs(prefix, 0);
  ZET_TRACE(trace, 8, "Created refcount object for interface " << sm.fwkKey());
  return made;
}

static void count(BsrCandidatePrefixRefCount& counts, IpGenPrefix const& prefix) {
  counts.counterInc(prefix, 1);
  ZET_TRACE(trace, 8, "PrefixCounter for prefix " << prefix << " is " << counts.counter(prefix));
}

static void traceCreated(BsrCandidate const& candidate) {
  ZET_TRACE(trace, 8,
            "Created candidate BSR for zone " << candidate.zone() << " with IP " << candidate.address()
                                              << ", Priority=" << candidate.priority()
                                              << ", HashMaskLen=" << candidate.hashMaskLen()
                                              << ", Interval=" << candidate.bsPeriod());
}

/// The root machine hears of a new entry before any of its values is written.
void CandidateSm::doGroupAdd(IpGenPrefix const& prefix) {
  Ptr<BsrCandidatePrefixRefCount> counts = useCounts(*this, prefix);
  Ptr<Status> status = configSm()->status();
  Ptr<BsrCandidate> candidate = status->cbsr(prefix);
  if (!candidate) {
    candidate = status->cbsrIs(prefix);
    ZET_TRACE(trace, 8, "Created CBSR zone " << prefix);
  }
  candidate->addressIs(addressOf(*this));
  candidate->intfIdIs(fwkKey());
  writeValues(*candidate, *group(prefix)->notifier());
  traceCreated(*candidate);
  count(*counts, prefix);
}

void CandidateSm::doGroupRemove(IpGenPrefix const& prefix) {
  Ptr<BsrCandidatePrefixRefCount> counts = configSm()->cbsrPfxRefCountIs(fwkKey());
  counts->counterDec(prefix, 1);
  U32 left = counts->counter(prefix);
  ZET_TRACE(trace, 8, "PrefixCounter for prefix " << prefix << " is " << left);
  if (left != 0) return;
  counts->counterDel(prefix);
  ZET_TRACE(trace, 8, "Deleted refcount object for interface " << fwkKey());
  configSm()->status()->cbsrDel(prefix);
  ZET_TRACE(trace, 8, "Deleted candidate BSR for zone " << prefix);
}

// Steps: access lists ---------------------------------------------------------------------------------

static void addAclPrefix(CandidateSm const& sm, BsrCandidateAcl const& acl, IpGenPrefix const& prefix) {
  Ptr<BsrCandidatePrefixRefCount> counts = useCounts(sm, prefix);
  Ptr<Status> status = sm.configSm()->status();
  Ptr<BsrCandidate> candidate = status->cbsr(prefix);
  if (!candidate) {
    candidate = status->cbsrIs(prefix);
    ZET_TRACE(trace, 8, "Created zone " << prefix << " CBSR set");
  }
  candidate->intfIdIs(sm.fwkKey());
  candidate->addressIs(addressOf(sm));
  writeValues(*candidate, acl);
  traceCreated(*candidate);
  count(*counts, prefix);
}

void CandidateSm::doAclAdd(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->doUseAcl(aclName);
  Ptr<BsrCandidateAcl const> entry = acl(aclName)->notifier();
  record->cbsrIntfIs(fwkKey(), true);
  ZET_TRACE(trace, 8, "Added interface " << fwkKey() << " to BsrConfigAcl object for acl " << aclName);
  for (auto at = record->grpPrefixIterator(); at; ++at) addAclPrefix(*this, *entry, at.key());
}

void CandidateSm::doAclRemove(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(aclName);
  if (!record) return;
  Ptr<BsrCandidatePrefixRefCount> counts = configSm()->cbsrPfxRefCount(fwkKey());
  for (auto at = record->grpPrefixIterator(); at; ++at) {
    if (!counts) continue;
    counts->counterDec(at.key(), 1);
    if (counts->counter(at.key()) != 0) continue;
    counts->counterDel(at.key());
    configSm()->status()->cbsrDel(at.key());
    ZET_TRACE(trace, 8, "Deleted candidate BSR for zone " << at.key());
  }
  record->cbsrIntfDel(fwkKey());
  ZET_TRACE(trace, 8, "Deleted interface " << fwkKey() << "from BsrConfigAcl object for acl " << aclName);
  configSm()->doReleaseAcl(aclName);
}

void CandidateSm::doAclPrefixActivate(String8 const& aclName, IpGenPrefix const& prefix) {
  ZET_TRACE(trace, 8, "Writing to Status for cbsr in zone " << prefix << " with key  " << prefix);
  Ptr<Status> status = configSm()->status();
  Ptr<BsrCandidateAcl const> entry = acl(aclName)->notifier();
  Ptr<BsrCandidate> candidate = status->cbsr(prefix);
  if (!candidate) {
    candidate = status->cbsrIs(prefix);
    ZET_TRACE(trace, 8, "Created zone " << prefix << " for CBSR");
  }
  useCounts(*this, prefix)->counterInc(prefix, 1);
  candidate->intfIdIs(fwkKey());
  candidate->addressIs(addressOf(*this));
  writeValues(*candidate, *entry);
}

void CandidateSm::doAclPrefixDeactivate(IpGenPrefix const& prefix) {
  ZET_TRACE(trace, 8, "Removing CBSR with key " << prefix << " for zone " << prefix);
  doGroupRemove(prefix);
}

// Values ----------------------------------------------------------------------------------------------

static void writePriority(BsrCandidate& candidate, U16 priority) {
  candidate.priorityIs(priority);
  ZET_TRACE(trace, 8,
            "Priority for Candidate BSR in Zone " << candidate.zone() << " with IP " << candidate.address()
                                                  << " changed to " << priority);
}

static void writeHashMaskLen(BsrCandidate& candidate, U32 hashMaskLen) {
  candidate.hashMaskLenIs(hashMaskLen);
  ZET_TRACE(trace, 8,
            "HashMaskLen for Candidate BSR in Zone " << candidate.zone() << " with IP " << candidate.address()
                                                     << " changed to " << hashMaskLen);
}

static void writeInterval(BsrCandidate& candidate, U32 interval) {
  candidate.bsPeriodIs(interval);
  ZET_TRACE(trace, 8,
            "Interval for Candidate BSR in Zone " << candidate.zone() << " with IP " << candidate.address()
                                                  << " changed to " << interval);
}

/// A range that waited may begin now; of one that is live, one value is written.
template <class Write, class T>
static void changeGroup(CandidateSm::ZetGroup& group, Write const& write, T value) {
  if (!group.initialize()) return group.handleInitialize();
  if (Ptr<BsrCandidate> candidate = group.configSm()->status()->cbsr(group.fwkKey())) {
    write(*candidate, value);
  }
}

template <class Write, class T>
static void changeAcl(CandidateSm::ZetAcl& acl, Write const& write, T value) {
  if (!acl.initialize()) return acl.handleInitialize();
  forEachPrefix(acl, [&](IpGenPrefix const& prefix) {
    if (Ptr<BsrCandidate> candidate = acl.configSm()->status()->cbsr(prefix)) write(*candidate, value);
  });
}

void CandidateSm::ZetGroup::handlePriority() { changeGroup(*this, writePriority, notifier()->priority()); }
void CandidateSm::ZetGroup::handleHashMaskLen() {
  changeGroup(*this, writeHashMaskLen, notifier()->hashMaskLen());
}
void CandidateSm::ZetGroup::handleInterval() { changeGroup(*this, writeInterval, notifier()->interval()); }

void CandidateSm::ZetAcl::handlePriority() { changeAcl(*this, writePriority, notifier()->priority()); }
void CandidateSm::ZetAcl::handleHashMaskLen() {
  changeAcl(*this, writeHashMaskLen, notifier()->hashMaskLen());
}
void CandidateSm::ZetAcl::handleInterval() { changeAcl(*this, writeInterval, notifier()->interval()); }

// End -------------------------------------------------------------------------------------------------

/// The claims are released first; the reactors on ranges and lists undo their entries after this.
void CandidateSm::handleDel() {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  Ptr<Status> status = configSm()->status();
  for (auto at = groupIterator(); at; ++at) {
    status->zoneGroupDel(at.key());
    ZET_TRACE(trace, 8, "Deleted candidate BSR for zone " << at.key());
  }
  for (auto at = aclIterator(); at; ++at) {
    status->zoneAclDel(at.key());
    ZET_TRACE(trace, 8, "Deleted candidate BSR for acl " << at.key());
  }
}

void CandidateSm::ZetGroup::handleDel() {
  if (!initialize()) return;
  configSm()->status()->zoneGroupDel(fwkKey());
  ZET_TRACE(trace, 8, "Deleted zoneGroup " << fwkKey());
  owner()->doGroupRemove(fwkKey());
}

void CandidateSm::ZetAcl::handleDel() {
  if (!initialize()) return;
  configSm()->status()->zoneAclDel(fwkKey());
  ZET_TRACE(trace, 8, "Deleted zoneAcl for acl " << fwkKey());
  owner()->doAclRemove(fwkKey());
}

}  // namespace Routing::Pim::Bsr
