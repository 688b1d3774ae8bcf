#pragma once

#include "runtime/Export.h"
#include "runtime/LogHandle.h"
#include "runtime/String8.h"

namespace Zet {

/// Emits the message through the current context unless its rate limit holds it back.
PIMBSR_API void log(LogHandle const& handle, String8 const& argument);

}  // namespace Zet
