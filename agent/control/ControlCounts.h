#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// What a control socket has counted since it was opened.
struct ControlCounts {
  std::size_t clients = 0;       ///< connected now, watchers among them
  std::size_t watchers = 0;      ///< connected now
  Zet::U64 requests = 0;         ///< lines that were answered, with a result or an error
  Zet::U64 refused = 0;          ///< connections beyond the limit, with none that could give way
  Zet::U64 refusedRequests = 0;  ///< requests beyond the share of their user
  Zet::U64 gaveWay = 0;          ///< ended at the limit, in favor of a new connection
  Zet::U64 slow = 0;             ///< dropped since they did not read in time
  Zet::U64 silent = 0;           ///< dropped since they sent no whole request in time
  Zet::U64 failed = 0;           ///< dropped since the system refused something
};

/// The connections that a user has now.
struct ControlUser {
  uid_t uid = 0;
  std::size_t clients = 0;   ///< watchers among them
  std::size_t watchers = 0;  ///< whose watch was granted
  std::size_t unread = 0;    ///< whose answer waits to be read
};

/// The state of a control socket.
struct ControlStatus {
  std::string path;
  bool readOnly = false;
  ControlCounts counts;
  std::vector<ControlUser> users;  ///< those that are connected, by uid
};

}  // namespace pimbsr::agent
