#include "sim/ScenarioSwitches.h"

#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"
#include "host/Limits.h"

namespace pimbsr::sim {

/// Reads the routers after `on`, if it is there.
static std::vector<U32> readRouters(ScenarioLine& line) {
  std::vector<U32> routers;
  if (!line.take("on")) return routers;
  do {
    routers.push_back(line.router());
  } while (!line.atEnd());
  return routers;
}

/// Reads the switches that `Keys` declares; those that aren't named are off.
template <class Keys, class Settings>
static void readSwitches(ScenarioLine& line, std::string_view kind, Settings& settings) {
  std::vector<std::string_view> valid = {"all", "none"};
  Keys::forEach([&](host::ConfigKey const& key, auto) { valid.push_back(key.name); });
  do {
    std::string_view name = valid[line.oneOf(kind, valid)];
    Keys::forEach([&](host::ConfigKey const& key, auto member) {
      if (name == "all" || name == key.name) settings.*member = true;
    });
  } while (!line.atEnd() && line.peek() != "on");
}

Action readCorrections(ScenarioLine& line) {
  SetCorrections set;
  readSwitches<host::CorrectionsKeys>(line, "correction", set.settings);
  set.routers = readRouters(line);
  return set;
}

Action readChecks(ScenarioLine& line) {
  SetChecks set;
  readSwitches<host::ChecksKeys>(line, "check", set.checks);
  set.routers = readRouters(line);
  return set;
}

static void readLimit(ScenarioLine& line, std::vector<SetLimits::Value>& values) {
  std::vector<std::string_view> valid = {"none"};
  for (host::Limit const& limit : host::limits()) valid.push_back(limit.name);
  U32 number = line.oneOf("limit", valid);
  if (number != 0) {
    host::Limit const& limit = host::limits()[number - 1];
    U64 value = line.number(limit.name, limit.key->least, limit.key->most);
    values.push_back({limit.value, static_cast<U32>(value)});
    return;
  }
  for (host::Limit const& limit : host::limits()) values.push_back({limit.value, 0});
}

Action readLimits(ScenarioLine& line) {
  SetLimits set;
  do {
    readLimit(line, set.values);
  } while (!line.atEnd() && line.peek() != "on");
  set.routers = readRouters(line);
  return set;
}

}  // namespace pimbsr::sim
