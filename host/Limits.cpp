#include "host/Limits.h"

#include <vector>

#include "host/IngressSettings.keys.h"

namespace pimbsr::host {

static std::vector<Limit> rowsOfLimits() {
  std::vector<Limit> rows;
  LimitsKeys::forEach([&](ConfigKey const& key, auto member) { rows.push_back({key.name, member, &key}); });
  return rows;
}

std::span<Limit const> limits() {
  static std::vector<Limit> const rows = rowsOfLimits();
  return rows;
}

void copyLimits(IngressSettings const& from, IngressSettings& to) {
  LimitsKeys::forEach([&](ConfigKey const&, auto member) { to.*member = from.*member; });
}

bool hasLimits(IngressSettings const& settings) {
  bool has = false;
  LimitsKeys::forEach([&](ConfigKey const&, auto member) { has = has || settings.*member != 0; });
  return has;
}

}  // namespace pimbsr::host
