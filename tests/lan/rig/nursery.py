"""Starts programs that use python-zeroconf. Importing it takes longer than all that most tests do with
it, so each process of the tests has one process that has imported it and forks for each program.

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

CLONE_NEWNET = 0x40000000  # sched.h


def enter_network(pid):
    """Moves the calling thread to the network namespace of a process."""
    with open(f"/proc/{pid}/ns/net", encoding="ascii") as network:
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.setns(network.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), f"no way into the network of process {pid}")


class Program:
    """A program that the nursery has forked, with what is used of a Popen. Its exit status is lost."""

    def __init__(self, pid, stdin, stdout, stderr):
        self.pid, self.stdin, self.stdout, self.stderr = pid, stdin, stdout, stderr
        self._end = os.pidfd_open(pid)

    def __del__(self):
        os.close(self._end)

    def wait(self, timeout=None):
        if not select.select([self._end], [], [], timeout)[0]:
            raise subprocess.TimeoutExpired(str(self.pid), timeout)
        return 0

    def poll(self):
        return 0 if select.select([self._end], [], [], 0)[0] else None

    def send_signal(self, number):
        signal.pidfd_send_signal(self._end, number)


class Nursery:
    def __init__(self):
        self._orders, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            subprocess.Popen(["/usr/bin/python3", __file__], stdin=theirs, stdout=subprocess.DEVNULL)

    def start(self, host_pid, path, *arguments):
        """Starts a Python program in the network of a process."""
        (input_end, stdin), (stdout, output_end), (stderr, error_end) = os.pipe(), os.pipe(), os.pipe()
        theirs = (input_end, output_end, error_end)
        socket.send_fds(self._orders, [json.dumps([host_pid, path, *arguments]).encode()], theirs)
        for each in theirs:
            os.close(each)
        pid = int(self._orders.recv(20))
        return Program(pid, os.fdopen(stdin, "wb"), os.fdopen(stdout, "rb"), os.fdopen(stderr, "rb"))


def run(orders, pipes, host_pid, path, *arguments):
    """Runs the program in this process, and ends it."""
    os.setsid()
    for number, pipe in enumerate(pipes):
        os.dup2(pipe, number)
        os.close(pipe)
    orders.close()
    code = 1
    try:
        enter_network(host_pid)
        sys.argv = [path, *arguments]
        runpy.run_path(path, run_name="__main__")
        sys.stdout.flush()
        code = 0
    except Exception:
        traceback.print_exc()
        sys.stderr.flush()
    finally:
        os._exit(code)


def main():
    importlib.import_module("zeroconf.asyncio")  # for the programs
    orders = socket.socket(fileno=os.dup(0))
    while True:
        order, pipes, _, _ = socket.recv_fds(orders, 4096, 3)
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
