#include <fmt/format.h>

#include "agent/config/ConfigLint.h"
#include "agent/views/Views.h"

namespace pimbsr::agent {

static std::vector<std::string> textsOf(std::string const& file, char const* kind,
                                        std::vector<ConfigFinding> const& findings) {
  std::vector<std::string> texts;
  texts.reserve(findings.size());
  for (ConfigFinding const& finding : findings)
    texts.push_back(fmt::format("{}: {}: {}", textOf(file, finding.at), kind, finding.text));
  return texts;
}

view::Reload reloadOf(ConfigReading const& reading, Settings const& inUse) {
  view::Reload result{.applied = reading.isSound(),
                      .errors = textsOf(reading.file, "error", reading.errors),
                      .warnings = textsOf(reading.file, "warning", lint(reading))};
  if (result.applied) result.needsRestart = needRestart(inUse, reading.settings);
  return result;
}

}  // namespace pimbsr::agent
