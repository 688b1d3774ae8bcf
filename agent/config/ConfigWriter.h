#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/config/Settings.h"

namespace pimbsr::agent {

/// Settings as the text of a configuration file with every key. Settings read from a file are read back
/// equal; what a file can't express, such as a range without a priority, is left out.
std::string writeToml(Settings const& settings);

/// The same as JSON.
nlohmann::ordered_json writeJson(Settings const& settings);

}  // namespace pimbsr::agent
