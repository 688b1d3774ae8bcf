#include "agent/HistoryKeeper.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/account/HistoryJson.h"
#include "agent/base/Log.h"
#include "agent/process/Files.h"

namespace pimbsr::agent {

/// Seconds within which repetitions are saved.
static constexpr double repeatDelay = 1;
/// Seconds after which a snapshot is tried again: when the writer was too slow, and when the disk failed.
static constexpr double slowRetry = 2;
static constexpr double failureRetry = 5;
/// Bytes that are appended to the file before it is written anew.
static constexpr std::size_t maxAppended = std::size_t{1} << 20;
static constexpr std::size_t maxFile = std::size_t{8} << 20;

HistoryKeeper::HistoryKeeper(Loop& loop, Clock const& clock, History& history, StateWriter* writer,
                             std::string problem)
    : clock_(clock),
      history_(history),
      writer_(writer),
      repeatTimer_(loop, [this] { saveRepeated(); }),
      retryTimer_(loop, [this] { saveAll(); }) {
  errorIs(std::move(problem));
  if (writer_ == nullptr) return;
  path_ = std::filesystem::path(writer_->options().folder) / fileName;
  reader_ = std::make_unique<LoopReader>(loop, writer_->fd(), [this] { handleReports(); });
}

// Former runs -------------------------------------------------------------------------------------------

void HistoryKeeper::load() {
  if (writer_ != nullptr && std::filesystem::exists(path_)) {
    try {
      restore(readFile(path_, maxFile));
    } catch (std::system_error const& error) {
      moveAside(error.code().message());
    }
  }
  history_.noteStart(clock_.now());
  saveAll();
}

void HistoryKeeper::restore(std::string const& text) {
  HistoryLines lines = restoreLines(history_.store(), text);
  if (lines.damaged != 0) moveAside(fmt::format("{} of {} lines can't be read", lines.damaged, lines.all));
}

void HistoryKeeper::moveAside(std::string const& why) {
  std::string aside = path_ + ".damaged";
  std::error_code error;
  std::filesystem::rename(path_, aside, error);
  logEvent(logEvents::historyError,
           fmt::format("{}: {}; {}", path_, why,
                       error ? "it can't be moved aside: " + error.message() : "it is now " + aside));
}

// Saving ------------------------------------------------------------------------------------------------

void HistoryKeeper::save() {
  for (HistoryEntry const& entry : history_.store().takeUnsaved()) append(entry);
  if (history_.store().hasRepeated() && !repeatTimer_.isRunning()) repeatTimer_.startIn(repeatDelay);
}

void HistoryKeeper::saveRepeated() {
  for (HistoryEntry const& entry : history_.store().takeRepeated()) append(entry);
}

void HistoryKeeper::append(HistoryEntry const& entry) {
  if (writer_ == nullptr) return;
  if (!isComplete_) {
    ++skipped_;
    return;
  }
  std::string line = lineOf(entry);
  if (!writer_->append(writerFile, line)) return retryIn(slowRetry, "the disk is too slow");
  appended_ += line.size();
  if (appended_ > maxAppended) saveAll();
}

void HistoryKeeper::saveAll() {
  if (writer_ == nullptr) return;
  // The next snapshot follows once this one is written.
  if (isReplacing_) return void(isComplete_ = false);
  if (!writer_->replace(writerFile, linesOf(history_.store())))
    return retryIn(slowRetry, "the disk is too slow");
  history_.store().takeUnsaved();
  history_.store().takeRepeated();
  appended_ = 0;
  isReplacing_ = true;
  isComplete_ = true;
}

void HistoryKeeper::stop() {
  history_.noteStop(clock_.now());
  saveRepeated();
  save();
}

// Reports of the writer ---------------------------------------------------------------------------------

/// The writer's descriptor goes when the writer does.
void HistoryKeeper::handleReports() {
  while (auto report = writer_->takeReport()) handle(*report);
  if (writer_->fd() < 0) reader_ = nullptr;
}

void HistoryKeeper::handle(StateReport const& report) {
  switch (report.kind) {
    case StateReport::Kind::replaced:
      isReplacing_ = false;
      isComplete_ ? errorIs("") : saveAll();
      break;
    case StateReport::Kind::failed:
      retryIn(failureRetry, std::generic_category().message(report.error));
      isReplacing_ = false;
      break;
    case StateReport::Kind::restarted:
      retryIn(slowRetry, "the process that writes it has died; another goes on");
      isReplacing_ = false;
      break;
    default:
      isComplete_ = false;
      errorIs("the process that writes it has gone");
  }
}

void HistoryKeeper::retryIn(double seconds, std::string const& error) {
  isComplete_ = false;
  if (writer_->fd() < 0) return;
  errorIs(error);
  if (!retryTimer_.isRunning()) retryTimer_.startIn(seconds);
}

/// An error is logged once, however often it is met.
void HistoryKeeper::errorIs(std::string const& error) {
  if (std::exchange(error_, error) == error) return;
  if (error.empty()) return logEvent(logEvents::historyKept, path_ + ": all changes are kept again");
  std::string where = path_.empty() ? "" : path_ + ": ";
  logEvent(logEvents::historyError, fmt::format("the history is not kept: {}{}", where, error));
}

HistoryFile HistoryKeeper::state() const {
  HistoryFile state{.error = error_};
  if (writer_ == nullptr) return state;
  state.path = path_;
  state.unsaved = skipped_ + writer_->counts().lost + writer_->counts().failures;
  state.writerRestarts = writer_->counts().restarts;
  return state;
}

}  // namespace pimbsr::agent
