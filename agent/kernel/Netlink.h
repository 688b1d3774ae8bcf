#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/kernel/KernelTables.h"

struct mnl_socket;

namespace pimbsr::agent {

struct CloseNetlink {
  void operator()(mnl_socket* socket) const;
};

/// Follows the kernel's links, IPv4 addresses and unicast routes by rtnetlink, for the network namespace that
/// this was made in. It needs no privilege, and opens nothing after it was made.
class Netlink {
 public:
  /// Bytes of notices that may wait; each of a route takes some 800 of them in the kernel. It may allow less.
  static constexpr int usualBuffer = 4 << 20;

  /// Requests all tables. Throws std::system_error if the kernel doesn't answer.
  explicit Netlink(int receiveBuffer = usualBuffer);

  /// Readable when notices wait. An overrun shows as an error condition of it and is cured by read() as well.
  int fd() const;
  /// Takes the notices that wait and brings the view up to date; returns whether it is another one now. After
  /// a change of links or addresses, and when notices were lost, this asks the kernel for everything, which
  /// takes some 0.1 s per 100,000 routes and at most a few seconds even if the kernel doesn't answer.
  bool read();
  /// Whether the kernel didn't answer completely, so that the view may be old. read() tries again, and should
  /// be called after a while even if no notice comes.
  bool isStale() const { return isStale_; }

  KernelView const& view() const { return tables_.view(); }
  /// The prefixes whose best route has come, changed or gone since this was called last, in ascending order;
  /// at first, all there are.
  std::vector<Lanet::Prefix> takeChangedRoutes() { return tables_.takeChangedRoutes(); }

 private:
  using Clock = std::chrono::steady_clock;
  using Socket = std::unique_ptr<mnl_socket, CloseNetlink>;
  enum class Answer { complete, interrupted, failed };

  bool followNotices();
  bool follow(std::span<U8 const> datagram);
  std::optional<bool> askAnew();
  Answer ask(Zet::U16 type, KernelRecords& records, Clock::time_point until);
  bool sendRequest(Zet::U16 type);
  bool waitForAnswer(Clock::time_point until) const;
  bool takeAnswer(std::span<U8 const> datagram, KernelRecords& records, Answer& answer) const;

  Socket notices_;
  Socket answers_;
  KernelTables tables_;
  std::vector<U8> buffer_;
  U32 sequence_ = 0;     ///< of the last request
  bool isStale_ = true;  ///< something is to be asked for anew
};

}  // namespace pimbsr::agent
