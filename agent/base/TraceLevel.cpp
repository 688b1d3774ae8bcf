#include "agent/base/TraceLevel.h"

#include "runtime/Trace.h"

namespace pimbsr::agent {

using Zet::TraceHandle;

std::vector<std::string> traceHandles() {
  std::vector<std::string> names;
  for (TraceHandle const* handle : TraceHandle::handles()) names.emplace_back(handle->name());
  return names;
}

void traceLevelIs(std::string const& name, int level) {
  for (TraceHandle* handle : TraceHandle::handles()) {
    if (handle->name() != name) continue;
    handle->enabledIs(level >= 0);
    for (int n = 0; n < TraceHandle::levels; ++n) handle->levelIs(n, level < 0 || n <= level);
  }
}

}  // namespace pimbsr::agent
