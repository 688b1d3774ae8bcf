#pragma once

#include <fmt/format.h>

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>

#include "runtime/Types.h"

/// The tables of `show` by theme, each in a source of its own, for ShowTables.cpp alone.
namespace pimbsr::cli {

/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

// ShowZones.cpp
void writeBsr(std::ostream& out, Json const& view);
void writeRpSet(std::ostream& out, Json const& view);
void writeRp(std::ostream& out, Json const& view);

// ShowCandidates.cpp
void writeCandidates(std::ostream& out, Json const& view);

// ShowInterfaces.cpp
void writeNeighbors(std::ostream& out, Json const& view);
void writeInterfaces(std::ostream& out, Json const& view);
void writeBorders(std::ostream& out, Json const& view);

// ShowCounts.cpp
void writeFilter(std::ostream& out, Json const& view);
void writeCounters(std::ostream& out, Json const& view);
void writeDrops(std::ostream& out, Json const& view);
void writeControl(std::ostream& out, Json const& view);

// ShowHistory.cpp
void writeHistory(std::ostream& out, Json const& view);

// ShowTables.cpp: values

/// A value as people read it; "-" for null.
std::string textOf(Json const& value);
/// A span of time: tenths of a second up to 100 seconds, then minutes, hours and days; "-" for null.
std::string textOfSpan(Json const& seconds);
/// The same, where null means that there is no end.
std::string textOfSpanOrNever(Json const& seconds);
/// A number with what it counts, as in "1 RP" and "2 RPs".
std::string countOf(Json const& number, std::string const& what);
/// The items with commas between them; `none` if there are none.
std::string listOf(Json const& items, std::string const& none = "-");
/// Names of access lists with commas between them, with a mark at those that aren't there; "none" for none.
std::string listsOf(Json const& lists, Json const& absent);
/// A number of entries of RP sets, of which one RP has as many as it has group ranges.
std::string entriesOf(Json const& number);
/// The name that people use for a kind of message.
std::string messageName(Json const& kind);

}  // namespace pimbsr::cli
