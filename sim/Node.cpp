#include "sim/Node.h"

#include <algorithm>
#include <tuple>

#include "sim/Network.h"

namespace pimbsr::sim {

namespace Bsr = Routing::Pim::Bsr;
using host::Change;
using host::Reception;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Slosh::Fib::RouteType;

PacketKind kindOf(Bytes packet) {
  std::size_t header = packet.empty() ? 0 : std::size_t{4} * (packet[0] & 0x0f);
  if (packet.size() <= header) return PacketKind::other;
  switch (packet[header] & 0x0f) {
    case 0:
      return PacketKind::hello;
    case 4:
      return PacketKind::bootstrap;
    case 8:
      return PacketKind::crpAdv;
    default:
      return PacketKind::other;
  }
}

void Node::RouterContext::trace(Zet::TraceLine const& line) {
  if (Listener* listener = node_.network_.listener()) listener->onTrace(node_, line);
}

void Node::RouterContext::log(Zet::LogHandle const& handle, std::string const& text) {
  if (Listener* listener = node_.network_.listener()) listener->onLog(node_, handle, text);
}

/// Tells of the neighbours of one interface.
class Node::IntfWatcher final : public Routing::Pim::Intf::NotifieeConst {
 public:
  IntfWatcher(Node& node, U32 intf) : node_(node), intf_(intf) {}

  void onNeighbor(IpGenAddr const& address) override {
    Listener* listener = node_.network_.hears(neighbors);
    if (listener == nullptr) return;
    bool up = notifier()->neighbor(address) != nullptr;
    listener->onNeighbor(node_, node_.interfaces_[intf_], address, up);
  }
  void onDrAddress() override {
    Listener* listener = node_.network_.hears(neighbors);
    if (listener != nullptr) listener->onDr(node_, node_.interfaces_[intf_], notifier()->drAddress());
  }

