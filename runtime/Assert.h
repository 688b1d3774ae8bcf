#pragma once

#include "runtime/Export.h"

namespace Zet {

/// Called with the text of a failed assertion before the process ends, for the host's own log.
using AssertHook = void (*)(char const* text, char const* file, int line);

/// Sets the hook and returns the former one; null is no hook. One per process.
PIMBSR_API AssertHook assertHookIs(AssertHook hook);

/// Prints the text, calls the hook and ends the process by abort().
[[noreturn]] PIMBSR_API void assertionFailed(char const* text, char const* file, int line);

}  // namespace Zet

/// A broken invariant of our own: the condition is evaluated once, in every build, and a failure ends the
/// process.
#define ZET_ASSERT(condition, text) \
  (static_cast<bool>(condition) ? void(0) : ::Zet::assertionFailed(text, __FILE__, __LINE__))
