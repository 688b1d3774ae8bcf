#pragma once

#include <functional>
#include <iosfwd>
#include <memory>

#include "cli/replay/Replay.h"
#include "view/View.h"

namespace pimbsr::cli {

/// Makes one JSON document: each message with its verdict and its content, each change, and the learned
/// state at the end; nothing if the capture wasn't read to its end. It is kept in memory until then.
class ReplayJson final : public ReplayReport {
 public:
  /// Gets the document at the end.
  using Take = std::function<void(view::Json const&)>;

  explicit ReplayJson(Take take);
  /// The document is written to `out`.
  explicit ReplayJson(std::ostream& out);
  ~ReplayJson() override;

  void onMessage(PlayedMessage const& message, std::span<host::Change const> changes) override;
  void onTimers(double time, std::span<host::Change const> changes) override;
  void onEnd(ReplayResult const& result) override;

 private:
  struct Document;

  Take take_;
  std::unique_ptr<Document> document_;
};

}  // namespace pimbsr::cli
