#include "host/BsmIngress.h"

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenPrefix;
using Packet::BootstrapMessage;
using Packet::CrpAdvMessage;
using Zet::Ptr;

BsmIngress::BsmIngress(Bsr::PimBsrSm const& root, Bsr::BootstrapMessageSm& gate,
                       Bsr::CrpMessageSm const& crpGate, Borders const& borders, CorrectionSwitches& switches)
    : root_(root),
      gate_(gate),
      crpGate_(crpGate),
      borders_(borders),
      cutBySize_(switches.of(&CorrectionSettings::cutBySize)),
      electedOnly_(switches.of(&CorrectionSettings::electedOnly)),
      loweredBsr_(switches.of(&CorrectionSettings::loweredBsr)),
      coveringBorder_(switches.of(&CorrectionSettings::coveringBorder)),
      withdrawalsLast_(switches.of(&CorrectionSettings::withdrawalsLast)),
      repeatWithdrawal_(switches.of(&CorrectionSettings::repeatWithdrawal)) {}

// Bootstrap Messages --------------------------------------------------------------------------------------

/// A message that the gate drops for its sender is left to the gate.
DropReason BsmIngress::validate(Lanet::IntfId const& intfId, BootstrapMessage const& message) {
  if (coveringBorder_.isOn() && borders_.isCovered(zoneOf(message), intfId)) {
    coveringBorder_.noteAct();
    return DropReason::border;
  }
  if (!electedOnly_.isOn() || !isFromOtherBsr(message) || !isFromRpfNeighbor(message))
    return DropReason::none;
  electedOnly_.noteAct();
  return DropReason::weakerBsr;
}

/// Whether a message of lower weight is of another BSR than the one that this candidate follows.
bool BsmIngress::isFromOtherBsr(BootstrapMessage const& message) const {
  IpGenPrefix zone = zoneOf(message);
  Ptr<Bsr::BsrCandidateSm> machine = root_.candidateSm(zone);
  if (!machine || machine->state() != Bsr::BsrCandidateState::cBsr) return false;
  Ptr<Bsr::ElectedBsrStatus> elected = root_.bsrStatus()->bootstrapRouter(zone);
  if (!elected || elected->ipAddr() == message.bsrAddress()) return false;
  return Bsr::PimBsrWeight(message.bsrPriority(), message.bsrAddress()) < machine->stored();
}

bool BsmIngress::isFromRpfNeighbor(BootstrapMessage const& message) const {
  if (!message.forward()) return true;
  Lanet::IpGenAddr neighbor =
      gate_.rpfTable()->doLookup(message.bsrAddress(), Lanet::IpGenAddr()).rpfNeighbor;
  return neighbor == message.srcAddr();
}

static Bsr::PimBsrWeight weightOf(Bsr::BsrCandidate const& candidacy) {
  return Bsr::PimBsrWeight(static_cast<U8>(candidacy.priority()), candidacy.address());
}

static bool withdrawsAll(Packet::BootstrapGroupData const& group) {
  auto rp = group.rpListIterator();
  if (!rp) return false;
  for (; rp; ++rp) {
    if (rp->rpHoldtime() != 0) return false;
  }
  return true;
}

void BsmIngress::prepare(BootstrapMessage const& message) {
  former_.reset();
  compareWithOwn(message);
  admitFragment(message);
}

void BsmIngress::handleDropped() {
  Ptr<Bsr::BsrCandidateSm> machine = former_ ? root_.candidateSm(former_->zone) : nullptr;
  if (!machine) return;
  machine->storedBsr()->ipAddrIs(former_->bsr);
  machine->storedBsr()->priorityIs(former_->priority);
  machine->storedBsr()->hashMaskLenIs(former_->hashMaskLen);
}

