#include "tests/support/StateTable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

namespace test {

static char const* const page = PIMBSR_SOURCE_DIR "/docs/state-tables.md";

static std::string read(std::string const& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

static std::string sectionOf(std::string const& heading, std::vector<StateRow> const& rows) {
  std::string text = "## " + heading + "\n\n| state | event | next state | effects |\n|---|---|---|---|\n";
  for (StateRow const& row : rows) {
    text += "| " + row.state + " | " + row.event + " | " + row.next + " | " + row.effects + " |\n";
  }
  return text;
}

void expectSection(std::string const& heading, std::vector<StateRow> const& rows) {
  std::string text = read(page);
  std::size_t begin = text.find("## " + heading + "\n");
  ASSERT_NE(begin, std::string::npos) << "docs/state-tables.md has no section " << heading;
  std::size_t next = text.find("\n## ", begin);
  std::size_t end = next == std::string::npos ? text.size() : next;
  std::string made = sectionOf(heading, rows);
  if (std::getenv("PIMBSR_REWRITE") != nullptr) {
    text.replace(begin, end - begin, made);
    std::ofstream(page, std::ios::binary) << text;
    return;
  }
  EXPECT_EQ(text.substr(begin, end - begin), made)
      << "read the difference; PIMBSR_REWRITE=1 in the environment takes it over";
}

std::set<std::string> declaredHandlers(std::string const& path) {
  std::string text = read(PIMBSR_SOURCE_DIR "/" + path);
  std::set<std::string> found;
  std::regex const reaction(R"((?:on \w+|^  \w+ \w+ : [^"\n]*) runs (\w+))",
                            std::regex::ECMAScript | std::regex::multiline);
  for (std::sregex_iterator at(text.begin(), text.end(), reaction), none; at != none; ++at)
    found.insert((*at)[1]);
  return found;
}

std::string changesOf(Description const& before, Description const& after) {
  std::string text;
  for (std::size_t i = 0; i < after.size(); ++i) {
    if (before[i] == after[i]) continue;
    text += (text.empty() ? "" : "; ") + after[i].first + " " + after[i].second;
  }
  return text.empty() ? "-" : text;
}

std::string remainingOf(bool isArmed, double seconds) {
  if (!isArmed) return "stopped";
  std::ostringstream out;
  out << "in " << std::round(seconds * 1000) / 1000 << " s";
  return out.str();
}

}  // namespace test
