#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/config/ConfigPlaces.h"
#include "agent/config/ConfigText.h"
#include "agent/config/Settings.h"

namespace pimbsr::agent {

/// The result of reading a configuration file.
struct ConfigReading {
  std::string file;                    ///< its name in reports
  Settings settings;                   ///< to be applied only without errors
  std::vector<ConfigFinding> errors;   ///< all of them, in the order of the file
  std::vector<ConfigFinding> remarks;  ///< valid values that are read other than written
  std::vector<ConfigRename> renames;   ///< keys by a former name, each an error too
  ConfigPlaces places;

  bool isSound() const { return errors.empty(); }
};

/// Reads the text of a configuration file, any bytes. Reports all errors, with those of host::check; of a
/// text that is no TOML, the syntax error alone.
ConfigReading readConfig(std::string_view text, std::string const& file);

/// Reads a configuration file. One that can't be read has an error without a place.
ConfigReading readConfigFile(std::string const& path);

/// "FILE:LINE:COLUMN", or "FILE" for the text as a whole.
std::string textOf(std::string const& file, TextPlace at);

/// Names the keys of `to` that differ from `from` and that only a restart applies, such as "control.socket".
std::vector<std::string> needRestart(Settings const& from, Settings const& to);

}  // namespace pimbsr::agent
