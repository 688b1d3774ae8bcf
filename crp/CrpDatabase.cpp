// The C-RP database at the elected BSR (RFC 5059 section 3.3): what the root machine and the candidate
// machine do with an advertisement. It fills the same tree per zone that Bootstrap Messages fill on other
// routers.
//
// A too short holdtime is raised and not rejected. An RP has one mode in a range, and bidirectional wins over
// sparse. A withdrawn RP is kept, with holdtime 0, until the next message has announced the withdrawal.

#include "model/DropReason.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/Context.h"
#include "runtime/Log.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::CrpGroupInfo;
using Zet::Ptr;

static Zet::TraceSource const rootTrace("Pim::Bsr::Sm", "PimBsrSm");
static Zet::TraceSource const trace("Pim::Bsr::CandidateSm", "BsrCandidateSm");

static Zet::LogHandle const crpZoneLog(
    "PIMBSR_MESSAGE_CRP_ZONE", Zet::LogSeverity::notice,
    "C-RP advertisement received from %s with Zone bit set.",
    "Indicated C-RP is a ZBR. This message is logged in compliance to RFC 5059.",
    "If C-RP is not a ZBR contact support. This message is safe to ignore otherwise.", 0.0, 1.0, 0);

// Zone of a range -------------------------------------------------------------------------------------

/// Whether this router is the elected BSR of the zone and the advertisement was sent to it as such.
static bool isForUs(Status const& status, IpGenPrefix const& zone, IpGenAddr const& bsrIp) {
  Ptr<ElectedBsrStatus> elected = status.bootstrapRouter(zone);
  if (!elected || elected->ipAddr() != bsrIp) return false;
  Ptr<BsrCandidate> candidate = status.cbsr(zone);
  return candidate && candidate->address() == elected->ipAddr();
}

void PimBsrSm::handleCrpMsg() {
  Ptr<CrpGroupInfo> group = crpMsgStatus()->groupInfo();
  if (!initialized() || !group) return;
  IpGenPrefix zone = bsrTrie()->longestMatch(group->prefix());
  IpGenAddr bsrIp = crpMsgStatus()->bsrIp();
  if (isForUs(*bsrStatus(), zone, bsrIp)) {
    ZET_TRACE(rootTrace, 8, "Passing Crp Adv Message to Candidate BSR " << bsrIp << " for zone " << zone);
    Ptr<BsrCandidateSm> machine = candidateSm(zone);
    machine->doAddCrp(group, crpMsgStatus()->rp(), crpMsgStatus()->priority(), crpMsgStatus()->holdTime());
    return;
  }
  ZET_TRACE(rootTrace, 1,
            "Rx Error - Dropping Crp Adv Message to Candidate BSR " << bsrIp << " for zone " << zone);
  Ptr<PimBsrCounters> counters = bsrStatus()->counters();
  counters->rxErrorInc(1);
  PimBsrErrorCounters errors = counters->errCounters();
  errors.rxInvalid += 1;
  counters->errCountersIs(errors);
  pimbsr::reportDrop(pimbsr::DropReason::notElectedBsr);
}

// One RP of one range ---------------------------------------------------------------------------------

namespace {

/// One call of doAddCrp.
class Advertisement {
 public:
  Advertisement(BsrCandidateSm& machine, CrpGroupInfo const& group, IpGenAddr const& rp, RpPriority priority,
                CrpHoldTime holdTime)
      : machine_(machine), group_(group), address_(rp), priority_(priority), holdTime_(holdTime) {}

  void process();

 private:
  bool withdraws() const { return holdTime_.value() == 0; }
  bool isBidir() const { return group_.groupFlags().bidir(); }
  Ptr<RpCandidateSet> range();
  bool settleMode(RpCandidateSet& set, Ptr<Routing::Pim::RpCandidate>& rp);
  Ptr<Routing::Pim::RpCandidate> add(RpCandidateSet& set);
  void withdraw(Routing::Pim::RpCandidate& rp);
  void write(Routing::Pim::RpCandidate& rp);
  void hurryTimer();

