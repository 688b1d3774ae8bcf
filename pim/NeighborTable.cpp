#include "pim/NeighborTable.h"

#include <algorithm>

#include "runtime/Meter.h"

namespace pimbsr::pim {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Routing::Pim::Intf;
using Routing::Pim::Neighbor;
using Zet::Ptr;

// One neighbor ----------------------------------------------------------------------------------------

/// Keeps the entries of one neighbor equal to its status.
class LinkNeighbors::Watch : public Neighbor::NotifieeConst {
 public:
  Watch(LinkNeighbors& link, Ptr<Neighbor const> const& neighbor) : link_(link) {
    notifierIs(neighbor);
    onHasDrPriority();
    for (auto at = neighbor->secondaryIterator(); at; ++at) onSecondary(at.key());
  }
  /// Takes the neighbor's entries away; it is watched no longer.
  void end() {
    if (isRanked_) link_.ranks_.erase(rank_);
    for (auto at = notifier()->secondaryIterator(); at; ++at) {
      Zet::Meter::visit();
      link_.secondaries_.erase({at.key(), notifier()->address()});
    }
    notifierIs(nullptr);
  }

  void onHasDrPriority() override {
    if (isRanked_) link_.ranks_.erase(rank_);
    rank_ = {notifier()->drPriority(), notifier()->address()};
    isRanked_ = notifier()->hasDrPriority();
    if (isRanked_) link_.ranks_.insert(rank_);
  }
  void onDrPriority() override { onHasDrPriority(); }
  void onSecondary(IpGenAddr const& address) override {
    if (notifier()->secondary(address)) {
      link_.secondaries_.emplace(address, notifier()->address());
    } else {
      link_.secondaries_.erase({address, notifier()->address()});
    }
  }

 private:
  LinkNeighbors& link_;
  Rank rank_;
  bool isRanked_ = false;
};

// One interface ---------------------------------------------------------------------------------------

LinkNeighbors::LinkNeighbors(Ptr<Intf> const& intf) {
  notifierIs(intf);
  for (auto at = intf->neighborIterator(); at; ++at) onNeighbor(at->address());
}

LinkNeighbors::~LinkNeighbors() {
  for (auto& [address, watch] : neighbors_) watch->notifierIs(nullptr);
}

/// A neighbor that was deleted and made again under the same address is another object.
void LinkNeighbors::onNeighbor(IpGenAddr const& address) {
  if (auto at = neighbors_.find(address); at != neighbors_.end()) {
    at->second->end();
    neighbors_.erase(at);
  }
  Ptr<Neighbor> neighbor = notifier()->neighbor(address);
  if (neighbor) neighbors_.emplace(address, Zet::make<Watch>(*this, neighbor));
}

IpGenAddr LinkNeighbors::owner(IpGenAddr const& address) const {
  return neighbors_.contains(address) ? address : otherOwner(address, IpGenAddr());
}

IpGenAddr LinkNeighbors::otherOwner(IpGenAddr const& address, IpGenAddr const& primary) const {
  Zet::Meter::visit();
  auto at = secondaries_.lower_bound({address, IpGenAddr()});
  if (at != secondaries_.end() && at->first == address && at->second == primary) ++at;
  bool isOwned = at != secondaries_.end() && at->first == address;
  return isOwned ? at->second : IpGenAddr();
}

IpGenAddr LinkNeighbors::electDr(IpGenAddr const& own, U32 ownPriority) const {
  if (neighbors_.empty()) return own;
  bool byAddressAlone = ranks_.size() != neighbors_.size();
  if (byAddressAlone) return std::max(own, neighbors_.rbegin()->first);
  if (own.isEmpty()) return ranks_.rbegin()->second;
  return std::max(Rank(ownPriority, own), *ranks_.rbegin()).second;
}

// All interfaces --------------------------------------------------------------------------------------

NeighborTable::NeighborTable(Ptr<Routing::Pim::Status> const& pimStatus) {
  notifierIs(pimStatus);
  for (auto at = pimStatus->pimIntfIterator(); at; ++at) onPimIntf(at->intfId());
}

void NeighborTable::onPimIntf(IntfId const& intfId) {
  links_.erase(intfId);
  Ptr<Intf> intf = notifier()->pimIntf(intfId);
  if (intf) links_.emplace(intfId, Zet::make<LinkNeighbors>(intf));
}

Ptr<LinkNeighbors> NeighborTable::link(IntfId const& intfId) const {
  auto at = links_.find(intfId);
  return at == links_.end() ? nullptr : at->second;
}

IpGenAddr NeighborTable::owner(IntfId const& intfId, IpGenAddr const& address) const {
  auto at = links_.find(intfId);
  return at == links_.end() ? IpGenAddr() : at->second->owner(address);
}

}  // namespace pimbsr::pim
