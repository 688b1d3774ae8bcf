#include "view/Zones.h"

namespace pimbsr::view {

std::string expiryOf(SetRp const& view) {
  return view.holdTime == 0 ? "withdrawn" : cellOf(view.expiresIn, "never");
}

std::string modeOf(SetRp const& view) { return view.bidirectional ? "bidirectional" : "sparse"; }

std::string noteOf(CoveringRange const& view) {
  if (view.chosen) return "chosen";
  return view.live == 0 ? "passed over: none is live" : "a longer one is chosen";
}

}  // namespace pimbsr::view
