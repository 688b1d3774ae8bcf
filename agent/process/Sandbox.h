#pragma once

namespace pimbsr::agent {

/// Lets this process make no system calls from now on but those that an agent's life needs; all others fail
/// with EPERM. Sockets may be raw ones of PIM, netlink to the routing tables, and Unix ones; no process is
/// started, no program executed, no memory made executable.
///
/// Refused calls fail and don't kill: whoever provokes one must not take the router down with it, and a
/// library that tries what it can do without goes on. Valgrind and the leak check of sanitizers need more
/// than this allows. To be called by the process's only thread, after dropPrivileges(). Throws
/// std::system_error if the kernel doesn't take the filter.
void enterSandbox();

}  // namespace pimbsr::agent
