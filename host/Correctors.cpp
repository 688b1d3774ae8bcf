#include "host/Correctors.h"

#include <limits>

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Zet::Ptr;

namespace {

/// What the engine is asked to do in the RP-set store.
class StoreCorrections final : public Bsr::StoreRules {
 public:
  explicit StoreCorrections(CorrectionSwitches& switches)
      : withdrawalsLast_(switches.of(&CorrectionSettings::withdrawalsLast)) {}

  bool takesWithdrawalsLast() const override { return withdrawalsLast_.isOn(); }
  void handleWithdrawnLast() override { withdrawalsLast_.noteAct(); }

 private:
  CorrectionSwitch& withdrawalsLast_;
};

}  // namespace

Correctors::Correctors(Machines const& machines)
    : root_(machines.root),
      io_(machines.io),
      mtus_(machines.mtus),
      cutBySize_(machines.switches.of(&CorrectionSettings::cutBySize)),
      borders_(root_->bsrStatus(), machines.switches.of(&CorrectionSettings::coveringBorder)),
      pieces_(*root_, machines.ingress),
      ingress_(*root_, *machines.gate, *machines.crpGate, borders_, machines.switches),
      egress_(machines.port, mtus_, borders_, pieces_, machines.policy, machines.switches),
      advertisements_(
          Zet::make<Advertisements>(root_, mtus_, machines.switches.of(&CorrectionSettings::allRanges))),
      withdrawal_(Zet::make<RangeWithdrawal>(root_, *advertisements_,
                                             machines.switches.of(&CorrectionSettings::withdrawRange))),
      leaked_(Zet::make<LeakedZones>(root_, borders_, machines.lastMessages,
                                     machines.switches.of(&CorrectionSettings::forgetLeak))) {
  root_->storeRulesIs(Zet::make<StoreCorrections>(machines.switches));
  io_.rewriterIs(&egress_);
  handleSwitches();
}

Correctors::~Correctors() {
  io_.rewriterIs(nullptr);
  root_->storeRulesIs(nullptr);
  leaked_->stop();
  withdrawal_->stop();
  advertisements_->stop();
}

void Correctors::handleSwitches() {
  mtus_.hiddenIs(cutBySize_.isOn());
  if (!cutBySize_.isOn()) pieces_.clear();
}

void Correctors::handleAccepted(Ptr<Routing::Pim::Packet::BootstrapMessage> const& message) {
  ingress_.handleAccepted(*message);
  if (cutBySize_.isOn()) pieces_.handleAccepted(message);
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
