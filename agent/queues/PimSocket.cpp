#include "agent/queues/PimSocket.h"

#include <fmt/format.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>

#include "model/Lanet.h"
#include "runtime/Assert.h"
#include "wire/Wire.h"

namespace pimbsr::agent {

static constexpr int routingTraffic = 0xc0;  // CS6
/// Bytes; for a burst of about a thousand messages, if the kernel allows it (net.core.rmem_max).
static constexpr int receiveBuffer = 1 << 20;

// Opening -----------------------------------------------------------------------------------------------

[[noreturn]] static void fail(std::string const& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

static sockaddr_in socketAddress(Lanet::IpAddr address) {
  sockaddr_in end{};
  end.sin_family = AF_INET;
  end.sin_addr.s_addr = address.netWord();
  return end;
}

/// The kernel adds its interface to a packet before it asks the filter, and does so only once IP_PKTINFO is
/// set. So a packet that found no filter has none, also if it is stored later than all that follows here.
///
/// IP_TRANSPARENT lets a goodbye Hello leave from an address that the interface has just lost.
PimSocketBase::PimSocketBase() : fd_(socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_PIM)) {
  if (!fd_) fail("opening a raw socket for PIM, which needs root or CAP_NET_RAW");
  filterIs(passNothing());
  option(IPPROTO_IP, IP_MULTICAST_ALL, 0, "leaving out the groups of other sockets");
  option(IPPROTO_IP, IP_PKTINFO, 1, "asking for the interface of packets");
  option(IPPROTO_IP, IP_TOS, routingTraffic, "setting the type of service");
  option(IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT, "allowing fragments");
  option(IPPROTO_IP, IP_TRANSPARENT, 1, "allowing former addresses as source");
  option(SOL_SOCKET, SO_RCVBUF, receiveBuffer, "enlarging the receive buffer");
  option(SOL_SOCKET, SO_TIMESTAMPNS, 1, "asking for the time of packets");
}

void PimSocketBase::option(int level, int name, int value, char const* what) {
  if (setsockopt(fd(), level, name, &value, sizeof value) < 0) fail(fmt::format("PIM socket: {}", what));
}

void PimSocketBase::filterIs(FilterProgram program) {
  sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  if (setsockopt(fd(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) < 0)
    fail("PIM socket: attaching a packet filter");
}

/// The group's address as text.
static std::string allPimRouters() { return std::string(Lanet::allPimRouters.stringValue().view()); }

/// The kernel compares what a socket is bound and connected to before it copies a packet for it.
void PimSocketBase::bindToGroup(std::string const& interface, int index) {
  if (setsockopt(fd(), SOL_SOCKET, SO_BINDTOIFINDEX, &index, sizeof index) < 0)
    fail(fmt::format("binding a PIM socket to {}", interface));
  sockaddr_in group = socketAddress(Lanet::allPimRouters);
  if (bind(fd(), reinterpret_cast<sockaddr const*>(&group), sizeof group) < 0)
    fail(fmt::format("binding a PIM socket to {} on {}", allPimRouters(), interface));
}

void PimSocketBase::dropWaiting() {
  char byte = 0;
  while (recv(fd(), &byte, 1, MSG_TRUNC) >= 0) {
  }
}

PimSocket::PimSocket(std::string const& interface, int index, FilterProgram const& filter) {
  sendAlong(index);
  bindToGroup(interface, index);
  dropWaiting();
  filterIs(filter);
  ip_mreqn group{};
  group.imr_multiaddr.s_addr = Lanet::allPimRouters.netWord();
  group.imr_ifindex = index;
  if (setsockopt(fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) < 0)
    fail(fmt::format("joining {} on {}", allPimRouters(), interface));
  if (setsockopt(fd(), IPPROTO_IP, IP_MULTICAST_IF, &group, sizeof group) < 0)
    fail(fmt::format("sending to groups along {}", interface));
  option(IPPROTO_IP, IP_MULTICAST_TTL, 1, "setting the TTL");
  option(IPPROTO_IP, IP_MULTICAST_LOOP, 0, "keeping packets from coming back");
}

ListenSocket::ListenSocket(std::string const& interface, int index, FilterProgram const& filter) {
  bindToGroup(interface, index);
  option(IPPROTO_IP, IP_MULTICAST_ALL, 1, "asking for the groups of other sockets");
  dropWaiting();
  filterIs(filter);
}

ListenSocket::ListenSocket(std::string const& interface, int index, Lanet::IpAddr sender)
    : ListenSocket(interface, index, passNothing()) {
  sockaddr_in end = socketAddress(sender);
  if (connect(fd(), reinterpret_cast<sockaddr const*>(&end), sizeof end) < 0)
    fail(fmt::format("receiving from {} on {}", sender.stringValue().view(), interface));
  filterIs(passPim());
}

UnicastSocket::UnicastSocket(FilterProgram const& filter) {
  dropWaiting();
  filterIs(filter);
}

// Receiving ---------------------------------------------------------------------------------------------

namespace {

/// The ancillary data of a received packet.
struct Details {
  explicit Details(msghdr& message) {
    message.msg_control = buffer.data();
    message.msg_controllen = buffer.size();
  }

  /// The detail of a kind; its default if the kernel added none.
  template <class Value>
  static Value get(msghdr& message, int level, int type) {
    Value value{};
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
      if (part->cmsg_level == level && part->cmsg_type == type)
        std::memcpy(&value, CMSG_DATA(part), sizeof value);
    }
    return value;
  }
  static U64 time(msghdr& message) {
    auto time = get<timespec>(message, SOL_SOCKET, SCM_TIMESTAMPNS);
    return static_cast<U64>(time.tv_sec) * 1'000'000'000 + static_cast<U64>(time.tv_nsec);
  }

  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(timespec))> buffer{};
};

/// Errors in a row that one call passes over.
constexpr int maxErrors = 16;

/// A connected socket also returns errors, each in place of a packet, for ICMP messages on it, which anyone
/// can send. They don't concern the waiting packets.
ssize_t receiveOrSkipErrors(int fd, msghdr& message, int flags) {
  msghdr const asked = message;
  for (int errors = 0; errors < maxErrors; ++errors) {
    message = asked;
    ssize_t size = recvmsg(fd, &message, flags);
    if (size >= 0 || errno == EAGAIN || errno == EWOULDBLOCK) return size;
  }
  return -1;
}

}  // namespace

