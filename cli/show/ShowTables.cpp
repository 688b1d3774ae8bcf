#include "cli/show/ShowTables.h"

#include <map>
#include <ostream>

#include "cli/show/ShowParts.h"
#include "view/Answers.h"
#include "view/Tree.h"

namespace pimbsr::cli {

std::string countOf(Zet::U64 number, std::string const& what) {
  return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

std::string entriesOf(Zet::U64 number) {
  return fmt::format("{} {}", number, number == 1 ? "entry" : "entries");
}

view::Cells joined(view::Cells first, view::Cells const& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

/// One line for each path, which scripts can cut at " = ".
static void writeShown(std::ostream& out, view::Tree const& view) {
  for (view::ModelValue const& entry : view.entries) {
    out << fmt::format("{} = {}{}\n", entry.path, entry.value, entry.unit ? " " + *entry.unit : "");
  }
}

/// The configuration is shown as a file, with every key.
static void writeShown(std::ostream& out, view::Config const& view) { out << view.file; }

template <class View>
static void writeView(std::ostream& out, Json const& json) {
  writeShown(out, view::readView<View>(json));
}

void writeShow(std::ostream& out, std::string const& what, Json const& view) {
  using Write = void (*)(std::ostream&, Json const&);
  static std::map<std::string, Write> const writers = {{"bsr", writeView<view::Bsr>},
                                                       {"rp-set", writeView<view::RpSet>},
                                                       {"rp", writeView<view::Rp>},
                                                       {"neighbors", writeView<view::Neighbors>},
                                                       {"interfaces", writeView<view::Interfaces>},
                                                       {"borders", writeView<view::Borders>},
                                                       {"filter", writeView<view::Filter>},
                                                       {"counters", writeView<view::Counters>},
                                                       {"drops", writeView<view::Drops>},
                                                       {"corrections", writeView<view::Corrections>},
                                                       {"history", writeView<view::History>},
                                                       {"config", writeView<view::Config>},
                                                       {"control", writeView<view::Control>},
                                                       {"on-change", writeView<view::OnChange>},
                                                       {"tree", writeView<view::Tree>},
                                                       {"candidates", writeView<view::Candidates>}};
  auto writer = writers.find(what);
  if (writer != writers.end()) {
    writer->second(out, view);
  } else {
    out << view.dump(2) << '\n';
  }
}

}  // namespace pimbsr::cli
