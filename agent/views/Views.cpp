#include "agent/views/Views.h"

#include <array>
#include <iterator>

#include "agent/base/RequestError.h"
#include "agent/config/ConfigWriter.h"
#include "agent/control/ControlProtocol.h"
#include "agent/views/ViewParts.h"
#include "view/Answers.h"
#include "view/Json.h"

namespace pimbsr::agent {

using view::Json;
using View = Json (*)(Observed const&);

struct NamedView {
  std::string_view name;
  View view;
};

/// As a human-readable file with every key, and as values.
static view::Config showConfig(Observed const& observed) {
  return {.file = writeToml(observed.settings), .settings = writeJson(observed.settings)};
}

/// The JSON of a view that a function fills.
template <auto fill>
static Json shown(Observed const& observed) {
  return jsonOf(fill(observed));
}

/// All but "rp", "rp-set" and "tree", which are asked for a part.
static constexpr NamedView views[] = {{"bsr", shown<showBsr>},
                                      {"candidates", shown<showCandidates>},
                                      {"neighbors", shown<showNeighbors>},
                                      {"interfaces", shown<showInterfaces>},
                                      {"borders", shown<showBorders>},
                                      {"filter", shown<showFilter>},
                                      {"counters", shown<showCounters>},
                                      {"drops", shown<showDrops>},
                                      {"corrections", shown<showCorrections>},
                                      {"history", shown<showHistory>},
                                      {"config", shown<showConfig>},
                                      {"control", shown<showControl>},
                                      {"on-change", shown<showOnChange>}};

/// How many entries of the tree one answer has: few enough for one turn of the loop.
static constexpr std::size_t treePage = 1000;

static std::string validNames() {
  std::string names;
  for (std::string_view name : viewNames()) names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

Json showTree(host::Router const& router, std::string const& path, TreePart const& part) {
  return jsonOf(showModel(router, path, {.maxEntries = treePage, .depth = part.depth, .from = part.from}));
}

Json get(host::Router const& router, std::string const& path) { return jsonOf(showModelValue(router, path)); }

Json show(Observed const& observed, std::string_view what, Lanet::IpAddr group,
          Lanet::IpGenPrefix const& prefix) {
  if (what == "tree") return showTree(observed.router, "", {});
  if (what == "rp-set") return jsonOf(showRpSet(observed, prefix));
  if (what == "rp") return jsonOf(showRp(observed, group));
  for (NamedView const& named : views) {
    if (named.name == what) return named.view(observed);
  }
  throw RequestError("there is no view \"" + std::string(what) + "\"; valid are " + validNames());
}

}  // namespace pimbsr::agent