/// The machine of a candidate compares messages with the weight that its BSR had, also once that is lost or
/// lowered. Pending, it does not follow one that outweighs the candidate, and no follower of that one passes
/// the candidate's claim on, so that both are BSR for a BS_Period: here it compares with its own weight.
void BsmIngress::compareWithOwn(BootstrapMessage const& message) {
  IpGenPrefix zone = zoneOf(message);
  Ptr<Bsr::BsrCandidateSm> machine = root_.candidateSm(zone);
  Ptr<Bsr::ElectedBsrStatus> elected = root_.bsrStatus()->bootstrapRouter(zone);
  if (!machine || !elected) return;
  bool isPending = machine->state() == Bsr::BsrCandidateState::pBsr;
  if (!isPending && machine->state() != Bsr::BsrCandidateState::cBsr) return;
  Bsr::PimBsrWeight received(message.bsrPriority(), message.bsrAddress());
  if (!(received < machine->stored()) || received < weightOf(*machine->candidate())) return;
  bool isOwn = elected->ipAddr() == message.bsrAddress();
  if (isOwn && message.bsrPriority() == 0) return;  // it has ended
  CorrectionSwitch* correction = nullptr;
  if (isOwn && loweredBsr_.isOn()) {
    correction = &loweredBsr_;
  } else if (isPending) {
    correction = correctionOfLost(*elected);
  }
  if (correction == nullptr) return;
  Ptr<Bsr::ElectedBsrStatus> stored = machine->storedBsr();
  former_ = {zone, stored->ipAddr(), stored->priority(), stored->hashMaskLen(), correction};
  machine->storeCandidate();
}

/// The correction for a pending candidate that has lost its BSR; null if it hasn't, or none is on.
CorrectionSwitch* BsmIngress::correctionOfLost(Bsr::ElectedBsrStatus const& elected) const {
  if (electedOnly_.isOn() && elected.expiryTime() <= Zet::now()) return &electedOnly_;
  return loweredBsr_.isOn() && hasEnded(elected) ? &loweredBsr_ : nullptr;
}

bool BsmIngress::hasEnded(Bsr::ElectedBsrStatus const& elected) const {
  auto ended = ended_.find(elected.zone());
  return ended != ended_.end() && ended->second.bsr == elected.ipAddr();
}

/// The gate knows a zone's first message by what it keeps for the zone.
void BsmIngress::admitFragment(BootstrapMessage const& message) {
  if (!cutBySize_.isOn() || message.forward() || firstNoForward_.empty()) return;
  IpGenPrefix zone = zoneOf(message);
  auto first = firstNoForward_.find(zone);
  bool isFragment = first != firstNoForward_.end() &&
                    first->second == MessageId(message.fragmentTag(), message.bsrAddress());
  if (isFragment && gate_.lastBsm(zone)) gate_.lastBsmDel(zone);
}

void BsmIngress::handleAccepted(Ptr<BootstrapMessage> const& message) {
  if (former_) former_->correction->noteAct();
  if (loweredBsr_.isOn()) handleLowered(message);
  noteNoForward(*message);
  if (repeatWithdrawal_.isOn()) removeEmpty(*message);
}

void BsmIngress::handleLowered(Ptr<BootstrapMessage> const& message) {
  IpGenPrefix zone = zoneOf(*message);
  Ptr<Bsr::ElectedBsrStatus> elected = root_.bsrStatus()->bootstrapRouter(zone);
  if (!elected) return;
  if (Ptr<Bsr::BsrNonCandidateSm> follower = root_.nonCandidateSm(zone)) {
    followLowered(*follower, *elected, message);
    expireAsBefore(*follower, *elected, *message);
  } else {
    refreshFromIgnored(*elected, message);
  }
}

/// The follower compares a message with the weight that its BSR had before, and has ignored one of a lower
/// weight: it takes it with the weight that the BSR has now. A BSR that has ended has the lowest priority,
/// and any other of that priority comes after it, also one of a lower address.
void BsmIngress::followLowered(Bsr::BsrNonCandidateSm& follower, Bsr::ElectedBsrStatus& elected,
                               Ptr<BootstrapMessage> const& message) {
  if (elected.ipAddr() != message->bsrAddress()) {
    if (!hasEnded(elected) || elected.priority() != 0) return;
    ended_.erase(elected.zone());
    root_.bsrStatus()->bootstrapRouterDel(IpGenPrefix(elected.zone()));
  } else {
    if (message->bsrPriority() >= elected.priority()) return;
    if (message->bsrPriority() == 0) noteEnded(elected, *message);
    elected.priorityIs(message->bsrPriority());
  }
  follower.bsmIs(nullptr);
  follower.bsmIs(message);
  loweredBsr_.noteAct();
}

