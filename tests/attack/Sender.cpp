#include "tests/attack/Sender.h"

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <system_error>
#include <thread>

namespace attack {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

static constexpr U64 batchSize = 64;
static constexpr double maxSleep = 0.005;  // so that the end is noticed, and lateness measured

U64 Pacer::take(double elapsed) {
  if (rate_ == 0) return batch_;
  auto const due = static_cast<U64>(std::max(0.0, elapsed) * rate_) + 1;
  U64 const now = due > sent_ ? std::min(due - sent_, batch_) : 0;
  sent_ += now;
  return now;
}

namespace {

[[noreturn]] void fail(char const* what) { throw std::system_error(errno, std::generic_category(), what); }

/// A packet socket that sends along one interface and receives nothing.
class LinkSocket {
 public:
  explicit LinkSocket(std::string const& interface) : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) fail("opening a packet socket");
    int const one = 1;
    setsockopt(fd_, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof one);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (address.sll_ifindex == 0) fail(interface.c_str());
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) fail("binding to an interface");
  }
  ~LinkSocket() { close(fd_); }
  LinkSocket(LinkSocket const&) = delete;
  LinkSocket& operator=(LinkSocket const&) = delete;

  /// Sends some of the messages; returns how many the kernel took.
  U64 send(std::span<mmsghdr> messages) {
    int const sent = sendmmsg(fd_, messages.data(), static_cast<unsigned>(messages.size()), 0);
    if (sent >= 0) return static_cast<U64>(sent);
    if (errno != ENOBUFS && errno != EINTR && errno != EAGAIN) fail("sending");
    return 0;
  }

 private:
  int fd_;
};

/// The next frames as the kernel wants them, from the first again after the last.
class Batch {
 public:
  explicit Batch(std::span<Frame const> frames) : frames_(frames) {}

  std::span<mmsghdr> fill(U64 count) {
    for (U64 i = 0; i < count; ++i) {
      Frame const& frame = frames_[(next_ + i) % frames_.size()];
      parts_[i] = {const_cast<U8*>(frame.data()), frame.size()};  // which is only read
      messages_[i] = {};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
    return {messages_.data(), count};
  }
  /// Goes on after so many of them; returns their bytes.
  U64 advance(U64 count) {
    U64 bytes = 0;
    for (U64 i = 0; i < count; ++i) bytes += parts_[i].iov_len;
    next_ = (next_ + count) % frames_.size();
    return bytes;
  }

 private:
  std::span<Frame const> frames_;
  U64 next_ = 0;
  std::array<iovec, batchSize> parts_;
  std::array<mmsghdr, batchSize> messages_;
};

}  // namespace

/// Sleeps until `until` seconds after the start, but not for long; returns how late this process woke.
static double sleepUntil(Clock::time_point start, double until, double elapsed) {
  double const wake = std::min(until, elapsed + maxSleep);
  if (wake <= elapsed) return 0;
  std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(Seconds(wake)));
  return Seconds(Clock::now() - start).count() - wake;
}

static Sent idle(double seconds) {
  Sent sent;
  Clock::time_point const start = Clock::now();
  for (double elapsed = 0; elapsed < seconds; elapsed = Seconds(Clock::now() - start).count())
    sent.worstLateness = std::max(sent.worstLateness, sleepUntil(start, seconds, elapsed));
  sent.seconds = Seconds(Clock::now() - start).count();
  return sent;
}

Sent send(std::string const& interface, std::span<Frame const> frames, double rate, double seconds, U64 max) {
  if (frames.empty()) return idle(seconds);
  LinkSocket link(interface);
  Batch batch(frames);
  Pacer pacer(rate, batchSize);
  Sent sent;
  U64 const bound = max == 0 ? std::numeric_limits<U64>::max() : max;
  Clock::time_point const start = Clock::now();
  for (double elapsed = 0; elapsed < seconds && sent.packets < bound;) {
    U64 left = std::min(pacer.take(elapsed), bound - sent.packets);
    while (left != 0) {
      U64 const taken = link.send(batch.fill(left));
      sent.bytes += batch.advance(taken);
      sent.packets += taken;
      left -= taken;
    }
    elapsed = Seconds(Clock::now() - start).count();
    sent.worstLateness = std::max(sent.worstLateness, sleepUntil(start, pacer.next(), elapsed));
    elapsed = Seconds(Clock::now() - start).count();
  }
  sent.seconds = Seconds(Clock::now() - start).count();
  return sent;
}

}  // namespace attack
