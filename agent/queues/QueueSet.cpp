#include "agent/queues/QueueSet.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <limits>
#include <system_error>
#include <utility>

#include "runtime/Assert.h"

namespace pimbsr::agent {

/// Packets that are taken before the loop looks at its timers and its other readers again.
static constexpr int packetsAtOnce = 64;
/// For how long they are taken: some change a thousand RPs each, and timers wait meanwhile.
static constexpr std::chrono::milliseconds timeAtOnce(2);
/// Queues that one turn looks at; epoll begins with others the next time.
static constexpr std::size_t queuesAtOnce = 128;
/// Seconds for which a queue rests at most.
static constexpr double restTime = 0.01;
/// Nanoseconds after which losses are read again, long before a count of 32 bits starts over.
static constexpr U64 lossesEach = 60'000'000'000;

U64 wallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<U64>(now.tv_sec) * 1'000'000'000 + static_cast<U64>(now.tv_nsec);
}

static FileDescriptor openEpoll() {
  FileDescriptor fd(epoll_create1(EPOLL_CLOEXEC));
  if (!fd) throw std::system_error(errno, std::generic_category(), "waiting for several sockets");
  return fd;
}

QueueSet::QueueSet(Loop& loop, Take take)
    : take_(std::move(take)),
      epoll_(openEpoll()),
      reader_(loop, epoll_.get(), [this] { serve(); }),
      restTimer_(loop, [this] { resume(); }) {
  heads_.reserve(queuesAtOnce + 1);
}

// Queues ------------------------------------------------------------------------------------------------

ReceiveQueue& QueueSet::add(QueueKind kind, std::unique_ptr<PimSocketBase> socket) {
  auto queue = std::make_unique<ReceiveQueue>(ReceiveQueue{.kind = kind, .socket = std::move(socket)});
  ReceiveQueue& added = *queue;
  watch(added, EPOLL_CTL_ADD);
  queues_[&added] = std::move(queue);
  ++closed_[kind].queues;
  return added;
}

void QueueSet::remove(ReceiveQueue& queue) {
  noteLosses();
  QueueCounts& counts = closed_[queue.kind];
  --counts.queues;
  counts.received += queue.received;
  counts.lost += queue.lost;
  std::erase(resting_, &queue);
  queues_.erase(&queue);  // the socket's end takes it from the epoll set
}

/// A queue that rests stays in the epoll set, so that its return needs no memory.
void QueueSet::watch(ReceiveQueue& queue, int operation) {
  epoll_event wanted{.events = queue.isResting ? 0u : EPOLLIN, .data = {.ptr = &queue}};
  if (epoll_ctl(epoll_.get(), operation, queue.socket->fd(), &wanted) < 0)
    throw std::system_error(errno, std::generic_category(), "waiting for a socket");
}

U64 QueueSet::oldestTime() {
  U64 oldest = std::numeric_limits<U64>::max();
  for (auto& [key, queue] : queues_) oldest = std::min(oldest, queue->socket->nextTime().value_or(oldest));
  return oldest;
}

// A turn ------------------------------------------------------------------------------------------------

/// Packets that came after the turn began wait for the next one, since a packet before them may be in a queue
/// that was empty. But one is served in any case: the wall clock may have been set back meanwhile.
void QueueSet::serve() {
  std::array<epoll_event, queuesAtOnce> ready;
  U64 start = wallClock();
  auto const end = std::chrono::steady_clock::now() + timeAtOnce;
  int count = epoll_wait(epoll_.get(), ready.data(), ready.size(), 0);
  heads_.clear();
  for (int i = 0; i < count; ++i)
    addHead(*static_cast<ReceiveQueue*>(ready[static_cast<unsigned>(i)].data.ptr));
  for (int i = 0; i < packetsAtOnce && !heads_.empty(); ++i) {
    if (i > 0 && (heads_.front().time > start || std::chrono::steady_clock::now() > end)) break;
    serveOldest();
  }
  if (start - lossesNotedAt_ > lossesEach) noteLosses();
}

/// The order of a heap with the oldest packet first.
static bool isLater(auto const& a, auto const& b) {
  return a.time != b.time ? a.time > b.time : a.queue->kind > b.queue->kind;
}

/// An error makes a queue ready even while it rests; looking for its next packet takes the error away.
void QueueSet::addHead(ReceiveQueue& queue) {
  std::optional<U64> time = queue.socket->nextTime();
  if (!time || queue.isResting) return;
  heads_.push_back({*time, &queue});
  std::push_heap(heads_.begin(), heads_.end(), isLater<Head, Head>);
}

/// A packet without an interface was on its way to the socket while that was opened. Other queues have it, if
/// it is for this agent.
void QueueSet::serveOldest() {
  std::pop_heap(heads_.begin(), heads_.end(), isLater<Head, Head>);
  ReceiveQueue& queue = *heads_.back().queue;
  heads_.pop_back();
  if (!queue.socket->receive(received_)) return;
  Taken taken = received_.interfaceIndex == 0 ? Taken::duplicate : take_(received_);
  if (taken != Taken::duplicate) ++queue.received;
  if (taken == Taken::overBudget) {
    rest(queue);
  } else {
    addHead(queue);
  }
}

// Rest --------------------------------------------------------------------------------------------------

void QueueSet::rest(ReceiveQueue& queue) {
  queue.isResting = true;
  watch(queue, EPOLL_CTL_MOD);
  resting_.push_back(&queue);
  if (!restTimer_.isRunning()) restTimer_.startIn(restTime);
}

void QueueSet::resume() {
  for (ReceiveQueue* queue : std::exchange(resting_, {})) {
    queue->isResting = false;
    watch(*queue, EPOLL_CTL_MOD);
  }
}

// Counts ------------------------------------------------------------------------------------------------

void QueueSet::noteLosses() {
  lossesNotedAt_ = wallClock();
  for (auto& [key, queue] : queues_) {
    U32 seen = queue->socket->lost();
    queue->lost += seen - queue->lostSeen;
    queue->lostSeen = seen;
  }
}

CountsByKind QueueSet::counts() {
  noteLosses();
  CountsByKind counts = closed_;
  for (auto const& [key, queue] : queues_) {
    counts[queue->kind].received += queue->received;
    counts[queue->kind].lost += queue->lost;
  }
  return counts;
}

void QueueSet::clearCounts() {
  noteLosses();
  for (auto& [kind, counts] : closed_) counts = {.queues = counts.queues};
  for (auto& [key, queue] : queues_) queue->received = queue->lost = 0;
}

}  // namespace pimbsr::agent
