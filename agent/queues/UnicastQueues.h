#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "agent/base/Loop.h"
#include "agent/queues/Duplicates.h"
#include "agent/queues/QueueSet.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// The receive queues for packets to addresses of this system, of all interfaces. Senders of advertisements
/// that were accepted have one, and all others share another, which a flood of theirs fills alone. The former
/// is open while there are such senders.
///
/// Senders come and go without a packet lost or taken twice, as with ReceiveQueues: each change takes two
/// steps. In the first both queues take the packets of the senders that come or go; in the second one of them
/// leaves these out. A packet that both hold meanwhile is taken once.
///
/// A change of senders costs O(1); the first step after it reads them once for all changes, O(n) of those
/// that a filter holds.
class UnicastQueues {
 public:
  /// Seconds from one step to the next. Changes that come faster are made together.
  static constexpr double stepTime = 0.05;
  /// Seconds until a failed step is repeated.
  static constexpr double retryTime = 1;

  /// Takes one packet, which is valid until it returns. It may not end the queues.
  using Deliver = std::function<void(Received const& received)>;
  /// The senders of accepted advertisements, the most important first. Those beyond maxFilterAddresses share
  /// the queue of all others. A step calls it.
  using KnownSenders = std::function<std::vector<Lanet::IpAddr>()>;

  /// Opens the queue of all senders. The loop outlives it. Throws std::system_error.
  UnicastQueues(Loop& loop, Deliver deliver, KnownSenders knownSenders);
  UnicastQueues(UnicastQueues const&) = delete;
  UnicastQueues& operator=(UnicastQueues const&) = delete;

  /// The socket to send by.
  PimSocketBase& sender() { return *others_; }
  /// The known senders have changed: follows them in steps from the event loop.
  void sendersChanged();
  /// Whether all steps are done.
  bool isSettled() const { return phase_ == Phase::settled && !isFollowing_; }

  CountsByKind counts() { return set_.counts(); }
  void clearCounts() { set_.clearCounts(); }

 private:
  enum class Phase : U8 {
    settled,  ///< the filters are those of senders_, and no packet is in both queues
    both,     ///< both queues take the packets of the senders that come or go
    serving   ///< the filters are those of senders_, and packets from before may be in both queues
  };
  using Senders = std::vector<Lanet::IpAddr>;  ///< sorted

  QueueSet::Taken take(Received const& received);
  bool mayBeCopy(std::span<U8 const> packet) const;
  void step();
  void begin();
  void takeIntoBoth();
  void finish();
  void settle();
  void open();
  void close();
  void report(std::string const& problem);

  Deliver deliver_;
  KnownSenders knownSenders_;
  QueueSet set_;
  PimSocketBase* others_ = nullptr;      ///< which lasts
  ReceiveQueue* advertisers_ = nullptr;  ///< null while it isn't open
  Senders senders_;                      ///< whose packets the queue of advertisers takes
  Senders next_;                         ///< those after the present change
  Senders changing_;                     ///< those that come or go with it
  Phase phase_ = Phase::settled;
  bool isFollowing_ = false;  ///< the known senders are read again in the next step
  U64 copiesUntil_ = 0;       ///< when the last change was over, as Received::time
  Duplicates duplicates_;
  std::string problem_;
  LoopTimer stepTimer_;
};

}  // namespace pimbsr::agent
