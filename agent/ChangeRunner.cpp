#include "agent/ChangeRunner.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "agent/base/Log.h"
#include "agent/process/ServiceNotify.h"

namespace pimbsr::agent {

using Clock = ChangeCommand::Clock;

/// Time without a change after which the command runs, and the longest that a change waits.
static constexpr std::chrono::duration<double> quiet{1};
static constexpr std::chrono::seconds latest{5};

static double secondsFrom(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

/// The command runs once after the start too: its last run may be of an older state, and perhaps nothing
/// changes from here on. It waits until neighbors have sent what they know.
ChangeRunner::ChangeRunner(Loop& loop, ChangeCommand* command, std::function<std::string()> text)
    : loop_(loop), command_(command), text_(std::move(text)), timer_(loop, [this] { run(); }) {
  if (command_ == nullptr) return;
  follow();
  deadline_ = Clock::now() + latest;
  timer_.startIn(std::chrono::duration<double>(latest).count());
}

void ChangeRunner::changed() {
  if (command_ == nullptr) return;
  hasChanged_ = true;
  if (!timer_.isRunning()) deadline_ = Clock::now() + latest;
  timer_.startIn(std::min(quiet.count(), secondsFrom(Clock::now(), deadline_)));
}

void ChangeRunner::run() {
  hasChanged_ = false;
  logFailure(command_->notify(text_()));
  follow();
}

/// Without a change there is nothing that it must not miss.
void ChangeRunner::handOver() {
  if (!hasChanged_ || command_->fd() < 0) return;
  timer_.stop();
  run();
}

void ChangeRunner::finish() {
  if (command_ == nullptr || !command_->isBusy()) return;
  logLine("waits for the change command");
  extendServiceTimeout(command_->maxFinishTime());
  logFailure(command_->finish());
}

/// The helper's descriptor goes when the helper does.
void ChangeRunner::follow() {
  if (command_->fd() < 0) {
    reader_ = nullptr;
  } else if (!reader_) {
    reader_ = std::make_unique<LoopReader>(loop_, command_->fd(), [this] { handleReport(); });
  }
}

/// A run that its helper has lost is made again.
void ChangeRunner::handleReport() {
  Zet::U64 restarts = command_->counts().restarts;
  logFailure(command_->handleReport());
  if (command_->counts().restarts != restarts) changed();
  follow();
}

void ChangeRunner::logFailure(std::string const& text) { logEvent(logEvents::changeCommandFailed, text); }

static EndedRun viewOf(ChangeCommand::Run const& run) {
  return {.ago = secondsFrom(run.ended, Clock::now()),
          .duration = run.end.duration,
          .status = run.end.status,
          .timedOut = run.end.timedOut};
}

ChangeRuns ChangeRunner::state() const {
  if (command_ == nullptr) return {};
  ChangeRuns state{.command = command_->options().command,
                   .timeLimit = command_->options().timeLimit,
                   .waiting = hasChanged_ || command_->isWaiting(),
                   .succeeded = command_->counts().succeeded,
                   .failed = command_->counts().failed,
                   .timedOut = command_->counts().timedOut,
                   .helperRestarts = command_->counts().restarts,
                   .helperEnded = command_->fd() < 0};
  if (command_->isBusy()) state.runningFor = secondsFrom(command_->startTime(), Clock::now());
  if (command_->lastRun()) state.last = viewOf(*command_->lastRun());
  return state;
}

}  // namespace pimbsr::agent
