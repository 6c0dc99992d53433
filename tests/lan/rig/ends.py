"""A running relay between two sockets of the test, which act as the file browser and as the phone's
file server, so that each can do what a well-behaved program never does."""

import contextlib
import os
import random
import resource
import socket
import struct
from concurrent.futures import ThreadPoolExecutor

from .process import limit, wait_until

# The data to send: random, the same in every run. Pieces from different positions differ.
BLOB = random.Random(4445).randbytes(8 << 20)
READY = "ready: Quillbox is visible in Finder"


def raise_descriptor_limit():
    """Raises the soft limit of file descriptors to the hard limit, and returns it."""
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    return most


def listen(host, port=0, receive_buffer=None, backlog=4096, address="0.0.0.0"):
    """A listening socket on one of the host's IPv4 addresses, or on all of them."""
    listener = host.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    if receive_buffer is not None:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    listener.bind((address, port))
    listener.listen(backlog)
    listener.settimeout(limit(20))
    return listener


def reset(connection):
    """Closes the connection with a reset (RST) instead of a FIN."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def read_exactly(connection, count):
    parts = []
    while count > 0 and (part := connection.recv(min(count, 1 << 20))):
        parts.append(part)
        count -= len(part)
    return b"".join(parts)


def read_to_end(connection):
    """Everything up to the end of the stream or a reset."""
    parts = []
    with contextlib.suppress(ConnectionResetError):
        while part := connection.recv(1 << 20):
            parts.append(part)
    return b"".join(parts)


def send_and_end(connection, data):
    """Sends the data and a FIN, then reads to the end: closing with unread bytes sends a reset."""
    with connection:
        connection.sendall(data)
        connection.shutdown(socket.SHUT_WR)
        read_to_end(connection)


def session(computer, port, phone):
    """Opens a session through the relay at that port to a phone made by the `service` fixture;
    returns the browser's and the phone's socket."""
    browser = computer.socket()
    browser.settimeout(limit(20))
    browser.connect((computer.address4, port))
    other, _ = phone.listener.accept()
    other.settimeout(limit(20))
    return browser, other


class Ends:
    """A relay in manual mode: the test listens in place of the phone and connects in place of the
    file browser."""

    def __init__(self, computer, phone, onlooker, helper=None, address=None, **listening):
        self.computer = computer
        self.phone = phone
        self.listener = listen(phone, **listening)
        port = self.listener.getsockname()[1]
        self.helper = (helper or computer.manual_helper)(address or phone.address4, port)
        self.helper.wait_status(READY)
        self.port = onlooker.wait("resolved", "Quillbox", 10)["port"]
        self._background = ThreadPoolExecutor(max_workers=64)
        self._opened = [self.listener]

    def browse(self, host=None, receive_buffer=None):
        """The file browser's side of a new session."""
        browser = (host or self.computer).socket()
        self._opened.append(browser)
        if receive_buffer is not None:
            browser.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        browser.settimeout(limit(20))
        browser.connect((self.computer.address4, self.port))
        return browser

    def answer(self):
        """The phone's side of the next session that reaches it."""
        phone, _ = self.listener.accept()
        phone.settimeout(limit(20))
        self._opened.append(phone)
        return phone

    def pair(self, **browsing):
        """Opens a session; returns the browser's and the phone's socket, both connected."""
        browser = self.browse(**browsing)
        return browser, self.answer()

    def check(self):
        """Asserts that a new session carries bytes both ways and ends."""
        browser, phone = self.pair()
        for one, other in ((browser, phone), (phone, browser)):
            one.sendall(b"all is well")
            assert read_exactly(other, 11) == b"all is well"
        browser.close()
        assert phone.recv(1) == b""
        phone.close()

    def at_once(self, work, *arguments):
        """Runs it in another thread; returns its future. Wait for `result()` with a timeout."""
        return self._background.submit(work, *arguments)

    def sockets(self):
        """How many sockets the program has open."""
        return self._open("socket:")

    def pipes(self):
        """How many pipe ends the program has open."""
        return self._open("pipe:")

    def wait_sockets(self, most, seconds):
        wait_until(lambda: self.sockets() <= most, limit(seconds), f"{most} sockets")

    def _open(self, kind):
        count = 0
        folder = f"/proc/{self.helper.pid}/fd"
        for name in os.listdir(folder):
            with contextlib.suppress(OSError):  # it may be closed by now
                count += os.readlink(os.path.join(folder, name)).startswith(kind)
        return count

    def memory(self):
        """The program's resident memory without shared pages, in bytes."""
        with open(f"/proc/{self.helper.pid}/statm", encoding="ascii") as file:
            _, resident, shared = (int(x) for x in file.read().split()[:3])
        return (resident - shared) * resource.getpagesize()

    def processor_seconds(self):
        """The processor time that the program has used, user and system."""
        with open(f"/proc/{self.helper.pid}/stat", encoding="ascii") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def close(self):
        for one in self._opened:
            with contextlib.suppress(OSError):
                one.shutdown(socket.SHUT_RDWR)
            one.close()
        self._background.shutdown(wait=True, cancel_futures=True)
