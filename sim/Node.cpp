#include "sim/Node.h"

#include <algorithm>

#include "host/Limits.h"
#include "sim/Medium.h"

namespace pimbsr::sim {

namespace Bsr = Routing::Pim::Bsr;
using host::Reception;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Slosh::Fib::RouteType;

/// The interface that a loopback address is on.
static IntfId loopbackId() { return IntfId("loopback"); }

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
  if (Listener* listener = node_.medium_.listener()) listener->onTrace(node_, line);
}

void Node::RouterContext::log(Zet::LogHandle const& handle, std::string const& text) {
  if (Listener* listener = node_.medium_.listener()) listener->onLog(node_, handle, text);
}

/// Reports the neighbors of one interface.
class Node::IntfWatcher final : public Routing::Pim::Intf::NotifieeConst {
 public:
  IntfWatcher(Node& node, U32 intf) : node_(node), intf_(intf) {}

  void onNeighbor(IpGenAddr const& address) override {
    Listener* listener = node_.medium_.listenerFor(neighbors);
    if (listener == nullptr) return;
    bool up = notifier()->neighbor(address) != nullptr;
    listener->onNeighbor(node_, node_.interfaces_[intf_], address, up);
  }
  void onDrAddress() override {
    Listener* listener = node_.medium_.listenerFor(neighbors);
    if (listener != nullptr) listener->onDr(node_, node_.interfaces_[intf_], notifier()->drAddress());
  }

 private:
  Node& node_;
  U32 intf_;
};

Node::Node(Medium& medium, Network const& network, U32 id, NodeOptions const& options)
    : medium_(medium),
      network_(network),
      id_(id),
      options_(options),
      ingress_(medium.ingress()),
      corrections_(medium.corrections()),
      context_(*this, medium.seed()) {
  config_.bsTimeout = options.bsTimeout;
  config_.szTimeout = options.szTimeout;
}

Node::~Node() { end(); }

// A call into the router ------------------------------------------------------------------------------

/// Makes a call at the network's time; then reports what it changed, and sets the next wakeup.
template <class Act>
void Node::call(Act const& act) {
  Zet::Context::Scope scope(context_);
  DropListener::Scope drops(router_->dropListener());
  context_.nowIs(localTime(medium_.now()));
  act();
  report();
  medium_.wakeupIs(*this, networkTime(router_->nextExpiry()));
}

void Node::report() {
  if (observer_) observer_->flush();
  if (!recorder_.changes.empty()) {
    host::sortByAddress(recorder_.changes);
    if (Listener* listener = medium_.listenerFor(elections | rps))
      listener->onChanges(*this, recorder_.changes);
    recorder_.changes.clear();
  }
  if (!config_.candidateBsrs.empty() || !states_.empty()) reportStates();
}

void Node::reportStates() {
  Listener* listener = medium_.listenerFor(states);
  std::erase_if(states_, [&](auto const& entry) {
    bool isGone = !router_->candidateState(entry.first);
    if (isGone && listener != nullptr) listener->onStateEnd(*this, entry.first);
    return isGone;
  });
  router_->eachCandidacy([&](auto const& zone, auto state) {
    auto [entry, isNew] = states_.try_emplace(zone, state);
    if (!isNew && entry->second == state) return;
    entry->second = state;
    if (listener != nullptr) listener->onState(*this, zone, state);
  });
}

void Node::countDrop(Reception const& reception) { drops_[reception.reason].add(reception); }

void Node::receive(U32 intf, Bytes packet) {
  Reception reception;
  call([&] {
    receiving_ = true;
    if (observer_) observer_->messageInHand();
    reception = router_->receive(interfaces_[intf].intfId, packet);
    receiving_ = false;
    if (!reception.accepted()) countDrop(reception);
    reportReception(intf, reception);
  });
}

void Node::reportReception(U32 intf, Reception const& reception) {
  Listener* listener = medium_.listenerFor(reception.accepted() ? received : Kind::drops | repeats);
  if (listener != nullptr) listener->onReception(*this, interfaces_[intf], reception);
  for (auto const& [number, packet] : std::exchange(sent_, {})) reportSent(number, packet);
}

void Node::reportSent(U32 intf, Bytes packet) {
  Listener* listener = medium_.listenerFor(sent);
  if (listener == nullptr) return;
  if (receiving_) {
    sent_.emplace_back(intf, std::vector<U8>(packet.begin(), packet.end()));
  } else {
    listener->onSent(*this, interfaces_[intf], packet);
  }
}

