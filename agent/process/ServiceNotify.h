#pragma once

#include <string_view>

namespace pimbsr::agent {

/// Notifies the service manager that started this process of a state, such as "READY=1", "RELOADING=1",
/// "STOPPING=1" or "STATUS=..."; several are separated by newlines. It is sent as one datagram to the Unix
/// socket in the environment variable NOTIFY_SOCKET, a path or, after '@', an abstract name.
///
/// Returns whether it was sent: false without NOTIFY_SOCKET, and if it would block.
bool notifyService(std::string_view state);

/// Asks the service manager to wait so many seconds from now on before it ends this process by force. A time
/// above the manager's own has effect, a shorter one none. Returns whether it was sent, as notifyService()
/// does.
bool extendServiceTimeout(double seconds);

}  // namespace pimbsr::agent
