// The RP set of a zone, as it grows from Bootstrap Messages (RFC 5059 section 3.1.5).
//
// The store is incremental, unlike a reading of the RFC by which each message replaces the set: a message
// adds and renews the RPs that it names and removes those that it names with holdtime 0; what it doesn't name
// ages by itself. Entries that stay keep their objects and their setup time, so that PIM sees no churn, and a
// message costs what it names and not what is stored.

#include "protocol/PimBsrSm.h"
#include "protocol/StoreRules.h"
#include "runtime/Assert.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Packet::BootstrapRpData;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::Sm", "PimBsrSm");

namespace {

/// One call of storeRpSet.
class Store {
 public:
  Store(PimBsrSm& machine, IpGenPrefix const& zone, BootstrapMessage const& bsm, bool refresh)
      : machine_(machine), status_(machine.bsrStatus()), zone_(zone), bsm_(bsm), refresh_(refresh) {}

  void group(BootstrapGroupData const& record);

 private:
  Ptr<PimBsrRxFragment> collect(BootstrapGroupData const& record);
  Ptr<PimBsrRxFragment> fragmentFor(BootstrapGroupData const& record);
  void applyFragment(BootstrapGroupData const& record, PimBsrRxFragment const& fragment);
  template <class RpWalk>
  bool apply(BootstrapGroupData const& record, RpWalk rps);
  template <class RpWalk>
  void applyWithdrawalsLast(RpCandidateSet& set, RpWalk const& rps, bool bidir);
  Ptr<RpCandidateStatus> rpSet();
  Ptr<RpCandidateSet> rangeIn(RpCandidateStatus& rpSet, IpGenPrefix const& prefix);
  void rp(RpCandidateSet& set, BootstrapRpData const& received, bool bidir);
  Ptr<Routing::Pim::RpCandidate> rpIn(RpCandidateSet& set, Lanet::IpGenAddr const& address);

