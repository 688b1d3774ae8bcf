#include "agent/base/Log.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <iterator>

namespace pimbsr::agent {

/// Lines that were lost since one got through.
static unsigned long lost = 0;

/// Only what fits into a pipe at once is sure not to wait; longer lines are cut.
static constexpr std::size_t longestLine = 4000;

static bool canWrite() {
  pollfd stream{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  return poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0;
}

void logLine(std::string_view text) noexcept {
  if (text.empty()) return;
  fmt::memory_buffer line;
  if (lost != 0) fmt::format_to(std::back_inserter(line), "pimbsr: {} lines were lost here\n", lost);
  fmt::format_to(std::back_inserter(line), "pimbsr: {}\n", text.substr(0, longestLine));
  bool written = canWrite() && write(STDERR_FILENO, line.data(), line.size()) >= 0;
  lost = written ? 0 : lost + 1;
}

}  // namespace pimbsr::agent
