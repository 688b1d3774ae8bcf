#pragma once

#include <map>
#include <string>

#include "host/Configuration.h"
#include "host/Screening.h"

namespace pimbsr::agent {

using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// How PIM runs on one interface.
struct InterfaceSettings {
  bool hello = true;       ///< false where another program sends the Hellos of this computer
  U32 drPriority = 1;      ///< 0 to 4294967295, higher wins the election of the Designated Router
  U32 helloInterval = 30;  ///< seconds between two Hellos, 1 to 18724; neighbours keep us for 3.5 times that

  bool operator==(InterfaceSettings const&) const = default;
};

/// What an agent accepts unless its file says otherwise: every check, and the standard limits.
inline constexpr host::Screening defaultScreening = [] {
  host::Screening screening = host::standardLimits;
  screening.linkLocalTtl = screening.onSubnet = screening.fromNeighbors = screening.notOwnBsr = true;
  return screening;
}();

/// All that a configuration file says, with the defaults where it says nothing.
struct Settings {
  std::map<std::string, InterfaceSettings> interfaces;  ///< those that speak PIM, by name; none by default
  host::Configuration router;
  host::Screening screening = defaultScreening;
  std::string controlSocket = "/run/pimbsr/control.sock";  ///< path; empty for none
  /// Path of the socket that serves no request that changes the agent; empty for none.
  std::string readOnlySocket = "/run/pimbsr/control-read-only.sock";
  std::string readOnlyGroup;  ///< name of the group that may use it; empty for that of the process
  /// Folder in which the history is kept over a restart; empty for none.
  std::string stateDirectory = "/var/lib/pimbsr";
  std::map<std::string, int> traces;  ///< level 0 to 9 by handle

  bool operator==(Settings const&) const = default;
};

}  // namespace pimbsr::agent
