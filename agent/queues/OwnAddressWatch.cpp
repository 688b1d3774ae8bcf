#include "agent/queues/OwnAddressWatch.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>
#include <utility>

#include "agent/base/Log.h"

namespace pimbsr::agent {

using Lanet::IpAddr;
using Zet::U16;
using Zet::U32;
using Zet::U8;

namespace {

/// Bytes of a packet up to the end of its source address (RFC 791 section 3.1).
constexpr std::size_t headLength = 16;
constexpr U32 protocolOffset = 9;
constexpr std::size_t sourceOffset = 12;
/// Bytes; for few packets.
constexpr int receiveBuffer = 1 << 14;

sock_filter step(unsigned code, U32 value) { return {static_cast<U16>(code), 0, 0, value}; }

/// Goes on with the next step but one if the loaded value is another.
sock_filter skipUnless(U32 value) { return {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, value}; }

/// Most packets of a link end at the second step. The packets that this system sends itself come by, too.
std::vector<sock_filter> programOf(std::span<IpAddr const> sources) {
  sock_filter const drop = step(BPF_RET | BPF_K, 0);
  sock_filter const pass = step(BPF_RET | BPF_K, headLength);
  std::vector<sock_filter> program = {
      step(BPF_LD | BPF_B | BPF_ABS, protocolOffset),
      {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, IPPROTO_PIM},
      drop,
      step(BPF_LD | BPF_B | BPF_ABS, static_cast<U32>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
      skipUnless(PACKET_OUTGOING),
      drop,
      skipUnless(PACKET_LOOPBACK),
      drop,
      step(BPF_LD | BPF_W | BPF_ABS, sourceOffset)};
  for (IpAddr source : sources) program.insert(program.end(), {skipUnless(source.hostWord()), pass});
  program.push_back(drop);
  return program;
}

std::string hardwareAddressOf(sockaddr_ll const& sender) {
  std::size_t length = std::min<std::size_t>(sender.sll_halen, sizeof sender.sll_addr);
  return fmt::format("{:02x}", fmt::join(std::span(sender.sll_addr).first(length), ":"));
}

}  // namespace

OwnAddressWatch::OwnAddressWatch(Loop& loop, Found found)
    : loop_(loop), found_(std::move(found)), rest_(loop, [this] { watch(); }) {
  try {
    open();
    watch();
  } catch (std::system_error const& error) {
    socket_ = FileDescriptor();
    logLine(fmt::format("other systems with an address of this one are not found: {}", error.what()));
  }
}

[[noreturn]] static void fail(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Without a protocol the socket receives nothing until it has its filter.
void OwnAddressWatch::open() {
  socket_ = FileDescriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket_) fail("packet socket");
  filterIs({});
  setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  sockaddr_ll all{};
  all.sll_family = AF_PACKET;
  all.sll_protocol = htons(ETH_P_IP);
  if (bind(socket_.get(), reinterpret_cast<sockaddr const*>(&all), sizeof all) < 0)
    fail("packet socket: bind");
}

void OwnAddressWatch::filterIs(std::vector<IpAddr> const& addresses) {
  std::vector<sock_filter> program = programOf(addresses);
  sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  if (setsockopt(socket_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) < 0)
    fail("packet socket: filter");
}

/// A filter that can't be exchanged stays, and is tried again with the next change.
void OwnAddressWatch::addressesAre(std::vector<IpAddr> const& addresses) {
  std::vector<IpAddr> wanted(addresses.begin(), addresses.begin() + std::min(addresses.size(), maxAddresses));
  if (!socket_ || wanted == addresses_) return;
  try {
    filterIs(wanted);
    addresses_ = std::move(wanted);
  } catch (std::system_error const& error) {
    logLine(fmt::format("other systems with an address of this one: {}", error.what()));
  }
}

void OwnAddressWatch::watch() {
  reader_ = std::make_unique<LoopReader>(loop_, socket_.get(), [this] { take(); });
}

bool OwnAddressWatch::receive(std::vector<OwnAddressUse>& uses) {
  std::array<U8, headLength> head{};
  sockaddr_ll sender{};
  socklen_t size = sizeof sender;
  ssize_t got =
      recvfrom(socket_.get(), head.data(), head.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
  if (got < static_cast<ssize_t>(head.size())) return got >= 0;
  U32 source = 0;
  std::memcpy(&source, head.data() + sourceOffset, sizeof source);
  IpAddr address = IpAddr::fromNet(source);
  auto isSame = [&](OwnAddressUse const& use) {
    return use.interfaceIndex == sender.sll_ifindex && use.address == address;
  };
  auto use = std::find_if(uses.begin(), uses.end(), isSame);
  if (use == uses.end())
    use = uses.insert(uses.end(), {.interfaceIndex = sender.sll_ifindex, .address = address});
  use->hardwareAddress = hardwareAddressOf(sender);
  ++use->packets;
  return true;
}

/// The socket is not polled for a moment then, so that a flood does not wake the process again and again.
void OwnAddressWatch::take() {
  std::vector<OwnAddressUse> uses;
  for (int i = 0; i < maxPackets && receive(uses); ++i) {
  }
  reader_ = nullptr;
  rest_.startIn(restTime);
  for (OwnAddressUse const& use : uses) found_(use);
}

}  // namespace pimbsr::agent
