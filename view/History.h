#pragma once

#include <string>

#include "view/History.zet.h"

namespace pimbsr::view {

/// A time in seconds since 1970 as date and time of day, in the time zone of the process.
std::string localTime(double seconds);

}  // namespace pimbsr::view
