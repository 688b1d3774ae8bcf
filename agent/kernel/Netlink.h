#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <vector>

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
/// Routes are not kept: each lookup asks the kernel, which costs some microseconds however many routes there
/// are, and a router needs the routes to its BSRs alone.
class Netlink {
 public:
  /// Bytes of notices that may wait; each takes some 2000 of them in the kernel. It may allow less.
  static constexpr int usualBuffer = 4 << 20;

  /// Requests all tables. Throws std::system_error if the kernel doesn't answer.
  explicit Netlink(int receiveBuffer = usualBuffer);

  /// Readable when notices wait. An overrun shows as an error condition of it and is cured by read() as well.
  int fd() const;
  /// Takes the notices that wait and brings the view up to date; returns whether it is another one now. After
  /// a change of links or addresses, and when notices were lost, this asks the kernel once for all of both.
  bool read();
  /// Whether the kernel didn't answer completely, so that the view may be old. read() tries again, and should
  /// be called after a while even if no notice comes.
  bool isStale() const { return isStale_; }

  KernelView const& view() const { return tables_.view(); }
  /// The route of a packet from this system to an address, as the kernel has it now, its policy rules
  /// included; the default value if there is none, or the kernel doesn't answer.
  ::Slosh::Fib::Route routeTo(Lanet::IpAddr address) const;

 private:
  using Clock = std::chrono::steady_clock;
  using Socket = std::unique_ptr<mnl_socket, CloseNetlink>;
  enum class Answer { complete, interrupted, failed };

  void followNotices();
  void follow(std::span<U8 const> datagram);
  std::optional<bool> askAnew();
  Answer ask(Zet::U16 type, KernelRecords& records, Clock::time_point until);
  bool sendRequest(Zet::U16 type);
  bool waitForAnswer(Clock::time_point until) const;
  bool sendRouteRequest(Lanet::IpAddr address) const;
  void discardAnswers(Clock::time_point until) const;
  std::optional<RouteRecord> routeIn(std::span<U8 const> datagram) const;
  bool takeAnswer(std::span<U8 const> datagram, KernelRecords& records, Answer& answer) const;

  Socket notices_;
  Socket answers_;
  KernelTables tables_;
  mutable std::vector<U8> buffer_;
  mutable U32 sequence_ = 0;  ///< of the last request
  bool isStale_ = true;       ///< something is to be asked for anew
};

}  // namespace pimbsr::agent
