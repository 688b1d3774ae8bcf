#include "runtime/Trace.h"

#include <map>
#include <memory>
#include <ostream>
#include <string>

#include "runtime/Context.h"
#include "runtime/Exceptions.h"

namespace Zet {

std::ostream* coverageStream_ = nullptr;

using Registry = std::map<std::string, std::unique_ptr<TraceHandle>, std::less<>>;

// A function's static, since handles register from static initializers, whose order isn't defined.
static Registry& registry() {
  static Registry handles;
  return handles;
}

TraceHandle& TraceHandle::handle(std::string_view name) {
  auto at = registry().find(name);
  if (at == registry().end()) {
    // The handle's name is the key's own bytes: a node of a map never moves.
    at = registry().emplace(std::string(name), nullptr).first;
    at->second.reset(new TraceHandle(at->first.c_str()));
  }
  return *at->second;
}

std::vector<TraceHandle*> TraceHandle::handles() {
  std::vector<TraceHandle*> all;
  for (auto& [name, handle] : registry()) all.push_back(handle.get());
  return all;
}

void TraceHandle::levelIs(int n, bool on) {
  if (n < 0 || n >= levels) throwRangeException("TraceHandle::level < 0 or > 9 not allowed");
  levels_ = on ? levels_ | (1u << n) : levels_ & ~(1u << n);
}

void traceHelper(char const* handleName, char const* traceName, std::ostringstream const& stream, int level,
                 bool coverage, char const* function, int line, char const* sourceBlock) {
  TraceLine trace{handleName, traceName, level, coverage, function, line, sourceBlock, stream.str()};
  if (coverageStream_ != nullptr) *coverageStream_ << trace.text << '\n';
  if (!coverage) Context::current().trace(trace);
}

}  // namespace Zet
