#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/config/ConfigPlaces.h"
#include "agent/config/ConfigText.h"
#include "agent/config/Settings.h"

namespace pimbsr::agent {

/// What was read of a configuration file.
struct ConfigReading {
  std::string file;                    ///< its name, as it is reported
  Settings settings;                   ///< what could be read; to be applied only if there is no fault
  std::vector<ConfigFinding> faults;   ///< all of them, in the order of the file
  std::vector<ConfigFinding> remarks;  ///< what was read otherwise than it looks, and is no fault
  std::vector<ConfigRename> renames;   ///< keys by a former name, each a fault too
  ConfigPlaces places;

  bool isSound() const { return faults.empty(); }
};

/// Reads the text of a configuration file, any bytes. All faults are reported, those of host::check too;
/// where the text is no TOML, that alone.
ConfigReading readConfig(std::string_view text, std::string const& file);

/// Reads a configuration file. One that can't be read is a fault of the file as a whole.
ConfigReading readConfigFile(std::string const& path);

/// "FILE:LINE:COLUMN", or "FILE" for the text as a whole.
std::string textOf(std::string const& file, TextPlace at);

/// Names the keys of `to` that differ from `from` and that only a restart applies, such as "control.socket".
std::vector<std::string> needRestart(Settings const& from, Settings const& to);

}  // namespace pimbsr::agent
