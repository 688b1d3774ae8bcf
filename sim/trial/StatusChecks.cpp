#include "sim/trial/StatusChecks.h"

#include <algorithm>
#include <set>

namespace pimbsr::sim {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IntfId;
using Lanet::IpGenPrefix;

/// Entries of a status tree, each as one sentence.
using Entries = std::set<std::string>;

// Candidates ------------------------------------------------------------------------------------------

static std::string textOf(IpGenPrefix const& zone, host::BsrCandidacy const& bsr) {
  return fmt::format(
      "candidate BSR {} on {} for zone {} with priority {}, hash mask length {} and BS_Period {} s",
      bsr.address, bsr.intfId, zone, bsr.priority, bsr.hashMaskLen, bsr.bsPeriod);
}

static std::string textOf(IpGenPrefix const& range, host::RpCandidacy const& rp) {
  return fmt::format("candidate RP {} on {} for {} with priority {} and C_RP_Adv_Period {} s", rp.address,
                     rp.intfId, range, rp.priority, rp.cRpAdvPeriod);
}

static void addCandidates(Bsr::Status const& status, Entries& entries) {
  for (auto at = status.cbsrIterator(); at; ++at) {
    entries.insert(textOf(at->zone(), host::BsrCandidacy{at->address(), at->intfId(), at->priority(),
                                                         at->hashMaskLen(), at->bsPeriod()}));
  }
  for (auto at = status.crpIterator(); at; ++at) {
    if (at->prefixSetCount() == 0)
      entries.insert(fmt::format("candidate RP {} without ranges", at->address()));
    for (auto range = at->prefixSetIterator(); range; ++range) {
      auto options = at->prefixOptions(range.key());
      U32 priority = options ? options->priority().value() : ~U32{0};
      auto interval = static_cast<U16>(at->interval().value());
      entries.insert(textOf(range.key(), host::RpCandidacy{at->address(), at->intfId(), priority, interval}));
    }
  }
}

static void addCandidates(Configured const& configured, Entries& entries) {
  for (auto const& [zone, candidacy] : configured.candidateBsrs) entries.insert(textOf(zone, candidacy));
  for (auto const& [key, candidacy] : configured.candidateRps) entries.insert(textOf(key.first, candidacy));
}

// Filters ---------------------------------------------------------------------------------------------

static std::string permitText(IpGenPrefix const& senders) { return fmt::format("permit of {}", senders); }

static std::string borderText(IpGenPrefix const& zone, IntfId const& intfId) {
  return fmt::format("border of {} at {}", zone, intfId);
}

static void addFilters(Bsr::Status const& status, Entries& entries) {
  for (auto at = status.crpPermitIterator(); at; ++at) {
    if (at->value) entries.insert(permitText(at.key()));
  }
  for (auto at = status.bsBorderIterator(); at; ++at) {
    if (at->intfIdCount() == 0) entries.insert(fmt::format("border of {} without interfaces", at->prefix()));
    for (auto intf = at->intfIdIterator(); intf; ++intf) {
      if (intf->value) entries.insert(borderText(at->prefix(), intf.key()));
    }
  }
}

/// Without a list the senders of all addresses are permitted.
static void addFilters(Node const& node, Configured const& configured, Entries& entries) {
  for (IpGenPrefix const& senders : configured.permits) entries.insert(permitText(senders));
  if (configured.permits.empty()) entries.insert(permitText(Lanet::Prefix()));
  for (auto const& [zone, intf] : configured.borders)
    entries.insert(borderText(zone, node.interfaces()[intf].intfId));
}

// Both ------------------------------------------------------------------------------------------------

static std::string timeoutsText(U64 bsTimeout, U64 szTimeout) {
  return fmt::format("BS_Timeout {} s and SZ_Timeout {} s", bsTimeout, szTimeout);
}

Findings checkConfigured(Node const& node, Configured const& configured) {
  Bsr::Status const& status = *node.router()->status();
  U64 bsTimeout = node.config().bsTimeout;
  Entries expected{timeoutsText(bsTimeout, std::max(node.config().szTimeout, 10 * bsTimeout))};
  Entries found{timeoutsText(status.bsTimeout(), status.szTimeout())};
  addCandidates(configured, expected);
  addFilters(node, configured, expected);
  addCandidates(status, found);
  addFilters(status, found);
  Findings findings;
  for (std::string const& entry : expected) {
    if (!found.contains(entry)) findings.push_back(fmt::format("{} has not its {}", node.name(), entry));
  }
  for (std::string const& entry : found) {
    if (!expected.contains(entry))
      findings.push_back(fmt::format("{} has {}, which is not configured", node.name(), entry));
  }
  return findings;
}

// Counters --------------------------------------------------------------------------------------------

/// A range that is none of this BSR's counts as a drop of its own, whether or not its message is accepted.
/// The counters by kind outlive a restart that keeps the status tree; those of both kinds do not. A message
/// of this router to itself counts as sent and goes to no interface.
Findings checkCounters(Node const& node) {
  Bsr::PimBsrCounters const& c = *node.router()->status()->counters();
  Bsr::PimBsrErrorCounters e = c.errCounters();
  U32 byReason =
      e.rxFilter + e.rxNbrRpfCheck + e.rxNoForwardBsm + e.rxUnicastBsm + e.rxScopeMismatch + e.rxInvalid;
  struct Sum {
    char const* text;
    U32 count;
    U32 least;
    U32 most;
  };
  U32 ended = c.rxSuccess() + c.rxError();
  U32 bsms = c.rxBsmSuccess() + c.rxBsmError();
  U32 advertisements = c.rxCrpAdvSuccess() + c.rxCrpAdvError();
  Sum const sums[] = {
      {"messages received", c.rx(), ended - e.rxInvalid, ended},
      {"messages received of both kinds", c.rxBsm() + c.rxCrpAdv(), c.rx(), ~U32{0}},
      {"messages accepted of both kinds", c.rxBsmSuccess() + c.rxCrpAdvSuccess(), c.rxSuccess(), ~U32{0}},
      {"Bootstrap Messages received", c.rxBsm(), bsms, bsms},
      {"advertisements received", c.rxCrpAdv(), advertisements, advertisements},
      {"drops", c.rxError(), byReason, byReason},
      {"messages sent to others", c.tx(), 0, c.txSuccess() + c.txError()}};
  Findings findings;
  for (Sum const& sum : sums) {
    if (sum.count >= sum.least && sum.count <= sum.most) continue;
    findings.push_back(fmt::format("{} counts {} {}, and by their outcome {} to {}", node.name(), sum.count,
                                   sum.text, sum.least, sum.most));
  }
  return findings;
}

}  // namespace pimbsr::sim
