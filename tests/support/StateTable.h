#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// What one event does in one state of a machine.
struct StateRow {
  std::string state;
  std::string event;
  std::string next;
  std::string effects;  ///< joined by "; "; "-" for none
};

/// Compares the table of a machine with the section of docs/state-tables.md that has this heading, and writes
/// the section anew with PIMBSR_REWRITE in the environment. A row that the page lacks or has in excess is an
/// error.
void expectSection(std::string const& heading, std::vector<StateRow> const& rows);

/// The handlers that the declaration of a machine, such as "protocol/BsrCandidateSm.zet", runs: "on NAME runs
/// HANDLER" of what it watches, and "runs HANDLER" of its own attributes.
std::set<std::string> declaredHandlers(std::string const& path);

/// What differs between two descriptions of the same parts, as "name value" of the later one.
using Description = std::vector<std::pair<std::string, std::string>>;
std::string changesOf(Description const& before, Description const& after);

/// Seconds from now until a timer expires, as "in 130 s", with at most three decimals; "stopped" for never.
std::string remainingOf(bool isArmed, double seconds);

}  // namespace test
