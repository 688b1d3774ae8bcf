#include "host/CandidacyChanges.h"

#include <utility>

#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

/// Watches the weight of one candidacy.
class CandidacyChanges::Watcher final : public Bsr::BsrCandidate::NotifieeConst {
 public:
  explicit Watcher(CandidacyChanges& owner) : owner_(owner) {}
  void onPriority() override { owner_.note(notifier()->zone()); }
  void onAddress() override { owner_.note(notifier()->zone()); }

 private:
  CandidacyChanges& owner_;
};

CandidacyChanges::CandidacyChanges(Ptr<Bsr::PimBsrSm> const& root, CorrectionSwitch& correction)
    : root_(root),
      correction_(correction),
      timer_(Zet::make<pim::Timer>(root->timerWheel(), [this] { check(); })) {
  notifierIs(root->bsrStatus());
  for (auto at = notifier()->cbsrIterator(); at; ++at) onCbsr(at->zone());
}

void CandidacyChanges::stop() {
  timer_->notifierIs(nullptr);
  watchers_.clear();
  notifierIs(nullptr);
  root_ = nullptr;
}

void CandidacyChanges::onCbsr(IpGenPrefix const& zone) {
  note(zone);
  watchers_.follow(zone, notifier()->cbsr(zone), [this] { return Zet::make<Watcher>(*this); });
}

void CandidacyChanges::note(IpGenPrefix const& zone) {
  noted_.insert(zone);
  timer_->timeMinIs(Zet::now());
}

void CandidacyChanges::check() {
  std::set<IpGenPrefix> noted = std::exchange(noted_, {});
  if (!correction_.isOn()) return;
  for (IpGenPrefix const& zone : noted) {
    if (Ptr<Bsr::BsrCandidateSm> machine = root_->candidateSm(zone)) {
      compareWithPresent(*machine);
    } else {
      followOn(zone);
    }
  }
}

/// With an elected BSR the machine sees to it.
void CandidacyChanges::compareWithPresent(Bsr::BsrCandidateSm& machine) {
  if (!machine.initialized() || root_->bsrStatus()->bootstrapRouter(machine.zone())) return;
  Ptr<Bsr::BsrCandidate const> candidate = machine.candidate();
  Ptr<Bsr::ElectedBsrStatus const> compared = machine.storedBsr();
  bool isPresent =
      compared->ipAddr() == candidate->address() && compared->priority() == candidate->priority();
  if (isPresent) return;
  machine.storeCandidate();
  correction_.noteAct();
}

/// A follower's machine that starts beside a BSR waits for a whole BS_Timeout.
void CandidacyChanges::followOn(IpGenPrefix const& zone) {
  Ptr<Bsr::Status> status = root_->bsrStatus();
  Ptr<Bsr::ElectedBsrStatus> elected = status->bootstrapRouter(zone);
  if (!elected || root_->nonCandidateSm(zone)) return;
  double expiry = elected->expiryTime();
  root_->nonCandidateSmIs(zone, status, root_->timerWheel(), root_->timerWheel());
  elected->expiryTimeIs(expiry);
  root_->nonCandidateSm(zone)->zetBsTimer()->timeMinIs(expiry);
  correction_.noteAct();
}

}  // namespace pimbsr::host
