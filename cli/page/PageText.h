#pragma once

#include <string_view>

namespace pimbsr::cli {

/// The page of web/, as it was bundled: before what its policy permits to connect to, from there to its data,
/// and after them.
extern std::string_view const pageBeforeConnect;
extern std::string_view const pageBeforeData;
extern std::string_view const pageAfterData;

}  // namespace pimbsr::cli
