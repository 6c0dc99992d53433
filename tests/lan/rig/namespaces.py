"""Namespaces of the hosts and of the network between them."""

import ctypes
import fcntl
import os
import socket
import struct
import subprocess
import threading
from concurrent.futures import ThreadPoolExecutor

# sched.h and sys/mount.h
CLONE_NEWNS, CLONE_NEWUTS, CLONE_NEWNET = 0x20000, 0x4000000, 0x40000000
MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 0x40000

SIOCSIFFLAGS, IFF_UP = 0x8914, 1  # netdevice(7)

_libc = ctypes.CDLL(None, use_errno=True)


def system_call(name, *arguments):
    if getattr(_libc, name)(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{name}{arguments}: {os.strerror(error)}")


def mount(source, target, kind=b"", flags=0, options=b""):
    system_call("mount", source, target, kind, flags, options)


class Namespaces:
    """New namespaces. A thread is in them, and what it opens and starts: namespaces(7) are those of a
    thread, and the other threads of this process stay where they are."""

    def __init__(self, kinds):
        self._thread = ThreadPoolExecutor(max_workers=1)
        self.call(system_call, "unshare", kinds)
        # That of the thread. Whatever takes a process by its number in order to find namespaces takes
        # this, too.
        self.pid = self.call(threading.get_native_id)

    def call(self, function, *arguments, **more):
        """Calls a function in the namespaces; returns its result."""
        return self._thread.submit(function, *arguments, **more).result()

    def popen(self, command, **more):
        """Starts a process in the namespaces."""
        return self.call(subprocess.Popen, command, **more)

    def close(self):
        self._thread.shutdown()


def set_up_machine(name):
    """Makes the namespaces of the calling thread those of a machine with that host name: it has only
    a loopback interface, its own /run, and no DNS server."""
    socket.sethostname(name)
    mount(None, b"/", flags=MS_REC | MS_PRIVATE)
    mount(b"tmpfs", b"/run", b"tmpfs", options=b"mode=755")
    for folder in ("dbus", "avahi-daemon", "lock", "user"):
        os.mkdir(f"/run/{folder}")
    os.mkdir("/run/user/0", 0o700)
    with socket.socket() as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sh22x", b"lo", IFF_UP))
    if os.path.exists("/etc/resolv.conf"):
        mount(b"/dev/null", b"/etc/resolv.conf", flags=MS_BIND)
