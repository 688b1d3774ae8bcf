#include "agent/queues/ReceiveQueues.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>

#include "agent/base/Log.h"

namespace pimbsr::agent {

using Lanet::IpAddr;
using Lanet::Prefix;

/// As a time: of a change that hasn't reached the kernel yet.
static constexpr U64 notYet = std::numeric_limits<U64>::max();
/// Queues that one step opens for new neighbors, and for those that shared one, at most: a flood of Hellos
/// must not hold the loop up.
static constexpr int admittedAtOnce = 16;

// Construction ------------------------------------------------------------------------------------------

/// The queue for Hellos opens first: the other one leaves them out from its first packet on.
ReceiveQueues::ReceiveQueues(Loop& loop, std::string name, int index, std::vector<Prefix> const& subnets,
                             NeighborQueueBudget& budget, Deliver deliver, KnownNeighbors knownNeighbors)
    : name_(std::move(name)),
      index_(index),
      budget_(budget),
      deliver_(std::move(deliver)),
      knownNeighbors_(std::move(knownNeighbors)),
      set_(loop, [this](Received const& received) { return take(received); }),
      subnets_(subnets),
      helloSubnets_(subnets),
      otherSubnets_(subnets),
      stepTimer_(loop, [this] { step(); }),
      retryTimer_(loop, [this] { retry(); }) {
  auto hello = std::make_unique<ListenSocket>(name_, index_, passHellos(subnets, {}));
  auto other = std::make_unique<PimSocket>(name_, index_, passOthers(subnets, {}));
  hello_ = hello.get();
  sender_ = other.get();
  set_.add(QueueKind::hello, std::move(hello));
  set_.add(QueueKind::other, std::move(other));
}

ReceiveQueues::~ReceiveQueues() { budget_.left += ownQueues_; }

// Receive -----------------------------------------------------------------------------------------------

/// Of a sender whose filters change; all senders while those by subnet do.
bool ReceiveQueues::mayBeCopy(std::span<U8 const> packet) const {
  constexpr std::size_t sourceOffset = 12;
  if (!isCopying_ || subnetCopiesUntil_ != 0) return isCopying_;
  U32 source = 0;
  if (packet.size() < sourceOffset + sizeof source) return false;
  std::memcpy(&source, packet.data() + sourceOffset, sizeof source);
  auto at = neighbors_.find(IpAddr::fromNet(source));
  return at != neighbors_.end() && at->second.copiesUntil != 0;
}

QueueSet::Taken ReceiveQueues::take(Received const& received) {
  if (mayBeCopy(received.packet) && duplicates_.isSecond(received.time, received.packet))
    return QueueSet::Taken::duplicate;
  return deliver_(received.packet) ? QueueSet::Taken::delivered : QueueSet::Taken::overBudget;
}

// Changes -----------------------------------------------------------------------------------------------

void ReceiveQueues::neighborsChanged() {
  isFollowing_ = true;
  startSteps();
}

void ReceiveQueues::subnetsAre(std::vector<Prefix> const& subnets) {
  if (subnets == subnets_) return;
  subnets_ = subnets;
  startSteps();
}

void ReceiveQueues::startSteps() {
  if (!stepTimer_.isRunning()) stepTimer_.startIn(stepTime);
}

// Steps -------------------------------------------------------------------------------------------------

/// A step that failed in the kernel is repeated before any other.
void ReceiveQueues::step() {
  if (!filtersDiffer_) {
    followNeighbors();
    settle();
    closeNeighbors();
    stepNeighbors();
    moveNeighbors();
    admitNeighbors();
    stepSubnets();
  }
  if (filtersDiffer_) attachFilters();
  retryTimer_.stop();
  if (!isSettled()) return startSteps();
  bool isShort = ownQueues_ < NeighborQueueBudget::maxOnInterface && isNeighborWaiting();
  if (hasFailed_ || isShort) retryTimer_.startIn(retryTime);
}

/// There is no step while all places are in use.
void ReceiveQueues::retry() {
  if (!hasFailed_ && !hasPlace()) return retryTimer_.startIn(retryTime);
  isAdmitting_ = isAdmitting_ || hasFailed_;
  startSteps();
}

void ReceiveQueues::followNeighbors() {
  if (!std::exchange(isFollowing_, false)) return;
  wanted_ = knownNeighbors_();
  for (auto& [address, neighbor] : neighbors_) neighbor.isKnown = false;
  for (IpAddr address : wanted_) {
    if (auto at = neighbors_.find(address); at != neighbors_.end()) at->second.isKnown = true;
  }
  isAdmitting_ = true;
}

bool ReceiveQueues::isNeighborChanging() const {
  return std::any_of(neighbors_.begin(), neighbors_.end(), [](auto const& entry) {
    Neighbor const& neighbor = entry.second;
    return !neighbor.isKnown || neighbor.phase != Phase::own || neighbor.copiesUntil != 0;
  });
}

bool ReceiveQueues::isNeighborWaiting() const {
  return std::any_of(neighbors_.begin(), neighbors_.end(),
                     [](auto const& entry) { return entry.second.isWaiting(); });
}

bool ReceiveQueues::isSettled() const {
  bool bySubnet = helloSubnets_ == subnets_ && otherSubnets_ == subnets_ && subnetCopiesUntil_ == 0;
  return bySubnet && !filtersDiffer_ && !isFollowing_ && !isAdmitting_ && !isNeighborChanging();
}

/// A change is over once all packets are served that came before it.
void ReceiveQueues::settle() {
  U64 oldest = set_.oldestTime();
  auto settleOne = [oldest](U64& copiesUntil) {
    if (copiesUntil < oldest) copiesUntil = 0;
  };
  if (helloSubnets_ == otherSubnets_) settleOne(subnetCopiesUntil_);
  isCopying_ = subnetCopiesUntil_ != 0;
  for (auto& [address, neighbor] : neighbors_) {
    bool isLast = neighbor.phase == Phase::own || neighbor.phase == Phase::closing;
    if (isLast) settleOne(neighbor.copiesUntil);
    isCopying_ = isCopying_ || neighbor.copiesUntil != 0;
  }
  if (!isCopying_) duplicates_.clear();
}

void ReceiveQueues::stepNeighbors() {
  for (auto& [address, neighbor] : neighbors_) {
    Phase former = neighbor.phase;
    stepNeighbor(neighbor);
    if (neighbor.phase == former) continue;
    neighbor.copiesUntil = notYet;
    filtersDiffer_ = isCopying_ = true;
  }
}

void ReceiveQueues::stepNeighbor(Neighbor& neighbor) {
  switch (neighbor.phase) {
    case Phase::joining:
    case Phase::moving:
      neighbor.phase = neighbor.isKnown ? Phase::own : Phase::leaving;
      break;
    case Phase::own:
      if (!neighbor.isKnown) neighbor.phase = Phase::leaving;
      break;
    case Phase::leaving:
      neighbor.phase = neighbor.isKnown ? Phase::own : Phase::closing;
      break;
    case Phase::closing:
      break;
  }
}

/// A neighbor that is known again while its queue closes gets a new one.
void ReceiveQueues::closeNeighbors() {
  std::erase_if(neighbors_, [this](auto const& entry) {
    Neighbor const& neighbor = entry.second;
    if (neighbor.phase != Phase::closing || neighbor.copiesUntil != 0) return false;
    isAdmitting_ = true;
    if (neighbor.queue == nullptr) return true;
    set_.remove(*neighbor.queue);
    --ownQueues_;
    ++budget_.left;
    return true;
  });
}

// Neighbors ---------------------------------------------------------------------------------------------

void ReceiveQueues::admitNeighbors() {
  int admitted = 0;
  if (!std::exchange(isAdmitting_, false)) return;
  hasFailed_ = false;
  for (IpAddr address : wanted_) {
    if (neighbors_.contains(address)) continue;
    if (neighbors_.size() >= maxFilterAddresses) return;
    if (++admitted > admittedAtOnce) {
      isAdmitting_ = true;
      return;
    }
    hasFailed_ = !admit(address);
    if (hasFailed_) return;
  }
}

bool ReceiveQueues::admit(IpAddr address) {
  Neighbor neighbor{.copiesUntil = notYet};
  openQueue(address, neighbor);
  if (neighbor.queue == nullptr && !openShared()) return false;
  if (neighbor.queue == nullptr) filtersDiffer_ = true;
  isCopying_ = true;
  neighbors_[address] = neighbor;
  return true;
}

/// The shared queue takes the packets of such a neighbor until the next step, since a packet that the kernel
/// is just handing to its sockets may miss the new one.
void ReceiveQueues::moveNeighbors() {
  if (!hasPlace() || !isNeighborWaiting()) return;
  int tried = 0;
  for (IpAddr address : wanted_) {
    auto at = neighbors_.find(address);
    if (at == neighbors_.end() || at->second.phase != Phase::own || !at->second.isWaiting()) continue;
    if (!hasPlace() || ++tried > admittedAtOnce) return;
    Neighbor& neighbor = at->second;
    openQueue(address, neighbor);
    if (neighbor.isWaiting()) return;
    if (neighbor.mustShare) continue;
    neighbor.phase = Phase::moving;
    neighbor.copiesUntil = notYet;
    isCopying_ = true;
  }
}

bool ReceiveQueues::hasPlace() const {
  return budget_.left > 0 && ownQueues_ < NeighborQueueBudget::maxOnInterface;
}

/// Whether the error is permanent for the address, such as that of a broadcast.
static bool isOfAddress(std::error_code const& code) {
  constexpr std::array errors = {EACCES, EINVAL, EADDRNOTAVAIL, ENETUNREACH, EHOSTUNREACH};
  return std::find(errors.begin(), errors.end(), code.value()) != errors.end();
}

/// Without effect on an error, such as at the limit of open files. A peer chooses the address, so that an
/// address for which there can be no queue is not logged.
void ReceiveQueues::openQueue(IpAddr address, Neighbor& neighbor) {
  if (!hasPlace()) return;
  try {
    auto socket = std::make_unique<ListenSocket>(name_, index_, address);
    neighbor.queue = &set_.add(QueueKind::neighbor, std::move(socket));
    ++ownQueues_;
    --budget_.left;
  } catch (std::system_error const& error) {
    neighbor.mustShare = isOfAddress(error.code());
    if (!neighbor.mustShare) report(error.what());
  }
}

/// Opened for the first neighbor that needs it.
bool ReceiveQueues::openShared() {
  if (shared_ != nullptr) return true;
  try {
    auto socket = std::make_unique<ListenSocket>(name_, index_, passNothing());
    shared_ = socket.get();
    set_.add(QueueKind::shared, std::move(socket));
    return true;
  } catch (std::system_error const& error) {
    shared_ = nullptr;
    report(error.what());
    return false;
  }
}

// Filters -----------------------------------------------------------------------------------------------

/// First the queue for all else takes the Hellos of all subnets, then that for Hellos changes its subnets,
/// and then the other one leaves these out.
void ReceiveQueues::stepSubnets() {
  if (helloSubnets_ == subnets_ && otherSubnets_ == subnets_) return;
  if (helloSubnets_ == subnets_) {
    otherSubnets_ = subnets_;
  } else if (otherSubnets_.empty()) {
    helloSubnets_ = subnets_;
  } else {
    otherSubnets_.clear();
  }
  subnetCopiesUntil_ = notYet;
  filtersDiffer_ = isCopying_ = true;
}

std::vector<IpAddr> ReceiveQueues::sharing() const {
  std::vector<IpAddr> addresses;
  for (auto const& [address, neighbor] : neighbors_) {
    bool shares = neighbor.queue == nullptr && neighbor.phase != Phase::closing;
    if (shares || neighbor.phase == Phase::moving) addresses.push_back(address);
  }
  return addresses;
}

std::vector<IpAddr> ReceiveQueues::excluded() const {
  std::vector<IpAddr> addresses;
  for (auto const& [address, neighbor] : neighbors_) {
    if (neighbor.phase == Phase::own || neighbor.phase == Phase::moving) addresses.push_back(address);
  }
  return addresses;
}

/// The kernel copies packets until this moment, at most.
void ReceiveQueues::attachFilters() {
  try {
    setFilters();
  } catch (std::system_error const& error) {
    return report(error.what());
  }
  filtersDiffer_ = false;
  U64 now = wallClock();
  if (subnetCopiesUntil_ == notYet) subnetCopiesUntil_ = now;
  for (auto& [address, neighbor] : neighbors_) {
    if (neighbor.copiesUntil == notYet) neighbor.copiesUntil = now;
  }
}

void ReceiveQueues::setFilters() {
  std::vector<IpAddr> known = excluded();
  hello_->filterIs(passHellos(helloSubnets_, known));
  sender_->filterIs(passOthers(otherSubnets_, known));
  if (shared_ != nullptr) shared_->filterIs(passSenders(sharing()));
  for (auto& [address, neighbor] : neighbors_) {
    bool isClosing = neighbor.phase == Phase::closing && neighbor.queue != nullptr;
    if (isClosing) neighbor.queue->socket->filterIs(passNothing());
  }
}

/// Once, however often it happens.
void ReceiveQueues::report(std::string const& problem) {
  if (std::exchange(problem_, problem) != problem) logLine(fmt::format("{}: {}", name_, problem));
}

}  // namespace pimbsr::agent
