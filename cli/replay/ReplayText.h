#pragma once

#include <iosfwd>
#include <string>

#include "cli/base/Columns.h"
#include "cli/replay/Replay.h"

namespace pimbsr::cli {

/// Writes a replay as human-readable text: a line for each message and each change as it comes, and at the
/// end the learned state.
class ReplayText final : public ReplayReport {
 public:
  /// `file` is named in the head.
  ReplayText(std::ostream& out, std::string const& file) : out_(out), file_(file) {}

  void onStart(CaptureTime const& first) override;
  void onMessage(PlayedMessage const& played, std::span<host::Change const> changes) override;
  void onTimers(double time, std::span<host::Change const> changes) override;
  void onEnd(ReplayResult const& result) override;

 private:
  void writeRow(TimelineRow const& row);

  std::ostream& out_;
  std::string file_;
  CaptureTime first_;
  bool hasHead_ = false;
};

/// Writes the learned state at the end of a replay, and its counts.
void writeSummary(std::ostream& out, ReplayResult const& result);

}  // namespace pimbsr::cli
