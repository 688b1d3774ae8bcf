#pragma once

#include <string>
#include <vector>

#include "view/Comparison.zet.h"
#include "view/Counts.h"
#include "view/Interfaces.h"
#include "view/Zones.h"

namespace pimbsr::view {

/// What one agent shows, as far as it is needed to compare it.
struct AgentState {
  std::string name;
  std::string error = {};  ///< why it does not answer; the views are empty then
  Bsr bsr = {};
  Borders borders = {};
  Neighbors neighbors = {};
  Drops drops = {};
};

/// Compares agents, zone by zone. An agent that doesn't follow a zone that another follows disagrees.
Comparison compare(std::vector<AgentState> const& agents);

}  // namespace pimbsr::view
