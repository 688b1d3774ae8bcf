#include "agent/process/Sandbox.h"

#include <linux/netlink.h>
#include <netinet/in.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <vector>

namespace pimbsr::agent {

namespace {

/// The kind of a socket without its flags.
constexpr scmp_datum_t socketKind = 0xf;

/// Calls that are allowed whatever their arguments. Calls that the architecture doesn't have are skipped.
constexpr char const* plainCalls[] = {
    // Files: configuration, history, control socket.
    "access", "chmod", "close", "close_range", "dup", "dup3", "faccessat", "faccessat2", "fchmod", "fchmodat",
    "fcntl", "fdatasync", "flock", "fstat", "fsync", "ftruncate", "getcwd", "getdents64", "lseek", "lstat",
    "memfd_create", "mkdir", "mkdirat", "newfstatat", "open", "openat", "pread64", "pwrite64", "read",
    "readlink", "readlinkat", "readv", "rename", "renameat", "renameat2", "stat", "statx", "umask", "unlink",
    "unlinkat", "write", "writev",
    // Sockets, once they are open.
    "accept", "accept4", "bind", "connect", "getpeername", "getsockname", "getsockopt", "listen", "recvfrom",
    "recvmmsg", "recvmsg", "sendmmsg", "sendmsg", "sendto", "setsockopt", "shutdown",
    // The event loop.
    "epoll_create1", "epoll_ctl", "epoll_pwait", "epoll_pwait2", "epoll_wait", "eventfd2", "pipe2", "poll",
    "ppoll", "pselect6", "select", "signalfd4", "timerfd_create", "timerfd_gettime", "timerfd_settime",
    // Memory, time, random numbers, signals.
    "brk", "clock_getres", "clock_gettime", "clock_nanosleep", "exit", "exit_group", "futex", "getrandom",
    "gettimeofday", "madvise", "mremap", "munmap", "nanosleep", "restart_syscall", "rseq", "rt_sigaction",
    "rt_sigpending", "rt_sigprocmask", "rt_sigreturn", "rt_sigtimedwait", "sched_getaffinity", "sched_yield",
    "set_robust_list", "sigaltstack", "time",
    // Identity of the process and the system; whether the helper has ended.
    "capget", "getegid", "geteuid", "getgid", "getgroups", "getpgrp", "getpid", "getppid", "getresgid",
    "getresuid", "getrlimit", "getrusage", "gettid", "getuid", "sysinfo", "times", "uname", "wait4",
    "waitid"};

/// Requests of ioctl(2): kind and width of terminals, and reading ones of sockets.
constexpr unsigned long deviceRequests[] = {TCGETS,      TIOCGWINSZ,   FIONBIO,      FIONREAD,    FIOCLEX,
                                            SIOCGIFNAME, SIOCGIFINDEX, SIOCGIFFLAGS, SIOCGIFADDR, SIOCGIFMTU};

/// Operations of prctl(2), which read alone.
constexpr int processQuestions[] = {PR_GET_DUMPABLE,     PR_GET_NAME,       PR_GET_SECCOMP,
                                    PR_GET_NO_NEW_PRIVS, PR_GET_SECUREBITS, PR_CAPBSET_READ};

void check(int result, char const* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

class Filter {
 public:
  Filter() : context_(seccomp_init(SCMP_ACT_ERRNO(EPERM)), &seccomp_release) {
    if (!context_) throw std::system_error(ENOMEM, std::generic_category(), "system-call filter");
  }

  void allow(char const* name, std::vector<scmp_arg_cmp> const& conditions = {}) {
    int call = seccomp_syscall_resolve_name(name);
    if (call == __NR_SCMP_ERROR) return;
    auto count = static_cast<unsigned>(conditions.size());
    int result = seccomp_rule_add_array(context_.get(), SCMP_ACT_ALLOW, call, count, conditions.data());
    if (result != -EDOM) check(result, name);
  }

  void load() { check(seccomp_load(context_.get()), "system-call filter"); }

 private:
  std::unique_ptr<void, decltype(&seccomp_release)> context_;
};

scmp_arg_cmp is(unsigned argument, scmp_datum_t value) { return {argument, SCMP_CMP_EQ, value, 0}; }

scmp_arg_cmp masked(unsigned argument, scmp_datum_t mask, scmp_datum_t value) {
  return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

void allowSockets(Filter& filter) {
  filter.allow("socket", {is(0, AF_INET), masked(1, socketKind, SOCK_RAW), is(2, IPPROTO_PIM)});
  filter.allow("socket", {is(0, AF_NETLINK), is(2, NETLINK_ROUTE)});
  filter.allow("socket", {is(0, AF_UNIX)});
}

/// No new executable memory, so that injected code can't run.
void allowMemory(Filter& filter) {
  filter.allow("mmap", {masked(2, PROT_EXEC, 0)});
  filter.allow("mprotect", {masked(2, PROT_EXEC, 0)});
}

/// Signals only to the process itself, for abort().
void allowAbort(Filter& filter) {
  auto self = static_cast<scmp_datum_t>(getpid());
  filter.allow("tgkill", {is(0, self)});
  filter.allow("kill", {is(0, self)});
}

}  // namespace

void enterSandbox() {
  Filter filter;
  for (char const* name : plainCalls) filter.allow(name);
  allowSockets(filter);
  allowMemory(filter);
  allowAbort(filter);
  for (unsigned long request : deviceRequests) filter.allow("ioctl", {is(1, request)});
  for (int question : processQuestions) filter.allow("prctl", {is(0, static_cast<scmp_datum_t>(question))});
  filter.allow("prctl", {is(0, PR_CAP_AMBIENT), is(1, PR_CAP_AMBIENT_IS_SET)});
  filter.allow("prlimit64", {is(2, 0)});
  filter.load();
}

}  // namespace pimbsr::agent
