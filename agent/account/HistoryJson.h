#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "agent/account/History.h"

namespace pimbsr::agent {

/// The stable name of a kind in JSON: "bsrElected" and so on.
std::string_view keyOf(HistoryKind kind);
/// The stable name of a cause in JSON: "message", "timer" and so on.
std::string_view keyOf(CauseKind kind);

/// An entry as a flat object of what its kind names: `time` in seconds since 1970, `event`, `zone`, and the
/// cause.
nlohmann::ordered_json jsonOf(HistoryEntry const& entry);
/// The entry of a line that holds such an object; nothing if it is damaged.
std::optional<HistoryEntry> readHistoryEntry(std::string_view line);

/// All entries as lines of JSON, the oldest first.
std::string linesOf(History const& history);
/// Puts the entries of such lines before those of the history. Damaged lines are left out; returns how many.
std::size_t prependLines(History& history, std::string_view text);

}  // namespace pimbsr::agent
