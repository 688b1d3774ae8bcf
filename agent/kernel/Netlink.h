#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/kernel/KernelAnswer.h"
#include "agent/kernel/KernelTables.h"
#include "model/Slosh.h"

struct mnl_socket;

namespace pimbsr::agent {

struct CloseNetlink {
  void operator()(mnl_socket* socket) const;
};

/// Follows the kernel's links and IPv4 addresses by rtnetlink, for the network namespace that this was made
/// in. It needs no privilege, and opens nothing after it was made.
///
/// After a change of links or addresses, and when notices were lost, it asks the kernel once for all of both.
/// The answer is read in pieces, a short one in each read(), and the view is exchanged once the answer is
/// complete: tables of any size delay nothing. A change meanwhile is asked for afterwards. After an answer
/// that took long it waits as long before it asks again, at most maxRest, so that a flood of changes costs
/// half of the time at most.
///
/// Routes are not kept: each lookup asks the kernel, which costs some microseconds however many routes there
/// are, and a router needs the routes to its BSRs alone.
class Netlink {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// Bytes of notices that may wait; each takes some 2000 of them in the kernel. It may allow less.
  static constexpr int usualBuffer = 4 << 20;
  /// Time after which read() leaves the rest of an answer to the next call.
  static constexpr Duration usualPiece = std::chrono::milliseconds(1);
  static constexpr Duration maxRest = std::chrono::seconds(1);

  /// Reads all tables. Throws std::system_error if the kernel doesn't answer. Each read() takes one datagram
  /// of an answer at least, some 32 KiB, however short a piece is.
  explicit Netlink(int receiveBuffer = usualBuffer, Duration piece = usualPiece);

  /// Readable when read() has something to do: notices wait, or the next piece of an answer does, or it is
  /// time to ask again. An overrun of the notices is cured by read() as well.
  int fd() const { return epoll_.get(); }
  /// Takes notices that wait, or a piece of the answer; returns whether the view is another one now.
  bool read();
  /// Whether the view may be old: an answer is being read, or is to be asked for. The latter is also so for
  /// retryDelay after the kernel didn't answer.
  bool isStale() const { return isStale_ || reading_.has_value(); }

  KernelView const& view() const { return tables_.view(); }
  /// The route of a packet from this system to an address, as the kernel has it now, its policy rules
  /// included; the default value if there is none. Nothing if the kernel doesn't answer in time.
  std::optional<::Slosh::Fib::Route> routeTo(Lanet::IpAddr address) const;

 private:
  using Clock = std::chrono::steady_clock;
  using Socket = std::unique_ptr<mnl_socket, CloseNetlink>;
  /// Both tables, while they are read one after the other.
  struct Reading {
    Clock::time_point begin;
    Clock::time_point until;  ///< when the kernel must have answered
    int attempt = 1;
    Zet::U16 table = 0;  ///< that is being read: RTM_GETLINK or RTM_GETADDR
    KernelAnswer answer{0};
    bool isInterrupted = false;
    KernelRecords records;
  };

  void watch(int fd);
  void followNotices();
  void follow(std::span<U8 const> datagram);
  bool readAtOnce();
  bool isDue() const;
  void startReading(int attempt);
  void request(Zet::U16 table);
  bool readPiece();
  bool take(std::span<U8 const> datagram);
  bool finishTable();
  bool finishReading();
  void giveUp();
  void armTimer();
  bool sendRequest(Zet::U16 type);
  bool sendRouteRequest(Lanet::IpAddr address) const;
  std::optional<RouteRecord> routeIn(std::span<U8 const> datagram) const;

  Socket notices_;
  Socket answers_;
  Socket routes_;
  FileDescriptor timer_;
  FileDescriptor epoll_;  ///< of the notices, the answers and the timer
  Duration piece_;
  KernelTables tables_;
  mutable std::vector<U8> buffer_;
  mutable U32 sequence_ = 0;  ///< of the last request
  bool isStale_ = true;       ///< the tables are to be asked for anew
  bool isOverrun_ = false;    ///< notices were lost, and others wait
  std::optional<Reading> reading_;
  Clock::time_point restUntil_{};  ///< no request before
  Clock::time_point timerAt_{};    ///< when the timer expires; the epoch for never
};

}  // namespace pimbsr::agent
