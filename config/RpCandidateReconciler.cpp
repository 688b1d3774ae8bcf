// The reactors of ConfigSm on candidate RPs: they keep Status.crp, one entry per interface under the
// interface's address, with the group ranges that it serves, and count per interface why each range is there.
//
// The entry comes with its first group range and goes with its last. A new address is a new key, so the entry
// is undone whole and built anew; without an address there is no entry, and what is configured meanwhile
// waits for the next one. Priorities are handled apart: the value that was written last is used, and an
// option alone neither makes an entry nor keeps it.

#include <optional>

#include "config/ConfigSm.h"
#include "config/SourceAddress.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::String8;
using CandidateSm = ConfigSm::ZetRpCandidateConfig;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

// The address of the interface ------------------------------------------------------------------------

static IpGenAddr addressOf(CandidateSm const& sm) { return sm.intf()->ipAddr(); }
static bool hasAddress(CandidateSm const& sm) { return kindOf(addressOf(sm)) == SourceAddress::set; }

/// Binding the interface runs handleIpAddress, and so this handler, once more within.
void CandidateSm::handleInitialized() {
  ZET_TRACE_ENTRY(trace);
  if (initialized()) return;
  if (!intf()) {
    ZET_TRACE(trace, 8, "New RP candidate configured for interface " << fwkKey());
    intfIs(configSm()->sourceIntfSm()->registerSourceIntf(fwkKey()));
  }
  if (!hasAddress(*this)) {
    ZET_TRACE(trace, 8,
              "Deferred C-RP initialization since IP address "
                  << "for interface " << fwkKey() << " is not set");
    return;
  }
  initializedIs(true);
}

void CandidateSm::doRebuild() {
  handleGroupRange();
  handleGroupRangeOptions();
  handleAcl();
  handleAclOptions();
}

void CandidateSm::handleIpAddress() {
  ZET_TRACE_ENTRY(trace);
  IpGenAddr address = addressOf(*this);
  if (!initialized()) {
    ZET_TRACE(trace, 8, "Interface " << fwkKey() << " assigned IP " << address << " for the first time.");
    handleInitialized();
    doRebuild();
    handleAdvInterval();
    return;
  }
  if (!hasAddress(*this)) {
    ZET_TRACE(trace, 8, "C-RP Interface " << fwkKey() << " IP unset");
    handleDel();
    return;
  }
  ZET_TRACE(trace, 8, "C-RP Interface " << fwkKey() << " assigned IP " << address);
  handleDel();
  doRebuild();
}

// Events of the configuration -------------------------------------------------------------------------

void CandidateSm::handleGroupRange() {
  if (!initialized()) return;
  for (auto at = notifier()->groupRangeIterator(); at; ++at) handleGroupRange(at.key());
}

void CandidateSm::handleAcl() {
  if (!initialized()) return;
  for (auto at = notifier()->aclIterator(); at; ++at) handleAcl(at.key());
}

void CandidateSm::handleGroupRangeOptions() {
  if (!initialized()) return;
  for (auto at = notifier()->groupRangeOptionsIterator(); at; ++at) handleGroupRangeOptions(at.key());
}

void CandidateSm::handleAclOptions() {
  if (!initialized()) return;
  for (auto at = notifier()->aclOptionsIterator(); at; ++at) handleAclOptions(at.key());
}

/// Without an address nothing is counted: the next address brings the whole entry.
void CandidateSm::handleGroupRange(IpGenPrefix const& prefix) {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  if (notifier()->groupRange(prefix)) {
    if (hasAddress(*this)) doGroupAdd(prefix);
  } else {
    doGroupRemove(prefix);
  }
}

void CandidateSm::handleAcl(String8 const& aclName) {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  if (notifier()->acl(aclName)) {
    if (hasAddress(*this)) doAclAdd(aclName);
  } else {
    doAclRemove(aclName);
  }
}

void CandidateSm::handleGroupRangeOptions(IpGenPrefix const& prefix) {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  Ptr<RpCandidateGroupEntryOptions const> options = notifier()->groupRangeOptions(prefix);
  if (!options) {
    doGroupOptionsRemove(prefix);
  } else if (options->priority() != RpPriority()) {
    doGroupOptionsAdd(prefix, options->priority());
  }
}

