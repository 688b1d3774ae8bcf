#include "host/Correctors.h"

#include <limits>

#include "host/Zones.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Zet::Ptr;

namespace {

/// What the engine is asked to do in the RP-set store.
class StoreCorrections final : public Bsr::StoreRules {
 public:
  StoreCorrections(CorrectionSwitches& switches, HoldOver& holdOver, BsmEgress& egress)
      : withdrawalsLast_(switches.of(&CorrectionSettings::withdrawalsLast)),
        holdOver_(holdOver),
        egress_(egress) {}

  bool takesWithdrawalsLast() const override { return withdrawalsLast_.isOn(); }
  void handleWithdrawnLast() override { withdrawalsLast_.noteAct(); }
  void handleElection(Lanet::IpGenPrefix const& zone) override {
    holdOver_.handleElection(zone);
    egress_.forgetWithdrawals(zone);
  }
  bool keeps(Lanet::IpGenPrefix const& range) const override { return holdOver_.keeps(range); }
  bool keeps(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const override {
    return holdOver_.keeps(range, rp);
  }
  void handleMirrored(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) override {
    holdOver_.handleMirrored(range, rp);
  }
  void handleOriginated(Lanet::IpGenPrefix const& zone,
                        Routing::Pim::Packet::BootstrapMessage const& message) override {
    holdOver_.handleOriginated(zone, message);
  }

 private:
  CorrectionSwitch& withdrawalsLast_;
  HoldOver& holdOver_;
  BsmEgress& egress_;
};

}  // namespace

Correctors::Correctors(Machines const& machines)
    : root_(machines.root),
      io_(machines.io),
      mtus_(machines.mtus),
      cutBySize_(machines.switches.of(&CorrectionSettings::cutBySize)),
      borders_(root_->bsrStatus(), machines.switches.of(&CorrectionSettings::coveringBorder)),
      holdOver_(root_, machines.switches.of(&CorrectionSettings::holdOver)),
      fit_(*root_, machines.switches.of(&CorrectionSettings::fit), machines.ingress),
      pieces_(*root_, machines.ingress),
      ingress_(*root_, *machines.gate, *machines.crpGate, borders_, machines.switches),
      egress_(*root_->bsrStatus(), machines.port, mtus_, borders_, pieces_, machines.policy,
              machines.switches),
      advertisements_(
          Zet::make<Advertisements>(root_, mtus_, machines.switches.of(&CorrectionSettings::allRanges))),
      withdrawal_(Zet::make<RangeWithdrawal>(root_, *advertisements_,
                                             machines.switches.of(&CorrectionSettings::withdrawRange))),
      leaked_(Zet::make<LeakedZones>(root_, borders_, machines.lastMessages, holdOver_,
                                     machines.switches.of(&CorrectionSettings::forgetLeak))),
      candidacies_(
          Zet::make<CandidacyChanges>(root_, machines.switches.of(&CorrectionSettings::candidacyChanges))) {
  root_->storeRulesIs(Zet::make<StoreCorrections>(machines.switches, holdOver_, egress_));
  io_.rewriterIs(&egress_);
  handleSwitches();
}

Correctors::~Correctors() {
  io_.rewriterIs(nullptr);
  root_->storeRulesIs(nullptr);
  candidacies_->stop();
  leaked_->stop();
  withdrawal_->stop();
  advertisements_->stop();
  holdOver_.stop();
}

void Correctors::handleSwitches() {
  mtus_.hiddenIs(cutBySize_.isOn());
  if (!cutBySize_.isOn()) pieces_.clear();
  holdOver_.handleSwitch();
  fit_.handleSwitch();
}

/// A message that the gate drops for its sender must not change what others have sent.
MessageFit::Verdict Correctors::fit(Routing::Pim::Packet::BootstrapMessage& message) {
  bool isOthers = fit_.hasParts(message) && !ingress_.isFromRpfNeighbor(message);
  return isOthers ? MessageFit::Verdict{.passed = Ptr(&message)} : fit_.prepare(message);
}

void Correctors::prepare(Routing::Pim::Packet::BootstrapMessage const& message) {
  ingress_.prepare(message);
  holdOver_.prepare(message);
}

void Correctors::handleAccepted(Ptr<Routing::Pim::Packet::BootstrapMessage> const& message) {
  fit_.handleAccepted();
  ingress_.handleAccepted(message);
  holdOver_.handleAccepted(*message);
  if (cutBySize_.isOn()) pieces_.handleAccepted(message);
}

/// A candidate RP may withdraw itself before the new BSR has it: followers keep it too, and are to drop it.
void Correctors::handleAccepted(Routing::Pim::Packet::CrpAdvMessage const& message) {
  if (message.holdtime() != 0 || holdOver_.count() == 0) return;
  auto withdraw = [&](Lanet::IpGenPrefix const& range) {
    Lanet::IpGenPrefix zone = root_->bsrTrie()->longestMatch(range);
    if (!isElectedAt(*root_->bsrStatus(), zone, message.dstAddr())) return;
    if (holdOver_.withdraw(zone, range, message.rpAddress()))
      egress_.repeatWithdrawal(zone, range, message.rpAddress());
  };
  Ptr<Routing::Pim::Packet::CrpGroupData> groups = message.groupData();
  if (!groups || groups->groupInfoCount() == 0) return withdraw(root_->globalOrNonScopeZone());
  for (auto group = groups->groupInfoIterator(); group; ++group) withdraw(group->prefix());
}

/// Only a change of `expires` arms the timer, and so it is written twice.
static void resumeKept(Routing::Pim::RpCandidate& rp) {
  double expires = rp.expires();
  rp.expiresIs(std::numeric_limits<double>::max());
  rp.expiresIs(expires);
}

void resumeKept(Bsr::Status const& status, CorrectionSwitch& correction) {
  if (!correction.isOn()) return;
  for (auto zone = status.crpStatusIterator(); zone; ++zone) {
    Ptr<Routing::Pim::RpCandidateStatus> sets = zone->status();
    if (!sets) continue;
    for (auto set = sets->crpSetIterator(); set; ++set) {
      for (auto rp = set->rpIterator(); rp; ++rp) {
        resumeKept(*rp);
        correction.noteAct();
      }
    }
  }
}

}  // namespace pimbsr::host
