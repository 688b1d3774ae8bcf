#include "agent/kernel/Netlink.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace pimbsr::agent {

using Bytes = std::span<U8 const>;
using Clock = std::chrono::steady_clock;

/// Twice the length of the kernel's longest datagram.
static constexpr std::size_t maxDatagramLength = 65536;
/// Maximum number of notices applied in one read(), so that a flood of them doesn't block the loop.
static constexpr int noticesAtOnce = 10000;
/// Maximum number of requests while the tables keep changing during the answers.
static constexpr int attempts = 5;
/// The kernel answers within the request's call; a longer delay must not block the timers.
static constexpr std::chrono::seconds patience{2};
/// The same for one route.
static constexpr std::chrono::milliseconds routePatience{10};

void CloseNetlink::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

[[noreturn]] static void fail(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

static mnl_socket* openSocket() {
  mnl_socket* socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket == nullptr) fail("opening netlink, for the kernel's interfaces and routes");
  return socket;
}

/// Joins the groups of notices before the first request, so that no change is missed.
Netlink::Netlink(int receiveBuffer)
    : notices_(openSocket()), answers_(openSocket()), buffer_(maxDatagramLength) {
  setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);  // less will do
  unsigned groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
  if (mnl_socket_bind(notices_.get(), groups, MNL_SOCKET_AUTOPID) < 0 ||
      mnl_socket_bind(answers_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
    fail("binding netlink, for the kernel's interfaces and routes");
  }
  if (!askAnew()) fail("asking the kernel for its interfaces and addresses");
}

int Netlink::fd() const { return mnl_socket_get_fd(notices_.get()); }

bool Netlink::read() {
  followNotices();
  return isStale_ && askAnew().value_or(false);
}

// Datagrams ---------------------------------------------------------------------------------------------

/// Takes a datagram that waits; empty, with errno, if there is none. Only the kernel is listened to.
static std::optional<Bytes> receive(mnl_socket const* socket, std::vector<U8>& buffer) {
  for (;;) {
    sockaddr_nl sender{};
    socklen_t senderSize = sizeof sender;
    ssize_t length = recvfrom(mnl_socket_get_fd(socket), buffer.data(), buffer.size(), MSG_TRUNC,
                              reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return {};
    if (sender.nl_pid != 0) continue;
    if (static_cast<std::size_t>(length) <= buffer.size()) return Bytes(buffer.data(), length);
    errno = ENOBUFS;  // as with any notice that was too much
    return {};
  }
}

/// Calls `handle` with each whole message of a datagram.
template <class Handle>
static void forEachMessage(Bytes datagram, Handle handle) {
  int left = static_cast<int>(datagram.size());
  auto const* message = reinterpret_cast<nlmsghdr const*>(datagram.data());
  for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) handle(*message);
}

/// After an overrun the kernel sends no notices until all waiting ones are read; so these are finite, and are
/// read to the last one before the next request. Their contents are in its answer.
void Netlink::followNotices() {
  bool isOverrun = false;
  for (int i = 0; i < noticesAtOnce || isOverrun; ++i) {
    std::optional<Bytes> datagram = receive(notices_.get(), buffer_);
    if (datagram && !isStale_) follow(*datagram);
    if (datagram) continue;
    if (errno != ENOBUFS) break;
    isOverrun = isStale_ = true;
  }
}

void Netlink::follow(Bytes datagram) {
  forEachMessage(datagram, [&](nlmsghdr const& message) {
    if (tables_.isChangedBy(message)) isStale_ = true;
  });
}

// Questions and answers ---------------------------------------------------------------------------------

/// Requests links first: of an address that is added meanwhile the notice follows. Returns whether the view
/// has changed, and nothing if the kernel failed to answer.
std::optional<bool> Netlink::askAnew() {
  Answer answer = Answer::interrupted;
  KernelRecords records;
  auto until = Clock::now() + patience;
  for (int i = 0; i < attempts && answer == Answer::interrupted; ++i) {
    records = {};
    answer = Answer::complete;
    for (U16 type : {RTM_GETLINK, RTM_GETADDR}) {
      Answer one = ask(type, records, until);
      if (one == Answer::failed) return {};
      if (one == Answer::interrupted) answer = one;
    }
  }
  // Tables that kept changing are nearly up to date, which is better than the former view.
  isStale_ = answer != Answer::complete;
  return tables_.replace(std::move(records));
}

void Netlink::discardAnswers(Clock::time_point until) const {
  while (receive(answers_.get(), buffer_) && Clock::now() < until) {
    // The rest of an answer that timed out would keep the kernel from sending another one.
  }
}

