#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Loop.h"
#include "agent/queues/PimSocket.h"
#include "view/Kinds.h"

namespace pimbsr::agent {

using view::QueueKind;

/// Counts of the queues of one kind.
struct QueueCounts {
  U64 queues = 0;    ///< those that are open now
  U64 received = 0;  ///< packets taken from them, without second copies
  U64 lost = 0;      ///< packets that found a receive buffer full (PimSocketBase::lost())

  bool operator==(QueueCounts const&) const = default;
};

using CountsByKind = std::map<QueueKind, QueueCounts>;

/// One socket with its receive buffer.
struct ReceiveQueue {
  QueueKind kind;
  std::unique_ptr<PimSocketBase> socket;
  bool isResting = false;
  U64 received = 0;
  U64 lost = 0;
  U32 lostSeen = 0;  ///< of the socket's count, what is in `lost`
};

/// Nanoseconds since 1970, as in Received::time.
U64 wallClock();

/// Serves several receive queues from one event loop in the order in which the kernel received their packets.
///
/// A queue whose sender has used up its budget rests for a while. The kernel drops the excess meanwhile,
/// which costs the loop nothing.
class QueueSet {
 public:
  enum class Taken {
    delivered,
    duplicate,  ///< a second copy, which counts as no packet
    overBudget  ///< the budget of its sender is used up
  };
  using Take = std::function<Taken(Received const&)>;

  /// `take` gets each packet; it may neither add nor remove a queue. Throws std::system_error.
  QueueSet(Loop& loop, Take take);
  QueueSet(QueueSet const&) = delete;
  QueueSet& operator=(QueueSet const&) = delete;

  /// Serves a socket from now on; the queue is valid until it is removed. Throws std::system_error.
  ReceiveQueue& add(QueueKind kind, std::unique_ptr<PimSocketBase> socket);
  /// Closes a queue; its counts stay.
  void remove(ReceiveQueue& queue);
  /// When the oldest packet that waits was received, as Received::time; the greatest number if none waits.
  U64 oldestTime();

  CountsByKind counts();
  void clearCounts();

 private:
  struct Head {
    U64 time;
    ReceiveQueue* queue;
  };

  void serve();
  void addHead(ReceiveQueue& queue);
  void serveOldest();
  void watch(ReceiveQueue& queue, int operation);
  void rest(ReceiveQueue& queue);
  void resume();
  void noteLosses();

  Take take_;
  std::map<ReceiveQueue*, std::unique_ptr<ReceiveQueue>> queues_;
  CountsByKind closed_;  ///< of queues that were removed
  std::vector<ReceiveQueue*> resting_;
  std::vector<Head> heads_;  ///< a heap, the oldest first; kept between turns for its capacity alone
  Received received_;
  U64 lossesNotedAt_ = 0;
  FileDescriptor epoll_;
  LoopReader reader_;
  LoopTimer restTimer_;
};

}  // namespace pimbsr::agent
