#include "view/Learned.h"

namespace pimbsr::view {

std::string expiryOf(SetRp const& view) {
  return view.holdtime == 0 ? "withdrawn" : cellOf(view.expiresIn, "never");
}

/// One has a name that only its parts explain.
std::string counterNameOf(Counter const& view) {
  return view.name == "errCounters" ? "Dropped, by cause" : view.name;
}

}  // namespace pimbsr::view
