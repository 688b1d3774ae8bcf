#include "agent/queues/UnicastQueues.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <system_error>
#include <utility>

#include "agent/base/Log.h"

namespace pimbsr::agent {

using Lanet::IpAddr;
using Senders = std::vector<IpAddr>;

// Construction ------------------------------------------------------------------------------------------

UnicastQueues::UnicastQueues(Loop& loop, Deliver deliver, KnownSenders knownSenders)
    : deliver_(std::move(deliver)),
      knownSenders_(std::move(knownSenders)),
      set_(loop, [this](Received const& received) { return take(received); }),
      others_(set_.add(QueueKind::unicast, std::make_unique<UnicastSocket>()).socket.get()),
      stepTimer_(loop, [this] { step(); }) {}

// Receive -----------------------------------------------------------------------------------------------

bool UnicastQueues::mayBeCopy(std::span<U8 const> packet) const {
  constexpr std::size_t sourceOffset = 12;
  U32 source = 0;
  if (changing_.empty() || packet.size() < sourceOffset + sizeof source) return false;
  std::memcpy(&source, packet.data() + sourceOffset, sizeof source);
  return std::binary_search(changing_.begin(), changing_.end(), IpAddr::fromNet(source));
}

/// Neither queue rests for the budget of one sender, since others share it.
QueueSet::Taken UnicastQueues::take(Received const& received) {
  if (mayBeCopy(received.packet) && duplicates_.isSecond(received.time, received.packet))
    return QueueSet::Taken::duplicate;
  deliver_(received);
  return QueueSet::Taken::delivered;
}

// Sets of senders ---------------------------------------------------------------------------------------

static Senders sorted(Senders senders) {
  senders.resize(std::min(senders.size(), maxFilterAddresses));
  std::sort(senders.begin(), senders.end());
  senders.erase(std::unique(senders.begin(), senders.end()), senders.end());
  return senders;
}

static Senders inBoth(Senders const& a, Senders const& b) {
  Senders both;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
  return both;
}

static Senders inEither(Senders const& a, Senders const& b) {
  Senders either;
  std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(either));
  return either;
}

static Senders inOne(Senders const& a, Senders const& b) {
  Senders one;
  std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(one));
  return one;
}

// Steps -------------------------------------------------------------------------------------------------

void UnicastQueues::sendersChanged() {
  isFollowing_ = true;
  if (!stepTimer_.isRunning()) stepTimer_.startIn(stepTime);
}

/// A step that fails in the kernel leaves the phase as it is, and is repeated.
void UnicastQueues::step() {
  double next = stepTime;
  try {
    if (phase_ == Phase::serving) settle();
    if (phase_ == Phase::both) finish();
    if (phase_ == Phase::settled && isFollowing_) begin();
  } catch (std::system_error const& error) {
    report(error.what());
    next = retryTime;
  }
  if (!isSettled()) stepTimer_.startIn(next);
}

/// Senders of a failed change are still changing. Where a filter can't hold the former
/// and the next senders together, those that go leave first, and another change follows for those that come.
void UnicastQueues::begin() {
  Senders wanted = sorted(knownSenders_());
  bool isWhole = inEither(senders_, wanted).size() <= maxFilterAddresses;
  next_ = isWhole ? wanted : inBoth(senders_, wanted);
  changing_ = inEither(changing_, inOne(senders_, next_));
  if (!changing_.empty()) takeIntoBoth();
  isFollowing_ = !isWhole;
}

void UnicastQueues::takeIntoBoth() {
  if (advertisers_ == nullptr) open();
  advertisers_->socket->filterIs(passUnicastFrom(inEither(senders_, next_)));
  others_->filterIs(passUnicast(inBoth(senders_, next_)));
  phase_ = Phase::both;
}

/// A packet that the kernel was just handing to its sockets in the first step has reached both.
void UnicastQueues::finish() {
  advertisers_->socket->filterIs(next_.empty() ? passNothing() : passUnicastFrom(next_));
  others_->filterIs(passUnicast(next_));
  senders_ = next_;
  copiesUntil_ = wallClock();
  phase_ = Phase::serving;
}

/// A change is over once all packets are served that came before its end.
void UnicastQueues::settle() {
  if (set_.oldestTime() <= copiesUntil_) return;
  changing_.clear();
  duplicates_.clear();
  if (senders_.empty()) close();
  phase_ = Phase::settled;
}

void UnicastQueues::open() {
  advertisers_ = &set_.add(QueueKind::advertiser, std::make_unique<UnicastSocket>(passNothing()));
}

void UnicastQueues::close() { set_.remove(*std::exchange(advertisers_, nullptr)); }

/// Once, however often it happens.
void UnicastQueues::report(std::string const& problem) {
  if (std::exchange(problem_, problem) != problem)
    logLine(fmt::format("senders of advertisements have no receive queue of their own: {}", problem));
}

}  // namespace pimbsr::agent
