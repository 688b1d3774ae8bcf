#pragma once

#include <iosfwd>

#include "cli/replay/Replay.h"

namespace pimbsr::cli {

/// Writes what stands at the end as one JSON document; nothing if the capture wasn't read to its end.
class ReplayJson final : public ReplayReport {
 public:
  explicit ReplayJson(std::ostream& out) : out_(out) {}
  void onEnd(ReplayResult const& result) override;

 private:
  std::ostream& out_;
};

}  // namespace pimbsr::cli
