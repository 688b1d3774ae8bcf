#include "crp/RpCandidateSm.h"

#include "protocol/PimBsrSm.h"
#include "runtime/Assert.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using Lanet::AddressFamily;
using Lanet::IpGenPrefix;
using Packet::CrpAdvMessage;
using Packet::CrpGroupData;
using Zet::Ptr;

static Zet::TraceSource const trace("Pim::Bsr::RpCandidateSm", "RpCandidateSm");

/// How often an advertisement is repeated quickly after a change of zone.
static constexpr U8 quickRepetitions = 2;

/// 0, 1 or 2 whole seconds.
static U32 randomDelay() { return static_cast<U32>(Zet::Context::current().rand() % 3); }

// Construction ----------------------------------------------------------------------------------------

void RpCandidateSm::handleConstruction() { handleInitialized(); }

void RpCandidateSm::handleInitialized() {
  if (initialized()) return;
  if (!crp()) crpIs(bsrStatus()->crp(crpOptions().rpAddress()));
  U32 delay = randomDelay();
  ZET_TRACE(trace, 8, "Setting up CRP Adv timer to fire in " << delay << " seconds from now");
  armTimer(delay);
  ZET_TRACE(
      trace, 8,
      "Instantiated CRP SM " << crpOptions().rpAddress() << " with priority " << crpOptions().priority());
  initializedIs(true);
  doUpdateCrpAdvSet(IpGenPrefix());
}

void RpCandidateSm::armTimer(U32 const& seconds) { zetCrpAdvTimer()->timeMinIs(Zet::now() + seconds); }

double RpCandidateSm::remainingCrpAdvTime() const { return zetCrpAdvTimer()->timeMin() - Zet::now(); }

// Zones -----------------------------------------------------------------------------------------------

void RpCandidateSm::handleBsr() {
  if (!initialized()) return;
  IpGenPrefix zone = bsrTrie()->changedRoute();
  if (zone.isEmpty()) return;
  if (!bsrStatus()->bootstrapRouter(zone)) {
    crpAdvSetDel(zone);
    ZET_TRACE(trace, 8, "Deleting crpAdvSet for zone " << zone);
    doUpdateCrpAdvSet(zone);
    return;
  }
  doUpdateCrpAdvSet(zone);
  U32 delay = randomDelay();
  crpAdvBackoffCountIs(quickRepetitions);
  ZET_TRACE(trace, 8,
            "Setting up CRP Adv timer to fire in "
                << delay << " seconds from now. backoffCount=" << U32{quickRepetitions});
  armTimer(delay);
}

void RpCandidateSm::doUpdateCrpAdvSet(IpGenPrefix const& zone) {
  if (!initialized()) return;
  bool inTrie = bsrTrie()->route(zone);
  IpGenPrefix parent = inTrie ? bsrTrie()->findParent(zone) : IpGenPrefix();
  Ptr<RpCandidate const> candidate = crp();
  for (auto at = candidate->prefixSetIterator(); at; ++at) {
    IpGenPrefix prefix = at.key();
    if (!zone.isEmpty() && inTrie && bsrTrie()->longestMatch(prefix) != zone) continue;
    doUpdateCrpAdvSetPrefix(prefix);
    ZET_ASSERT(parent.af() != AddressFamily::ipv6, "IPv6 not supported");
    if (parent.af() != AddressFamily::ipv4) continue;
    Ptr<RpCandidatePrefixSet> covering = crpAdvSet(parent);
    if (!covering || !covering->prefixSet(prefix)) continue;
    covering->prefixSetDel(prefix);
    ZET_TRACE(trace, 8, "Deleting prefix " << prefix << " from " << parent << " crpAdvSet");
  }
}

void RpCandidateSm::doUpdateCrpAdvSetPrefix(IpGenPrefix const& prefix) {
  IpGenPrefix zone = bsrTrie()->longestMatch(prefix);
  ZET_ASSERT(zone.af() != AddressFamily::ipv6, "IPV6 not supported");
  if (zone.af() != AddressFamily::ipv4) return;
  Ptr<RpCandidatePrefixSet> set = crpAdvSet(zone);
  Ptr<RpCandidateGroupEntryOptions> options = crp()->prefixOptions(prefix);
  if (options && options->priority() == crpOptions().priority()) {
    if (!set) {
      set = crpAdvSetIs(zone);
      ZET_TRACE(trace, 8, "Created crpAdvSet for zone " << zone);
    }
    set->prefixSetIs(prefix, true);
    ZET_TRACE(trace, 8, "Added prefix " << prefix << " to crpAdvSet for zone " << zone);
  } else if (set && set->prefixSet(prefix)) {
    set->prefixSetDel(prefix);
    ZET_TRACE(trace, 8, "Deleted prefix " << prefix << " from crpAdvSet for zone " << zone);
  }
}

