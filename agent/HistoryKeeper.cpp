#include "agent/HistoryKeeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <list>
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
/// Seconds within which the writer syncs a record, or reports that it can't.
static constexpr double answerTime = 3;
/// Bytes that are appended to the file before it is written anew.
static constexpr std::size_t maxAppended = std::size_t{1} << 20;
static constexpr std::size_t maxFile = std::size_t{8} << 20;

HistoryKeeper::HistoryKeeper(Loop& loop, Clock const& clock, History& history, StateWriter* writer,
                             std::string const& problem)
    : clock_(clock),
      history_(history),
      writer_(writer),
      repeatTimer_(loop, [this] { saveRepeated(); }),
      retryTimer_(loop, [this] { saveAll(); }),
      answerTimer_(loop, [this] { checkAnswer(); }) {
  errorIs(problem);
  if (writer_ == nullptr) return;
  path_ = std::filesystem::path(writer_->options().folder) / fileName;
  reader_ = std::make_unique<LoopReader>(loop, writer_->fd(), [this] { handleReports(); });
}

/// An error number of a file; the system has no words for one that is a pipe or a folder.
static std::string errorTextOf(int error) {
  return error == EINVAL || error == EISDIR ? "it is no regular file"
                                            : std::generic_category().message(error);
}

// Former runs -------------------------------------------------------------------------------------------

void HistoryKeeper::load() {
  if (writer_ != nullptr && writer_->isWaiting()) {
    isComplete_ = false;
    errorIs("the writer of an earlier run has not ended");
  } else if (writer_ != nullptr) {
    restoreFile();
  }
  history_.noteStart(clock_.now());
  saveAll();
}

void HistoryKeeper::restoreFile() {
  if (!std::filesystem::exists(path_)) return;
  try {
    restore(readFile(path_, maxFile));
  } catch (std::system_error const& error) {
    moveAside(errorTextOf(error.code().value()));
  }
}

/// The entries of former runs come before those of this one.
void HistoryKeeper::loadLate() {
  std::list<HistoryEntry> const present = history_.store().entries();
  history_.store().clear();
  if (!history_.wasCleared()) restoreFile();
  for (HistoryEntry const& entry : present) history_.store().restore(entry);
  saveAll();
}

void HistoryKeeper::restore(std::string const& text) {
  HistoryLines lines = restoreLines(history_.store(), text);
  if (lines.damaged != 0) moveAside(fmt::format("{} of {} lines can't be read", lines.damaged, lines.all));
}

/// Files that were moved aside before stay, up to a bound: the file is not damaged again and again unnoticed.
static std::string freeName(std::string const& path) {
  static constexpr int maxKept = 9;
  std::string name = path;
  for (int i = 2; std::filesystem::exists(name) && i <= maxKept; ++i) name = fmt::format("{}.{}", path, i);
  return name;
}

void HistoryKeeper::moveAside(std::string const& why) {
  std::string aside = freeName(path_ + ".damaged");
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
  awaitAnswer();
  appended_ += line.size();
  if (appended_ > maxAppended) saveAll();
}

void HistoryKeeper::saveAll() {
  if (writer_ == nullptr || writer_->isWaiting()) return;
  // The next snapshot follows once this one is written.
  if (isReplacing_) return void(isComplete_ = false);
  if (!writer_->replace(writerFile, linesOf(history_.store())))
    return retryIn(slowRetry, "the disk is too slow");
  awaitAnswer();
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
    case StateReport::Kind::ready:
      loadLate();
      break;
    case StateReport::Kind::waiting:
      break;
    case StateReport::Kind::synced:
      answered(report.number);
      break;
    case StateReport::Kind::replaced:
      answered(report.number);
      isReplacing_ = false;
      isComplete_ ? errorIs("") : saveAll();
      break;
    case StateReport::Kind::failed:
      answered(report.number);
      retryIn(failureRetry, errorTextOf(report.error));
      isReplacing_ = false;
      break;
    case StateReport::Kind::restarted:
      answered(writer_->lastNumber());
      retryIn(slowRetry, "the process that writes it has died; another goes on");
      isReplacing_ = false;
      break;
    default:
      isComplete_ = false;
      errorIs("the process that writes it has gone");
  }
}

void HistoryKeeper::awaitAnswer() {
  if (answerTimer_.isRunning()) return;
  awaited_ = writer_->lastNumber();
  answerTimer_.startIn(answerTime);
}

/// A disk that hangs lets the writer wait, and reports no error.
void HistoryKeeper::checkAnswer() {
  if (writer_->fd() < 0) return;
  if (answered_ < awaited_) {
    isLate_ = true;
    late_ += writer_->lastNumber() - std::max(answered_, lateUntil_);
    lateUntil_ = writer_->lastNumber();
    if (error_.empty()) errorIs(fmt::format("the disk has not answered for {:.0f} s", answerTime));
    return answerTimer_.startIn(answerTime);
  }
  if (answered_ < writer_->lastNumber()) awaitAnswer();
}

void HistoryKeeper::answered(U64 number) {
  answered_ = std::max(answered_, number);
  if (answered_ < awaited_ || !std::exchange(isLate_, false)) return;
  if (isComplete_ && !isReplacing_) errorIs("");
}

void HistoryKeeper::retryIn(double seconds, std::string const& error) {
  isComplete_ = false;
  if (writer_->fd() < 0) return;
  if (!isLate_) errorIs(error);
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
  state.unsaved = skipped_ + late_ + writer_->counts().lost + writer_->counts().failures;
  state.writerRestarts = writer_->counts().restarts;
  return state;
}

}  // namespace pimbsr::agent
