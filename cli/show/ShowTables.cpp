#include "cli/show/ShowTables.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>

#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// Values ----------------------------------------------------------------------------------------------

std::string textOf(Json const& value) {
  if (value.is_null()) return "-";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_string()) return value.get<std::string>();
  return value.dump();
}

std::string textOfSpan(Json const& seconds) {
  if (seconds.is_null()) return "-";
  auto exact = seconds.get<double>();
  if (exact < 99.95) return fmt::format("{:.1f} s", exact);
  long whole = std::lround(exact);
  if (whole < 3600) return fmt::format("{}m {:02}s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{}h {:02}m", whole / 3600, whole / 60 % 60);
  return fmt::format("{}d {:02}h", whole / 86400, whole / 3600 % 24);
}

std::string textOfSpanOrNever(Json const& seconds) {
  return seconds.is_null() ? "never" : textOfSpan(seconds);
}

std::string countOf(Json const& number, std::string const& what) {
  return fmt::format("{} {}{}", number.dump(), what, number == 1 ? "" : "s");
}

std::string listOf(Json const& items, std::string const& none) {
  std::string text;
  for (Json const& item : items) text += (text.empty() ? "" : ", ") + textOf(item);
  return text.empty() ? none : text;
}

std::string listsOf(Json const& lists, Json const& absent) {
  Json marked = Json::array();
  for (Json const& list : lists) {
    bool isAbsent = std::find(absent.begin(), absent.end(), list) != absent.end();
    marked.push_back(textOf(list) + (isAbsent ? " (not there)" : ""));
  }
  return listOf(marked, "none");
}

std::string entriesOf(Json const& number) {
  return fmt::format("{} {}", number.dump(), number == 1 ? "entry" : "entries");
}

std::string messageName(Json const& kind) {
  static std::map<std::string, std::string> const names = {{"bsm", "BSM"},
                                                           {"crpAdv", "C-RP-Adv"},
                                                           {"hello", "Hello"},
                                                           {"other", "other PIM"},
                                                           {"malformed", "malformed"},
                                                           {"notPim", "not PIM"},
                                                           {"unread", "not looked at"}};
  auto at = names.find(kind);
  return at == names.end() ? textOf(kind) : at->second;
}

/// The configuration is told as a file, with every key.
static void writeConfig(std::ostream& out, Json const& view) { out << view.at("file").get<std::string>(); }

// All views -------------------------------------------------------------------------------------------

void writeShow(std::ostream& out, std::string const& what, Json const& view) {
  using Write = void (*)(std::ostream&, Json const&);
  static std::map<std::string, Write> const writers = {{"bsr", writeBsr},
                                                       {"rp-set", writeRpSet},
                                                       {"rp", writeRp},
                                                       {"neighbors", writeNeighbors},
                                                       {"interfaces", writeInterfaces},
                                                       {"borders", writeBorders},
                                                       {"filter", writeFilter},
                                                       {"counters", writeCounters},
                                                       {"drops", writeDrops},
                                                       {"history", writeHistory},
                                                       {"config", writeConfig},
                                                       {"control", writeControl},
                                                       {"candidates", writeCandidates}};
  auto writer = writers.find(what);
  if (writer != writers.end()) {
    writer->second(out, view);
  } else {
    out << view.dump(2) << '\n';
  }
}

}  // namespace pimbsr::cli
