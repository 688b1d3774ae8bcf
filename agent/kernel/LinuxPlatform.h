#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "agent/account/Traffic.h"
#include "agent/base/Loop.h"
#include "agent/kernel/Netlink.h"
#include "agent/kernel/Platform.h"
#include "agent/queues/OwnAddressWatch.h"
#include "agent/queues/PimSocket.h"
#include "agent/queues/QueueSet.h"
#include "agent/queues/ReceiveQueues.h"
#include "agent/queues/UnicastQueues.h"

namespace pimbsr::agent {

/// Receives packets and changes of the kernel's tables, from the event loop.
class PlatformListener {
 public:
  virtual ~PlatformListener() = default;
  /// A packet from its IP header on, and its incoming interface. Returns whether more of its sender may
  /// follow at once: with false, its queue rests for a moment, and the kernel drops the excess.
  virtual bool onPacket(std::string const& intf, std::span<U8 const> packet) = 0;
  /// Another system on an interface has sent packets from the address that the interface has here.
  virtual void onDuplicateAddress(std::string const& intf, OwnAddressUse const& use) = 0;
  /// Interfaces or addresses have changed.
  virtual void onKernelChange() = 0;
  /// The addresses of an interface's neighbors, the most important first; called a moment after
  /// Platform::neighborsChanged(), once for all changes until then.
  virtual std::vector<Lanet::IpAddr> neighborsOf(std::string const& intf) const = 0;
  /// The senders of accepted advertisements, the most important first, at most maxFilterAddresses; called
  /// a moment after Platform::advertisersChanged(), once for all changes until then.
  virtual std::vector<Lanet::IpAddr> advertisers() const = 0;
};

/// This system: raw sockets on its links, and netlink for its interfaces and routes.
///
/// Multicast packets are received by the queues of their link, unicast packets by queues for all links. A
/// link that is down has no primary address: a candidate with it would be unreachable.
class LinuxPlatform final : public Platform {
 public:
  /// Opens netlink and the socket for all links. Throws std::system_error. The listener isn't called before
  /// the loop runs. All outlive the platform.
  LinuxPlatform(Loop& loop, Traffic& traffic, PlatformListener& listener);

  KernelView const& kernel() const override { return netlink_.view(); }
  void open(KernelLink const& link) override;
  void close(std::string const& name) override;
  void neighborsChanged(std::string const& name) override;
  void advertisersChanged() override { unicast_.sendersChanged(); }
  LinkReports linkReports() override;
  void clearReports() override;

  bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) override;
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const override;
  std::vector<Lanet::IpGenAddr> secondaryAddresses(Lanet::IntfId const& intfId) const override;
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override;
  bool isOnSubnet(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const override;
  std::optional<::Slosh::Fib::Route> routeTo(Lanet::IpGenAddr const& address) const override;

 private:
  KernelLink const* link(Lanet::IntfId const& intfId) const;
  void readKernel();
  void indexKernel();
  void followSubnets();
  void takeUnicast(Received const& received);
  void watchAddresses();
  void takeOwnAddress(OwnAddressUse const& use);
  static LinkReport reportOf(ReceiveQueues& queues);

  Loop& loop_;
  Traffic& traffic_;
  PlatformListener& listener_;
  Netlink netlink_;
  LoopReader netlinkReader_;
  UnicastQueues unicast_;
  OwnAddressWatch ownAddressWatch_;
  NeighborQueueBudget neighborQueues_;
  std::map<std::string, std::unique_ptr<ReceiveQueues>> opened_;
  LinkReports closed_;  ///< of links that were open before, by name; those that are gone have none
  // What each packet asks for, made anew when the kernel's view changes.
  std::map<int, std::string> names_;
  std::set<Lanet::IpGenAddr> ownAddresses_;
};

}  // namespace pimbsr::agent
