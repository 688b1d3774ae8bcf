#pragma once

#include <string_view>

namespace pimbsr::agent {

/// Notifies the service manager that started this process of a state, such as "READY=1", "RELOADING=1",
/// "STOPPING=1" or "STATUS=..."; several are separated by newlines. It is sent as one datagram to the Unix
/// socket in the environment variable NOTIFY_SOCKET, a path or, after '@', an abstract name.
///
/// Returns whether it was sent: false without NOTIFY_SOCKET, and if it would block.
bool notifyService(std::string_view state);

}  // namespace pimbsr::agent