  PimBsrSm& machine_;
  Ptr<Status> status_;
  IpGenPrefix zone_;
  BootstrapMessage const& bsm_;
  bool refresh_;
};

void Store::group(BootstrapGroupData const& record) {
  if (record.fragRpCount() == 0) return;
  if (record.rpCount() == record.fragRpCount()) {
    apply(record, record.rpListIterator());
    return;
  }
  if (Ptr<PimBsrRxFragment> whole = collect(record)) applyFragment(record, *whole);
}

/// Adds the record to what is held of its range, and returns that once it is whole; null before.
Ptr<PimBsrRxFragment> Store::collect(BootstrapGroupData const& record) {
  ZET_TRACE(trace, 8,
            "RP Count=" << U32{record.rpCount()} << " RP Frag Count=" << U32{record.fragRpCount()}
                        << " Fragment Tag=" << bsm_.fragmentTag());
  Ptr<PimBsrRxFragment> fragment = fragmentFor(record);
  if (fragment->rpCount() == fragment->rps()) return fragment;
  for (auto at = record.rpListIterator(); at; ++at) {
    Ptr<BootstrapRpData> copy = fragment->rpIs(at->rpAddress());
    copy->rpHoldtimeIs(at->rpHoldtime());
    copy->rpPriorityIs(at->rpPriority());
  }
  if (fragment->rpCount() > fragment->rps()) return nullptr;
  ZET_ASSERT(fragment->rpCount() == fragment->rps(), "fragment->rpCount() == fragment->rps()");
  ZET_TRACE(trace, 8,
            "We have received all fragments to process fragment tag " << bsm_.fragmentTag() << " and prefix "
                                                                      << record.prefix());
  return fragment;
}

Ptr<PimBsrRxFragment> Store::fragmentFor(BootstrapGroupData const& record) {
  Ptr<PimBsrRxFragments> fragments = machine_.bsmRxFragments(bsm_.fragmentTag());
  if (!fragments) fragments = machine_.bsmRxFragmentsIs(bsm_.fragmentTag());
  Ptr<PimBsrRxFragment> fragment = fragments->groupRpData(record.prefix());
  if (fragment) return fragment;
  fragment = fragments->groupRpDataIs(record.prefix());
  fragment->rpCountIs(record.rpCount());
  fragment->creationTimeIs(Zet::now());
  return fragment;
}

/// A range that finds no set in a refresh stays in the store, complete as it is.
void Store::applyFragment(BootstrapGroupData const& record, PimBsrRxFragment const& fragment) {
  if (!apply(record, fragment.rpIterator())) return;
  U16 tag = bsm_.fragmentTag();
  ZET_TRACE(trace, 8,
            "Fragments related to " << record.prefix() << " from fragment tag " << tag << " processed");
  Ptr<PimBsrRxFragments> fragments = machine_.bsmRxFragments(tag);
  if (!fragments) return;
  fragments->groupRpDataDel(record.prefix());
  if (fragments->groupRpDataCount() == 0) machine_.bsmRxFragmentsDel(tag);
}

/// Writes the RPs; false if there is no set for them and none may be made.
template <class RpWalk>
bool Store::apply(BootstrapGroupData const& record, RpWalk rps) {
  Ptr<RpCandidateStatus> all = rpSet();
  if (!all) return false;
  Ptr<RpCandidateSet> set = rangeIn(*all, record.prefix());
  if (!set) return false;
  // The set stays held here: removing its last RP takes it out of its tree, and further RPs still go where it
  // is.
  Ptr<StoreRules> rules = machine_.storeRules();
  if (rules && rules->takesWithdrawalsLast()) {
    applyWithdrawalsLast(*set, rps, record.groupFlags().bidir());
  } else {
    for (; rps; ++rps) rp(*set, *rps, record.groupFlags().bidir());
  }
  return true;
}

template <class RpWalk>
void Store::applyWithdrawalsLast(RpCandidateSet& set, RpWalk const& rps, bool bidir) {
  U32 staying = 0;
  U32 withdrawn = 0;
  for (RpWalk at = rps; at; ++at) {
    if (at->rpHoldtime() == 0) {
      ++withdrawn;
    } else {
      rp(set, *at, bidir);
      ++staying;
    }
  }
  if (withdrawn == 0) return;
  for (RpWalk at = rps; at; ++at) {
    if (at->rpHoldtime() == 0) rp(set, *at, bidir);
  }
  if (staying != 0) machine_.storeRules()->handleWithdrawnLast();
}

/// The zone's RP set; null if there is none and nothing may be made.
Ptr<RpCandidateStatus> Store::rpSet() {
  Ptr<PimBsrRpCandidateStatus> zoneStatus = status_->crpStatus(zone_);
  if (zoneStatus) return zoneStatus->status();
  if (refresh_) return nullptr;
  zoneStatus = status_->crpStatusIs(zone_);
  Ptr<RpCandidateStatus> made = zoneStatus->statusIs("");
  made->rpSetTypeIs(RpType::bsr);
  return made;
}

Ptr<RpCandidateSet> Store::rangeIn(RpCandidateStatus& rpSet, IpGenPrefix const& prefix) {
  Ptr<RpCandidateSet> set = rpSet.crpSet(prefix);
  if (set || refresh_) return set;
  ZET_TRACE(trace, 8, "Creating Rp set associated with prefix " << prefix);
  return rpSet.crpSetIs(prefix);
}

void Store::rp(RpCandidateSet& set, BootstrapRpData const& received, bool bidir) {
  if (received.rpHoldtime() == 0) {
    set.rpDel(received.rpAddress());
    ZET_TRACE(trace, 8, "Deleted RP " << received.rpAddress() << " since holdtime is 0");
    return;
  }
  Ptr<Routing::Pim::RpCandidate> rp = rpIn(set, received.rpAddress());
  if (!rp) return;
  if (bidir) rp->pimModeIs(Mode::bidir);
  rp->priorityIs(U32{received.rpPriority()});
  rp->holdTimeIs(received.rpHoldtime());
  rp->hashMaskLenIs(U32{bsm_.hashMaskLen()});
  // Last, since this is what re-arms the hold timer and mirrors all of the above.
  rp->expiresIs(Zet::now() + received.rpHoldtime());
  ZET_TRACE(trace, 8,
            "RP " << received.rpAddress() << " to expire in " << received.rpHoldtime() << " from now");
}

/// The RP of that address, made if it is new; null if it is new and nothing may be made.
Ptr<Routing::Pim::RpCandidate> Store::rpIn(RpCandidateSet& set, Lanet::IpGenAddr const& address) {
  if (Ptr<Routing::Pim::RpCandidate> rp = set.rp(address)) {
    ZET_TRACE(trace, 8, "Updating RP " << address << " to prefix " << set.prefix() << " in zone " << zone_);
    return rp;
  }
  if (refresh_) return nullptr;
  Ptr<Routing::Pim::RpCandidate> rp = set.rpIs(address);
  rp->setupTimeIs(Zet::now());
  ZET_TRACE(trace, 8,
            "Adding RP " << address << " to prefix " << set.prefix() << " in zone " << zone_
                         << " with setup time of " << rp->setupTime());
  return rp;
}

}  // namespace

void PimBsrSm::storeRpSet(IpGenPrefix const& zone, Ptr<BootstrapMessage> const& bsm, bool const& refresh) {
  if (!initialized()) return;
  Ptr<BootstrapMessage> held(bsm);
  Ptr<Packet::BootstrapOptionalData> groups = bsm->groupRpData();
  Store store(*this, zone, *held, refresh);
  for (auto at = groups->groupDataIterator(); at; ++at) store.group(*at);
}

void PimBsrSm::refreshRpSet(IpGenPrefix const& zone, Ptr<BootstrapMessage> const& bsm) {
  if (!bsm || !initialized()) return;
  bsm->forwardIs(true);
  storeRpSet(zone, bsm, true);
}

}  // namespace Routing::Pim::Bsr
