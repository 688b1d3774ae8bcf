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
  Watch(LinkNeighbors& link, Ptr<Neighbor const> const& neighbor) : link_(link), place_(link.byHello_.end()) {
    notifierIs(neighbor);
    onHasDrPriority();
    for (auto at = neighbor->secondaryIterator(); at; ++at) onSecondary(at.key());
  }
  /// Takes the neighbor's entries away; it is watched no longer.
  void end() {
    if (isRanked_) link_.ranks_.erase(rank_);
    if (place_ != link_.byHello_.end()) link_.byHello_.erase(place_);
    for (auto at = notifier()->secondaryIterator(); at; ++at) {
      Zet::Meter::visit();
      link_.secondaries_.erase({at.key(), notifier()->address()});
    }
    notifierIs(nullptr);
  }

  void noteHello() {
    lastHello_ = Zet::now();
    ByHello& order = link_.byHello_;
    if (place_ == order.end()) place_ = order.insert(order.end(), this);
    order.splice(order.end(), order, place_);
  }
  bool isSilent() const { return Zet::now() - lastHello_ > maxSilence; }
  U64 addressCount() const { return 1 + notifier()->secondaryCount(); }

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
  ByHello::iterator place_;  ///< the end before the first Hello
  double lastHello_ = 0;     ///< seconds on the clock of Zet::now()
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

// Bound -----------------------------------------------------------------------------------------------

void LinkNeighbors::noteHello(IpGenAddr const& neighbor) {
  if (auto at = neighbors_.find(neighbor); at != neighbors_.end()) at->second->noteHello();
}

/// Addresses that must go before a Hello is taken, at most as many as it adds. A Hello that lists no more
/// than is known of its sender adds none. Further addresses count as neighbors do: each is
/// kept and looked up.
U64 LinkNeighbors::excess(wire::HelloMessage const& hello) const {
  if (maxAddresses_ == 0) return 0;
  auto const& list = hello.addressList;
  U64 listed = 1 + list.size() - static_cast<U64>(std::count(list.begin(), list.end(), hello.srcAddr));
  auto sender = neighbors_.find(hello.srcAddr);
  U64 known = sender == neighbors_.end() ? 0 : sender->second->addressCount();
  U64 added = listed - std::min(listed, known);
  U64 count = addressCount() + added;
  return std::min(added, count - std::min(count, maxAddresses_));
}

/// Each neighbor on the way frees one address at least.
std::optional<std::vector<IpGenAddr>> LinkNeighbors::displacedBy(wire::HelloMessage const& hello) const {
  std::vector<IpGenAddr> displaced;
  U64 excess = this->excess(hello);
  for (auto at = byHello_.begin(); excess > 0; ++at) {
    if (at == byHello_.end() || !(*at)->isSilent()) return std::nullopt;
    IpGenAddr const& address = (*at)->notifier()->address();
    if (address == hello.srcAddr) continue;
    excess -= std::min(excess, (*at)->addressCount());
    displaced.push_back(address);
  }
  return displaced;
}

// All interfaces --------------------------------------------------------------------------------------

NeighborTable::NeighborTable(Ptr<Routing::Pim::Status> const& pimStatus) {
  notifierIs(pimStatus);
  for (auto at = pimStatus->pimIntfIterator(); at; ++at) onPimIntf(at->intfId());
}

void NeighborTable::onPimIntf(IntfId const& intfId) {
  links_.erase(intfId);
  Ptr<Intf> intf = notifier()->pimIntf(intfId);
  if (!intf) return;
  Ptr<LinkNeighbors> link = links_.emplace(intfId, Zet::make<LinkNeighbors>(intf)).first->second;
  link->maxAddressesIs(maxAddresses_);
}

void NeighborTable::maxAddressesIs(U64 maxAddresses) {
  maxAddresses_ = maxAddresses;
  for (auto& [intfId, link] : links_) link->maxAddressesIs(maxAddresses);
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
