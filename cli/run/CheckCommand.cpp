#include "cli/run/CheckCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <ostream>
#include <system_error>
#include <vector>

#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/process/Files.h"

namespace pimbsr::cli {

using agent::ConfigFinding;
using agent::ConfigReading;
using Json = nlohmann::ordered_json;

namespace {

/// An error or a lint.
struct Finding {
  char const* severity;
  ConfigFinding what;
};

std::vector<Finding> findingsOf(ConfigReading const& reading) {
  std::vector<Finding> findings;
  for (ConfigFinding const& error : reading.errors) findings.push_back({"error", error});
  for (ConfigFinding const& lint : agent::lint(reading)) findings.push_back({"warning", lint});
  auto before = [](Finding const& a, Finding const& b) { return a.what.at < b.what.at; };
  std::stable_sort(findings.begin(), findings.end(), before);
  return findings;
}

void printText(ConfigReading const& reading, std::ostream& out) {
  for (auto const& [severity, what] : findingsOf(reading)) {
    out << agent::textOf(reading.file, what.at) << ": " << severity << ": " << what.text << '\n';
  }
  if (reading.isSound()) out << reading.file << ": configuration OK\n";
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

[[noreturn]] void fail(std::string const& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

/// Replaces the file that a path leads to, which keeps its owner and mode.
void replaceText(std::string const& path, std::string const& text) {
  std::string const file = std::filesystem::canonical(path).string();
  struct stat former {};
  if (::stat(file.c_str(), &former) != 0) fail(file);
  agent::replaceFile(file, text);
  if (::chown(file.c_str(), former.st_uid, former.st_gid) != 0) fail(file);
  if (::chmod(file.c_str(), former.st_mode & 07777) != 0) fail(file);
}

/// Gives the keys of a file their names of now; writes nothing if they have them.
void renameKeys(ConfigReading const& reading) {
  if (reading.renames.empty()) return;
  std::string const text = agent::readFile(reading.file, agent::maxConfigTextLength);
  replaceText(reading.file, agent::renamedKeys(text, reading.renames));
}

}  // namespace

ExitCode rewriteConfig(std::string const& file, bool json, std::ostream& out, std::ostream& err) {
  try {
    ConfigReading reading = agent::readConfigFile(file);
    renameKeys(reading);
    if (!json && !reading.renames.empty())
      out << file << ": keys renamed: " << reading.renames.size() << '\n';
  } catch (std::system_error const& error) {
    err << "pimbsr: " << error.what() << '\n';
    return exitFailed;
  }
  return checkConfig(file, json, out, err);
}

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
