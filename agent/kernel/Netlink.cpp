#include "agent/kernel/Netlink.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace pimbsr::agent {

using Bytes = std::span<U8 const>;
using Clock = std::chrono::steady_clock;

/// Twice the length of the kernel's longest datagram.
static constexpr std::size_t maxDatagramLength = 65536;
/// Maximum number of notices applied in one read(), so that a flood of them doesn't block the loop.
static constexpr int noticesAtOnce = 500;
/// Maximum number of requests in a row while the tables keep changing during the answers.
static constexpr int attempts = 5;
/// The kernel has an answer ready when it gets the request, and the next part when one is taken.
static constexpr std::chrono::seconds patience{2};
/// Time until the next request after the kernel didn't answer.
static constexpr std::chrono::seconds retryDelay{1};
/// Time for the answer for one route.
static constexpr std::chrono::milliseconds routePatience{10};

void CloseNetlink::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

[[noreturn]] static void fail(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

static mnl_socket* openSocket(unsigned groups) {
  mnl_socket* socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket == nullptr) fail("opening netlink, for the kernel's interfaces and routes");
  if (mnl_socket_bind(socket, groups, MNL_SOCKET_AUTOPID) >= 0) return socket;
  int error = errno;
  mnl_socket_close(socket);
  errno = error;
  fail("binding netlink, for the kernel's interfaces and routes");
}

/// Joins the groups of notices before the first request, so that no change is missed.
Netlink::Netlink(int receiveBuffer, Duration piece)
    : notices_(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR)),
      answers_(openSocket(0)),
      routes_(openSocket(0)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      piece_(piece),
      buffer_(maxDatagramLength) {
  if (!timer_ || !epoll_) fail("waiting for the kernel's interfaces");
  int notices = mnl_socket_get_fd(notices_.get());
  setsockopt(notices, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);  // less will do
  for (int fd : {notices, mnl_socket_get_fd(answers_.get()), timer_.get()}) watch(fd);
  if (!readAtOnce()) fail("asking the kernel for its interfaces and addresses");
}

void Netlink::watch(int fd) {
  epoll_event wanted{.events = EPOLLIN, .data = {.fd = fd}};
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) < 0) fail("waiting for the kernel's interfaces");
}

bool Netlink::read() {
  followNotices();
  if (isDue()) startReading(1);
  bool isChanged = reading_ && readPiece();
  armTimer();
  return isChanged;
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

/// Waits for one. False, with errno, if the time is over.
static bool awaitDatagram(mnl_socket const* socket, Clock::time_point until) {
  using Milliseconds = std::chrono::duration<int, std::milli>;
  auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now());
  pollfd waiting{.fd = mnl_socket_get_fd(socket), .events = POLLIN, .revents = 0};
  int ready = poll(&waiting, 1, std::max(left.count(), 0));
  if (ready == 0) errno = ETIMEDOUT;
  return ready > 0 || (ready < 0 && errno == EINTR);
}

/// Takes what waits: the rest of an answer that was given up would keep the kernel from sending another one.
static void discardDatagrams(mnl_socket const* socket, std::vector<U8>& buffer, Clock::time_point until) {
  while (receive(socket, buffer) && Clock::now() < until) {
  }
}

// Notices -----------------------------------------------------------------------------------------------

/// After an overrun the kernel sends no notices until all waiting ones are taken; so these are finite, and
/// are taken to the last one before the next request. Its answer has all that they say.
void Netlink::followNotices() {
  for (int i = 0; i < noticesAtOnce; ++i) {
    std::optional<Bytes> datagram = receive(notices_.get(), buffer_);
    if (datagram && !isStale_) follow(*datagram);
    if (datagram) continue;
    if (errno != ENOBUFS) {
      isOverrun_ = false;
      return;
    }
    isOverrun_ = isStale_ = true;
  }
}

/// While an answer is read, its parts are from before the change or from after it: nothing is compared.
void Netlink::follow(Bytes datagram) {
  forEachMessage(datagram, [&](nlmsghdr const& message) {
    bool isChange = reading_ ? KernelTables::mayBeChangedBy(message) : tables_.isChangedBy(message);
    isStale_ = isStale_ || isChange;
  });
}

// Answers -----------------------------------------------------------------------------------------------

