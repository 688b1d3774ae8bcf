#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>

#include "agent/ControlSocket.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

using Zet::U8;

/// One packet as a socket gave it, and room for the longest that IPv4 has: the kernel puts fragments
/// together.
struct Received {
  static constexpr std::size_t longest = 65536;

  int interfaceIndex = 0;        ///< of the interface that it came in by
  std::span<U8 const> packet{};  ///< from the IP header on, within `room`; stands until the next one
  std::unique_ptr<std::array<U8, longest>> room = std::make_unique<std::array<U8, longest>>();
};

/// A raw IPv4 socket of protocol 103 (PIM) that never blocks. What the two kinds of it below share.
class PimSocketBase {
 public:
  PimSocketBase(PimSocketBase const&) = delete;
  PimSocketBase& operator=(PimSocketBase const&) = delete;

  /// Readable when a packet waits; owned by this object.
  int fd() const { return fd_.get(); }
  /// Takes the next packet that waits; false if there is none.
  bool receive(Received& received);
  /// Sends what an IPv4 packet carries to where its header says, with the header's source, TTL and type of
  /// service; what is longer than the MTU goes in fragments. Returns whether the kernel took it.
  bool send(std::span<U8 const> packet);
  /// Why the last send failed, in the system's words; empty if it didn't.
  std::string lastError() const;

 protected:
  enum class Destinations { groups, addresses };

  /// Takes PIM packets to groups alone, or to single addresses alone. Throws std::system_error, with what is
  /// needed, if there can be no such socket.
  explicit PimSocketBase(Destinations taken);
  ~PimSocketBase() = default;

  void option(int level, int name, int value, char const* what);
  void sendAlong(int interfaceIndex) { interfaceIndex_ = interfaceIndex; }
  /// Drops what came in before the socket was set up, and may be anything.
  void dropWaiting();

 private:
  void filter(Destinations taken);

  SocketFd fd_;
  int interfaceIndex_ = 0;  ///< of the interface to send along; 0 leaves that to the routes
  int error_ = 0;
};

/// The socket of one interface: takes what is sent there to 224.0.0.13, and sends along it what no socket of
/// this computer hears. Each interface has one of its own, since a socket can join but a few links
/// (net.ipv4.igmp_max_memberships). It follows its interface when that is renamed; when the interface is
/// gone, nothing comes or goes any more, also with another interface of the same name.
class PimSocket : public PimSocketBase {
 public:
  /// Throws std::system_error, which names the interface.
  PimSocket(std::string const& interface, int index);
};

/// The socket for packets to addresses of this computer, whichever interface they come in by, and for what is
/// sent by the routes.
class UnicastSocket : public PimSocketBase {
 public:
  /// Throws std::system_error.
  UnicastSocket();
};

}  // namespace pimbsr::agent
