#include "cli/run/CheckCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <ostream>
#include <system_error>
#include <vector>

#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/process/Files.h"
#include "view/Check.h"
#include "view/Json.h"

namespace pimbsr::cli {

using agent::ConfigFinding;
using agent::ConfigReading;

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

view::Finding viewOf(Finding const& finding) {
  ConfigFinding const& what = finding.what;
  view::Finding made{.severity = finding.severity, .text = what.text};
  if (what.at == agent::TextPlace()) return made;
  made.line = what.at.line;
  made.column = what.at.column;
  return made;
}

void printJson(ConfigReading const& reading, std::ostream& out) {
  view::Check check{.file = reading.file, .sound = reading.isSound()};
  for (Finding const& finding : findingsOf(reading)) check.findings.push_back(viewOf(finding));
  // The name of a file may be of any bytes.
  out << view::jsonOf(check).dump(2, ' ', false, view::Json::error_handler_t::replace) << '\n';
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
