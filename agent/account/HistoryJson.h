#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "agent/account/HistoryStore.h"
#include "view/History.h"

namespace pimbsr::agent {

/// An entry as it is shown, with the members that its kind names.
view::Event viewOf(HistoryEntry const& entry);
/// The same as a flat JSON object.
nlohmann::ordered_json jsonOf(HistoryEntry const& entry);
/// The entry of a line that holds such an object; nothing if it is damaged.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line);

/// An entry as a line of a history file: the object with the entry's id.
std::string lineOf(HistoryEntry const& entry);
/// All entries as such lines.
std::string linesOf(HistoryStore const& store);

/// How many lines a text had.
struct HistoryLines {
  std::size_t all = 0;
  std::size_t damaged = 0;

  bool operator==(HistoryLines const&) const = default;
};
/// Adds the entries of such lines. Of several with one id the last counts; damaged lines are left out.
HistoryLines restoreLines(HistoryStore& store, std::string_view text);

}  // namespace pimbsr::agent
