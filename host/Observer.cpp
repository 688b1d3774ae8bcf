#include "host/Observer.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "host/KeptRps.h"
#include "host/Router.h"
#include "host/RouterParts.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"
#include "runtime/TimerWheel.h"

namespace pimbsr::host {

namespace Pim = Routing::Pim;
namespace Bsr = Routing::Pim::Bsr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;

BsrView viewOf(Bsr::ElectedBsrStatus const& entry) {
  return {entry.ipAddr(), entry.priority(), entry.hashMaskLen(), entry.expiryTime()};
}

namespace {

class BsrWatcher;
class RpWatcher;

/// What all watchers of one observer share.
struct Hub final : KeptRpSink {
  Hub(ChangeSink& out, KeptRps* keptRps) : sink(out), kept(keptRps) {
    if (kept != nullptr) kept->sinkIs(this);
  }
  ~Hub() {
    if (kept != nullptr) kept->sinkIs(nullptr);
  }
  void onKeptGone(IpGenPrefix const& zone, RpView const& rp, bool expired) override {
    reportRp(expired ? ChangeKind::rpExpired : ChangeKind::rpRemoved, zone, rp);
  }

  void reportBsr(ChangeKind kind, IpGenPrefix const& zone, BsrView const& bsr, BsrView const& former = {});
  void reportRp(ChangeKind kind, IpGenPrefix const& zone, RpView const& rp, RpView const& former = {});
  void settleBsrs();
  void flush();

  ChangeSink& sink;
  KeptRps* kept;
  bool messageInHand = false;
  /// False only while what is there already is taken up.
  bool isReporting = false;
  // Those with a change that isn't reported yet. A watcher may leave its tree meanwhile.
  std::vector<Ptr<BsrWatcher>> bsrs;
  std::vector<Ptr<RpWatcher>> rps;
};

void Hub::reportBsr(ChangeKind kind, IpGenPrefix const& zone, BsrView const& bsr, BsrView const& former) {
  if (isReporting) sink.onChange({.kind = kind, .zone = zone, .bsr = bsr, .formerBsr = former});
}

void Hub::reportRp(ChangeKind kind, IpGenPrefix const& zone, RpView const& rp, RpView const& former) {
  if (isReporting) sink.onChange({.kind = kind, .zone = zone, .rp = rp, .formerRp = former});
}

/// Keeps a map of watchers equal to a collection, of which the member `entry` of `key` may have come or gone;
/// null is gone. A watcher that goes is reported by gone().
template <class Watcher, class Key, class Entry, class... Args>
void follow(std::map<Key, Ptr<Watcher>>& watchers, Key const& key, Ptr<Entry> const& entry, Args&... args) {
  auto at = watchers.find(key);
  if (at != watchers.end()) {
    if (at->second->notifier() == entry) return;
    Ptr<Watcher> former = at->second;
    watchers.erase(at);
    former->gone();
  }
  if (!entry) return;
  Ptr<Watcher> watcher = watchers[key] = Zet::make<Watcher>(args...);
  watcher->notifierIs(entry);
  watcher->takeUp();
}

// The BSR of one zone ---------------------------------------------------------------------------------

class BsrWatcher final : public Bsr::ElectedBsrStatus::NotifieeConst {
 public:
  explicit BsrWatcher(Hub& hub) : hub_(hub) {}

  void takeUp() { mark(); }
  void gone();
  void settle();

  void onIpAddr() override { mark(); }
  void onPriority() override { mark(); }
  void onHashMaskLen() override { mark(); }
  void onExpiryTime() override { settle(); }

 private:
  void mark();

  Hub& hub_;
  bool pending_ = false;
  bool known_ = false;
  BsrView last_;
};

void BsrWatcher::mark() {
  if (std::exchange(pending_, true)) return;
  hub_.bsrs.emplace_back(this);
}

void BsrWatcher::settle() {
  bool pending = std::exchange(pending_, false);
  if (!pending || !notifier() || notifier()->ipAddr().isEmpty()) return;
  BsrView former = std::exchange(last_, viewOf(*notifier()));
  if (!std::exchange(known_, true)) {
    hub_.reportBsr(ChangeKind::bsrElected, notifier()->zone(), last_);
  } else if (!last_.sameElection(former)) {
    hub_.reportBsr(ChangeKind::bsrChanged, notifier()->zone(), last_, former);
  }
}

void BsrWatcher::gone() {
  if (known_) hub_.reportBsr(ChangeKind::bsrLost, notifier()->zone(), viewOf(*notifier()));
  notifierIs(nullptr);
}

// One RP ----------------------------------------------------------------------------------------------

class RpWatcher final : public Pim::RpCandidate::NotifieeConst {
 public:
  RpWatcher(Hub& hub, IpGenPrefix const& zone, IpGenPrefix const& range)
      : hub_(hub), zone_(zone), range_(range) {}

