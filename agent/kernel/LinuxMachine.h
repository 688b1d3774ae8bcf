#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "agent/account/Traffic.h"
#include "agent/base/Loop.h"
#include "agent/kernel/Machine.h"
#include "agent/kernel/Netlink.h"
#include "agent/queues/PimSocket.h"
#include "agent/queues/QueueSet.h"
#include "agent/queues/ReceiveQueues.h"
#include "agent/queues/UnicastQueues.h"

namespace pimbsr::agent {

/// Hears of packets and of the kernel's changes, from the event loop.
class MachineListener {
 public:
  virtual ~MachineListener() = default;
  /// A packet from its IP header on, and the interface that it came in by. Returns whether more of its sender
  /// may follow at once: with false, packets from there wait a moment, and the kernel drops the excess.
  virtual bool onPacket(std::string const& intf, std::span<U8 const> packet) = 0;
  /// Interfaces, addresses or the best routes of these prefixes have changed.
  virtual void onKernelChange(std::vector<Lanet::Prefix> const& routes) = 0;
  /// The addresses of an interface's neighbors, the most important first; asked for a moment after
  /// Machine::neighborsChanged(), once for all changes until then.
  virtual std::vector<Lanet::IpAddr> neighborsOf(std::string const& intf) const = 0;
  /// The senders of accepted advertisements, the most important first, at most maxFilterAddresses; asked for
  /// a moment after Machine::advertisersChanged(), once for all changes until then.
  virtual std::vector<Lanet::IpAddr> advertisers() const = 0;
};

/// This computer: raw sockets on its links, and netlink for what stands there.
///
/// Packets to a group are taken from the receive queues of their link, those to a single address from queues
/// for all links.
/// A down link lends no address: nobody could reach a candidate there.
class LinuxMachine final : public Machine {
 public:
  /// Opens the kernel's tables and the socket for all links; throws std::system_error if that can't be. The
  /// listener hears nothing before the loop runs. All outlive the machine.
  LinuxMachine(Loop& loop, Traffic& traffic, MachineListener& listener);

  KernelView const& kernel() const override { return netlink_.view(); }
  /// Prefixes of all routes that stood when it was made.
  std::vector<Lanet::Prefix> takeChangedRoutes() { return netlink_.takeChangedRoutes(); }
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

 private:
  KernelLink const* link(Lanet::IntfId const& intfId) const;
  void readKernel();
  void indexKernel();
  void followSubnets();
  void takeUnicast(Received const& received);
  static LinkReport reportOf(ReceiveQueues& queues);

  Loop& loop_;
  Traffic& traffic_;
  MachineListener& listener_;
  Netlink netlink_;
  LoopReader netlinkReader_;
  UnicastQueues unicast_;
  LoopTimer retry_;
  NeighborQueueBudget neighborQueues_;
  std::map<std::string, std::unique_ptr<ReceiveQueues>> opened_;
  LinkReports closed_;  ///< of links that were open before, by name; those that are gone have none
  // What each packet asks for, made anew when the kernel's view changes.
  std::map<int, std::string> names_;
  std::set<Lanet::IpGenAddr> ownAddresses_;
};

}  // namespace pimbsr::agent