 private:
  Node& node_;
  U32 intf_;
};

Node::Node(Network& network, U32 id, NodeOptions const& options)
    : network_(network), id_(id), options_(options), context_(*this, network.seed()) {}

Node::~Node() { end(); }

// A call into the router ------------------------------------------------------------------------------

/// Makes a call at the network's time; then tells what it changed, and when the router is to wake up.
template <class Act>
void Node::call(Act const& act) {
  Zet::Context::Scope scope(context_);
  context_.nowIs(localTime(network_.now()));
  act();
  tell();
  network_.wakeupIs(*this, networkTime(router_->nextExpiry()));
}

/// Equal changes in a row come in the order of the engine's collections, which says nothing to people, and
/// are put in the order of their addresses.
static void sortByAddress(std::vector<Change>& changes) {
  auto key = [](Change const& c) { return std::tie(c.zone, c.rp.range, c.rp.address); };
  auto first = changes.begin();
  while (first != changes.end()) {
    auto last = std::find_if(first, changes.end(), [&](Change const& c) { return c.kind != first->kind; });
    std::stable_sort(first, last, [&](Change const& a, Change const& b) { return key(a) < key(b); });
    first = last;
  }
}

void Node::tell() {
  if (observer_) observer_->flush();
  if (!recorder_.changes.empty()) {
    sortByAddress(recorder_.changes);
    if (Listener* listener = network_.hears(elections | rps)) listener->onChanges(*this, recorder_.changes);
    recorder_.changes.clear();
  }
  if (!config_.candidateBsrs.empty() || !states_.empty()) tellStates();
}

void Node::tellStates() {
  Listener* listener = network_.hears(states);
  std::erase_if(states_, [&](auto const& entry) { return !router_->root()->candidateSm(entry.first); });
  for (auto at = router_->root()->candidateSmIterator(); at; ++at) {
    auto [entry, isNew] = states_.try_emplace(at.key(), at->state());
    if (!isNew && entry->second == at->state()) continue;
    entry->second = at->state();
    if (listener != nullptr) listener->onState(*this, at.key(), at->state());
  }
}

void Node::countRefusal(Reception const& reception) {
  RefusalCount& refusal = refused_[reception.reason];
  ++refusal.count;
  refusal.sentence = reception.sentence;
}

void Node::receive(U32 intf, Bytes packet) {
  Reception reception;
  call([&] {
    receiving_ = true;
    if (observer_) observer_->messageInHand();
    reception = router_->receive(interfaces_[intf].intfId, packet);
    receiving_ = false;
    if (!reception.accepted()) countRefusal(reception);
    tellReception(intf, reception);
  });
}

void Node::tellReception(U32 intf, Reception const& reception) {
  Listener* listener = network_.hears(reception.accepted() ? received : refusals | repeats);
  if (listener != nullptr) listener->onReception(*this, interfaces_[intf], reception);
  for (auto const& [number, packet] : std::exchange(sent_, {})) tellSent(number, packet);
}

void Node::tellSent(U32 intf, Bytes packet) {
  Listener* listener = network_.hears(sent);
  if (listener == nullptr) return;
  if (receiving_) {
    sent_.emplace_back(intf, std::vector<U8>(packet.begin(), packet.end()));
  } else {
    listener->onSent(*this, interfaces_[intf], packet);
  }
}

/// The clock is set to the very time of the timer: drawn from the network's, it could stand a hair before it.
void Node::advance() {
  context_.nowIs(router_->nextExpiry());
  call([&] { router_->advance(); });
}

// Life ------------------------------------------------------------------------------------------------

void Node::start() {
  if (router_) return;
  host::RouterOptions options{.holdTime = options_.holdTime, .zoneTimeout = options_.zoneTimeout};
  context_.nowIs(localTime(network_.now()));
  router_ = std::make_unique<host::Router>(context_, *this, options);
  observe();
  call([&] { configure(); });
  network_.topologyChanged();
}

void Node::configure() {
  writeLocalRoute(options_.loopback);
  for (U32 intf = 0; intf < interfaces_.size(); ++intf) {
    writeLocalRoute(interfaces_[intf].address);
    if (network_.link(interfaces_[intf].link).up) bringUp(intf);
  }
  writeStaticRoutes();
  for (IpGenPrefix const& senders : config_.permits) router_->permitIs(senders);
  for (auto const& [zone, intf] : config_.borders) router_->borderIs(zone, interfaces_[intf].intfId, true);
  for (auto const& [zone, candidacy] : config_.candidateBsrs) router_->candidateBsrIs(zone, candidacy);
  for (auto const& [key, candidacy] : config_.candidateRps) router_->candidateRpIs(key.first, candidacy);
}

void Node::stop() {
  if (!router_) return;
  observer_ = nullptr;
  call([&] { router_->sayFarewell(); });
  end();
  network_.topologyChanged();
}

void Node::crash() {
  if (!router_) return;
  end();
  network_.topologyChanged();
}

void Node::end() {
  if (!router_) return;
  for (auto& watcher : watchers_) {
    if (watcher) watcher->notifierIs(nullptr);
    watcher = nullptr;
  }
  observer_ = nullptr;
  router_ = nullptr;
  states_.clear();
  network_.routes_.forget(id_);
  network_.wakeupIs(*this, Kiv::never);
}

void Node::observe() {
  bool wanted = network_.hears(elections | rps) != nullptr;
  if (!wanted) {
    observer_ = nullptr;
  } else if (router_ && !observer_) {
    observer_ = std::make_unique<host::Observer>(router_->status(), router_->root(), recorder_);
  }
}

// Interfaces and routes -------------------------------------------------------------------------------

U32 Node::addInterface(U32 link, InterfaceOptions const& options) {
  auto number = static_cast<U32>(interfaces_.size());
  interfaces_.push_back({.intfId = IntfId(options.name.c_str()),
                         .link = link,
                         .address = options.address,
                         .drPriority = options.drPriority});
  watchers_.emplace_back();
  if (!router_) return number;
  call([&] {
    writeLocalRoute(interfaces_[number].address);
    if (network_.link(link).up) bringUp(number);
  });
  return number;
}

void Node::linkUpIs(U32 intf, bool up) {
  if (!router_) return;
  call([&] { up ? bringUp(intf) : takeDown(intf); });
}

void Node::bringUp(U32 intf) {
  NodeInterface const& own = interfaces_[intf];
  LinkOptions const& link = network_.link(own.link).options;
  router_->routeIs(link.prefix, {.type = RouteType::connected, .intfId = own.intfId});
  router_->interfaceIs(own.intfId, link.mtu, {.drPriority = own.drPriority});
  watchers_[intf] = Zet::make<IntfWatcher>(*this, intf);
  watchers_[intf]->notifierIs(router_->pimStatus()->pimIntf(own.intfId));
}

void Node::takeDown(U32 intf) {
  if (watchers_[intf]) watchers_[intf]->notifierIs(nullptr);
  watchers_[intf] = nullptr;
  router_->interfaceDel(interfaces_[intf].intfId);
  router_->routeDel(network_.link(interfaces_[intf].link).options.prefix);
}

void Node::writeLocalRoute(IpGenAddr const& address) {
  if (!address.isEmpty()) router_->routeIs({address.v4Addr(), 32}, {.type = RouteType::local});
}

/// A static route stands while its next hop lies on a link that is up.
void Node::writeStaticRoutes() {
  for (auto const& [prefix, via] : config_.routes) {
    auto leadsThere = [&, nextHop = via](NodeInterface const& intf) {
      Link const& link = network_.link(intf.link);
      return link.up && link.options.prefix.contains(nextHop);
    };
    auto intf = std::find_if(interfaces_.begin(), interfaces_.end(), leadsThere);
    if (intf == interfaces_.end()) {
      router_->routeDel(prefix);
    } else {
      router_->routeIs(
          prefix,
          {.type = RouteType::remote, .intfId = intf->intfId, .nextHop = IpGenAddr(via), .metric = 1});
    }
  }
}

/// Static routes are written last: they take the place of found ones that give way.
void Node::writeRoutes(std::span<FoundRoute const> changed) {
  call([&] {
    for (auto const& [destination, way] : changed) {
      Lanet::Prefix prefix(destination, 32);
      if (way.hops == 0) {
        router_->routeDel(prefix);
      } else {
        router_->routeIs(prefix, {.type = RouteType::remote,
                                  .intfId = interfaces_[way.intf].intfId,
                                  .nextHop = IpGenAddr(way.nextHop),
                                  .metric = way.hops});
      }
    }
    writeStaticRoutes();
  });
}

void Node::routeIs(Lanet::Prefix const& prefix, Lanet::IpAddr nextHop) {
  config_.routes[prefix] = nextHop;
  network_.newDestinations_ = true;  // a found route to the same prefix gives way
}

void Node::routeDel(Lanet::Prefix const& prefix) {
  if (config_.routes.erase(prefix) == 0) return;
  if (router_) call([&] { router_->routeDel(prefix); });
  network_.newDestinations_ = true;
}

// Configuration ---------------------------------------------------------------------------------------

void Node::candidateBsrIs(IpGenPrefix const& zone, host::BsrCandidacy const& candidacy) {
  config_.candidateBsrs[zone] = candidacy;
  network_.destinationIs(candidacy.address, id_);
  if (router_) call([&] { router_->candidateBsrIs(zone, candidacy); });
}

void Node::candidateBsrDel(IpGenPrefix const& zone) {
  if (config_.candidateBsrs.erase(zone) == 0 || !router_) return;
  call([&] { router_->candidateBsrDel(zone); });
}

void Node::candidateRpIs(IpGenPrefix const& range, host::RpCandidacy const& candidacy) {
  config_.candidateRps[{range, candidacy.address}] = candidacy;
  network_.destinationIs(candidacy.address, id_);
  if (router_) call([&] { router_->candidateRpIs(range, candidacy); });
}

void Node::candidateRpDel(IpGenPrefix const& range, IpGenAddr const& address) {
  if (config_.candidateRps.erase({range, address}) == 0 || !router_) return;
  call([&] { router_->candidateRpDel(range, address); });
}

void Node::borderIs(IpGenPrefix const& zone, U32 intf, bool border) {
  if (border) {
    config_.borders.insert({zone, intf});
  } else if (config_.borders.erase({zone, intf}) == 0) {
    return;
  }
  if (router_) call([&] { router_->borderIs(zone, interfaces_[intf].intfId, border); });
}

void Node::permitIs(IpGenPrefix const& senders) {
  config_.permits.insert(senders);
  if (router_) call([&] { router_->permitIs(senders); });
}

void Node::permitDel(IpGenPrefix const& senders) {
  if (config_.permits.erase(senders) == 0 || !router_) return;
  call([&] { router_->permitDel(senders); });
}

// The router's outside --------------------------------------------------------------------------------

U32 Node::interfaceNumber(IntfId const& intfId) const {
  auto at = std::find_if(interfaces_.begin(), interfaces_.end(),
                         [&](NodeInterface const& intf) { return intf.intfId == intfId; });
  return static_cast<U32>(at - interfaces_.begin());
}

bool Node::send(IntfId const& intfId, Bytes packet) { return network_.transmit(*this, intfId, packet); }

IpGenAddr Node::primaryAddress(IntfId const& intfId) const {
  U32 number = interfaceNumber(intfId);
  return number < interfaces_.size() ? interfaces_[number].address : IpGenAddr();
}

bool Node::isOwnAddress(IpGenAddr const& address) const {
  if (address.isEmpty()) return false;
  return address == options_.loopback || std::any_of(interfaces_.begin(), interfaces_.end(),
                                                     [&](auto& intf) { return intf.address == address; });
}

void Node::packetCountsClear() {
  for (NodeInterface& intf : interfaces_) intf.sent = {};
}

}  // namespace pimbsr::sim
