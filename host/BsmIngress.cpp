#include "host/BsmIngress.h"

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
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

static bool withdrawsAll(Packet::BootstrapGroupData const& group) {
  auto rp = group.rpListIterator();
  if (!rp) return false;
  for (; rp; ++rp) {
    if (rp->rpHoldtime() != 0) return false;
  }
  return true;
}

/// The gate knows a zone's first message by what it keeps for the zone.
void BsmIngress::prepare(BootstrapMessage const& message) {
  if (!cutBySize_.isOn() || message.forward() || firstNoForward_.empty()) return;
  IpGenPrefix zone = zoneOf(message);
  auto first = firstNoForward_.find(zone);
  bool isFragment = first != firstNoForward_.end() &&
                    first->second == MessageId(message.fragmentTag(), message.bsrAddress());
  if (isFragment && gate_.lastBsm(zone)) gate_.lastBsmDel(zone);
}

void BsmIngress::handleAccepted(BootstrapMessage const& message) {
  bool isAtStart = Zet::now() <= gate_.startupTime() + Bsr::BootstrapMessageSm::bsPeriodDefault();
  if (!isAtStart) {
    firstNoForward_.clear();
  } else if (!message.forward()) {
    firstNoForward_.try_emplace(zoneOf(message), message.fragmentTag(), message.bsrAddress());
  }
  if (!repeatWithdrawal_.isOn()) return;
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
