#include "agent/kernel/LinuxPlatform.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "agent/base/Log.h"

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpGenAddr;

LinuxPlatform::LinuxPlatform(Loop& loop, Traffic& traffic, PlatformListener& listener)
    : loop_(loop),
      traffic_(traffic),
      listener_(listener),
      netlinkReader_(loop, netlink_.fd(), [this] { readKernel(); }),
      unicast_(
          loop, [this](Received const& received) { takeUnicast(received); },
          [this] { return listener_.advertisers(); }),
      ownAddressWatch_(loop, [this](OwnAddressUse const& use) { takeOwnAddress(use); }) {
  indexKernel();
}

void LinuxPlatform::readKernel() {
  if (!netlink_.read()) return;
  indexKernel();
  followSubnets();
  listener_.onKernelChange();
}

void LinuxPlatform::indexKernel() {
  names_.clear();
  ownAddresses_.clear();
  for (auto const& [name, link] : kernel().links) {
    names_[link.index] = name;
    for (KernelAddress const& one : link.addresses) ownAddresses_.emplace(one.address);
  }
}

// Packets -----------------------------------------------------------------------------------------------

/// The subnet of an address, of which Hellos of new neighbors are received. For a point-to-point link it is
/// the subnet of the far end.
static Lanet::Prefix subnetOf(KernelAddress const& one) {
  Lanet::IpAddr end = one.peer == Lanet::IpAddr() ? one.address : one.peer;
  return {end, one.prefixLength};
}

static std::vector<Lanet::Prefix> subnetsOf(KernelLink const& link) {
  std::vector<Lanet::Prefix> subnets;
  for (KernelAddress const& one : link.addresses) subnets.push_back(subnetOf(one));
  std::sort(subnets.begin(), subnets.end());
  subnets.erase(std::unique(subnets.begin(), subnets.end()), subnets.end());
  return subnets;
}

void LinuxPlatform::open(KernelLink const& link) {
  close(link.name);
  auto deliver = [this, name = link.name](std::span<U8 const> packet) {
    return listener_.onPacket(name, packet);
  };
  auto neighbors = [this, name = link.name] { return listener_.neighborsOf(name); };
  opened_[link.name] = std::make_unique<ReceiveQueues>(loop_, link.name, link.index, subnetsOf(link),
                                                       neighborQueues_, deliver, neighbors);
  watchAddresses();
}

static void add(LinkReport& sum, LinkReport const& more) {
  for (auto const& [kind, counts] : more.queues) {
    QueueCounts& total = sum.queues[kind];
    total.queues += counts.queues;
    total.received += counts.received;
    total.lost += counts.lost;
  }
  if (!more.sendError.empty()) sum.sendError = more.sendError;
}

LinkReport LinuxPlatform::reportOf(ReceiveQueues& queues) {
  return {.queues = queues.counts(), .sendError = queues.sender().lastError()};
}

void LinuxPlatform::close(std::string const& name) {
  auto at = opened_.find(name);
  if (at == opened_.end()) return;
  LinkReport& closed = closed_[name];
  add(closed, reportOf(*at->second));
  for (auto& [kind, counts] : closed.queues) counts.queues = 0;
  opened_.erase(at);
  watchAddresses();
}

/// Handling a packet never closes its queue: changes of settings and of the kernel's tables do, and the steps
/// of the queues, each in a handler of its own.
void LinuxPlatform::neighborsChanged(std::string const& name) {
  if (auto at = opened_.find(name); at != opened_.end()) at->second->neighborsChanged();
}

void LinuxPlatform::followSubnets() {
  for (auto& [name, queues] : opened_) {
    auto link = kernel().links.find(name);
    if (link != kernel().links.end()) queues->subnetsAre(subnetsOf(link->second));
  }
  watchAddresses();
  std::erase_if(closed_, [this](auto const& entry) { return !kernel().links.contains(entry.first); });
}

/// A packet of an interface that is unknown yet, or was deleted, is discarded.
void LinuxPlatform::takeUnicast(Received const& received) {
  auto name = names_.find(received.interfaceIndex);
  if (name != names_.end()) listener_.onPacket(name->second, received.packet);
}