bool PimSocketBase::receive(Received& received) {
  iovec buffer{received.buffer->data(), received.buffer->size()};
  msghdr message{};
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  Details details(message);
  ssize_t size = receiveOrSkipErrors(fd(), message, 0);
  if (size < 0) return false;
  received.packet = {received.buffer->data(), static_cast<std::size_t>(size)};
  received.interfaceIndex = Details::get<in_pktinfo>(message, IPPROTO_IP, IP_PKTINFO).ipi_ifindex;
  received.time = Details::time(message);
  return true;
}

std::optional<U64> PimSocketBase::nextTime() {
  msghdr message{};
  Details details(message);
  if (receiveOrSkipErrors(fd(), message, MSG_PEEK) < 0) return {};
  return Details::time(message);
}

/// Asked of the socket, since SO_RXQ_OVFL comes with the next packet alone, and there may be none. Without an
/// answer the last count stays: a lower one would count as almost 2^32 further losses.
U32 PimSocketBase::lost() {
  std::array<U32, SK_MEMINFO_VARS> counts{};
  socklen_t size = sizeof counts;
  if (getsockopt(fd(), SOL_SOCKET, SO_MEMINFO, counts.data(), &size) == 0) lost_ = counts[SK_MEMINFO_DROPS];
  return lost_;
}

// Sending -----------------------------------------------------------------------------------------------

namespace {

/// The ancillary data of a sent packet.
class Control {
 public:
  explicit Control(msghdr& message) : message_(message) {
    message.msg_control = buffer_.data();
    message.msg_controllen = buffer_.size();
    next_ = CMSG_FIRSTHDR(&message);
  }
  Control(Control const&) = delete;
  Control& operator=(Control const&) = delete;

  template <class Value>
  void add(int type, Value const& value) {
    next_->cmsg_level = IPPROTO_IP;
    next_->cmsg_type = type;
    next_->cmsg_len = CMSG_LEN(sizeof value);
    std::memcpy(CMSG_DATA(next_), &value, sizeof value);
    next_ = CMSG_NXTHDR(&message_, next_);
  }

 private:
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo)) + 2 * CMSG_SPACE(sizeof(int))> buffer_{};
  msghdr& message_;
  cmsghdr* next_ = nullptr;
};

}  // namespace

/// The kernel makes the header itself, since it fragments only packets whose header it made.
bool PimSocketBase::send(std::span<U8 const> packet) {
  wire::Outcome<wire::Ipv4Packet> parsed = wire::parseIpv4(packet);
  ZET_ASSERT(parsed, "the router sends IPv4 packets of PIM");
  sockaddr_in destination = socketAddress(parsed->destination);
  iovec payload{const_cast<U8*>(parsed->payload.data()), parsed->payload.size()};  // which is only read
  msghdr message{};
  message.msg_name = &destination;
  message.msg_namelen = sizeof destination;
  message.msg_iov = &payload;
  message.msg_iovlen = 1;
  in_pktinfo source{};
  source.ipi_ifindex = interfaceIndex_;
  source.ipi_spec_dst.s_addr = parsed->source.netWord();
  Control control(message);
  control.add(IP_PKTINFO, source);
  control.add(IP_TTL, int{parsed->ttl});
  control.add(IP_TOS, int{parsed->tos});
  ssize_t sent = -1;
  do {
    sent = sendmsg(fd(), &message, 0);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) error_ = errno;
  return sent >= 0;
}

std::string PimSocketBase::lastError() const {
  return error_ == 0 ? "" : std::generic_category().message(error_);
}

}  // namespace pimbsr::agent
