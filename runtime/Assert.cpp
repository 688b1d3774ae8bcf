#include "runtime/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Zet {

static AssertHook assertHook = nullptr;

AssertHook assertHookIs(AssertHook hook) {
  AssertHook former = assertHook;
  assertHook = hook;
  return former;
}

// The text is written before the hook runs, which may write the state that the assertion doubts.
void assertionFailed(char const* text, char const* file, int line) {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  if (assertHook != nullptr) assertHook(text, file, line);
  std::abort();
}

}  // namespace Zet