void CandidateSm::handleAclOptions(String8 const& aclName) {
  ZET_TRACE_ENTRY(trace);
  if (!initialized()) return;
  Ptr<RpCandidateAclEntryOptions const> options = notifier()->aclOptions(aclName);
  if (!options) {
    doAclOptionsRemove(aclName);
  } else if (options->priority() != RpPriority()) {
    doAclOptionsAdd(aclName, options->priority());
  }
}

void CandidateSm::handleAdvInterval() {
  if (!crp()) return;
  crp()->intervalIs(notifier()->advInterval());
  ZET_TRACE(trace, 8,
            "Advertisement interface for Candidate C-RP " << crp()->address() << " changed to "
                                                          << notifier()->advInterval());
}

// Steps: one reason more or less for a group range ----------------------------------------------------

/// The entry is of the address that the interface has now.
bool CandidateSm::doCreateCrp() {
  if (crp()) return false;
  crpIs(configSm()->status()->crpIs(addressOf(*this)));
  crp()->intfIdIs(fwkKey());
  crp()->intervalIs(notifier()->advInterval());
  return true;
}

static Ptr<RpCandidatePrefixRefCount> useCounts(CandidateSm const& sm, IpGenPrefix const& prefix) {
  ConfigSm& machine = *sm.configSm();
  if (Ptr<RpCandidatePrefixRefCount> counts = machine.crpPfxRefCount(sm.fwkKey())) return counts;
  Ptr<RpCandidatePrefixRefCount> made = machine.crpPfxRefCountIs(sm.fwkKey());
  made->counterIs(prefix, 0);
  ZET_TRACE(trace, 8, "Created C-RP refcount object for interface " << sm.fwkKey());
  return made;
}

static void count(RpCandidatePrefixRefCount& counts, IpGenPrefix const& prefix) {
  counts.counterInc(prefix, 1);
  ZET_TRACE(trace, 8, "C-RP PrefixCounter for prefix " << prefix << " is " << counts.counter(prefix));
}

static U32 countOf(CandidateSm const& sm, IpGenPrefix const& prefix) {
  Ptr<RpCandidatePrefixRefCount> counts = sm.configSm()->crpPfxRefCount(sm.fwkKey());
  return counts ? counts->counter(prefix) : 0;
}

static void useCrp(CandidateSm& sm) {
  if (sm.doCreateCrp()) ZET_TRACE(trace, 8, "Created C-RP " << sm.crp()->address());
}

void CandidateSm::doGroupAdd(IpGenPrefix const& prefix) {
  useCrp(*this);
  Ptr<RpCandidatePrefixRefCount> counts = useCounts(*this, prefix);
  crp()->prefixSetIs(prefix, true);
  ZET_TRACE(trace, 8, "Added Prefix " << prefix << " to C-RP " << crp()->address());
  count(*counts, prefix);
}

void CandidateSm::doDelIfEmpty() {
  if (!crp() || crp()->prefixSetCount() != 0) return;
  IpGenAddr address = crp()->address();
  configSm()->status()->crpDel(address);
  crpDel();
  ZET_TRACE(trace, 8, "Deleted candidate RP " << address << " since it doest serve any group");
}

void CandidateSm::doGroupRemove(IpGenPrefix const& prefix) {
  Ptr<RpCandidatePrefixRefCount> counts = configSm()->crpPfxRefCountIs(fwkKey());
  counts->counterDec(prefix, 1);
  U32 left = counts->counter(prefix);
  ZET_TRACE(trace, 8, "C-RP PrefixCounter for prefix " << prefix << " is " << left);
  if (left != 0) return;
  counts->counterDel(prefix);
  ZET_TRACE(trace, 8, "Deleted C-RP refcount object for interface " << fwkKey());
  if (!crp()) return;
  crp()->prefixSetDel(prefix);
  ZET_TRACE(trace, 8, "Deleted prefix " << prefix << " from prefixSet");
  doDelIfEmpty();
}

// Steps: access lists ---------------------------------------------------------------------------------