  void takeUp() { mark(); }
  void gone();
  void settle();

  void onPriority() override { mark(); }
  void onHoldTime() override { mark(); }
  void onPimMode() override { mark(); }
  void onExpires() override { settle(); }

 private:
  void mark();

  Hub& hub_;
  IpGenPrefix zone_;
  IpGenPrefix range_;
  bool pending_ = false;
  bool known_ = false;
  RpView last_;
};

void RpWatcher::mark() {
  if (std::exchange(pending_, true)) return;
  hub_.rps.emplace_back(this);
}

void RpWatcher::settle() {
  bool pending = std::exchange(pending_, false);
  if (!pending || !notifier()) return;
  // A BSR is written before its RPs, but if its expiry stays the same, that isn't reported yet.
  hub_.settleBsrs();
  RpView former = std::exchange(last_, viewOf(range_, *notifier()));
  if (!std::exchange(known_, true)) {
    hub_.reportRp(ChangeKind::rpAdded, zone_, last_);
  } else if (!last_.sameRp(former)) {
    hub_.reportRp(ChangeKind::rpUpdated, zone_, last_, former);
  }
}

void RpWatcher::gone() {
  RpView rp = viewOf(range_, *notifier());
  notifierIs(nullptr);
  if (!known_) return;
  bool isDue = Kiv::isTimeSet(rp.expires) && rp.expires <= Zet::now();
  bool expired = isDue && !hub_.messageInHand;
  bool isKept = hub_.kept != nullptr && hub_.kept->keeps(range_, rp.address);
  ChangeKind kind = isKept ? ChangeKind::rpKept : ChangeKind::rpRemoved;
  hub_.reportRp(expired ? ChangeKind::rpExpired : kind, zone_, rp);
}

// The RP set of one zone: its entry, its ranges, and the RPs of a range ---------------------------------

class RangeWatcher final : public Pim::RpCandidateSet::NotifieeConst {
 public:
  RangeWatcher(Hub& hub, IpGenPrefix const& zone) : hub_(hub), zone_(zone) {}

  void takeUp() {
    for (auto at = notifier()->rpIterator(); at; ++at) onRp(at->address());
  }
  void gone() {
    for (auto& [address, rp] : std::exchange(rps_, {})) rp->gone();
    notifierIs(nullptr);
  }
  void onRp(IpGenAddr const& address) override {
    IpGenPrefix range = notifier()->prefix();
    follow(rps_, address, notifier()->rp(address), hub_, zone_, range);
  }

 private:
  Hub& hub_;
  IpGenPrefix zone_;
  std::map<IpGenAddr, Ptr<RpWatcher>> rps_;
};

class RpSetWatcher final : public Pim::RpCandidateStatus::NotifieeConst {
 public:
  RpSetWatcher(Hub& hub, IpGenPrefix const& zone) : hub_(hub), zone_(zone) {}

  void takeUp() {
    for (auto at = notifier()->crpSetIterator(); at; ++at) onCrpSet(at->prefix());
  }
  void gone() {
    for (auto& [range, watcher] : std::exchange(ranges_, {})) watcher->gone();
    notifierIs(nullptr);
  }
  void onCrpSet(IpGenPrefix const& range) override {
    follow(ranges_, range, notifier()->crpSet(range), hub_, zone_);
  }

 private:
  Hub& hub_;
  IpGenPrefix zone_;
  std::map<IpGenPrefix, Ptr<RangeWatcher>> ranges_;
};

class ZoneWatcher final : public Bsr::PimBsrRpCandidateStatus::NotifieeConst {
 public:
  explicit ZoneWatcher(Hub& hub) : hub_(hub) {}

  void takeUp() { onStatus(); }
  void gone() {
    for (auto& [name, set] : std::exchange(sets_, {})) set->gone();
    notifierIs(nullptr);
  }
  void onStatus() override {
    IpGenPrefix zone = notifier()->zone();
    follow(sets_, onlyKey, notifier()->status(), hub_, zone);
  }

 private:
  static constexpr int onlyKey = 0;