/// On a loopback interface the packets of this agent come in, too.
void LinuxPlatform::watchAddresses() {
  std::vector<Lanet::IpAddr> own;
  for (auto const& [name, queues] : opened_) {
    auto link = kernel().links.find(name);
    if (link == kernel().links.end() || link->second.loopback) continue;
    for (KernelAddress const& one : link->second.addresses) own.push_back(one.address);
  }
  ownAddressWatch_.addressesAre(own);
}

/// Two interfaces on one link get the packets of each other, which is no duplicate.
void LinuxPlatform::takeOwnAddress(OwnAddressUse const& use) {
  auto name = names_.find(use.interfaceIndex);
  if (name == names_.end() || !opened_.contains(name->second)) return;
  KernelLink const& link = kernel().links.at(name->second);
  auto isUsed = [&](KernelAddress const& one) { return one.address == use.address; };
  if (!link.loopback && std::any_of(link.addresses.begin(), link.addresses.end(), isUsed))
    listener_.onDuplicateAddress(name->second, use);
}

LinkReports LinuxPlatform::linkReports() {
  LinkReports reports = closed_;
  for (auto& [name, queues] : opened_) add(reports[name], reportOf(*queues));
  add(reports[""], {.queues = unicast_.counts(), .sendError = unicast_.sender().lastError()});
  return reports;
}

void LinuxPlatform::clearReports() {
  closed_.clear();
  for (auto& [name, queues] : opened_) {
    queues->clearCounts();
    queues->sender().clearLastError();
  }
  unicast_.clearCounts();
  unicast_.sender().clearLastError();
}

bool LinuxPlatform::send(IntfId const& intfId, std::span<U8 const> packet) {
  std::string name(intfId.stringValue().view());
  bool sent = false;
  if (auto at = opened_.find(name); at != opened_.end()) {
    sent = at->second->sender().send(packet);
  } else if (intfId.isEmpty()) {
    sent = unicast_.sender().send(packet);
  }
  traffic_.noteSent(name, packet, sent);
  return sent;
}

// Addresses ---------------------------------------------------------------------------------------------

KernelLink const* LinuxPlatform::link(IntfId const& intfId) const {
  auto at = kernel().links.find(std::string(intfId.stringValue().view()));
  return at == kernel().links.end() ? nullptr : &at->second;
}

IpGenAddr LinuxPlatform::primaryAddress(IntfId const& intfId) const {
  KernelLink const* found = link(intfId);
  if (found == nullptr || !found->up) return {};
  auto at = std::find_if(found->addresses.begin(), found->addresses.end(), isUsable);
  return at == found->addresses.end() ? IpGenAddr() : IpGenAddr(at->address);
}

std::vector<IpGenAddr> LinuxPlatform::secondaryAddresses(IntfId const& intfId) const {
  std::vector<IpGenAddr> others;
  KernelLink const* found = link(intfId);
  IpGenAddr primary = primaryAddress(intfId);
  if (found == nullptr || primary.isEmpty()) return others;
  for (KernelAddress const& one : found->addresses) {
    if (isUsable(one) && IpGenAddr(one.address) != primary) others.emplace_back(one.address);
  }
  return others;
}

bool LinuxPlatform::isOwnAddress(IpGenAddr const& address) const { return ownAddresses_.contains(address); }

bool LinuxPlatform::isOnSubnet(IntfId const& intfId, IpGenAddr const& address) const {
  KernelLink const* found = link(intfId);
  if (found == nullptr) return false;
  return std::any_of(found->addresses.begin(), found->addresses.end(), [&](KernelAddress const& one) {
    return Lanet::IpGenPrefix(subnetOf(one)).contains(address);
  });
}

/// A lookup without an answer has the effect of no route; the log distinguishes both.
static void logRouteUnknown(IpGenAddr const& address) {
  logLine(fmt::format(
      "the kernel has not answered for the route to {}, which counts as none until the next lookup",
      address.stringValue().view()));
}

std::optional<::Slosh::Fib::Route> LinuxPlatform::routeTo(IpGenAddr const& address) const {
  std::optional<::Slosh::Fib::Route> route = netlink_.routeTo(address.v4Addr());
  if (!route) logRouteUnknown(address);
  return route.value_or(::Slosh::Fib::Route());
}

}  // namespace pimbsr::agent