static void addAclPrefix(CandidateSm& sm, String8 const& aclName, IpGenPrefix const& prefix) {
  if (sm.doCreateCrp()) {
    ZET_TRACE(trace, 8,
              "Created C-RP with IP " << sm.crp()->address() << " advInterval=" << sm.crp()->interval());
  }
  Ptr<RpCandidatePrefixRefCount> counts = useCounts(sm, prefix);
  sm.crp()->prefixSetIs(prefix, true);
  ZET_TRACE(
      trace, 8,
      "Address prefix " << prefix << " as part of Acl" << aclName << " to C-RP " << sm.crp()->address());
  count(*counts, prefix);
}

void CandidateSm::doAclAdd(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->doUseAcl(aclName);
  record->crpIntfIs(fwkKey(), true);
  ZET_TRACE(trace, 8, "Added interface " << fwkKey() << " to BsrConfigAcl's C-RP object for acl " << aclName);
  for (auto at = record->grpPrefixIterator(); at; ++at) addAclPrefix(*this, aclName, at.key());
}

static void letGo(CandidateSm const& sm, String8 const& aclName) {
  Ptr<BsrConfigAcl> record = sm.configSm()->bsrConfigAcl(aclName);
  if (!record) return;
  record->crpIntfDel(sm.fwkKey());
  ZET_TRACE(trace, 8, "Deleted interface " << sm.fwkKey() << "from BsrConfigAcl object for acl " << aclName);
  sm.configSm()->doReleaseAcl(aclName);
}

void CandidateSm::doAclRemove(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(aclName);
  if (!record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) doGroupRemove(at.key());
  letGo(*this, aclName);
}

/// The priority of the options under a list's name.
static std::optional<RpPriority> listPriority(CandidateSm const& sm, String8 const& aclName) {
  Ptr<RpCandidateAclEntryOptions const> options = sm.notifier()->aclOptions(aclName);
  return options ? std::optional(options->priority()) : std::nullopt;
}

/// The priority of the first list in use that permits a prefix, whoever uses it; `except` is passed over if
/// one is given.
static std::optional<RpPriority> firstListPriority(CandidateSm const& sm, IpGenPrefix const& prefix,
                                                   String8 const* except = nullptr) {
  for (auto at = sm.configSm()->bsrConfigAclIterator(); at; ++at) {
    bool isExcepted = except != nullptr && at.key() == *except;
    if (isExcepted || !at->grpPrefix(prefix)) continue;
    return listPriority(sm, at.key());
  }
  return std::nullopt;
}

void CandidateSm::doAclPrefixActivate(IpGenPrefix const& prefix) {
  ZET_TRACE(trace, 8, "Writing to Status for C-RP with key  " << prefix);
  useCrp(*this);
  useCounts(*this, prefix)->counterInc(prefix, 1);
  crp()->prefixSetIs(prefix, true);
  Ptr<RpCandidateGroupEntryOptions> options = crp()->prefixOptionsIs(prefix);
  if (auto priority = firstListPriority(*this, prefix)) options->priorityIs(*priority);
}

void CandidateSm::doAclPrefixDeactivate(IpGenPrefix const& prefix) {
  Ptr<RpCandidate> candidate = crp();
  IpGenAddr address = candidate ? candidate->address() : IpGenAddr();
  ZET_TRACE(trace, 8, "Removing prefix " << prefix << " from C-RP " << address);
  Ptr<RpCandidatePrefixRefCount> counts = configSm()->crpPfxRefCountIs(fwkKey());
  counts->counterDec(prefix, 1);
  if (counts->counter(prefix) != 0) return;
  counts->counterDel(prefix);
  if (!candidate) return;
  candidate->prefixSetDel(prefix);
  candidate->prefixOptionsDel(prefix);
  ZET_TRACE(trace, 8, "Deleted prefix " << prefix << " from C-RP " << address);
  doDelIfEmpty();
}

// Priorities ------------------------------------------------------------------------------------------

void CandidateSm::doGroupOptionsAdd(IpGenPrefix const& prefix, RpPriority const& priority) {
  if (!crp()) return;
  crp()->prefixOptionsIs(prefix)->priorityIs(priority);
  ZET_TRACE(trace, 8,
            "Created priority " << priority << " to prefix " << prefix << " to C-RP " << crp()->address());
}

