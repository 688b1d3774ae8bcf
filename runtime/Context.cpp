#include "runtime/Context.h"

#include <cstdio>
#include <cstdlib>

#include "runtime/Log.h"

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
