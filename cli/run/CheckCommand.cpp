#include "cli/run/CheckCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"

namespace pimbsr::cli {

using agent::ConfigFinding;
using agent::ConfigReading;
using Json = nlohmann::ordered_json;

namespace {

/// A fault or a lint.
struct Finding {
  char const* severity;
  ConfigFinding what;
};

std::vector<Finding> findingsOf(ConfigReading const& reading) {
  std::vector<Finding> findings;
  for (ConfigFinding const& fault : reading.faults) findings.push_back({"error", fault});
  for (ConfigFinding const& lint : agent::lint(reading)) findings.push_back({"warning", lint});
  auto before = [](Finding const& a, Finding const& b) { return a.what.at < b.what.at; };
  std::stable_sort(findings.begin(), findings.end(), before);
  return findings;
}

void printText(ConfigReading const& reading, std::ostream& out) {
  for (auto const& [severity, what] : findingsOf(reading)) {
    out << agent::textOf(reading.file, what.at) << ": " << severity << ": " << what.text << '\n';
  }
  if (reading.isSound()) out << reading.file << ": no faults\n";
}

void printJson(ConfigReading const& reading, std::ostream& out) {
  Json findings = Json::array();
  for (auto const& [severity, what] : findingsOf(reading)) {
    bool isPlaced = what.at != agent::TextPlace();
    findings.push_back({{"severity", severity},
                        {"line", isPlaced ? Json(what.at.line) : Json()},
                        {"column", isPlaced ? Json(what.at.column) : Json()},
                        {"text", what.text}});
  }
  Json document = {{"file", reading.file}, {"sound", reading.isSound()}, {"findings", findings}};
  // The name of a file may be of any bytes.
  out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace

ExitCode checkConfig(std::string const& file, bool json, std::ostream& out, std::ostream& err) {
  ConfigReading reading = agent::readConfigFile(file);
  if (json) {
    printJson(reading, out);
  } else {
    printText(reading, out);
  }
  ExitCode written = finish(out, err);
  return reading.isSound() ? written : exitFailed;
}

}  // namespace pimbsr::cli
