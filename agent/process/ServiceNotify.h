#pragma once

#include <string_view>

namespace pimbsr::agent {

/// Tells the service manager that started this process a state, such as "READY=1", "RELOADING=1",
/// "STOPPING=1" or "STATUS=..."; several are parted by newlines. It goes as one datagram to the Unix socket
/// that the environment's NOTIFY_SOCKET names, a path or, after '@', an abstract name.
///
/// Returns whether it was sent: never without NOTIFY_SOCKET, and not where the manager doesn't take it at
/// once.
bool notifyService(std::string_view state);

}  // namespace pimbsr::agent
