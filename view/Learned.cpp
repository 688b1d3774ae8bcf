#include "view/Learned.h"

namespace pimbsr::view {

std::string expiryOf(SetRp const& view) {
  if (view.holdtime == 0) return "withdrawn";
  return cellOf(view.expiresIn, "never") + (view.kept.value_or(false) ? ", kept" : "");
}

/// One has a name that only its parts explain.
std::string counterNameOf(Counter const& view) {
  return view.name == "errCounters" ? "Dropped, by cause" : view.name;
}

}  // namespace pimbsr::view
