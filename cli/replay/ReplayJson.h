#pragma once

#include <iosfwd>
#include <memory>

#include "cli/replay/Replay.h"

namespace pimbsr::cli {

/// Writes one JSON document: each message with its verdict and its content, each change, and the learned
/// state at the end; nothing if the capture wasn't read to its end. It is kept in memory until then.
class ReplayJson final : public ReplayReport {
 public:
  explicit ReplayJson(std::ostream& out);
  ~ReplayJson() override;

  void onMessage(PlayedMessage const& message, std::span<host::Change const> changes) override;
  void onTimers(double time, std::span<host::Change const> changes) override;
  void onEnd(ReplayResult const& result) override;

 private:
  struct Document;

  std::ostream& out_;
  std::unique_ptr<Document> document_;
};

}  // namespace pimbsr::cli