Netlink::Answer Netlink::ask(U16 type, KernelRecords& records, Clock::time_point until) {
  discardAnswers(until);
  if (!sendRequest(type)) return Answer::failed;
  Answer answer = Answer::complete;
  for (bool isDone = false; !isDone && answer != Answer::failed;) {
    if (!waitForAnswer(until)) return Answer::failed;
    if (auto datagram = receive(answers_.get(), buffer_)) {
      isDone = takeAnswer(*datagram, records, answer);
    } else if (errno != EAGAIN) {
      return Answer::failed;
    }
  }
  return answer;
}

bool Netlink::sendRequest(U16 type) {
  alignas(nlmsghdr) std::array<char, 128> buffer{};
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = type;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = ++sequence_;
  if (type == RTM_GETLINK) {
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    mnl_attr_put_u32(request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  } else {
    auto* fixed = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifaddrmsg)));
    fixed->ifa_family = AF_INET;
  }
  return mnl_socket_sendto(answers_.get(), request, request->nlmsg_len) >= 0;
}

/// False, with errno, if the time is over.
bool Netlink::waitForAnswer(Clock::time_point until) const {
  using Milliseconds = std::chrono::duration<int, std::milli>;
  auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now());
  pollfd waiting{.fd = mnl_socket_get_fd(answers_.get()), .events = POLLIN, .revents = 0};
  int ready = poll(&waiting, 1, std::max(left.count(), 0));
  if (ready == 0) errno = ETIMEDOUT;
  return ready > 0 || (ready < 0 && errno == EINTR);
}

/// The result that the kernel reports: 0, or a negated errno.
static int resultIn(nlmsghdr const& message) {
  int result = 0;
  if (mnl_nlmsg_get_payload_len(&message) < sizeof result) return 0;
  std::memcpy(&result, mnl_nlmsg_get_payload(&message), sizeof result);
  return result;
}

/// Returns whether the answer ends here.
bool Netlink::takeAnswer(Bytes datagram, KernelRecords& records, Answer& answer) const {
  bool isDone = false;
  forEachMessage(datagram, [&](nlmsghdr const& message) {
    if (message.nlmsg_seq != sequence_ || isDone) return;
    if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) answer = Answer::interrupted;
    isDone = message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR;
    if (!isDone) return records.add(message);
    if (int result = resultIn(message); result < 0) {
      errno = -result;
      answer = Answer::failed;
    }
  });
  return isDone;
}

// One route ---------------------------------------------------------------------------------------------

bool Netlink::sendRouteRequest(Lanet::IpAddr address) const {
  alignas(nlmsghdr) std::array<char, 128> buffer{};
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = RTM_GETROUTE;
  request->nlmsg_flags = NLM_F_REQUEST;
  request->nlmsg_seq = ++sequence_;
  auto* fixed = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
  fixed->rtm_family = AF_INET;
  fixed->rtm_dst_len = 32;
  mnl_attr_put_u32(request, RTA_DST, address.netWord());
  return mnl_socket_sendto(answers_.get(), request, request->nlmsg_len) >= 0;
}

/// The answer to the last request; a record without a route if it is that there is none. Nothing if the
/// datagram has none.
std::optional<RouteRecord> Netlink::routeIn(Bytes datagram) const {
  std::optional<RouteRecord> found;
  forEachMessage(datagram, [&](nlmsghdr const& message) {
    if (message.nlmsg_seq != sequence_) return;
    if (message.nlmsg_type == RTM_NEWROUTE) found = readRoute(message);
    if (message.nlmsg_type == NLMSG_ERROR) found = RouteRecord();
  });
  return found;
}

::Slosh::Fib::Route Netlink::routeTo(Lanet::IpAddr address) const {
  auto until = Clock::now() + routePatience;
  discardAnswers(until);
  if (!sendRouteRequest(address)) return {};
  while (waitForAnswer(until)) {
    std::optional<Bytes> datagram = receive(answers_.get(), buffer_);
    if (!datagram) continue;
    std::optional<RouteRecord> record = routeIn(*datagram);
    if (!record) continue;
    ::Slosh::Fib::Route route{
        .type = record->type, .intfId = tables_.nameOf(record->interfaceIndex), .metric = record->metric};
    if (record->nextHop != Lanet::IpAddr()) route.nextHop = Lanet::IpGenAddr(record->nextHop);
    return route;
  }
  return {};
}

}  // namespace pimbsr::agent
