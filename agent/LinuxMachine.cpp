#include "agent/LinuxMachine.h"

#include <algorithm>
#include <utility>

namespace pimbsr::agent {

using Lanet::IntfId;
using Lanet::IpGenAddr;

/// Packets of one socket that are taken before the loop looks at its timers again.
static constexpr int packetsAtOnce = 64;
/// Seconds after which a kernel that didn't answer is asked again.
static constexpr double retryDelay = 1;

LinuxMachine::LinuxMachine(Loop& loop, Traffic& traffic, MachineListener& listener)
    : loop_(loop),
      traffic_(traffic),
      listener_(listener),
      netlinkReader_(loop, netlink_.fd(), [this] { readKernel(); }),
      unicastReader_(loop, unicast_.fd(), [this] { readSocket(unicast_); }),
      retry_(loop, [this] { readKernel(); }) {
  indexKernel();
  if (netlink_.isStale()) retry_.startIn(retryDelay);
}

void LinuxMachine::readKernel() {
  bool isChanged = netlink_.read();
  if (netlink_.isStale()) retry_.startIn(retryDelay);
  if (!isChanged) return;
  indexKernel();
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

void LinuxMachine::open(KernelLink const& link) {
  close(link.name);
  auto opened = std::make_unique<Opened>(loop_, link, [this, name = link.name] {
    if (auto at = opened_.find(name); at != opened_.end()) readSocket(at->second->socket);
  });
  opened_[link.name] = std::move(opened);
}

void LinuxMachine::close(std::string const& name) { opened_.erase(name); }

/// A packet of an interface that is not known yet, or no more, is nobody's. What a packet does can't close
/// its socket: settings and the kernel alone do, from handlers of their own.
template <class Socket>
void LinuxMachine::readSocket(Socket& socket) {
  for (int i = 0; i < packetsAtOnce && socket.receive(received_); ++i) {
    auto name = names_.find(received_.interfaceIndex);
    if (name != names_.end()) listener_.onPacket(name->second, received_.packet);
  }
}

bool LinuxMachine::send(IntfId const& intfId, std::span<U8 const> packet) {
  std::string name(intfId.stringValue().view());
  bool sent = false;
  if (auto at = opened_.find(name); at != opened_.end()) {
    sent = at->second->socket.send(packet);
  } else if (intfId.isEmpty()) {
    sent = unicast_.send(packet);
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
    Lanet::IpAddr end = one.peer == Lanet::IpAddr() ? one.address : one.peer;
    return Lanet::IpGenPrefix(IpGenAddr(end), one.prefixLength).contains(address);
  });
}

}  // namespace pimbsr::agent
