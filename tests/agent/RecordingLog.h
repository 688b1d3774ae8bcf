#pragma once

#include <vector>

#include "agent/base/Log.h"

namespace test {

/// Takes the lines of the log while it lives.
class RecordingLog final : public pimbsr::agent::LogSink {
 public:
  RecordingLog() : former_(pimbsr::agent::logSinkIs(this)) {}
  ~RecordingLog() override { pimbsr::agent::logSinkIs(former_); }
  RecordingLog(RecordingLog const&) = delete;
  RecordingLog& operator=(RecordingLog const&) = delete;
  void write(pimbsr::agent::LogRecord const& record) noexcept override { records.push_back(record); }

  std::vector<pimbsr::agent::LogRecord> records;

 private:
  pimbsr::agent::LogSink* former_;
};

}  // namespace test
