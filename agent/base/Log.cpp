#include "agent/base/Log.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <iterator>

namespace pimbsr::agent {

/// Lines lost since the last one that was written.
static unsigned long lost = 0;

/// A line of at most PIPE_BUF bytes is written to a pipe at once; longer lines are cut.
static constexpr std::size_t maxLineLength = 4000;

static bool canWrite() {
  pollfd stream{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  return poll(&stream, 1, 0) == 1 && (stream.revents & POLLOUT) != 0;
}

void logLine(std::string_view text) noexcept {
  if (text.empty()) return;
  fmt::memory_buffer line;
  if (lost != 0) fmt::format_to(std::back_inserter(line), "pimbsr: {} lines were lost here\n", lost);
  fmt::format_to(std::back_inserter(line), "pimbsr: {}\n", text.substr(0, maxLineLength));
  bool written = canWrite() && write(STDERR_FILENO, line.data(), line.size()) >= 0;
  lost = written ? 0 : lost + 1;
}

}  // namespace pimbsr::agent
