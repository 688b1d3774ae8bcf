#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Loop.h"
#include "agent/queues/Duplicates.h"
#include "agent/queues/QueueSet.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// How many queues of one neighbor each there may be. For each PIM packet the kernel compares the senders of
/// all of them, about 8 ns each, so that more would help a flood.
struct NeighborQueueBudget {
  static constexpr std::size_t maxOnInterface = 64;
  std::size_t left = 256;  ///< on all interfaces together
};

/// The receive queues of one interface. A flood fills its own queue alone:
///
/// - each known neighbor has a queue, as far as the budget allows; those beyond it share one, until a place
///   is free. A flood from one of those that share can displace packets of the others that share;
/// - Hellos of other senders on the interface's subnets have one, so that a new neighbor is heard;
/// - all else has one.
///
/// Neighbors come and go, and with them sockets and filters, without a packet lost or taken twice. The kernel
/// can't exchange several filters at once, so each change takes steps: a neighbor's own queue is open before
/// the others leave its packets out, and they take them again before it closes. A packet that the kernel is
/// just handing to its sockets has reached the last of them before the next step. A packet of which two
/// sockets have a copy meanwhile is taken once.
///
/// A change of neighbors costs O(1); the first step after it walks them once for all changes.
class ReceiveQueues {
 public:
  /// Seconds from one step to the next. Changes that come faster are made together.
  static constexpr double stepTime = 0.05;
  /// Seconds until the next attempt after the kernel or the budget of all interfaces allowed no queue.
  static constexpr double retryTime = 1;

  /// Takes one packet from its IP header on, valid until it returns; returns whether the budget of the sender
  /// goes on. It may not end the queues.
  using Deliver = std::function<bool(std::span<U8 const> packet)>;
  /// The addresses of the known neighbors, the most important first. Those beyond maxFilterAddresses are
  /// no known neighbors here. A step calls it.
  using KnownNeighbors = std::function<std::vector<Lanet::IpAddr>()>;

  /// Opens the queues for Hellos and for all else. The loop and the budget outlive them. Throws
  /// std::system_error, which names the interface.
  ReceiveQueues(Loop& loop, std::string name, int index, std::vector<Lanet::Prefix> const& subnets,
                NeighborQueueBudget& budget, Deliver deliver, KnownNeighbors knownNeighbors);
  ~ReceiveQueues();
  ReceiveQueues(ReceiveQueues const&) = delete;
  ReceiveQueues& operator=(ReceiveQueues const&) = delete;

  /// The socket to send by.
  PimSocket& sender() { return *sender_; }
  /// The known neighbors have changed: opens queues for them and closes those of others, in steps from the
  /// event loop.
  void neighborsChanged();
  /// Takes Hellos from these subnets into their queue, in steps from the event loop.
  void subnetsAre(std::vector<Lanet::Prefix> const& subnets);
  /// Whether all steps are done, except for queues that are tried again after retryTime.
  bool isSettled() const;

  CountsByKind counts() { return set_.counts(); }
  void clearCounts() { set_.clearCounts(); }

 private:
  enum class Phase : U8 {
    joining,  ///< its queue is open, and the others take its packets too
    own,      ///< the others leave its packets out
    moving,   ///< as own, but its queue is new, and the shared one takes its packets too
    leaving,  ///< the others take its packets again
    closing   ///< its queue takes no more, and what waits there is served
  };
  struct Neighbor {
    Phase phase = Phase::joining;
    bool isKnown = true;
    U64 copiesUntil = 0;            ///< when the last change was; 0 once no packet from before it waits
    ReceiveQueue* queue = nullptr;  ///< null for the shared one
    bool mustShare = false;         ///< no socket can be connected to its address

    bool isWaiting() const { return isKnown && queue == nullptr && !mustShare; }
  };

  QueueSet::Taken take(Received const& received);
  bool mayBeCopy(std::span<U8 const> packet) const;
  void startSteps();
  void step();
  void retry();
  void followNeighbors();
  void settle();
  void admitNeighbors();
  bool admit(Lanet::IpAddr address);
  void moveNeighbors();
  void openQueue(Lanet::IpAddr address, Neighbor& neighbor);
  bool openShared();
  void stepNeighbors();
  void stepNeighbor(Neighbor& neighbor);
  void closeNeighbors();
  void stepSubnets();
  void attachFilters();
  void setFilters();
  bool hasPlace() const;
  bool isNeighborChanging() const;
  bool isNeighborWaiting() const;
  std::vector<Lanet::IpAddr> sharing() const;
  std::vector<Lanet::IpAddr> excluded() const;
  void report(std::string const& problem);

  std::string name_;
  int index_;
  NeighborQueueBudget& budget_;
  Deliver deliver_;
  KnownNeighbors knownNeighbors_;
  QueueSet set_;
  PimSocket* sender_ = nullptr;  ///< of the queue for all else, which lasts
  PimSocketBase* hello_ = nullptr;
  PimSocketBase* shared_ = nullptr;
  std::vector<Lanet::IpAddr> wanted_;  ///< addresses of neighbors, the most important first
  std::map<Lanet::IpAddr, Neighbor> neighbors_;
  std::size_t ownQueues_ = 0;
  bool isFollowing_ = false;                 ///< wanted_ is read again in the next step
  bool isAdmitting_ = false;                 ///< some of wanted_ wait for a later step
  bool hasFailed_ = false;                   ///< some of wanted_ wait for retryTime
  std::vector<Lanet::Prefix> subnets_;       ///< wanted
  std::vector<Lanet::Prefix> helloSubnets_;  ///< whose Hellos the queue for Hellos takes
  std::vector<Lanet::Prefix> otherSubnets_;  ///< whose Hellos the queue for all else leaves out
  U64 subnetCopiesUntil_ = 0;                ///< as Neighbor::copiesUntil, for all senders
  bool filtersDiffer_ = false;  ///< the kernel's filters aren't those of the phases and subnets yet
  bool isCopying_ = false;      ///< some packets may be in two queues
  Duplicates duplicates_;
  std::string problem_;
  LoopTimer stepTimer_;
  LoopTimer retryTimer_;
};

}  // namespace pimbsr::agent
