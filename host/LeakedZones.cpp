#include "host/LeakedZones.h"

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IntfId;
using Lanet::IpGenPrefix;
using Zet::Ptr;

/// Watches the interfaces of one border.
class LeakedZones::Watcher final : public Bsr::PimBsrBorder::NotifieeConst {
 public:
  explicit Watcher(pim::Timer& check) : check_(check) {}
  void onIntfId(IntfId const&) override { check_.timeMinIs(Zet::now()); }

 private:
  pim::Timer& check_;
};

LeakedZones::LeakedZones(Ptr<Bsr::PimBsrSm> const& root, Borders const& borders, LastMessages& lastMessages,
                         HoldOver& holdOver, CorrectionSwitch& correction)
    : root_(root),
      borders_(borders),
      lastMessages_(lastMessages),
      holdOver_(holdOver),
      correction_(correction),
      timer_(Zet::make<pim::Timer>(root->timerWheel(), [this] { check(); })) {
  notifierIs(root->bsrStatus());
  for (auto at = notifier()->bsBorderIterator(); at; ++at) onBsBorder(at.key());
}

void LeakedZones::stop() {
  timer_->notifierIs(nullptr);
  watchers_.clear();
  notifierIs(nullptr);
  root_ = nullptr;
}

void LeakedZones::onBsBorder(IpGenPrefix const& zone) {
  Ptr<Bsr::PimBsrBorder const> border = notifier()->bsBorder(zone);
  watchers_.follow(zone, border, [this] { return Zet::make<Watcher>(*timer_); });
  if (border) timer_->timeMinIs(Zet::now());
}

void LeakedZones::check() {
  if (!correction_.isOn()) return;
  std::vector<IpGenPrefix> leaked;
  for (auto const& [zone, last] : lastMessages_.byZone()) {
    if (borders_.isBorder(zone, last.intfId) || borders_.isCovered(zone, last.intfId)) leaked.push_back(zone);
  }
  for (IpGenPrefix const& zone : leaked) forget(zone);
}

/// The RP set goes while its zone is still the best one of its ranges, so that it leaves what PIM reads.
void LeakedZones::forget(IpGenPrefix const& zone) {
  lastMessages_.forget(zone);
  Ptr<Bsr::BsrCandidateSm> candidate = root_->candidateSm(zone);
  if (candidate && candidate->state() == Bsr::BsrCandidateState::eBsr) return;
  correction_.noteAct();
  if (Ptr<Routing::Pim::RpCandidateStatus> sets = rpSetsOf(*root_->bsrStatus(), zone)) sets->crpSetDelAll();
  holdOver_.drop(zone);
  root_->bsrStatus()->bootstrapRouterDel(zone);
  if (!candidate) return root_->nonCandidateSmDel(zone);
  candidate->lastBsmIs(nullptr);
  bool isFollowing = candidate->state() == Bsr::BsrCandidateState::cBsr;
  if (isFollowing) candidate->zetBsTimer()->timeMinIs(Zet::now());
}

}  // namespace pimbsr::host
