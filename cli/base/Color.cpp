#include "cli/base/Color.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <iostream>

namespace pimbsr::cli {

static constexpr std::string_view bold = "\x1b[1m";
static constexpr std::string_view red = "\x1b[31m";
static constexpr std::string_view plain = "\x1b[0m";

/// States that need attention; each is a cell or a clause of its own.
static constexpr std::string_view alarming[] = {"no route", "missing", "no address", "down", "not there"};

bool takesColor(bool isTerminal, char const* noColor, char const* term) {
  bool isForbidden = noColor != nullptr && *noColor != '\0';
  bool isDumb = term != nullptr && std::string_view(term) == "dumb";
  return isTerminal && !isForbidden && !isDumb;
}

static bool isTerminal(std::ostream const& out) { return &out == &std::cout && isatty(STDOUT_FILENO) == 1; }

bool takesColor(std::ostream const& out) {
  return takesColor(isTerminal(out), std::getenv("NO_COLOR"), std::getenv("TERM"));
}

bool takesRefresh(std::ostream const& out) {
  return takesColor(isTerminal(out), nullptr, std::getenv("TERM"));
}

static bool isLetterAt(std::string_view line, std::size_t at) {
  return at < line.size() && (std::isalnum(static_cast<unsigned char>(line[at])) != 0 || line[at] == '-');
}

/// The word that needs attention and begins at a place of a line; empty if none does.
static std::string_view alarmAt(std::string_view line, std::size_t at) {
  if (at > 0 && isLetterAt(line, at - 1)) return {};
  for (std::string_view word : alarming) {
    if (line.substr(at).starts_with(word) && !isLetterAt(line, at + word.size())) return word;
  }
  return {};
}

static std::string withAlarms(std::string_view line) {
  std::string out;
  for (std::size_t at = 0; at < line.size();) {
    std::string_view alarm = alarmAt(line, at);
    if (alarm.empty()) {
      out += line[at++];
      continue;
    }
    out += std::string(red) + std::string(alarm) + std::string(plain);
    at += alarm.size();
  }
  return out;
}

std::string colored(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    bool isHeading = !line.empty() && line.front() != ' ';
    out += isHeading ? std::string(bold) + std::string(line) + std::string(plain) : withAlarms(line);
    text.remove_prefix(line.size());
    if (text.empty()) continue;
    out += '\n';
    text.remove_prefix(1);
  }
  return out;
}

}  // namespace pimbsr::cli