// The candidacy ---------------------------------------------------------------------------------------

void RpCandidateSm::ZetCrp::ZetPrefixOption::handlePriority() {
  RpCandidateSm& machine = *rpCandidateSm();
  if (!machine.initialized() || notifier()->priority() == RpPriority()) return;
  machine.doUpdateCrpAdvSetPrefix(fwkKey());
}

void RpCandidateSm::ZetCrp::handleInterval() {
  RpCandidateSm& machine = *owner();
  if (!machine.initialized()) return;
  if (!Kiv::isTimeSet(machine.zetCrpAdvTimer()->timeMin())) {
    ZET_TRACE(trace, 8, "Interval timer not set. Nothing to be done. ");
    return;
  }
  U32 interval = notifier()->interval().value();
  double remaining = machine.remainingCrpAdvTime();
  if (remaining < interval) return;
  machine.armTimer(interval);
  ZET_TRACE(trace, 8,
            "CRP Interval timer expiry was in " << remaining << " seconds from now. Resetting it to "
                                                << interval << " seconds from now.");
}

// Advertisements --------------------------------------------------------------------------------------

void RpCandidateSm::handleCrpAdvTimerExpiry() {
  if (!initialized()) return;
  doSendCrpAdv(false);
  if (crpAdvBackoffCount() == 0) {
    U32 interval = crp()->interval().value();
    ZET_TRACE(trace, 8, "Setting up CRP Adv timer to fire in " << interval << " seconds from now");
    armTimer(interval);
    return;
  }
  U32 delay = randomDelay();
  crpAdvBackoffCountIs(static_cast<U8>(crpAdvBackoffCount() - 1));
  ZET_TRACE(trace, 8,
            "Setting up CRP Adv timer to fire in "
                << delay << " seconds from now. BackoffCount=" << U32{crpAdvBackoffCount()});
  armTimer(delay);
}

/// The admin scope bit of a zone's ranges: set where this router is on a border of the zone.
static Packet::GroupFlags flagsFor(PimBsrSm const& root, IpGenPrefix const& zone) {
  if (zone == root.globalOrNonScopeZone() || !root.bsrStatus()->bsBorder(zone)) return {};
  ZET_TRACE(trace, 8, "C-RP is a ZBR");
  return Packet::GroupFlags(1);
}

/// One range more than Prefix Count can say is put in, where there are so many.
static Ptr<CrpGroupData> groupsOf(RpCandidatePrefixSet const& set, Packet::GroupFlags flags) {
  auto groups = Zet::make<CrpGroupData>();
  U32 const most = RpCandidateSm::maxPrefixs() + 1u;
  for (auto at = set.prefixSetIterator(); at && groups->groupInfoCount() < most; ++at) {
    groups->groupInfoIs(at.key())->groupFlagsIs(flags);
  }
  return groups;
}

static U8 prefixCountOf(RpCandidatePrefixSet const& set) {
  U32 const most = RpCandidateSm::maxPrefixs();
  if (set.prefixSetCount() <= most) return static_cast<U8>(set.prefixSetCount());
  ZET_TRACE(trace, 8,
            "Configured prefixes are greater than " << most << ". Publishing only the maximum possible.");
  return RpCandidateSm::maxPrefixs();
}

void RpCandidateSm::doSendCrpAdv(bool const& shutdown) {
  if (!initialized()) return;
  ZET_TRACE(trace, 8, " ( shutdown=" << (shutdown ? "True" : "False"));
  for (auto elected = bsrStatus()->bootstrapRouterIterator(); elected; ++elected) {
    Ptr<RpCandidatePrefixSet> set = crpAdvSet(elected->zone());
    if (!set || set->prefixSetCount() == 0) {
      ZET_TRACE(
          trace, 8,
          "Skipping sending C-RP Advertisement Message since crpAdvSet is empty or number of prefixes is 0");
      continue;
    }
    auto message = Zet::make<CrpAdvMessage>();
    message->prefixCountIs(prefixCountOf(*set));
    message->priorityIs(static_cast<U8>(crpOptions().priority().value()));
    message->holdtimeIs(shutdown ? 0 : static_cast<U16>(3 * crp()->interval().value()));
    message->rpAddressIs(crpOptions().rpAddress());
    message->groupDataIs(groupsOf(*set, flagsFor(*bsrSm(), elected->zone())));
    message->srcAddrIs(crp()->address());
    message->dstAddrIs(elected->ipAddr());
    ZET_TRACE(trace, 8,
              "Sending CRP Advertisement message to BSR " << elected->ipAddr() << " containing "
                                                          << set->prefixSetCount() << " prefixes");
    bsrSm()->crpMsgStatus()->txCrpMsgIs(message);
    bsrSm()->crpMsgStatus()->writeCountInc(1);
  }
}

}  // namespace Routing::Pim::Bsr
