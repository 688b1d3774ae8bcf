#include "sim/ScenarioSwitches.h"

#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"

namespace pimbsr::sim {

/// Reads the switches that `Keys` declares; those that aren't named are off.
template <class Keys, class Settings>
static void readSwitches(ScenarioLine& line, std::string_view kind, Settings& settings,
                         std::vector<U32>& routers) {
  std::vector<std::string_view> valid = {"all", "none"};
  Keys::forEach([&](host::ConfigKey const& key, auto) { valid.push_back(key.name); });
  do {
    std::string_view name = valid[line.oneOf(kind, valid)];
    Keys::forEach([&](host::ConfigKey const& key, auto member) {
      if (name == "all" || name == key.name) settings.*member = true;
    });
  } while (!line.atEnd() && line.peek() != "on");
  if (!line.take("on")) return;
  do {
    routers.push_back(line.router());
  } while (!line.atEnd());
}

Action readCorrections(ScenarioLine& line) {
  SetCorrections set;
  readSwitches<host::CorrectionsKeys>(line, "correction", set.settings, set.routers);
  return set;
}

Action readChecks(ScenarioLine& line) {
  SetChecks set;
  readSwitches<host::ChecksKeys>(line, "check", set.checks, set.routers);
  return set;
}

}  // namespace pimbsr::sim
