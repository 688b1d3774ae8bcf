#include "sim/trial/MessageWatches.h"

#include <fmt/format.h>

#include <numeric>

#include "host/Zones.h"
#include "pim/HelloOptions.h"

namespace pimbsr::sim {

using Lanet::IpGenPrefix;

/// Seconds after which no copy of a message is on the way any more.
static constexpr double floodTime = 10;
/// Seconds after which a BSR sends another message, whose random tag may be that of the one before: while it
/// has no RPs they are 5 s apart.
static constexpr double sendTime = 1;
static constexpr double minInterval = 10;  // BS_Min_Interval
/// By how much two times of one clock may be too near, for what is lost in computing them.
static constexpr double slack = 0.001;

static std::string textOf(IpGenPrefix const& zone) { return std::string(zone.stringValue().view()); }

// Copies ----------------------------------------------------------------------------------------------

/// Packets that a router may send for one that came: each repeats headers, and fills at least half of the
/// MTU.
static std::size_t piecesOf(std::size_t size, U32 mtu) {
  return size <= mtu ? 1 : (2 * size + mtu - 1) / mtu;
}

/// The last message of a BSR that loses its address leaves after that.
bool FloodWatch::isOwn(Node const& node, BootstrapMessage const& message) {
  std::pair const sender(node.id(), message.bsrAddress());
  if (node.isOwnAddress(message.bsrAddress())) bsrs_.insert(sender);
  return bsrs_.contains(sender);
}

/// What is wrong with a packet of a BSR's own message; null for nothing.
char const* FloodWatch::ownFault(Flooded& flooded, double now, U32 link, Bytes packet) {
  if (flooded.at + sendTime <= now) {
    flooded.at = now;
    flooded.own.clear();
  }
  if (flooded.at != now) return "its own message again";
  bool isNew = flooded.own.emplace(link, std::vector<U8>(packet.begin(), packet.end())).second;
  return isNew ? nullptr : "a packet of its own message twice";
}

void FloodWatch::onSent(Network const& network, Node const& node, NodeInterface const& intf,
                        BsmPacket const& packet) {
  BootstrapMessage const& message = packet.message;
  if (!message.forward()) return;
  prune(network.now());
  auto note = [&](Flooded& flooded, std::string const& what) {
    if (std::exchange(flooded.isReported, true)) return;
    findings_.push_back(fmt::format("{} sends {} of zone {} on link {} at {:.3f} s", node.name(), what,
                                    textOf(host::zoneOf(message)), network.link(intf.link).options.name,
                                    network.now()));
  };
  Key key(node.id(), host::zoneOf(message), message.bsrAddress(), message.fragmentTag());
  Flooded& flooded = flooded_[key];
  bool isOther = flooded.at + floodTime <= network.now();  // a tag has 16 bits and comes again
  if (isOther) flooded = {};
  std::size_t sent = ++flooded.sent[intf.link];
  if (isOwn(node, message)) {
    char const* fault = ownFault(flooded, network.now(), intf.link, packet.bytes);
    if (fault != nullptr) note(flooded, fault);
    return;
  }
  U32 mtu = network.link(intf.link).options.mtu;
  auto add = [mtu](std::size_t sum, std::size_t size) { return sum + piecesOf(size, mtu); };
  std::size_t most = std::accumulate(flooded.sizes.begin(), flooded.sizes.end(), std::size_t{0}, add);
  if (sent > most) note(flooded, fmt::format("{} packets for {} of a message", sent, flooded.sizes.size()));
}

void FloodWatch::onAccepted(Network const& network, Node const& node, BsmPacket const& packet) {
  if (!packet.message.forward()) return;
  Key key(node.id(), host::zoneOf(packet.message), packet.message.bsrAddress(), packet.message.fragmentTag());
  Flooded& flooded = flooded_[key];
  flooded.at = network.now();
  flooded.sizes.push_back(packet.size);
}

void FloodWatch::onRunning(Node const& node) {
  auto first = flooded_.lower_bound({node.id(), {}, {}, 0});
  auto last = flooded_.lower_bound({node.id() + 1, {}, {}, 0});
  flooded_.erase(first, last);
}

/// Looks at all entries once they have doubled since the last time.
void FloodWatch::prune(double now) {
  if (flooded_.size() < pruneAt_) return;
  std::erase_if(flooded_, [now](auto const& entry) { return entry.second.at + floodTime < now; });
  pruneAt_ = std::max<std::size_t>(1024, 2 * flooded_.size());
}

// Intervals -------------------------------------------------------------------------------------------

void PaceWatch::onSent(Network const& network, Node const& node, BootstrapMessage const& message) {
  if (!message.forward() || !node.isOwnAddress(message.bsrAddress())) return;
  IpGenPrefix zone = host::zoneOf(message);
  if (!node.config().candidateBsrs.contains(zone)) {
    sent_.erase({node.id(), zone});
    return;
  }
  double now = node.localTime(network.now());
  auto [at, isFirst] = sent_.try_emplace({node.id(), zone}, Sent{message.fragmentTag(), now});
  Sent& sent = at->second;
  if (isFirst || sent.tag == message.fragmentTag()) return;
  double gap = now - std::exchange(sent.at, now);
  sent.tag = message.fragmentTag();
  bool isCaused = sent.answeredAt == network.now() || commandAt_ == network.now();
  if (gap > minInterval - slack || isCaused) return;
  findings_.push_back(fmt::format("{} sends messages of zone {} {:.3f} s apart, at {:.3f} s", node.name(),
                                  textOf(zone), gap, network.now()));
}

/// Whether a message is this router's own, of before its priority was raised.
static bool isFormer(Node const& node, BootstrapMessage const& message) {
  auto const& candidacies = node.config().candidateBsrs;
  auto at = candidacies.find(host::zoneOf(message));
  return at != candidacies.end() && at->second.address == message.bsrAddress() &&
         message.bsrPriority() < at->second.priority;
}

void PaceWatch::onReceived(Network const& network, Node const& node, BootstrapMessage const& message) {
  auto at = sent_.find({node.id(), host::zoneOf(message)});
  bool isAnswered = !node.isOwnAddress(message.bsrAddress()) || isFormer(node, message);
  if (at != sent_.end() && isAnswered) at->second.answeredAt = network.now();
}

void PaceWatch::onRunning(Node const& node) {
  auto first = sent_.lower_bound({node.id(), {}});
  auto last = sent_.lower_bound({node.id() + 1, {}});
  sent_.erase(first, last);
}

// New neighbors ---------------------------------------------------------------------------------------

void AnswerWatch::onSent(Network const& network, Node const& node, NodeInterface const& intf,
                         BootstrapMessage const& message) {
  if (message.forward() || !node.corrections().quickRelearn) return;
  static constexpr pim::HelloOptions hello;
  double now = node.localTime(network.now());
  auto [at, isFirst] = sent_.try_emplace({node.id(), intf.link}, now);
  double gap = now - std::exchange(at->second, now);
  if (isFirst || gap == 0 || gap > hello.triggeredDelay - slack) return;
  findings_.push_back(
      fmt::format("{} sends new neighbors what it knows {:.3f} s apart on link {}, at {:.3f} s", node.name(),
                  gap, network.link(intf.link).options.name, network.now()));
}

void AnswerWatch::onRunning(Node const& node) {
  std::erase_if(sent_, [&node](auto const& entry) { return entry.first.first == node.id(); });
}

void AnswerWatch::onLink(U32 link) {
  std::erase_if(sent_, [link](auto const& entry) { return entry.first.second == link; });
}

}  // namespace pimbsr::sim
