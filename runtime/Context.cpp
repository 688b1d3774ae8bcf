#include "runtime/Context.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "runtime/LogHandle.h"

namespace Zet {

[[gnu::tls_model("initial-exec")]] static thread_local constinit Context* currentContext = nullptr;

int Context::rand() { return std::rand(); }

void Context::srand(unsigned seed) { std::srand(seed); }

void Context::trace(TraceLine const& line) {
  std::fprintf(stderr, "%.6f %s %d %s: %s\n", now(), line.handle, line.level, line.sourceBlock,
               line.text.c_str());
}

void Context::log(LogHandle const& handle, std::string const& text) {
  std::fprintf(stderr, "%.6f %%%d-%s: %s\n", now(), static_cast<int>(handle.severity()), handle.name(),
               text.c_str());
}

bool Context::takeFromLogLimit(LogHandle const& handle) {
  if (handle.interval() <= 0.0) return true;
  Bucket& bucket = logBuckets_.try_emplace(&handle, Bucket{handle.burst(), now_}).first->second;
  bucket.tokens = std::min(handle.burst(), bucket.tokens + (now_ - bucket.filled) / handle.interval());
  bucket.filled = now_;
  if (bucket.tokens < 1.0) return false;
  bucket.tokens -= 1.0;
  return true;
}

// A thread that entered no scope has a plain context, made at its first use: the pointer needs no constructor
// and no guard, so that reading the current context is one load.
Context& Context::current() {
  if (currentContext == nullptr) {
    static thread_local Context plain;
    currentContext = &plain;
  }
  return *currentContext;
}

Context::Scope::Scope(Context& context) : former_(currentContext) { currentContext = &context; }

Context::Scope::~Scope() { currentContext = former_; }

}  // namespace Zet
