"""Executes a command as a service manager starts a service: as another user, with the capabilities of the
service alone and under filters of system calls.

Usage: as_service.py TERMS COMMAND..., by root. TERMS is JSON: {"user": its number, which is also its group's,
"capabilities": ["net_raw"...], "filters": [{"default": ACTION, "rules": [[ACTION, CALL, FIRST]...]}...]}. An
ACTION is "allow", "kill" or an error number, and FIRST the only first argument that the rule is about, or
null for any. A listening socket that the process has as descriptor 3 is passed on, as by sd_listen_fds(3)."""

import ctypes
import json
import os
import sys

ALLOW, KILL, ERRNO = 0x7fff0000, 0x80000000, 0x00050000  # seccomp_init(3)
EQUAL = 4  # seccomp_rule_add(3)
UNKNOWN = -1  # __NR_SCMP_ERROR
SAME_AS_DEFAULT = -13  # EACCES
NO_NEW_PRIVS, AMBIENT, RAISE = 38, 47, 2  # prctl(2)
# capng_update(3), capng_apply(3) and capng_change_id(3): of a process all sets but the ambient one.
ADD, SETS, BOUNDS, ALL, DROP_GROUPS = 1, 1 | 2 | 4 | 8, 32, 112, 1


class Comparison(ctypes.Structure):
    _fields_ = [("argument", ctypes.c_uint), ("operator", ctypes.c_int),
                ("value", ctypes.c_uint64), ("other", ctypes.c_uint64)]


def check(succeeded, what):
    if not succeeded:
        sys.exit(f"as_service.py: {what} failed")


def become(user, capabilities):
    """Becomes a user with some capabilities in all sets, who gets no others."""
    library, system = ctypes.CDLL("libcap-ng.so.0"), ctypes.CDLL(None)
    numbers = [library.capng_name_to_capability(name.encode()) for name in capabilities]
    library.capng_clear(ALL)
    for number in numbers:
        check(library.capng_update(ADD, SETS, number) == 0, "capng_update")
    check(library.capng_apply(BOUNDS) == 0, "cutting the bounding set")
    check(library.capng_change_id(user, user, DROP_GROUPS) == 0, "changing the user")
    for number in numbers:
        check(system.prctl(AMBIENT, RAISE, number, 0, 0) == 0, "raising an ambient capability")
    check(system.prctl(NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "giving up new privileges")


def action(name):
    return {"allow": ALLOW, "kill": KILL}.get(name) or ERRNO | name


def load(library, terms):
    library.seccomp_init.restype = ctypes.c_void_p
    context = ctypes.c_void_p(library.seccomp_init(ctypes.c_uint32(action(terms["default"]))))
    for verdict, call, first in terms["rules"]:
        number = library.seccomp_syscall_resolve_name(call.encode())
        if number == UNKNOWN:
            continue
        compared = (Comparison * 1)(Comparison(0, EQUAL, first or 0, 0))
        result = library.seccomp_rule_add_array(context, ctypes.c_uint32(action(verdict)), number,
                                                0 if first is None else 1, compared)
        check(result in (0, SAME_AS_DEFAULT), f"a rule for {call}")
    check(library.seccomp_load(context) == 0, "loading a filter")


def main():
    terms = json.loads(sys.argv[1])
    os.environ.update(LISTEN_PID=str(os.getpid()), LISTEN_FDS="1")
    libseccomp = ctypes.CDLL("libseccomp.so.2")
    become(terms["user"], terms["capabilities"])
    for one in terms["filters"]:
        load(libseccomp, one)
    os.execv(sys.argv[2], sys.argv[2:])


if __name__ == "__main__":
    main()
