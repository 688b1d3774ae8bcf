#include "view/Zones.h"

namespace pimbsr::view {

std::string noteOf(CoveringRange const& view) {
  if (view.chosen) return "chosen";
  return view.live == 0 ? "passed over: none is live" : "a longer one is chosen";
}

}  // namespace pimbsr::view