void CandidateSm::doAclOptionsAdd(String8 const& aclName, RpPriority const& priority) {
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(aclName);
  if (!crp() || !record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) {
    crp()->prefixOptionsIs(at.key())->priorityIs(priority);
  }
}

/// What a prefix gets in the place of a priority that was taken away, and why.
struct Substitute {
  std::optional<RpPriority> priority;
  char const* reason;
};

static void substitute(CandidateSm& sm, IpGenPrefix const& prefix, Substitute const& instead) {
  if (!sm.crp()) return;
  if (countOf(sm, prefix) == 0) {
    sm.crp()->prefixOptionsDel(prefix);
    ZET_TRACE(trace, 8, "Deleted priority of prefix " << prefix << " from prefixOptions");
  } else if (instead.priority) {
    sm.crp()->prefixOptionsIs(prefix)->priorityIs(*instead.priority);
    ZET_TRACE(trace, 8,
              "Created prefix " << prefix << " with priority " << *instead.priority << " to C-RP "
                                << sm.crp()->address() << instead.reason);
  }
  sm.doDelIfEmpty();
}

/// A prefix that no list serves keeps the priority that it had.
void CandidateSm::doGroupOptionsRemove(IpGenPrefix const& prefix) {
  substitute(*this, prefix, {firstListPriority(*this, prefix), " because this prefix appears in ACL rules."});
}

/// The priority of another list that permits the prefix, or else that of the group range itself.
static std::optional<RpPriority> otherPriority(CandidateSm const& sm, IpGenPrefix const& prefix,
                                               String8 const& aclName) {
  if (auto priority = firstListPriority(sm, prefix, &aclName)) return priority;
  Ptr<RpCandidateGroupEntryOptions const> options = sm.notifier()->groupRangeOptions(prefix);
  if (!options || !sm.notifier()->groupRange(prefix)) return std::nullopt;
  return options->priority();
}

void CandidateSm::doAclOptionsRemove(String8 const& aclName) {
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(aclName);
  if (!record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) {
    substitute(*this, at.key(),
               {otherPriority(*this, at.key(), aclName),
                " because this prefix appears in other ACL rules or in group range."});
  }
  if (!notifier()->acl(aclName)) configSm()->doReleaseAcl(aclName);
}

void CandidateSm::ZetGroupRangeOptions::handlePriority() {
  Ptr<RpCandidate> candidate = owner()->crp();
  if (candidate) candidate->prefixOptionsIs(fwkKey())->priorityIs(notifier()->priority());
}

void CandidateSm::ZetAclOptions::handlePriority() {
  Ptr<RpCandidate> candidate = owner()->crp();
  Ptr<BsrConfigAcl> record = configSm()->bsrConfigAcl(fwkKey());
  if (!candidate || !record) return;
  for (auto at = record->grpPrefixIterator(); at; ++at) {
    candidate->prefixOptionsIs(at.key())->priorityIs(notifier()->priority());
  }
  ZET_TRACE(trace, 8,
            "Priority for Candidate RP in ACL " << fwkKey() << " with IP " << candidate->address()
                                                << " changed to " << notifier()->priority());
}

// End -------------------------------------------------------------------------------------------------

/// Undoes the candidate whole: also for a new address, which is a new key.
void CandidateSm::handleDel() {
  ZET_TRACE_ENTRY(trace);
  if (Ptr<RpCandidatePrefixRefCount> counts = configSm()->crpPfxRefCount(fwkKey())) {
    counts->counterDelAll();
    ZET_TRACE(trace, 8, "Deleted C-RP refcount object for interface " << fwkKey());
  }
  for (auto at = notifier()->aclIterator(); at; ++at) letGo(*this, at.key());
  if (!crp()) return;
  IpGenAddr address = crp()->address();
  configSm()->status()->crpDel(address);
  crpDel();
  ZET_TRACE(trace, 8, "Deleted candidate RP " << address);
}

}  // namespace Routing::Pim::Bsr
