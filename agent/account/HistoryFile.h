#pragma once

#include <optional>
#include <string>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// How the file of a history fares.
struct HistoryFile {
  std::optional<std::string> path;  ///< nothing if no file is configured
  std::string error;                ///< why not all entries are in it now; empty if they are
  Zet::U64 unsaved = 0;             ///< how often an entry was not written at once since the start
  Zet::U64 writerRestarts = 0;      ///< deaths of the processes that write it
};

}  // namespace pimbsr::agent