  BsrCandidateSm& machine_;
  CrpGroupInfo const& group_;
  IpGenAddr address_;
  RpPriority priority_;
  CrpHoldTime holdTime_;
};

void Advertisement::process() {
  Ptr<RpCandidateSet> set = range();
  if (!set) return;
  Ptr<Routing::Pim::RpCandidate> rp = set->rp(address_);
  if (!settleMode(*set, rp)) return;
  if (!rp && withdraws()) {
    ZET_TRACE(trace, 8, "Holdtime value of C-RP Advertisement is 0. Ignoring message");
    return;
  }
  if (rp && withdraws()) return withdraw(*rp);
  if (!rp) rp = add(*set);
  write(*rp);
}

/// The range's set, made where it is missing; null where it is missing and nothing is to be made for a
/// withdrawal.
Ptr<RpCandidateSet> Advertisement::range() {
  Ptr<Status> status = machine_.bsrStatus();
  Ptr<PimBsrRpCandidateStatus> zoneStatus = status->crpStatus(machine_.zone());
  if (!zoneStatus) {
    if (withdraws()) return nullptr;
    zoneStatus = status->crpStatusIs(machine_.zone());
    zoneStatus->statusIs("")->rpSetTypeIs(RpType::bsr);
    ZET_TRACE(trace, 8, "Creating CrpStatus for zone " << machine_.zone());
  }
  Ptr<RpCandidateStatus> rpSet = zoneStatus->status();
  Ptr<RpCandidateSet> set = rpSet->crpSet(group_.prefix());
  if (set || withdraws()) return set;
  set = rpSet->crpSetIs(group_.prefix());
  ZET_TRACE(trace, 8, "Creating CrpSet with prefix " << group_.prefix());
  return set;
}

/// Lets bidirectional win: drops a sparse RP that comes back bidirectional, which is then new, and returns
/// false for a sparse advertisement of a bidirectional RP, which is ignored.
bool Advertisement::settleMode(RpCandidateSet& set, Ptr<Routing::Pim::RpCandidate>& rp) {
  if (!rp) return true;
  bool wasBidir = rp->pimMode() == Mode::bidir;
  if (isBidir() == wasBidir) return true;
  if (wasBidir) {
    ZET_TRACE(trace, 8,
              "CRP " << address_ << " has both PIM-SM and PIM-BIDIR instances."
                     << " We prefer BIDIR. Hence ignoring PIM-SM CRP Advertisement");
    return false;
  }
  ZET_TRACE(trace, 8,
            "CRP " << address_ << " has both PIM-SM and PIM-BIDIR instances."
                   << " We prefer BIDIR. Hence deleting existing PIM-SM CRP entry");
  set.rpDel(address_);
  rp = nullptr;
  return true;
}

Ptr<Routing::Pim::RpCandidate> Advertisement::add(RpCandidateSet& set) {
  Ptr<Routing::Pim::RpCandidate> rp = set.rpIs(address_);
  rp->setupTimeIs(Zet::now());
  Ptr<ElectedBsrStatus> elected = machine_.bsrStatus()->bootstrapRouter(machine_.zone());
  rp->hashMaskLenIs(elected->hashMaskLen());
  ZET_TRACE(trace, 8, "Adding RP " << address_ << " into CrpSet with prefix " << group_.prefix());
  hurryTimer();
  return rp;
}

void Advertisement::withdraw(Routing::Pim::RpCandidate& rp) {
  if (rp.holdTime().value() == 0) {
    ZET_TRACE(trace, 8, "Ignoring duplicate C-RP advertisement with 0 holdtime");
    return;
  }
  rp.expiresIs(Zet::now() + rp.holdTime().value());
  rp.holdTimeIs(0);
  ZET_TRACE(trace, 8, "C-RP " << address_ << " updated with holdtime 0");
  hurryTimer();
}

/// A change of the set goes out soon, but not sooner than the least interval after it.
void Advertisement::hurryTimer() {
  U32 least = BsrCandidateSm::bsMinInterval();
  Ptr<ElectedBsrStatus> elected = machine_.bsrStatus()->bootstrapRouter(machine_.zone());
  if (elected->expiryTime() <= Zet::now() + least) return;
  machine_.armTimer(least);
  ZET_TRACE(trace, 8,
            "Setting bootstrap timer to expire in BS_MIN_INTERVAL for "
                << "zone " << machine_.zone());
}

void Advertisement::write(Routing::Pim::RpCandidate& rp) {
  if (isBidir()) rp.pimModeIs(Mode::bidir);
  rp.priorityIs(priority_);
  U32 period = machine_.candidate()->bsPeriod();
  if (holdTime_.value() > 2.5 * period) {
    rp.holdTimeIs(holdTime_);
    rp.expiresIs(Zet::now() + holdTime_.value());
    return;
  }
  rp.holdTimeIs(static_cast<U16>(3u * static_cast<U16>(period)));
  rp.expiresIs(Zet::now() + 3.0 * period);
  ZET_TRACE(trace, 8,
            "C-RP Adv message contains holdtime "
                << holdTime_ << " seconds which is less than 2.5 times bsPeriod of " << period
                << " seconds.");
}

}  // namespace

void BsrCandidateSm::doAddCrp(Ptr<CrpGroupInfo> const& groupInfo, IpGenAddr const& rp,
                              RpPriority const& priority, CrpHoldTime const& holdTime) {
  Ptr<CrpGroupInfo> held(groupInfo);
  if (held->groupFlags().scoped()) {
    Zet::log(crpZoneLog, rp.stringValue());
    ZET_TRACE(trace, 7, "Zone bit set in Candidate RP Advertisement from " << rp);
  }
  Advertisement(*this, *held, rp, priority, holdTime).process();
}

}  // namespace Routing::Pim::Bsr
