"""Runs a command, as root, where ordinary users get less from user namespaces than usual.

    namespace_limits.py none COMMAND [ARGUMENTS]       they cannot create any
    namespace_limits.py powerless COMMAND [ARGUMENTS]  they have no capabilities in them, as where
                                                       AppArmor restricts unprivileged user namespaces
"""

import ctypes
import os
import platform
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools"))

from container import (  # noqa: E402 needs the path above
    ALLOW,
    ANY_BIT,
    EQUAL,
    ERRNO,
    FIRST_ARGUMENT,
    LOAD,
    MACHINES,
    NEW_NAMESPACES,
    NUMBER,
    RETURN,
    install,
    instruction,
    refuse,
)

CLONE_NEWUSER = 0x10000000
PR_CAPBSET_DROP = 24
EPERM = 1

# System call numbers of unshare and prctl.
CALLS = {"x86_64": (272, 157), "aarch64": (97, 167)}


def enter_namespace_without_namespaces():
    """A user namespace with all users of this one, whose processes cannot create another."""
    libc = ctypes.CDLL(None, use_errno=True)
    entered, enter = os.pipe()
    parent = os.getpid()
    mapper = os.fork()
    if mapper == 0:
        # Only a process of the outer namespace may map more than one user.
        os.read(entered, 1)
        for name in ("uid_map", "gid_map"):
            with open(f"/proc/{parent}/{name}", "w", encoding="ascii") as file:
                file.write("0 0 4294967295")
        os._exit(0)
    if libc.unshare(CLONE_NEWUSER) != 0:
        sys.exit(f"unshare: {os.strerror(ctypes.get_errno())}")
    os.write(enter, b"!")
    if os.waitpid(mapper, 0)[1] != 0:
        sys.exit("the users could not be mapped")
    os.close(entered)
    os.close(enter)
    with open("/proc/sys/user/max_user_namespaces", "w", encoding="ascii") as file:
        file.write("0")


def refuse_with(call, test, value):
    """Refuses a system call if its first argument passes the test."""
    return [
        instruction(EQUAL, call, 0, 4),
        instruction(LOAD, FIRST_ARGUMENT),
        instruction(test, value, 0, 1),
        instruction(RETURN, ERRNO | EPERM),
        instruction(LOAD, NUMBER),
    ]


def refuse_capabilities():
    """Refuses what systemd needs capabilities of a user namespace for."""
    unshare, prctl = CALLS[platform.machine()]
    forbidden = MACHINES[platform.machine()][3]
    program = [instruction(LOAD, NUMBER)]
    for number in forbidden:
        if number != unshare:
            program += refuse(number, EPERM)
    program += refuse_with(unshare, ANY_BIT, NEW_NAMESPACES & ~CLONE_NEWUSER)
    program += refuse_with(prctl, EQUAL, PR_CAPBSET_DROP)
    program += [instruction(RETURN, ALLOW)]
    install(program)


LIMITS = {"none": enter_namespace_without_namespaces, "powerless": refuse_capabilities}

LIMITS[sys.argv[1]]()
os.execvp(sys.argv[2], sys.argv[2:])
