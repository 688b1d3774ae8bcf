#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "agent/account/History.h"
#include "view/History.h"

namespace pimbsr::agent {

/// An entry as it is shown, with the members that its kind names.
view::Event viewOf(HistoryEntry const& entry);
/// The same as a flat JSON object.
nlohmann::ordered_json jsonOf(HistoryEntry const& entry);
/// The entry of a line that holds such an object; nothing if it is damaged.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line);

/// All entries as lines of JSON, the oldest first.
std::string linesOf(History const& history);
/// Puts the entries of such lines before those of the history. Damaged lines are left out; returns how many.
std::size_t prependLines(History& history, std::string_view text);

}  // namespace pimbsr::agent
