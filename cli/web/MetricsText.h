#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pimbsr::cli {

/// The metrics of one agent, in the text format of Prometheus; nothing if it doesn't answer.
using AgentMetrics = std::pair<std::string, std::optional<std::string>>;

/// One text for several agents, by name: each series gets the label "agent", and each agent a series of
/// pimbsr_up, which is 0 for one that doesn't answer and then has no other.
std::string mergedMetrics(std::vector<AgentMetrics> const& agents);

}  // namespace pimbsr::cli
