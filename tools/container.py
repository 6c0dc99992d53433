#!/usr/bin/env python3
"""Runs a command as container engines run it by default: with few capabilities, and with a system
call filter that allows neither namespaces nor mounts.

usage: container.py COMMAND [ARGUMENTS]

The capabilities and the filter are those of Docker's defaults, as far as they concern namespaces and
mounts; see seccomp(2), capabilities(7).
"""

import ctypes
import errno
import os
import platform
import struct
import sys

CAPABILITIES = (
    "chown dac_override fowner fsetid kill mknod net_bind_service net_raw setfcap setgid setpcap "
    "setuid sys_chroot audit_write"
).split()

# System call numbers: AUDIT_ARCH (linux/audit.h), clone, clone3, and those that are forbidden: mount,
# umount2, pivot_root, unshare, setns, open_tree, move_mount, fsopen, fsmount.
MACHINES = {
    "x86_64": (0xC000003E, 56, 435, (165, 166, 155, 272, 308, 428, 429, 430, 432)),
    "aarch64": (0xC00000B7, 220, 435, (40, 39, 41, 97, 268, 428, 429, 430, 432)),
}

# linux/sched.h: new mount, cgroup, UTS, IPC, user, PID and network namespaces.
NEW_NAMESPACES = 0x00020000 | 0x02000000 | 0x04000000 | 0x08000000 | 0x10000000 | 0x20000000 | 0x40000000

PR_SET_SECCOMP, SECCOMP_MODE_FILTER = 22, 2
ALLOW, ERRNO = 0x7FFF0000, 0x00050000

# linux/bpf_common.h: load a word, jump if equal, jump if any bit is set, return.
LOAD, EQUAL, ANY_BIT, RETURN = 0x20, 0x15, 0x45, 0x06

# Offsets in struct seccomp_data.
NUMBER, ARCHITECTURE, FIRST_ARGUMENT = 0, 4, 16


def instruction(code, value, on_true=0, on_false=0):
    return struct.pack("HBBI", code, on_true, on_false, value)


def refuse(number, code):
    """Refuses a system call, and continues with the next instruction for any other."""
    return [
        instruction(EQUAL, number, 0, 1),
        instruction(RETURN, ERRNO | code),
    ]


def filter_program():
    if platform.machine() not in MACHINES:
        sys.exit(f"container.py: no system call numbers for {platform.machine()}")
    architecture, clone, clone3, forbidden = MACHINES[platform.machine()]
    program = [
        instruction(LOAD, ARCHITECTURE),
        instruction(EQUAL, architecture, 1, 0),
        instruction(RETURN, ERRNO | errno.EPERM),
        instruction(LOAD, NUMBER),
    ]
    for number in forbidden:
        program += refuse(number, errno.EPERM)
    # Its flags are in memory, which a filter cannot read; the C library then falls back to clone.
    program += refuse(clone3, errno.ENOSYS)
    program += [
        instruction(EQUAL, clone, 0, 3),
        instruction(LOAD, FIRST_ARGUMENT),
        instruction(ANY_BIT, NEW_NAMESPACES, 0, 1),
        instruction(RETURN, ERRNO | errno.EPERM),
        instruction(RETURN, ALLOW),
    ]
    return program


def install(program):
    """Installs a filter, a list of instructions, in this process."""
    buffer = ctypes.create_string_buffer(b"".join(program))
    libc = ctypes.CDLL(None, use_errno=True)
    header = struct.pack("HxxxxxxP", len(program), ctypes.addressof(buffer))
    if libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.c_char_p(header), 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "seccomp needs root")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    install(filter_program())
    bounding_set = ",".join(["-all", *(f"+{name}" for name in CAPABILITIES)])
    options = [f"--bounding-set={bounding_set}", "--inh-caps=-all"]
    os.execvp("setpriv", ["setpriv", *options, "--", *sys.argv[1:]])


if __name__ == "__main__":
    main()
