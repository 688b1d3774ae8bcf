#pragma once

namespace pimbsr::agent {

/// Installs a filter that permits the system calls of an agent; all others fail with EPERM. Sockets may be
/// raw ones of PIM, netlink to the routing tables, and Unix ones; the process can't start a process, execute
/// a program, or make memory executable.
///
/// A denied call fails and doesn't kill the process: a peer that provokes one must not end the router, and a
/// library may go on without the call. Valgrind and the leak check of sanitizers need more calls than these.
/// To be called by the process's only thread, after dropPrivileges(). Throws std::system_error if the kernel
/// doesn't accept the filter.
void enterSandbox();

}  // namespace pimbsr::agent
