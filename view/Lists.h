#pragma once

#include <string>
#include <vector>

namespace pimbsr::view {

/// Names of access lists with commas between them, with a mark at those that aren't there; "none" for none.
std::string listsOf(std::vector<std::string> lists, std::vector<std::string> const& absent);

}  // namespace pimbsr::view
