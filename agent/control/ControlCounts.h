#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// Counts of a control socket since it was opened.
struct ControlCounts {
  std::size_t clients = 0;        ///< connected now, watchers among them
  std::size_t watchers = 0;       ///< connected now
  Zet::U64 requests = 0;          ///< lines that were answered, with a result or an error
  Zet::U64 rejected = 0;          ///< connections beyond the limit, when none could give way
  Zet::U64 rejectedRequests = 0;  ///< requests beyond the share of their user
  Zet::U64 gaveWay = 0;           ///< ended at the limit, in favor of a new connection
  Zet::U64 slow = 0;              ///< closed, since they did not read in time
  Zet::U64 silent = 0;            ///< closed, since they sent no complete request in time
  Zet::U64 failed = 0;            ///< closed after a system error
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
