#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "runtime/Export.h"

namespace pimbsr::host {

/// The edit distance: how many letters to insert, delete or replace to change one text into the other. It
/// costs the product of both lengths.
PIMBSR_API std::size_t editDistance(std::string_view a, std::string_view b);

/// Up to `max` of the names, those of the smallest edit distance first, equal ones in the given order. A name
/// of more than 64 letters is near to none.
PIMBSR_API std::vector<std::string_view> nearestNames(std::string_view name,
                                                      std::vector<std::string_view> const& names,
                                                      std::size_t max);

}  // namespace pimbsr::host
