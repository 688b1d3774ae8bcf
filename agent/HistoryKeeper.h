#pragma once

#include <memory>
#include <string>

#include "agent/account/History.h"
#include "agent/account/HistoryFile.h"
#include "agent/base/Clock.h"
#include "agent/base/Loop.h"
#include "agent/helpers/StateWriter.h"

namespace pimbsr::agent {

/// Keeps a history in its file, by the writer of the state directory.
///
/// A new entry, and each election, is handed to the writer before the next event is served; a repetition of
/// other changes within a second. An entry that the writer could not take or write is in the snapshot that is
/// tried again every few seconds. A writer that has not synced a record for some seconds is an error, too.
class HistoryKeeper {
 public:
  /// The file's place among those of the writer.
  static constexpr std::size_t writerFile = 0;
  static constexpr char const* fileName = "history.jsonl";

  /// The writer is null where no state is kept; `problem` says why if it should be. All outlive the keeper.
  HistoryKeeper(Loop& loop, Clock const& clock, History& history, StateWriter* writer,
                std::string const& problem);
  HistoryKeeper(HistoryKeeper const&) = delete;
  HistoryKeeper& operator=(HistoryKeeper const&) = delete;

  /// Reads the entries of former runs, adds the start of this one, and has the file written anew. A file that
  /// is damaged is logged and moved aside, and its readable entries are taken. While the writer of a former
  /// run has not ended, that waits for its end.
  void load();
  /// Saves what is new; to be called at the end of each event.
  void save();
  /// Saves all entries, in place of those in the file.
  void saveAll();
  /// Adds the end of this run.
  void stop();

  HistoryFile state() const;

 private:
  void restoreFile();
  void loadLate();
  void restore(std::string const& text);
  void moveAside(std::string const& why);
  void append(HistoryEntry const& entry);
  void saveRepeated();
  void handleReports();
  void handle(StateReport const& report);
  void awaitAnswer();
  void checkAnswer();
  void answered(U64 number);
  void retryIn(double seconds, std::string const& error);
  void errorIs(std::string const& error);

  Clock const& clock_;
  History& history_;
  StateWriter* writer_;
  std::string path_;  ///< of the file
  LoopTimer repeatTimer_;
  LoopTimer retryTimer_;
  LoopTimer answerTimer_;
  std::unique_ptr<LoopReader> reader_;
  std::string error_;
  bool isComplete_ = true;    ///< the file has all entries once the writer has done what it was given
  bool isReplacing_ = false;  ///< a snapshot is on its way
  bool isLate_ = false;       ///< the writer has not answered in time
  std::size_t appended_ = 0;  ///< bytes since the last snapshot
  U64 skipped_ = 0;           ///< entries that were left to a snapshot
  U64 answered_ = 0;          ///< the last record that the writer has synced or failed to
  U64 awaited_ = 0;           ///< the record that answerTimer_ waits for
  U64 late_ = 0;              ///< records that were not synced in time
  U64 lateUntil_ = 0;         ///< the last of them
};

}  // namespace pimbsr::agent
