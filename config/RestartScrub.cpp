// What ConfigSm does first where Status has outlived a former run: it removes the entries that the
// configuration doesn't explain. The interfaces that use an access list are not known yet, since there is no
// reactor on the configuration. So an entry that only a list explains is removed here and built anew; an
// entry that a group range explains is not touched.

#include "config/ConfigSm.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Zet::String8;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

void ConfigSm::doBuildBsrConfigAcl() {
  ZET_TRACE_ENTRY(trace);
  for (auto intf = config()->intfConfigIterator(); intf; ++intf) {
    for (auto acl = intf->bsrBorderAclIterator(); acl; ++acl) bsrConfigAclIs(acl.key());
  }
  for (auto cbsr = config()->bsrCandidateConfigIterator(); cbsr; ++cbsr) {
    for (auto acl = cbsr->aclIterator(); acl; ++acl) bsrConfigAclIs(acl.key());
  }
  for (auto crp = config()->rpCandidateConfigIterator(); crp; ++crp) {
    for (auto acl = crp->aclIterator(); acl; ++acl) bsrConfigAclIs(acl.key());
  }
  for (auto acl = config()->crpFilterAclIterator(); acl; ++acl) bsrConfigAclIs(acl.key());
}

/// Whether `explains` holds for the record of one of the lists that `acls` walks.
template <class Iterator, class Test>
static bool anyAcl(ConfigSm const& machine, Iterator acls, Test const& explains) {
  for (; acls; ++acls) {
    Ptr<BsrConfigAcl> record = machine.bsrConfigAcl(acls.key());
    if (record && explains(*record)) return true;
  }
  return false;
}

// Borders ---------------------------------------------------------------------------------------------

static bool isBorderExplained(ConfigSm const& machine, IntfConfig const& entry, IntfId const& intfId,
                              IpGenPrefix const& prefix) {
  if (entry.bsrBorderGrp(prefix)) return true;
  return anyAcl(machine, entry.bsrBorderAclIterator(), [&](BsrConfigAcl const& record) {
    return record.grpPrefix(prefix) && record.borderIntf(intfId);
  });
}

static void scrubBorder(ConfigSm& machine, PimBsrBorder& border) {
  for (auto at = border.intfIdIterator(); at; ++at) {
    IntfId intfId = at.key();
    Ptr<IntfConfig> entry = machine.config()->intfConfig(intfId.stringValue());
    if (entry && isBorderExplained(machine, *entry, intfId, border.prefix())) continue;
    border.intfIdDel(intfId);
    if (!entry) continue;
    ZET_TRACE(trace, 8, "Deleted Interface " << intfId << " from prefix " << border.prefix() << " in status");
  }
}

static void scrubBorders(ConfigSm& machine) {
  Ptr<Status> status = machine.status();
  for (auto border = status->bsBorderIterator(); border; ++border) {
    scrubBorder(machine, *border);
    if (border->intfIdCount() != 0) continue;
    ZET_TRACE(trace, 8, "Deleting prefix " << border.key() << " from status");
    status->bsBorderDel(border.key());
  }
}

// Candidate BSRs --------------------------------------------------------------------------------------

static bool isCandidateBsrExplained(ConfigSm const& machine, BsrCandidateConfig const& entry,
                                    BsrCandidate const& candidate) {
  if (entry.group(candidate.zone())) return true;
  return anyAcl(machine, entry.aclIterator(), [&](BsrConfigAcl const& record) {
    return record.grpPrefix(candidate.zone()) && record.cbsrIntf(candidate.intfId());
  });
}

static void scrubCandidateBsrs(ConfigSm& machine) {
  Ptr<Status> status = machine.status();
  for (auto candidate = status->cbsrIterator(); candidate; ++candidate) {
    Ptr<BsrCandidateConfig> entry = machine.config()->bsrCandidateConfig(candidate->intfId());
    if (entry && isCandidateBsrExplained(machine, *entry, *candidate)) continue;
    if (entry) ZET_TRACE(trace, 8, "Deleting zone " << candidate.key() << " from CBSR status");
    status->cbsrDel(candidate.key());
  }
}

// Candidate RPs ---------------------------------------------------------------------------------------

static bool hasAllPrefixes(RpCandidate const& candidate, BsrConfigAcl const& record) {
  for (auto at = record.grpPrefixIterator(); at; ++at) {
    if (!candidate.prefixSet(at.key())) return false;
  }
  return true;
}

/// One of its group ranges is enough to keep a candidate whole; of a list, all ranges must be there.
static bool isCandidateRpExplained(ConfigSm const& machine, RpCandidateConfig const& entry,
                                   RpCandidate const& candidate) {
  for (auto at = entry.groupRangeIterator(); at; ++at) {
    if (candidate.prefixSet(at.key())) return true;
  }
  return anyAcl(machine, entry.aclIterator(), [&](BsrConfigAcl const& record) {
    return hasAllPrefixes(candidate, record) && record.crpIntf(candidate.intfId());
  });
}

static void scrubCandidateRps(ConfigSm& machine) {
  Ptr<Status> status = machine.status();
  for (auto candidate = status->crpIterator(); candidate; ++candidate) {
    Ptr<RpCandidateConfig> entry = machine.config()->rpCandidateConfig(candidate->intfId());
    if (entry && isCandidateRpExplained(machine, *entry, *candidate)) continue;
    if (entry) ZET_TRACE(trace, 8, "Deleting CRP " << candidate.key() << " from status");
    status->crpDel(candidate.key());
  }
}

// The filter ------------------------------------------------------------------------------------------

static void scrubPermits(ConfigSm& machine) {
  Ptr<Status> status = machine.status();
  for (auto permit = status->crpPermitIterator(); permit; ++permit) {
    IpGenPrefix prefix = permit.key();
    bool isExplained = anyAcl(machine, machine.config()->crpFilterAclIterator(),
                              [&](BsrConfigAcl const& record) { return record.prefix(prefix); });
    if (isExplained) continue;
    ZET_TRACE(trace, 8, "Deleting CRP Permit Prefix " << prefix << " from status");
    status->crpPermitDel(prefix);
  }
}

void ConfigSm::doRemoveExtraStatusEntries() {
  ZET_TRACE_ENTRY(trace);
  scrubBorders(*this);
  scrubCandidateBsrs(*this);
  scrubCandidateRps(*this);
  scrubPermits(*this);
}

}  // namespace Routing::Pim::Bsr
