#pragma once

#include <span>
#include <string_view>

#include "host/ConfigKey.h"
#include "host/IngressSettings.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// One bound of IngressSettings under the name that operators use.
struct Limit {
  std::string_view name;        ///< such as "rps-per-range"
  U32 IngressSettings::*value;  ///< the bound; 0 is none
  ConfigKey const* key;         ///< its facts; never null
};

/// All bounds, in the order in which they are documented.
PIMBSR_API std::span<Limit const> limits();

/// Copies the bounds of `from` and leaves the checks of `to` as they are.
PIMBSR_API void copyLimits(IngressSettings const& from, IngressSettings& to);

/// Whether any bound is set. While none is, nothing is counted for one.
PIMBSR_API bool hasLimits(IngressSettings const& settings);

}  // namespace pimbsr::host
