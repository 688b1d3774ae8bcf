#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "agent/config/Settings.h"

namespace pimbsr::agent {

/// Settings as the text of a configuration file with every key. Settings read from a file are read back
/// equal; what a file can't express, such as a range without a priority, is left out.
std::string writeToml(Settings const& settings);

/// A table of such a file.
struct WrittenTable {
  std::string name;                           ///< "timers", "interface eth0", "candidate-rp lo"
  std::string item;                           ///< its first range or list, for tables of the same name
  std::map<std::string, std::string> values;  ///< by key, as the file writes them on one line
};

/// The tables of the same file, in its order.
std::vector<WrittenTable> sectionsOf(Settings const& settings);

/// The same as JSON.
nlohmann::ordered_json writeJson(Settings const& settings);

}  // namespace pimbsr::agent
