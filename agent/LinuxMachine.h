#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "agent/Loop.h"
#include "agent/Machine.h"
#include "agent/Netlink.h"
#include "agent/PimSocket.h"
#include "agent/Traffic.h"

namespace pimbsr::agent {

/// Hears of packets and of the kernel's changes, from the event loop.
class MachineListener {
 public:
  virtual ~MachineListener() = default;
  /// A packet from its IP header on, and the interface that it came in by.
  virtual void onPacket(std::string const& intf, std::span<U8 const> packet) = 0;
  /// Interfaces, addresses or the best routes of these prefixes have changed.
  virtual void onKernelChange(std::vector<Lanet::Prefix> const& routes) = 0;
};

/// This computer: raw sockets on its links, and netlink for what stands there.
///
/// A packet to a group is taken by the socket of its link, one to a single address by a socket for all links.
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

  bool send(Lanet::IntfId const& intfId, std::span<U8 const> packet) override;
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const override;
  std::vector<Lanet::IpGenAddr> secondaryAddresses(Lanet::IntfId const& intfId) const override;
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override;
  bool isOnSubnet(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const override;

 private:
  struct Opened {
    Opened(Loop& loop, KernelLink const& link, Handler handler)
        : socket(link.name, link.index), reader(loop, socket.fd(), std::move(handler)) {}
    PimSocket socket;
    LoopReader reader;
  };

  KernelLink const* link(Lanet::IntfId const& intfId) const;
  void readKernel();
  void indexKernel();
  template <class Socket>
  void readSocket(Socket& socket);

  Loop& loop_;
  Traffic& traffic_;
  MachineListener& listener_;
  Netlink netlink_;
  LoopReader netlinkReader_;
  UnicastSocket unicast_;
  LoopReader unicastReader_;
  LoopTimer retry_;
  std::map<std::string, std::unique_ptr<Opened>> opened_;
  // What each packet asks for, made anew when the kernel's view changes.
  std::map<int, std::string> names_;
  std::set<Lanet::IpGenAddr> ownAddresses_;
  Received received_;
};

}  // namespace pimbsr::agent
