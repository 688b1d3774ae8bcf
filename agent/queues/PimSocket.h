#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/queues/PacketFilter.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

using Zet::U32;
using Zet::U64;
using Zet::U8;

/// One received packet, with a buffer for the maximum length of IPv4: the kernel reassembles fragments.
struct Received {
  static constexpr std::size_t maxLength = 65536;

  /// Of the incoming interface. 0 for a packet that came while the socket was opened and had no filter yet:
  /// it may be of any sender and interface, and isn't meant for this socket.
  int interfaceIndex = 0;
  U64 time = 0;                  ///< when the kernel received it: nanoseconds since 1970
  std::span<U8 const> packet{};  ///< from the IP header on, within `buffer`; valid until the next one
  std::unique_ptr<std::array<U8, maxLength>> buffer = std::make_unique<std::array<U8, maxLength>>();
};

/// A raw IPv4 socket of protocol 103 (PIM) that never blocks. The base of those below.
class PimSocketBase {
 public:
  virtual ~PimSocketBase() = default;
  PimSocketBase(PimSocketBase const&) = delete;
  PimSocketBase& operator=(PimSocketBase const&) = delete;

  /// Readable when a packet waits; owned by this object.
  int fd() const { return fd_.get(); }
  /// Receives the next packet that waits; false if there is none.
  bool receive(Received& received);
  /// When the kernel received the next packet that waits, as Received::time; nothing if there is none.
  std::optional<U64> nextTime();
  /// Replaces the filter program. A packet that the kernel is just delivering to its sockets may still pass
  /// by the former one. Throws std::system_error, and the former program stays.
  void filterIs(FilterProgram program);
  /// Packets that found the receive buffer full since the socket was opened, modulo 2^32. A kernel may count
  /// those too that the program would drop, since a full socket is not asked (Linux 6.18 does). If the kernel
  /// doesn't answer, it is the number that it gave last; 0 before the first.
  U32 lost();
  /// Sends what an IPv4 packet carries to where its header says, with the header's source, TTL and type of
  /// service; what is longer than the MTU goes in fragments. Returns whether the kernel took it.
  bool send(std::span<U8 const> packet);
  /// The system's message for the last packet that the kernel didn't send; empty without one.
  std::string lastError() const;
  /// Forgets it.
  void clearLastError() { error_ = 0; }

 protected:
  /// Receives nothing before it has a program. Throws std::system_error, with what is needed, if there can be
  /// no such socket.
  PimSocketBase();

  void option(int level, int name, int value, char const* what);
  /// Receives what is sent along this interface to 224.0.0.13 alone.
  void bindToGroup(std::string const& interface, int index);
  void sendAlong(int interfaceIndex) { interfaceIndex_ = interfaceIndex; }
  /// Drops what came in before the socket had a program, and may be anything.
  void dropWaiting();

 private:
  FileDescriptor fd_;
  int interfaceIndex_ = 0;  ///< of the interface to send along; 0 leaves that to the routes
  int error_ = 0;
  U32 lost_ = 0;  ///< as the kernel counted last
};

/// The socket of one interface: takes what is sent there to 224.0.0.13, and sends along it packets
/// that no socket of this system receives. Each interface has one of its own, since a socket can join but a
/// few links (net.ipv4.igmp_max_memberships). It follows its interface when that is renamed; when the
/// interface is gone, nothing comes or goes any more, also with another interface of the same name.
class PimSocket : public PimSocketBase {
 public:
  /// Throws std::system_error, which names the interface.
  PimSocket(std::string const& interface, int index, FilterProgram const& filter = passPim());
};

/// Receives packets that are sent along one interface to 224.0.0.13, which a PimSocket has joined there. It
/// has a receive buffer of its own, and sends nothing.
class ListenSocket : public PimSocketBase {
 public:
  /// Packets of all senders. Throws std::system_error, which names the interface.
  ListenSocket(std::string const& interface, int index, FilterProgram const& filter);
  /// Packets of one sender alone. The kernel compares the sender before it looks at the socket any further,
  /// so that packets of others cost little. Throws std::system_error, also for what can be no sender's
  /// address.
  ListenSocket(std::string const& interface, int index, Lanet::IpAddr sender);
};

/// The socket for packets to addresses of this system on any interface, and for packets sent by the routes.
class UnicastSocket : public PimSocketBase {
 public:
  /// Throws std::system_error.
  UnicastSocket(FilterProgram const& filter = passUnicast());
};

}  // namespace pimbsr::agent