/// May wait: the caller has just made this object and serves nothing else yet. There always is a link, the
/// loopback.
bool Netlink::readAtOnce() {
  startReading(1);
  bool isChanged = false;
  while (reading_ && awaitDatagram(answers_.get(), reading_->until)) isChanged = readPiece();
  armTimer();
  return isChanged;
}

bool Netlink::isDue() const { return isStale_ && !isOverrun_ && !reading_ && Clock::now() >= restUntil_; }

/// Requests links first: of an address that is added meanwhile the notice follows.
void Netlink::startReading(int attempt) {
  Clock::time_point now = Clock::now();
  isStale_ = isOverrun_;
  reading_.emplace(Reading{.begin = now, .until = now + patience, .attempt = attempt});
  discardDatagrams(answers_.get(), buffer_, now + piece_);
  request(RTM_GETLINK);
}

void Netlink::request(Zet::U16 table) {
  reading_->table = table;
  reading_->answer = KernelAnswer(sequence_ + 1);
  if (!sendRequest(table)) giveUp();
}

bool Netlink::sendRequest(Zet::U16 type) {
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

/// Returns whether the view has changed.
bool Netlink::readPiece() {
  Clock::time_point end = Clock::now() + piece_;
  do {
    std::optional<Bytes> datagram = receive(answers_.get(), buffer_);
    if (!datagram) {
      if (errno != EAGAIN || Clock::now() >= reading_->until) giveUp();
      return false;
    }
    if (take(*datagram)) return true;
  } while (reading_ && Clock::now() < end);
  return false;
}

/// Returns whether the view has changed.
bool Netlink::take(Bytes datagram) {
  switch (reading_->answer.take(datagram, reading_->records)) {
    case KernelAnswer::State::complete:
      return finishTable();
    case KernelAnswer::State::failed:
      errno = reading_->answer.error();
      giveUp();
      return false;
    default:
      return false;
  }
}

bool Netlink::finishTable() {
  reading_->isInterrupted = reading_->isInterrupted || reading_->answer.isInterrupted();
  if (reading_->table == RTM_GETADDR) return finishReading();
  request(RTM_GETADDR);
  return false;
}

/// Tables that kept changing are nearly up to date, which is better than the former view.
bool Netlink::finishReading() {
  if (reading_->isInterrupted && reading_->attempt < attempts) {
    startReading(reading_->attempt + 1);
    return false;
  }
  Clock::time_point now = Clock::now();
  restUntil_ = now + std::min<Duration>(now - reading_->begin, maxRest);
  isStale_ = isStale_ || reading_->isInterrupted;
  KernelRecords records = std::move(reading_->records);
  reading_.reset();
  return tables_.replace(std::move(records));
}

/// The kernel has not answered, and is asked again later.
void Netlink::giveUp() {
  reading_.reset();
  isStale_ = true;
  restUntil_ = Clock::now() + retryDelay;
}

/// For the time that the kernel has for its answer, or that of the next request.
void Netlink::armTimer() {
  Clock::time_point wanted{};
  if (isStale_) wanted = restUntil_;
  if (reading_) wanted = reading_->until;
  if (std::exchange(timerAt_, wanted) == wanted) return;
  auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(wanted.time_since_epoch()).count();
  itimerspec time{};
  time.it_value = {.tv_sec = since / 1'000'000'000, .tv_nsec = since % 1'000'000'000};
  timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
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
  return mnl_socket_sendto(routes_.get(), request, request->nlmsg_len) >= 0;
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

std::optional<::Slosh::Fib::Route> Netlink::routeTo(Lanet::IpAddr address) const {
  auto until = Clock::now() + routePatience;
  discardDatagrams(routes_.get(), buffer_, until);
  if (!sendRouteRequest(address)) return std::nullopt;
  while (awaitDatagram(routes_.get(), until)) {
    std::optional<Bytes> datagram = receive(routes_.get(), buffer_);
    if (!datagram) continue;
    std::optional<RouteRecord> record = routeIn(*datagram);
    if (!record) continue;
    ::Slosh::Fib::Route route{
        .type = record->type, .intfId = tables_.nameOf(record->interfaceIndex), .metric = record->metric};
    if (record->nextHop != Lanet::IpAddr()) route.nextHop = Lanet::IpGenAddr(record->nextHop);
    return route;
  }
  return std::nullopt;
}

}  // namespace pimbsr::agent