/// The last message of a BSR, in as many fragments as it has, promises no further one: a zone that gets no
/// other BSR ends as soon as without it. A BSR that sends another one has not ended.
void BsmIngress::expireAsBefore(Bsr::BsrNonCandidateSm& follower, Bsr::ElectedBsrStatus& elected,
                                BootstrapMessage const& message) {
  auto at = ended_.find(elected.zone());
  if (at == ended_.end()) return;
  Ended const& ended = at->second;
  bool isLast = message.bsrPriority() == 0 && Zet::now() < ended.lastUntil &&
                ended.last == MessageId(message.fragmentTag(), message.bsrAddress());
  if (!isLast) {
    ended_.erase(at);
    return;
  }
  elected.expiryTimeIs(ended.expiry);
  follower.zetBsTimer()->timeMinIs(ended.expiry);
}

/// A candidate becomes pending by its BSR's message of lower weight and ignores the RP set of that, so that
/// RPs that it withdraws would be kept until the end of their holdtimes: what is known of it is renewed or
/// withdrawn. A BSR that is lowered here has ended, or is one to be outweighed.
void BsmIngress::refreshFromIgnored(Bsr::ElectedBsrStatus& elected, Ptr<BootstrapMessage> const& message) {
  Ptr<Bsr::BsrCandidateSm> candidate = root_.candidateSm(elected.zone());
  if (!candidate || elected.ipAddr() != message->bsrAddress()) return;
  if (candidate->state() == Bsr::BsrCandidateState::cBsr) ended_.erase(elected.zone());
  if (candidate->state() != Bsr::BsrCandidateState::pBsr) return;
  candidate->bsrSm()->storeRpSet(elected.zone(), message, true);
  if (message->bsrPriority() >= elected.priority()) return;
  noteEnded(elected, *message);
  elected.priorityIs(message->bsrPriority());
  loweredBsr_.noteAct();
}

/// More zones than machines show that a zone has ended.
void BsmIngress::noteEnded(Bsr::ElectedBsrStatus const& elected, BootstrapMessage const& last) {
  if (ended_.size() > root_.candidateSmCount() + root_.nonCandidateSmCount()) {
    std::erase_if(ended_, [this](auto const& entry) {
      Zet::Meter::visit();
      return !root_.bsrStatus()->bootstrapRouter(entry.first);
    });
  }
  ended_[elected.zone()] = {.bsr = elected.ipAddr(),
                            .last = MessageId(last.fragmentTag(), last.bsrAddress()),
                            .lastUntil = Zet::now() + Bsr::BsrCandidateSm::bsMinInterval(),
                            .expiry = elected.expiryTime()};
}

void BsmIngress::noteNoForward(BootstrapMessage const& message) {
  bool isAtStart = Zet::now() <= gate_.startupTime() + Bsr::BootstrapMessageSm::bsPeriodDefault();
  if (!isAtStart) {
    firstNoForward_.clear();
  } else if (!message.forward()) {
    firstNoForward_.try_emplace(zoneOf(message), message.fragmentTag(), message.bsrAddress());
  }
}

void BsmIngress::removeEmpty(BootstrapMessage const& message) {
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    if (!withdrawsAll(*group)) continue;
    Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_.bsrStatus(), zoneOf(message));
    Ptr<Routing::Pim::RpCandidateSet> set = sets ? sets->crpSet(group->prefix()) : nullptr;
    if (set && set->rpCount() == 0) sets->crpSetDel(IpGenPrefix(group->prefix()));
  }
}

// Advertisements ------------------------------------------------------------------------------------------

void BsmIngress::prepare(CrpAdvMessage const& message) {
  if (!withdrawalsLast_.isOn() || !message.groupData()) return;
  for (auto group = message.groupData()->groupInfoIterator(); group; ++group) {
    if (group->groupFlags().bidir()) changeMode(message, group->prefix());
  }
}

/// Of a sender that the gate drops nothing is changed.
void BsmIngress::changeMode(CrpAdvMessage const& message, IpGenPrefix const& range) {
  IpGenPrefix zone = root_.bsrTrie()->longestMatch(range);
  if (!isElectedAt(*root_.bsrStatus(), zone, message.dstAddr())) return;
  if (crpGate_.crpPermitTrie()->longestMatch(IpGenPrefix(message.srcAddr())).isEmpty()) return;
  Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_.bsrStatus(), zone);
  Ptr<Routing::Pim::RpCandidateSet> set = sets ? sets->crpSet(range) : nullptr;
  Ptr<Routing::Pim::RpCandidate> rp = set ? set->rp(message.rpAddress()) : nullptr;
  if (!rp || rp->pimMode() == Routing::Pim::Mode::bidir) return;
  rp->pimModeIs(Routing::Pim::Mode::bidir);
  withdrawalsLast_.noteAct();
}

}  // namespace pimbsr::host
