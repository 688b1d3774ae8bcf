#include "agent/kernel/LinuxMachine.h"

#include <algorithm>
#include <utility>

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpGenAddr;

/// Seconds after which a kernel that didn't answer is asked again.
static constexpr double retryDelay = 1;

LinuxMachine::LinuxMachine(Loop& loop, Traffic& traffic, MachineListener& listener)
    : loop_(loop),
      traffic_(traffic),
      listener_(listener),
      netlinkReader_(loop, netlink_.fd(), [this] { readKernel(); }),
      unicast_(
          loop, [this](Received const& received) { takeUnicast(received); },
          [this] { return listener_.advertisers(); }),
      retry_(loop, [this] { readKernel(); }) {
  indexKernel();
  if (netlink_.isStale()) retry_.startIn(retryDelay);
}

void LinuxMachine::readKernel() {
  bool isChanged = netlink_.read();
  if (netlink_.isStale()) retry_.startIn(retryDelay);
  if (!isChanged) return;
  indexKernel();
  followSubnets();
  listener_.onKernelChange(netlink_.takeChangedRoutes());
}

void LinuxMachine::indexKernel() {
  names_.clear();
  ownAddresses_.clear();
  for (auto const& [name, link] : kernel().links) {
    names_[link.index] = name;
    for (KernelAddress const& one : link.addresses) ownAddresses_.emplace(one.address);
  }
}

// Packets -----------------------------------------------------------------------------------------------

/// What packets of other senders must be from to be a new neighbor's. Of a point-to-point link the subnet is
/// that of the far end.
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

void LinuxMachine::open(KernelLink const& link) {
  close(link.name);
  auto deliver = [this, name = link.name](std::span<U8 const> packet) {
    return listener_.onPacket(name, packet);
  };
  auto neighbors = [this, name = link.name] { return listener_.neighborsOf(name); };
  opened_[link.name] = std::make_unique<ReceiveQueues>(loop_, link.name, link.index, subnetsOf(link),
                                                       neighborQueues_, deliver, neighbors);
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

LinkReport LinuxMachine::reportOf(ReceiveQueues& queues) {
  return {.queues = queues.counts(), .sendError = queues.sender().lastError()};
}

void LinuxMachine::close(std::string const& name) {
  auto at = opened_.find(name);
  if (at == opened_.end()) return;
  LinkReport& closed = closed_[name];
  add(closed, reportOf(*at->second));
  for (auto& [kind, counts] : closed.queues) counts.queues = 0;
  opened_.erase(at);
}

/// What a packet does can't end its queue: settings and the kernel alone do, from handlers of their own, and
/// the steps of the queues.
void LinuxMachine::neighborsChanged(std::string const& name) {
  if (auto at = opened_.find(name); at != opened_.end()) at->second->neighborsChanged();
}

void LinuxMachine::followSubnets() {
  for (auto& [name, queues] : opened_) {
    auto link = kernel().links.find(name);
    if (link != kernel().links.end()) queues->subnetsAre(subnetsOf(link->second));
  }
  std::erase_if(closed_, [this](auto const& entry) { return !kernel().links.contains(entry.first); });
}

/// A packet of an interface that is not known yet, or no more, has no receiver.
void LinuxMachine::takeUnicast(Received const& received) {
  auto name = names_.find(received.interfaceIndex);
  if (name != names_.end()) listener_.onPacket(name->second, received.packet);
}

LinkReports LinuxMachine::linkReports() {
  LinkReports reports = closed_;
  for (auto& [name, queues] : opened_) add(reports[name], reportOf(*queues));
  add(reports[""], {.queues = unicast_.counts(), .sendError = unicast_.sender().lastError()});
  return reports;
}

void LinuxMachine::clearReports() {
  closed_.clear();
  for (auto& [name, queues] : opened_) {
    queues->clearCounts();
    queues->sender().clearLastError();
  }
  unicast_.clearCounts();
  unicast_.sender().clearLastError();
}

bool LinuxMachine::send(IntfId const& intfId, std::span<U8 const> packet) {
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

KernelLink const* LinuxMachine::link(IntfId const& intfId) const {
  auto at = kernel().links.find(std::string(intfId.stringValue().view()));
  return at == kernel().links.end() ? nullptr : &at->second;
}

/// Whether others could send to it: the addresses that every computer has on its loopback are its own affair.
static bool isUsable(KernelAddress const& address) { return address.address.hostWord() >> 24 != 127; }

IpGenAddr LinuxMachine::primaryAddress(IntfId const& intfId) const {
  KernelLink const* found = link(intfId);
  if (found == nullptr || !found->up) return {};
  auto at = std::find_if(found->addresses.begin(), found->addresses.end(), isUsable);
  return at == found->addresses.end() ? IpGenAddr() : IpGenAddr(at->address);
}

std::vector<IpGenAddr> LinuxMachine::secondaryAddresses(IntfId const& intfId) const {
  std::vector<IpGenAddr> others;
  KernelLink const* found = link(intfId);
  IpGenAddr primary = primaryAddress(intfId);
  if (found == nullptr || primary.isEmpty()) return others;
  for (KernelAddress const& one : found->addresses) {
    if (isUsable(one) && IpGenAddr(one.address) != primary) others.emplace_back(one.address);
  }
  return others;
}

bool LinuxMachine::isOwnAddress(IpGenAddr const& address) const { return ownAddresses_.contains(address); }

bool LinuxMachine::isOnSubnet(IntfId const& intfId, IpGenAddr const& address) const {
  KernelLink const* found = link(intfId);
  if (found == nullptr) return false;
  return std::any_of(found->addresses.begin(), found->addresses.end(), [&](KernelAddress const& one) {
    return Lanet::IpGenPrefix(subnetOf(one)).contains(address);
  });
}

}  // namespace pimbsr::agent
