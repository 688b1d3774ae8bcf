#pragma once

#include <string>

#include "agent/config/Settings.h"

namespace pimbsr::agent {

/// What a reload changed, by the names and values of the file: "candidate-rp lo: priority is 3, was 192;
/// candidate-rp eth1 is removed". It names ten changes at most, and counts the rest; empty if there is none.
std::string changesOf(Settings const& before, Settings const& after);

}  // namespace pimbsr::agent
