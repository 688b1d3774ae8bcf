#include "agent/NeighborWatch.h"

#include <algorithm>
#include <map>
#include <utility>

#include "runtime/Context.h"

namespace pimbsr::agent {

namespace Pim = Routing::Pim;
using Lanet::IntfId;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Zet::Ptr;

namespace {

/// What all watchers of one tree share.
struct Changed {
  void insert(IntfId const& intfId) { interfaces.insert(intfId); }

  std::set<IntfId> interfaces;
  std::vector<NeighborChange> neighbors;
};

/// Keeps a map of watchers equal to a collection, of which the member `entry` of `key` may have come or gone;
/// null is gone.
template <class Watcher, class Key, class Entry>
void follow(std::map<Key, Ptr<Watcher>>& watchers, Key const& key, Ptr<Entry> const& entry,
            IntfId const& intfId, Changed& changed) {
  changed.insert(intfId);
  if (auto at = watchers.find(key); at != watchers.end()) {
    if (at->second->notifier() == entry) return;
    at->second->end();
    watchers.erase(at);
  }
  if (!entry) return;
  Ptr<Watcher> watcher = watchers[key] = Zet::make<Watcher>(intfId, changed);
  watcher->notifierIs(entry);
  watcher->begin();
}

class SecondaryWatcher final : public Pim::Neighbor::NotifieeConst {
 public:
  SecondaryWatcher(IntfId const& intfId, Changed& changed) : intfId_(intfId), changed_(changed) {}

  void begin() {}
  void end() { notifierIs(nullptr); }
  void onSecondary(IpGenAddr const&) override { changed_.insert(intfId_); }

 private:
  IntfId intfId_;
  Changed& changed_;
};

class IntfWatcher final : public Pim::Intf::NotifieeConst {
 public:
  IntfWatcher(IntfId const& intfId, Changed& changed) : intfId_(intfId), changed_(changed) {}

  void begin() {
    for (auto at = notifier()->neighborIterator(); at; ++at) onNeighbor(at->address());
  }
  void end() {
    for (auto& [address, watcher] : neighbors_) watcher->end();
    notifierIs(nullptr);
  }
  void onNeighbor(IpGenAddr const& address) override {
    noteChange(address);
    follow(neighbors_, address, notifier()->neighbor(address), intfId_, changed_);
  }

 private:
  /// A neighbor that is replaced neither comes nor goes.
  void noteChange(IpGenAddr const& address) {
    auto former = neighbors_.find(address);
    bool isThere = notifier()->neighbor(address) != nullptr;
    if (isThere == (former != neighbors_.end())) return;
    bool hasExpired = !isThere && former->second->notifier()->expiryTime() <= Zet::now();
    changed_.neighbors.push_back({intfId_, address, isThere, hasExpired});
  }

  IntfId intfId_;
  Changed& changed_;
  std::map<IpGenAddr, Ptr<SecondaryWatcher>> neighbors_;
};

}  // namespace

class NeighborWatch::Tree final : public Pim::Status::NotifieeConst {
 public:
  void begin() {
    for (auto at = notifier()->pimIntfIterator(); at; ++at) onPimIntf(at->intfId());
  }
  void end() {
    for (auto& [intfId, watcher] : interfaces_) watcher->end();
    notifierIs(nullptr);
  }
  void onPimIntf(IntfId const& intfId) override {
    follow(interfaces_, intfId, notifier()->pimIntf(intfId), intfId, changed);
  }

  Changed changed;

 private:
  std::map<IntfId, Ptr<IntfWatcher>> interfaces_;
};

NeighborWatch::NeighborWatch(Ptr<Pim::Status const> const& status) : tree_(Zet::make<Tree>()) {
  tree_->notifierIs(status);
  tree_->begin();
}

NeighborWatch::~NeighborWatch() { tree_->end(); }

std::set<IntfId> NeighborWatch::takeChanged() {
  if (tree_->changed.interfaces.empty()) return {};
  return std::exchange(tree_->changed.interfaces, {});
}

std::vector<NeighborChange> NeighborWatch::takeNeighborChanges() {
  std::vector<NeighborChange> changes = std::exchange(tree_->changed.neighbors, {});
  std::erase_if(changes, [&](auto& change) { return !tree_->notifier()->pimIntf(change.intfId); });
  return changes;
}

static void add(std::vector<IpAddr>& addresses, IpGenAddr const& address) {
  if (address.af() == Lanet::AddressFamily::ipv4) addresses.push_back(address.v4Addr());
}

std::vector<IpAddr> NeighborWatch::addressesOf(IntfId const& intfId) const {
  std::vector<IpAddr> addresses;
  std::vector<IpAddr> secondary;
  Ptr<Pim::Intf const> intf = tree_->notifier()->pimIntf(intfId);
  if (!intf) return addresses;
  for (auto at = intf->neighborIterator(); at; ++at) {
    add(addresses, at->address());
    for (auto other = at->secondaryIterator(); other; ++other) add(secondary, other.key());
  }
  std::sort(addresses.begin(), addresses.end());
  std::sort(secondary.begin(), secondary.end());
  addresses.insert(addresses.end(), secondary.begin(), secondary.end());
  return addresses;
}

}  // namespace pimbsr::agent
