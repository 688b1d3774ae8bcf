#include "sim/Network.h"

#include "host/Limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "wire/Checksum.h"

namespace pimbsr::sim {

using Lanet::IpAddr;
using Lanet::IpGenAddr;

std::string_view textOf(Loss loss) {
  switch (loss) {
    case Loss::fault:
      return "lost";
    case Loss::tooBig:
      return "too big";
    case Loss::down:
      return "link down";
    case Loss::noReceiver:
      return "no receiver";
    case Loss::noRoute:
      return "no route";
    default:
      return "time to live over";
  }
}

Network::Network(U64 seed) : Medium(seed), rng_(seed), routes_(nodes_, links_) {}

Network::~Network() {
  listener_ = nullptr;
  taps_.clear();
  for (Node& node : nodes_) node.end();
}

// Building --------------------------------------------------------------------------------------------

U32 Network::addLink(LinkOptions const& options) {
  links_.push_back({.options = options});
  if (Listener* listener = listenerFor(availability)) listener->onLink(*this, linkCount() - 1, true);
  topologyChanged();
  return linkCount() - 1;
}

U32 Network::addNode(NodeOptions const& options, bool started) {
  U32 number = nodeCount();
  nodes_.emplace_back(*this, *this, number, options);
  Node& node = nodes_.back();
  if (started) {
    node.start();
  } else if (Listener* listener = listenerFor(availability)) {
    listener->onRunning(node, false);
  }
  return number;
}

void Network::ingressIs(host::IngressSettings const& ingress) {
  ingress_ = ingress;
  for (Node& node : nodes_) node.ingressIs(ingress);
}

void Network::checksAre(host::IngressSettings const& checks) {
  host::IngressSettings ingress = checks;
  host::copyLimits(ingress_, ingress);
  ingress_ = ingress;
  for (Node& node : nodes_) node.checksAre(checks);
}

void Network::limitIs(U32 host::IngressSettings::*limit, U32 value) {
  ingress_.*limit = value;
  for (Node& node : nodes_) node.limitIs(limit, value);
}

void Network::correctionsAre(host::CorrectionSettings const& settings) {
  corrections_ = settings;
  for (Node& node : nodes_) node.correctionsAre(settings);
}

U32 Network::attach(U32 node, U32 link, InterfaceOptions const& options) {
  U32 intf = nodes_[node].addInterface(link, options);
  links_[link].attached.push_back({node, intf});
  links_[link].lastArrival.push_back(0);
  topologyChanged();
  return intf;
}

void Network::linkUpIs(U32 number, bool up) {
  Link& link = links_[number];
  if (link.up == up) return;
  link.up = up;
  if (Listener* listener = listenerFor(availability)) listener->onLink(*this, number, up);
  for (Attachment const& at : link.attached) nodes_[at.node].linkUpIs(at.intf, up);
  topologyChanged();
}

void Network::partition(std::set<U32> const& nodes) {
  for (U32 number = 0; number < linkCount(); ++number) {
    auto const& attached = links_[number].attached;
    auto isIn = [&](Attachment const& at) { return nodes.contains(at.node); };
    bool joins = std::any_of(attached.begin(), attached.end(), isIn) &&
                 !std::all_of(attached.begin(), attached.end(), isIn);
    if (joins) linkUpIs(number, false);
  }
}

void Network::heal() {
  for (U32 number = 0; number < linkCount(); ++number) linkUpIs(number, true);
}

void Network::listenerIs(Listener* listener, Kinds kinds) {
  listener_ = listener;
  kinds_ = listener == nullptr ? 0 : kinds;
  for (Node& node : nodes_) node.observe();
}

void Network::packetCountsClear(std::span<U32 const> nodes) {
  for (U32 node : nodes) nodes_[node].packetCountsClear();
  if (!nodes.empty()) return;
  for (Node& node : nodes_) node.packetCountsClear();
}

U64 Network::exceptions() const {
  U64 sum = 0;
  for (Node const& node : nodes_) sum += node.context().notificationExceptions();
  return sum;
}

// Time ------------------------------------------------------------------------------------------------

void Network::wakeupIs(Node const& node, double time) {
  wakeups_.wakeupIs(node.id(), time == Kiv::never ? time : std::max(time, now_));
}

void Network::topologyChanged() {
  double noticed = events_ == 0 && now_ == 0 ? 0 : now_ + convergence_;
  convergesAt_ = std::min(convergesAt_, noticed);
}

void Network::destinationIs(IpGenAddr const& address, U32 owner) {
  routes_.destinationIs(address.v4Addr(), owner);
  newDestinations_ = true;
}

double Network::nextEvent() const {
  if (newDestinations_) return now_;
  return std::min({convergesAt_, arrivals_.nextTime(), wakeups_.nextTime()});
}

bool Network::step(double time) {
  double next = nextEvent();
  if (next > time) return false;
  now_ = std::max(now_, next);
  if (newDestinations_ || convergesAt_ <= now_) {
    if (convergesAt_ <= now_) {
      convergesAt_ = Kiv::never;
      routes_.notice();
    }
    newDestinations_ = false;
    routes_.update();
    return true;
  }
  ++events_;
  if (arrivals_.nextTime() <= wakeups_.nextTime()) {
    arrive(arrivals_.pop());
  } else {
    nodes_[wakeups_.nextNode()].advance();
  }
  return true;
}

void Network::runTo(double time) {
  while (storm_.empty() && step(time)) {
  }
  if (storm_.empty()) now_ = std::max(now_, time);
}

// Packets ---------------------------------------------------------------------------------------------

static constexpr std::size_t minHeader = 20;
static constexpr std::size_t ttlAt = 8;
static constexpr std::size_t checksumAt = 10;
static constexpr std::size_t destinationAt = 16;
static constexpr U32 noSender = ~U32{0};

static IpAddr destinationOf(Bytes packet) {
  if (packet.size() < minHeader) return {};
  Bytes at = packet.subspan(destinationAt, 4);
  return IpAddr::fromHost(U32{at[0]} << 24 | U32{at[1]} << 16 | U32{at[2]} << 8 | at[3]);
}

void Network::lost(Link const* link, Node const* node, Loss loss, Bytes packet) {
  if (Listener* listener = listenerFor(losses)) listener->onLoss(*this, link, node, loss, packet);
}

bool Network::transmit(Node& node, Lanet::IntfId const& intfId, Bytes packet) {
  IpAddr destination = destinationOf(packet);
  if (!destination.isMulticast()) return route(node, packet);
  U32 intf = node.interfaceNumber(intfId);
  return intf < node.interfaces().size() && putOnLink(node, intf, packet, destination);
}

bool Network::route(Node& node, Bytes packet) {
  std::optional<NextHop> hop = routes_.nextHop(node, destinationOf(packet));
  if (hop) return putOnLink(node, hop->intf, packet, hop->address);
  lost(nullptr, &node, Loss::noRoute, packet);
  return false;
}

bool Network::putOnLink(Node& node, U32 intf, Bytes packet, IpAddr nextHop) {
  NodeInterface& own = node.interfaces_[intf];
  Link const& link = links_[own.link];
  bool tooBig = packet.size() > link.options.mtu;
  if (tooBig || !link.up) {
    lost(&link, &node, tooBig ? Loss::tooBig : Loss::down, packet);
    return false;
  }
  ++own.sent[static_cast<std::size_t>(kindOf(packet))];
  node.reportSent(intf, packet);
  deliver(own.link, packet, nextHop, node.id());
  return true;
}

void Network::countForStorm(Link& link) {
  auto second = static_cast<U64>(now_);
  if (std::exchange(link.second, second) != second) link.packets = 0;
  bool isStorm = ++link.packets > stormLimit_ && stormLimit_ != 0 && storm_.empty();
  if (!isStorm) return;
  storm_ = fmt::format("more than {} packets on link {} in the second from {} s on", stormLimit_,
                       link.options.name, second);
}

/// Puts a packet on its way to all on a link but its sender, or to the one that has an address there.
void Network::deliver(U32 number, Bytes packet, IpAddr nextHop, U32 sender) {
  for (Tap* tap : taps_) tap->onPacket(number, now_, packet);
  Link& link = links_[number];
  countForStorm(link);
  PacketPool::Handle handle = packets_.add(packet);
  bool reached = nextHop.isMulticast();
  for (U32 place = 0; place < link.attached.size(); ++place) {
    Attachment const& at = link.attached[place];
    if (at.node == sender) continue;
    bool isMeant =
        nextHop.isMulticast() || nodes_[at.node].interfaces_[at.intf].address == IpGenAddr(nextHop);
    if (!isMeant) continue;
    reached = true;
    handOver(number, place, handle);
  }
  if (!reached) lost(&link, nullptr, Loss::noReceiver, packet);
  packets_.release(handle);
}

void Network::handOver(U32 number, U32 place, PacketPool::Handle packet) {
  Link& link = links_[number];
  if (rng_.hits(link.options.faults.loss)) return lost(&link, nullptr, Loss::fault, packets_.bytes(packet));
  schedule(link, place, packet);
  if (rng_.hits(link.options.faults.duplicate)) schedule(link, place, packet);
}

void Network::schedule(Link& link, U32 place, PacketPool::Handle packet) {
  LinkOptions const& options = link.options;
  double time = now_ + options.delay;
  if (options.jitter > 0) time += options.jitter * rng_.fraction();
  if (rng_.hits(options.faults.reorder)) {
    time += Faults::heldBack * rng_.fraction();
  } else {
    time = link.lastArrival[place] = std::max(time, link.lastArrival[place]);
  }
  bool isDamaged = rng_.hits(options.faults.corrupt);
  if (isDamaged) packet = damagedCopy(packet);
  if (!isDamaged) packets_.hold(packet);
  arrivals_.push(time, {packet, link.attached[place]});
}

/// A copy with one bit changed, held once.
PacketPool::Handle Network::damagedCopy(PacketPool::Handle packet) {
  Bytes bytes = packets_.bytes(packet);
  damaged_.assign(bytes.begin(), bytes.end());
  U32 bit = rng_.below(static_cast<U32>(8 * damaged_.size()));
  damaged_[bit / 8] ^= static_cast<U8>(1u << bit % 8);
  return packets_.add(damaged_);
}

void Network::arrive(Arrival const& arrival) {
  Node& node = nodes_[arrival.at.node];
  Link const& link = links_[node.interfaces_[arrival.at.intf].link];
  Bytes packet = packets_.bytes(arrival.packet);
  IpAddr destination = destinationOf(packet);
  bool isForMany = destination.isMulticast();
  if (!link.up) {
    lost(&link, nullptr, Loss::down, packet);
  } else if (!node.isRunning()) {
    if (!isForMany) lost(&link, nullptr, Loss::noReceiver, packet);
  } else if (isForMany || node.isOwnAddress(IpGenAddr(destination))) {
    node.receive(arrival.at.intf, packet);
  } else {
    forward(node, packet);
  }
  packets_.release(arrival.packet);
}

void Network::forward(Node& node, Bytes packet) {
  std::size_t header = std::size_t{4} * (packet[0] & 0x0f);
  if (packet[ttlAt] <= 1 || header < minHeader || header > packet.size()) {
    return lost(nullptr, &node, Loss::ttl, packet);
  }
  forwarded_.assign(packet.begin(), packet.end());
  --forwarded_[ttlAt];
  forwarded_[checksumAt] = forwarded_[checksumAt + 1] = 0;
  U16 sum = wire::checksum(Bytes(forwarded_).first(header));
  forwarded_[checksumAt] = static_cast<U8>(sum >> 8);
  forwarded_[checksumAt + 1] = static_cast<U8>(sum);
  route(node, forwarded_);
}

void Network::inject(U32 number, Bytes packet) {
  Link& link = links_[number];
  if (!link.up || packet.size() > link.options.mtu) {
    return lost(&link, nullptr, link.up ? Loss::tooBig : Loss::down, packet);
  }
  IpAddr destination = destinationOf(packet);
  auto owns = [&](Attachment const& at) { return nodes_[at.node].isOwnAddress(IpGenAddr(destination)); };
  auto runs = [&](Attachment const& at) { return nodes_[at.node].isRunning(); };
  auto const& attached = link.attached;
  auto receiver = std::find_if(attached.begin(), attached.end(), owns);
  if (receiver == attached.end()) receiver = std::find_if(attached.begin(), attached.end(), runs);
  bool toOne = !destination.isMulticast() && receiver != attached.end();
  IpAddr nextHop = toOne ? nodes_[receiver->node].interfaces_[receiver->intf].address.v4Addr() : destination;
  deliver(number, packet, nextHop, noSender);
}

}  // namespace pimbsr::sim