/// The clock is set to the exact time of the timer: computed from the network's, it could be slightly less.
void Node::advance() {
  context_.nowIs(router_->nextExpiry());
  call([&] { router_->advance(); });
}

// Life ------------------------------------------------------------------------------------------------

void Node::start() {
  if (!router_) startWith(nullptr, nullptr);
}

void Node::startWith(Zet::Ptr<Routing::Pim::Bsr::Status> const& status,
                     Zet::Ptr<Routing::Pim::RpCandidateStatus> const& rpSet) {
  tree_ = std::make_unique<host::ConfigTree>();
  host::RouterOptions options{.config = tree_->config(),
                              .clearConfig = tree_->clearConfig(),
                              .accessLists = tree_->accessLists(),
                              .status = status,
                              .rpCandidateStatus = rpSet,
                              .ingress = ingress_,
                              .corrections = corrections_,
                              .ownDrops = this};
  context_.nowIs(localTime(medium_.now()));
  router_ = std::make_unique<host::Router>(context_, *this, options);
  observe();
  if (Listener* listener = medium_.listenerFor(availability)) listener->onRunning(*this, true);
  call([&] { build(); });
  medium_.topologyChanged();
}

void Node::build() {
  writeLocalRoute(options_.loopback);
  router_->handleAddressChange(loopbackId());
  for (U32 intf = 0; intf < interfaces_.size(); ++intf) {
    writeLocalRoute(interfaces_[intf].address);
    if (medium_.link(interfaces_[intf].link).up) bringUp(intf);
  }
  writeStaticRoutes();
  tree_->apply(context_, configurationOf(config_));
}

void Node::stop() {
  if (!router_) return;
  observer_ = nullptr;
  call([&] { router_->sendGoodbyes(); });
  end();
  medium_.topologyChanged();
}

void Node::crash() {
  if (!router_) return;
  end();
  medium_.topologyChanged();
}

void Node::restart(Kept kept) {
  if (!router_) return start();
  auto status = kept == Kept::nothing ? nullptr : router_->status();
  auto rpSet = kept == Kept::state ? router_->rpCandidateStatus() : nullptr;
  end();
  startWith(status, rpSet);
}

void Node::end() {
  if (!router_) return;
  for (auto& watcher : watchers_) {
    if (watcher) watcher->notifierIs(nullptr);
    watcher = nullptr;
  }
  observer_ = nullptr;
  router_ = nullptr;
  tree_ = nullptr;
  states_.clear();
  if (Listener* listener = medium_.listenerFor(availability)) listener->onRunning(*this, false);
  medium_.routesForget(id_);
  medium_.wakeupIs(*this, Kiv::never);
}

void Node::observe() {
  bool wanted = medium_.listenerFor(elections | rps) != nullptr;
  if (!wanted) {
    observer_ = nullptr;
  } else if (router_ && !observer_) {
    observer_ = std::make_unique<host::Observer>(*router_, recorder_);
  }
}

void Node::ingressIs(host::IngressSettings const& ingress) {
  ingress_ = ingress;
  if (router_) router_->ingressSettingsIs(ingress);
}

void Node::checksAre(host::IngressSettings const& checks) {
  host::IngressSettings ingress = checks;
  host::copyLimits(ingress_, ingress);
  ingressIs(ingress);
}

void Node::limitIs(U32 host::IngressSettings::*limit, U32 value) {
  host::IngressSettings ingress = ingress_;
  ingress.*limit = value;
  ingressIs(ingress);
}

void Node::correctionsAre(host::CorrectionSettings const& settings) {
  corrections_ = settings;
  if (router_) call([&] { router_->correctionsAre(settings); });
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
    if (medium_.link(link).up) bringUp(number);
  });
  return number;
}

void Node::linkUpIs(U32 intf, bool up) {
  if (!router_) return;
  call([&] { up ? bringUp(intf) : takeDown(intf); });
}

void Node::bringUp(U32 intf) {
  NodeInterface const& own = interfaces_[intf];
  LinkOptions const& link = medium_.link(own.link).options;
  router_->routeIs(link.prefix, {.type = RouteType::connected, .intfId = own.intfId});
  router_->interfaceIs(own.intfId, link.mtu, {.drPriority = own.drPriority});
  watchers_[intf] = Zet::make<IntfWatcher>(*this, intf);
  watchers_[intf]->notifierIs(router_->pimStatus()->pimIntf(own.intfId));
}

