#pragma once

#include <fmt/format.h>

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/base/Table.h"
#include "runtime/Types.h"
#include "view/Candidates.h"
#include "view/Counts.h"
#include "view/History.h"
#include "view/Interfaces.h"
#include "view/Lists.h"
#include "view/Zones.h"

/// The tables of `show` by theme, each in a source of its own, for ShowTables.cpp alone.
namespace pimbsr::cli {

/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

// ShowZones.cpp
void writeShown(std::ostream& out, view::Bsr const& view);
void writeShown(std::ostream& out, view::RpSet const& view);
void writeShown(std::ostream& out, view::Rp const& view);

// ShowCandidates.cpp
void writeShown(std::ostream& out, view::Candidates const& view);

// ShowInterfaces.cpp
void writeShown(std::ostream& out, view::Neighbors const& view);
void writeShown(std::ostream& out, view::Interfaces const& view);
void writeShown(std::ostream& out, view::Borders const& view);

// ShowCounts.cpp
void writeShown(std::ostream& out, view::Filter const& view);
void writeShown(std::ostream& out, view::Counters const& view);
void writeShown(std::ostream& out, view::Drops const& view);
void writeShown(std::ostream& out, view::Corrections const& view);
void writeShown(std::ostream& out, view::Control const& view);

// ShowHistory.cpp
void writeShown(std::ostream& out, view::History const& view);

// ShowOnChange.cpp
void writeShown(std::ostream& out, view::OnChange const& view);

// Tables

/// The cells of two views in one line.
view::Cells joined(view::Cells first, view::Cells const& second);

/// The views as a table of their columns.
template <class View>
Table tableOf(std::vector<View> const& views) {
  Table table(view::headOf<View>());
  for (View const& view : views) table.add(cellsOf(view));
  return table;
}

/// Adds a line for each view, with the same cells before all of them, which only the first line shows.
template <class View>
void addGroup(Table& table, view::Cells before, std::vector<View> const& views) {
  for (View const& view : views) {
    table.add(joined(before, cellsOf(view)));
    for (std::string& cell : before) cell.clear();
  }
}

// Values

/// A number with what it counts, as in "1 RP" and "2 RPs".
std::string countOf(Zet::U64 number, std::string const& what);
/// A number of entries of RP sets, of which one RP has as many as it has group ranges.
std::string entriesOf(Zet::U64 number);

}  // namespace pimbsr::cli
