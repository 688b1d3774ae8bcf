#include "cli/base/Tracing.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/base/Errors.h"
#include "runtime/Trace.h"

namespace pimbsr::cli {

using Zet::TraceHandle;

static std::string validHandles() {
  std::string all;
  for (TraceHandle const* handle : TraceHandle::handles()) {
    all += (all.empty() ? "" : ", ") + std::string(handle->name());
  }
  return all;
}

static bool isHandle(std::string const& name) {
  std::vector<TraceHandle*> handles = TraceHandle::handles();
  return std::any_of(handles.begin(), handles.end(), [&](auto* handle) { return name == handle->name(); });
}

TraceRequest parseTraceRequest(std::string const& text) {
  // Names of handles hold colons themselves.
  std::size_t colon = text.rfind(':');
  std::string handle = text.substr(0, colon);
  std::string level = colon == text.npos ? "" : text.substr(colon + 1);
  if (isHandle(text) || level.size() != 1 || level[0] < '0' || level[0] > '9') {
    throw UsageError(fmt::format("--trace: '{}' is no HANDLE:LEVEL with a level from 0 to {}; handles are {}",
                                 text, TraceHandle::levels - 1, validHandles()));
  }
  if (!isHandle(handle)) {
    throw UsageError(fmt::format("--trace: there is no handle '{}'; handles are {}", handle, validHandles()));
  }
  return {handle, level[0] - '0'};
}

static void levelsIs(TraceHandle& handle, int first, bool on) {
  for (int level = first; level < TraceHandle::levels; ++level) handle.levelIs(level, on);
}

Tracing::Tracing(std::vector<TraceRequest> const& requests) : requests_(requests) {
  auto byLevel = [](TraceRequest const& a, TraceRequest const& b) { return a.level < b.level; };
  std::stable_sort(requests_.begin(), requests_.end(), byLevel);
  for (TraceRequest const& request : requests_) {
    TraceHandle& handle = TraceHandle::handle(request.handle);
    handle.enabledIs(true);
    levelsIs(handle, 0, true);
    levelsIs(handle, request.level + 1, false);
  }
}

Tracing::~Tracing() {
  for (TraceRequest const& request : requests_) {
    TraceHandle& handle = TraceHandle::handle(request.handle);
    handle.enabledIs(false);
    levelsIs(handle, 0, true);
  }
}

}  // namespace pimbsr::cli