void Node::takeDown(U32 intf) {
  if (watchers_[intf]) watchers_[intf]->notifierIs(nullptr);
  watchers_[intf] = nullptr;
  router_->interfaceDel(interfaces_[intf].intfId);
  router_->routeDel(medium_.link(interfaces_[intf].link).options.prefix);
}

void Node::writeLocalRoute(IpGenAddr const& address) {
  if (!address.isEmpty()) router_->routeIs({address.v4Addr(), 32}, {.type = RouteType::local});
}

/// A static route is up while its next hop lies on a link that is up.
void Node::writeStaticRoutes() {
  for (auto const& [prefix, via] : config_.routes) {
    auto leadsThere = [&, nextHop = via](NodeInterface const& intf) {
      Link const& link = medium_.link(intf.link);
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
  medium_.staticRoutesChanged();  // a found route to the same prefix gives way
}

void Node::routeDel(Lanet::Prefix const& prefix) {
  if (config_.routes.erase(prefix) == 0) return;
  if (router_) call([&] { router_->routeDel(prefix); });
  medium_.staticRoutesChanged();
}

// Configuration ---------------------------------------------------------------------------------------

static std::string textOf(std::vector<host::ConfigError> const& errors) {
  std::string text;
  for (host::ConfigError const& error : errors) {
    text += (text.empty() ? "" : "; ") + textOf(error.place) + ": " + error.text;
  }
  return text;
}

InvalidConfig::InvalidConfig(std::vector<host::ConfigError> const& errors)
    : std::runtime_error(textOf(errors)) {}

static std::string textOf(IntfId const& intfId) { return std::string(intfId.stringValue().view()); }

/// The list that stands for the prefixes of permitted senders; no scenario can name one so.
static constexpr char const* permitList = "permitted senders";

static host::AccessList listOf(std::set<IpGenPrefix> const& permitted) {
  host::AccessList list;
  for (IpGenPrefix const& senders : permitted) {
    list[static_cast<U32>(list.size())] = permitting(senders.v4Prefix());
  }
  return list;
}

Acl::IpRuleConfig permitting(Lanet::Prefix const& prefix) {
  Acl::IpFilter filter;
  filter.source = prefix.address();
  U32 ones = prefix.length() == 0 ? 0 : ~U32{0} << (32 - prefix.length());
  filter.sourceMask = Lanet::IpAddr::fromHost(ones);
  return {Acl::Action::permit, filter};
}

host::Configuration Node::configurationOf(NodeConfig const& config) const {
  host::Configuration wanted;
  wanted.bsTimeout = config.bsTimeout;
  wanted.szTimeout = config.szTimeout;
  wanted.accessLists = config.accessLists;
  wanted.senderLists = config.senderLists;
  for (auto const& [zone, c] : config.candidateBsrs)
    wanted.candidateBsrs[textOf(c.intfId)].groups[zone] = {c.priority, c.hashMaskLen, c.bsPeriod};
  for (auto const& [use, terms] : config.bsrLists) wanted.candidateBsrs[use.first].lists[use.second] = terms;
  for (auto const& [key, c] : config.candidateRps) {
    host::RpTerms& terms = wanted.candidateRps[textOf(c.intfId)];
    terms.ranges.groups[key.first] = c.priority;
    terms.cRpAdvPeriod = c.cRpAdvPeriod;
  }
  for (auto const& [use, c] : config.rpLists) {
    host::RpTerms& terms = wanted.candidateRps[use.first];
    terms.ranges.lists[use.second] = c.priority;
    terms.cRpAdvPeriod = c.cRpAdvPeriod;
  }
  for (auto const& [zone, intf] : config.borders)
    wanted.borders[textOf(interfaces_[intf].intfId)].groups[zone] = {};
  for (auto const& [intf, list] : config.borderLists) wanted.borders[intf].lists[list] = {};
  if (config.permits.empty()) return wanted;
  wanted.accessLists[permitList] = listOf(config.permits);
  wanted.senderLists.insert(permitList);
  return wanted;
}

void Node::configIs(NodeConfig const& wanted) {
  host::Configuration configuration = configurationOf(wanted);
  if (auto errors = host::check(configuration); !errors.empty()) throw InvalidConfig(errors);
  config_ = wanted;
  auto reach = [this](IpGenAddr const& address) {
    if (!address.isEmpty()) medium_.destinationIs(address, id_);
  };
  for (auto const& [zone, candidacy] : config_.candidateBsrs) reach(candidacy.address);
  for (auto const& [key, candidacy] : config_.candidateRps) reach(candidacy.address);
  for (auto const& [use, candidacy] : config_.rpLists) reach(candidacy.address);
  for (auto const& [use, terms] : config_.bsrLists) reach(primaryAddress(IntfId(use.first.c_str())));
  if (router_) call([&] { tree_->apply(context_, configuration); });
}

void Node::candidateBsrIs(IpGenPrefix const& zone, host::BsrCandidacy const& candidacy) {
  NodeConfig wanted = config_;
  wanted.candidateBsrs[zone] = candidacy;
  configIs(wanted);
}

void Node::candidateBsrDel(IpGenPrefix const& zone) {
  NodeConfig wanted = config_;
  wanted.candidateBsrs.erase(zone);
  configIs(wanted);
}

/// C_RP_Adv_Period is that of the address.
void Node::candidateRpIs(IpGenPrefix const& range, host::RpCandidacy const& candidacy) {
  NodeConfig wanted = config_;
  wanted.candidateRps[{range, candidacy.address}] = candidacy;
  for (auto& [key, other] : wanted.candidateRps) {
    if (key.second == candidacy.address) other.cRpAdvPeriod = candidacy.cRpAdvPeriod;
  }
  configIs(wanted);
}

void Node::candidateRpDel(IpGenPrefix const& range, IpGenAddr const& address) {
  NodeConfig wanted = config_;
  wanted.candidateRps.erase({range, address});
  configIs(wanted);
}

void Node::borderIs(IpGenPrefix const& zone, U32 intf, bool border) {
  NodeConfig wanted = config_;
  if (border) {
    wanted.borders.insert({zone, intf});
  } else {
    wanted.borders.erase({zone, intf});
  }
  configIs(wanted);
}

void Node::permitIs(IpGenPrefix const& senders) {
  NodeConfig wanted = config_;
  wanted.permits.insert(senders);
  configIs(wanted);
}

void Node::permitDel(IpGenPrefix const& senders) {
  NodeConfig wanted = config_;
  wanted.permits.erase(senders);
  configIs(wanted);
}

void Node::addressIs(U32 intf, IpGenAddr const& address) {
  NodeInterface& own = interfaces_[intf];
  IpGenAddr former = std::exchange(own.address, address);
  for (auto& [zone, candidacy] : config_.candidateBsrs) {
    if (candidacy.intfId == own.intfId) candidacy.address = address;
  }
  auto rps = std::exchange(config_.candidateRps, {});
  for (auto& [key, candidacy] : rps) {
    if (candidacy.intfId == own.intfId) candidacy.address = address;
    config_.candidateRps[{key.first, candidacy.address}] = candidacy;
  }
  if (!address.isEmpty()) medium_.destinationIs(address, id_);
  if (!router_) return;
  call([&] {
    if (!former.isEmpty()) router_->routeDel({former.v4Addr(), 32});
    writeLocalRoute(address);
    router_->handleAddressChange(own.intfId);
  });
}

// The router's outside --------------------------------------------------------------------------------

U32 Node::interfaceNumber(IntfId const& intfId) const {
  auto at = std::find_if(interfaces_.begin(), interfaces_.end(),
                         [&](NodeInterface const& intf) { return intf.intfId == intfId; });
  return static_cast<U32>(at - interfaces_.begin());
}

bool Node::send(IntfId const& intfId, Bytes packet) { return medium_.transmit(*this, intfId, packet); }

IpGenAddr Node::primaryAddress(IntfId const& intfId) const {
  if (intfId == loopbackId()) return options_.loopback;
  U32 number = interfaceNumber(intfId);
  return number < interfaces_.size() ? interfaces_[number].address : IpGenAddr();
}

bool Node::isOwnAddress(IpGenAddr const& address) const {
  if (address.isEmpty()) return false;
  return address == options_.loopback || std::any_of(interfaces_.begin(), interfaces_.end(),
                                                     [&](auto& intf) { return intf.address == address; });
}

bool Node::isOnSubnet(IntfId const& intfId, IpGenAddr const& address) const {
  U32 number = interfaceNumber(intfId);
  return number < interfaces_.size() &&
         medium_.link(interfaces_[number].link).options.prefix.contains(address.v4Addr());
}

void Node::packetCountsClear() {
  for (NodeInterface& intf : interfaces_) intf.sent = {};
}

}  // namespace pimbsr::sim
