#pragma once

#include <string>

namespace pimbsr::agent {

/// Whether CAP_NET_RAW stays.
enum class RawSockets { kept, none };

/// Drops all capabilities but, unless `none`, CAP_NET_RAW, which opens the raw sockets of interfaces that are
/// added later, and sets no_new_privs, so that no program executed could gain any. The user ID stays. The
/// inheritable and ambient sets are emptied, and the bounding set is reduced if the process may do so.
///
/// To be called by the process's only thread. Throws std::system_error if other privileges remain.
void dropPrivileges(RawSockets kept = RawSockets::kept);

/// The privileges of this process as human-readable lines: user, capabilities by set, no_new_privs, the
/// system-call filter, and the results of calls that a router makes or never makes.
std::string privilegesHeld();

}  // namespace pimbsr::agent
