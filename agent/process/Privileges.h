#pragma once

#include <string>

namespace pimbsr::agent {

/// Gives up all capabilities but CAP_NET_RAW, by which interfaces that come later get their raw sockets, and
/// with them the way to new ones: nothing this process could execute would gain any. The user stays who it
/// is. The inheritable and ambient sets are emptied, and the bounding set is cut where the process may do so.
///
/// To be called by the process's only thread. Throws std::system_error if privileges remain that should not.
void dropPrivileges();

/// What this process holds, in lines for people: user, capabilities by set, whether it can gain more, its
/// system-call filter, and what comes of trying things that a router does or never does.
std::string privilegesHeld();

}  // namespace pimbsr::agent
