"""Starts programs that use python-zeroconf or GLib. Importing these takes longer than all that most tests
do with them, so each process of the tests has one process that has imported them and forks for each
program.

Run as a program, this file is that process. It takes orders from the socket that is its input."""

import contextlib
import ctypes
import importlib
import json
import os
import runpy
import select
import signal
import socket
import subprocess
import sys
import traceback

NAMESPACES = ("net", "uts", "mnt")


def enter_host(pid):
    """Moves this process to the namespaces of a host."""
    libc = ctypes.CDLL(None, use_errno=True)
    with contextlib.ExitStack() as stack:
        kinds = [stack.enter_context(open(f"/proc/{pid}/ns/{kind}", "rb")) for kind in NAMESPACES]
        root = os.open(f"/proc/{pid}/root", os.O_PATH)
        for kind in kinds:
            if libc.setns(kind.fileno(), 0) != 0:
                raise OSError(ctypes.get_errno(), f"no way into the namespaces of host {pid}")
        # Entering a mount namespace leaves a chroot, if the tests run in one.
        os.fchdir(root)
        os.chroot(".")
        os.close(root)


class Program:
    """A program that the nursery has forked, with what is used of a Popen. Its exit status is lost."""

    def __init__(self, pid, stdin, stdout, stderr):
        self.pid, self.stdin, self.stdout, self.stderr = pid, stdin, stdout, stderr
        self._end = os.pidfd_open(pid)

    def __del__(self):
        os.close(self._end)

    def wait(self, timeout=None):
        # Not select, which refuses descriptors from 1024 on.
        ended = select.poll()
        ended.register(self._end, select.POLLIN)
        if not ended.poll(None if timeout is None else 1000 * timeout):
            raise subprocess.TimeoutExpired(str(self.pid), timeout)
        return 0

    def poll(self):
        with contextlib.suppress(subprocess.TimeoutExpired):
            return self.wait(0)
        return None

    def send_signal(self, number):
        signal.pidfd_send_signal(self._end, number)


class Nursery:
    def __init__(self):
        self._orders, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            subprocess.Popen(["/usr/bin/python3", __file__], stdin=theirs, stdout=subprocess.DEVNULL)

    def start(self, host_pid, environment, path, *arguments):
        """Starts a Python program in a host."""
        (input_end, stdin), (stdout, output_end), (stderr, error_end) = os.pipe(), os.pipe(), os.pipe()
        theirs = (input_end, output_end, error_end)
        order = json.dumps([host_pid, environment, path, *arguments])
        socket.send_fds(self._orders, [order.encode()], theirs)
        for each in theirs:
            os.close(each)
        pid = int(self._orders.recv(20))
        return Program(pid, os.fdopen(stdin, "wb"), os.fdopen(stdout, "rb"), os.fdopen(stderr, "rb"))


def run(orders, pipes, host_pid, environment, path, *arguments):
    """Runs the program in this process, and ends it."""
    os.setsid()
    for number, pipe in enumerate(pipes):
        os.dup2(pipe, number)
        os.close(pipe)
    orders.close()
    code = 1
    try:
        enter_host(host_pid)
        os.environ.clear()
        os.environ.update(environment)
        sys.argv = [path, *arguments]
        runpy.run_path(path, run_name="__main__")
        sys.stdout.flush()
        code = 0
    except Exception:
        traceback.print_exc()
        sys.stderr.flush()
    finally:
        os._exit(code)


def import_libraries():
    """Imports what the programs import. That starts no thread, which a fork would lose."""
    for name in ("concurrent.futures.thread", "zeroconf.asyncio"):
        importlib.import_module(name)
    # A bench has no use for GLib.
    with contextlib.suppress(ImportError, ValueError):
        importlib.import_module("gi").require_version("Atspi", "2.0")
        for name in ("gi.repository.Gio", "gi.repository.Atspi"):
            importlib.import_module(name)


def main():
    import_libraries()
    orders = socket.socket(fileno=os.dup(0))
    while True:
        order, pipes, _, _ = socket.recv_fds(orders, 1 << 16, 3)
        if not order:
            return
        with contextlib.suppress(ChildProcessError):
            while os.waitpid(-1, os.WNOHANG)[0]:
                pass
        pid = os.fork()
        if pid == 0:
            run(orders, pipes, *json.loads(order))
        for each in pipes:
            os.close(each)
        orders.send(str(pid).encode())


if __name__ == "__main__":
    main()