  Hub& hub_;
  std::map<int, Ptr<RpSetWatcher>> sets_;
};

void Hub::settleBsrs() {
  for (Ptr<BsrWatcher> const& bsr : std::exchange(bsrs, {})) bsr->settle();
}

void Hub::flush() {
  settleBsrs();
  for (Ptr<RpWatcher> const& rp : std::exchange(rps, {})) rp->settle();
  messageInHand = false;
}

}  // namespace

// The root of the tree --------------------------------------------------------------------------------

class Observer::Tree final : public Bsr::Status::NotifieeConst {
 public:
  Tree(ChangeSink& sink, KeptRps* kept) : hub(sink, kept) {}

  void takeUp() {
    for (auto at = notifier()->bootstrapRouterIterator(); at; ++at) onBootstrapRouter(at->zone());
    for (auto at = notifier()->crpStatusIterator(); at; ++at) onCrpStatus(at->zone());
    hub.flush();
    hub.isReporting = true;
  }
  void onBootstrapRouter(IpGenPrefix const& zone) override {
    Ptr<Bsr::ElectedBsrStatus const> bsr = notifier()->bootstrapRouter(zone);
    if (!bsr) lost_.insert(zone);
    follow(bsrs_, zone, bsr, hub);
  }
  void onCrpStatus(IpGenPrefix const& zone) override {
    follow(zones_, zone, notifier()->crpStatus(zone), hub);
  }

  /// The zones that have lost their BSR since the last call.
  std::set<IpGenPrefix> takeLost() { return std::exchange(lost_, {}); }

  Hub hub;

 private:
  std::set<IpGenPrefix> lost_;
  std::map<IpGenPrefix, Ptr<BsrWatcher>> bsrs_;
  std::map<IpGenPrefix, Ptr<ZoneWatcher>> zones_;
};

// The machines of the zones ---------------------------------------------------------------------------

/// A zone that changes from one kind of machine to the other has none for a moment, so only the end of the
/// event shows whether it is forgotten. Where a candidacy ends, the BSR that was followed stays known,
/// and the zone is forgotten with it.
class Observer::Machines final : public Bsr::PimBsrSm::NotifieeConst {
 public:
  Machines(Ptr<Bsr::Status const> const& status, ChangeSink& sink) : status_(status), sink_(sink) {}

  void onNonCandidateSm(IpGenPrefix const& zone) override { touched_.insert(zone); }
  void onCandidateSm(IpGenPrefix const& zone) override { touched_.insert(zone); }

  /// Takes the zones that lost their BSR.
  void flush(std::set<IpGenPrefix> const& lost) {
    for (IpGenPrefix const& zone : lost)
      if (known_.contains(zone)) touched_.insert(zone);
    for (IpGenPrefix const& zone : std::exchange(touched_, {})) {
      known_.erase(zone);
      if (!notifier() || notifier()->nonCandidateSm(zone) || notifier()->candidateSm(zone)) continue;
      if (status_->bootstrapRouter(zone)) {
        known_.insert(zone);
        continue;
      }
      sink_.onChange({.kind = ChangeKind::zoneForgotten, .zone = zone});
    }
  }

 private:
  Ptr<Bsr::Status const> status_;
  ChangeSink& sink_;
  std::set<IpGenPrefix> touched_;
  std::set<IpGenPrefix> known_;  ///< zones with a BSR and without a machine
};

Observer::Observer(Router& router, ChangeSink& sink)
    : Observer(router.status(), partsOf(router).root, sink, &partsOf(router).correctors->holdOver()) {}

Observer::Observer(Ptr<Bsr::Status const> const& status, Ptr<Bsr::PimBsrSm const> const& root,
                   ChangeSink& sink, KeptRps* kept)
    : tree_(Zet::make<Tree>(sink, kept)), machines_(Zet::make<Machines>(status, sink)) {
  tree_->notifierIs(status);
  tree_->takeUp();
  // The router decides when its machines end; a watcher must not keep them.
  machines_->isWeakReferenceIs(true);
  machines_->notifierIs(root);
}

Observer::~Observer() = default;

void Observer::messageInHand() { tree_->hub.messageInHand = true; }

void Observer::flush() {
  tree_->hub.flush();
  machines_->flush(tree_->takeLost());
}

// The order of changes --------------------------------------------------------------------------------

void sortByAddress(std::vector<Change>& changes) {
  auto key = [](Change const& c) { return std::tie(c.zone, c.rp.range, c.rp.address); };
  auto first = changes.begin();
  while (first != changes.end()) {
    auto last = std::find_if(first, changes.end(), [&](Change const& c) { return c.kind != first->kind; });
    std::stable_sort(first, last, [&](Change const& a, Change const& b) { return key(a) < key(b); });
    first = last;
  }
}

}  // namespace pimbsr::host
