#pragma once

#include <string_view>

namespace pimbsr::cli {

/// The page of web/, as it was bundled, before and after its data.
extern std::string_view const pageBeforeData;
extern std::string_view const pageAfterData;

}  // namespace pimbsr::cli
