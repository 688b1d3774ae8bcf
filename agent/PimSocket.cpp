#include "agent/PimSocket.h"

#include <fmt/format.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "model/Lanet.h"
#include "runtime/Assert.h"
#include "wire/Wire.h"

namespace pimbsr::agent {

static constexpr int protocolPim = 103;
static constexpr int routingTraffic = 0xc0;  // CS6
static constexpr Lanet::IpAddr allPimRouters = Lanet::IpAddr::fromHost(0xe000000d);
/// Room for a burst of a thousand messages or so, if the kernel allows it (net.core.rmem_max).
static constexpr int receiveBuffer = 1 << 20;

// Opening -----------------------------------------------------------------------------------------------

[[noreturn]] static void fail(std::string const& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// IP_TRANSPARENT lets a farewell leave from an address that the interface has just lost.
PimSocketBase::PimSocketBase(Destinations taken)
    : fd_(socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, protocolPim)) {
  if (!fd_) fail("opening a raw socket for PIM, which needs root or CAP_NET_RAW");
  filter(taken);
  option(IPPROTO_IP, IP_MULTICAST_ALL, 0, "leaving out the groups of other sockets");
  option(IPPROTO_IP, IP_PKTINFO, 1, "asking for the interface of packets");
  option(IPPROTO_IP, IP_TOS, routingTraffic, "setting the type of service");
  option(IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT, "allowing fragments");
  option(IPPROTO_IP, IP_TRANSPARENT, 1, "allowing former addresses as source");
  option(SOL_SOCKET, SO_RCVBUF, receiveBuffer, "enlarging the receive buffer");
}

void PimSocketBase::option(int level, int name, int value, char const* what) {
  if (setsockopt(fd(), level, name, &value, sizeof value) < 0) fail(fmt::format("PIM socket: {}", what));
}

/// Looks at the first byte of the destination, at 16 in the header: that of groups is 224 to 239. Broadcasts
/// count as sent to an address; the router knows that they are none of its own. Then at the first byte behind
/// the header, version and type: Hello, Bootstrap and Candidate-RP-Advertisement pass, and whatever is no PIM
/// of version 2, which is to be counted. The Registers and Join/Prunes of a domain are left to others, and
/// don't even wake this process.
void PimSocketBase::filter(Destinations taken) {
  constexpr Zet::U32 all = 0xffffffff;
  bool groups = taken == Destinations::groups;
  Zet::U8 passGroups = groups ? 1 : 0;
  Zet::U8 passOthers = groups ? 0 : 1;
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 16),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xf0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0xe0, passGroups, passOthers),
      BPF_STMT(BPF_RET | BPF_K, 0),
      BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
      BPF_STMT(BPF_LD | BPF_B | BPF_IND, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x20, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x24, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x28, 2, 0),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xf0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x20, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, all),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  sock_fprog program{.len = std::size(steps), .filter = steps};
  if (setsockopt(fd(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) < 0)
    fail("PIM socket: attaching a packet filter");
}

void PimSocketBase::dropWaiting() {
  char byte = 0;
  while (recv(fd(), &byte, 1, MSG_TRUNC) >= 0) {
  }
}

PimSocket::PimSocket(std::string const& interface, int index) : PimSocketBase(Destinations::groups) {
  sendAlong(index);
  ip_mreqn group{};
  group.imr_multiaddr.s_addr = allPimRouters.netWord();
  group.imr_ifindex = index;
  if (setsockopt(fd(), SOL_SOCKET, SO_BINDTOIFINDEX, &index, sizeof index) < 0)
    fail(fmt::format("binding a PIM socket to {}", interface));
  dropWaiting();
  if (setsockopt(fd(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) < 0)
    fail(fmt::format("joining 224.0.0.13 on {}", interface));
  if (setsockopt(fd(), IPPROTO_IP, IP_MULTICAST_IF, &group, sizeof group) < 0)
    fail(fmt::format("sending to groups along {}", interface));
  option(IPPROTO_IP, IP_MULTICAST_TTL, 1, "setting the TTL");
  option(IPPROTO_IP, IP_MULTICAST_LOOP, 0, "keeping packets from coming back");
}

UnicastSocket::UnicastSocket() : PimSocketBase(Destinations::addresses) { dropWaiting(); }

// Receiving ---------------------------------------------------------------------------------------------

bool PimSocketBase::receive(Received& received) {
  iovec room{received.room->data(), received.room->size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control;
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t size = -1;
  do {
    size = recvmsg(fd(), &message, 0);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return false;
  received.packet = {received.room->data(), static_cast<std::size_t>(size)};
  received.interfaceIndex = 0;
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO) continue;
    in_pktinfo info{};
    std::memcpy(&info, CMSG_DATA(part), sizeof info);
    received.interfaceIndex = info.ipi_ifindex;
  }
  return true;
}

// Sending -----------------------------------------------------------------------------------------------

namespace {

/// What is told along with one packet that is sent.
class Control {
 public:
  explicit Control(msghdr& message) : message_(message) {
    message.msg_control = room_.data();
    message.msg_controllen = room_.size();
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
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo)) + 2 * CMSG_SPACE(sizeof(int))> room_{};
  msghdr& message_;
  cmsghdr* next_ = nullptr;
};

}  // namespace

/// The kernel makes a header of its own, since only so it cuts what is too long into fragments.
bool PimSocketBase::send(std::span<U8 const> packet) {
  wire::Outcome<wire::Ipv4Packet> parsed = wire::parseIpv4(packet);
  ZET_ASSERT(parsed, "the router sends IPv4 packets of PIM");
  sockaddr_in destination{};
  destination.sin_family = AF_INET;
  destination.sin_addr.s_addr = parsed->destination.netWord();
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
  error_ = sent < 0 ? errno : 0;
  return sent >= 0;
}

std::string PimSocketBase::lastError() const {
  return error_ == 0 ? "" : std::generic_category().message(error_);
}

}  // namespace pimbsr::agent
