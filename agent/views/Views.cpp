#include "agent/views/Views.h"

#include <array>
#include <iterator>

#include "agent/base/RequestError.h"
#include "agent/config/ConfigWriter.h"
#include "agent/control/ControlProtocol.h"
#include "agent/views/ViewParts.h"

namespace pimbsr::agent {

using View = Json (*)(Observed const&);

struct NamedView {
  std::string_view name;
  View view;
};

/// As a file with every key, which people read, and as values.
static Json showConfig(Observed const& observed) {
  return {{"file", writeToml(observed.settings)}, {"settings", writeJson(observed.settings)}};
}

/// All but "rp", which needs a group.
static constexpr NamedView views[] = {{"bsr", showBsr},
                                      {"rp-set", showRpSet},
                                      {"candidates", showCandidates},
                                      {"neighbors", showNeighbors},
                                      {"interfaces", showInterfaces},
                                      {"borders", showBorders},
                                      {"filter", showFilter},
                                      {"counters", showCounters},
                                      {"drops", showDrops},
                                      {"history", showHistory},
                                      {"config", showConfig},
                                      {"control", showControl}};

static std::string validNames() {
  std::string names;
  for (std::string_view name : viewNames()) names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

Json show(Observed const& observed, std::string_view what, Lanet::IpAddr group) {
  if (what == "rp") return showRp(observed, group);
  for (NamedView const& named : views) {
    if (named.name == what) return named.view(observed);
  }
  throw RequestError("there is no view \"" + std::string(what) + "\"; valid are " + validNames());
}

}  // namespace pimbsr::agent
