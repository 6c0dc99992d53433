"""Mixed traffic through the real program for any length of time, with checksums at both ends.
Afterwards the program must hold no more resources than at the start."""

import contextlib
import hashlib
import os
import random
import re
import struct
import threading
import time

from .computer import visible
from .ends import BLOB, listen, read_exactly, reset
from .process import limit, wait_until

HEADER = struct.Struct("!BQQI")
TRANSFER, RESET_BY_PHONE = 1, 2
PIECE = 1 << 16
WORKERS = 6
IDLE = 20
STEADY, RESTLESS = "Quillbox Office", "Quillbox Attic"
# How much freed memory allocators may keep. A leak of one minute's traffic would be more.
KEPT_KIB = 4000
# The program keeps up to 16 pipes for the next transfers.
MOST_PIPE_ENDS = 32


class Fault(Exception):
    """Something that the program must not do."""


def pieces(seed, size):
    """Yields `size` bytes of test data, in pieces; the same seed gives the same data."""
    position = seed % (len(BLOB) - PIECE)
    while size > 0:
        piece = BLOB[position : position + min(PIECE, size)]
        yield piece
        size -= len(piece)
        position = (position + 7919 * PIECE) % (len(BLOB) - PIECE)


def digest_of(seed, size):
    digest = hashlib.sha256()
    for piece in pieces(seed, size):
        digest.update(piece)
    return digest.digest()


class Rate:
    """Limits the bytes per second of all threads together."""

    def __init__(self, bytes_a_second):
        self._rate = bytes_a_second
        self._lock = threading.Lock()
        self._free_at = time.monotonic()

    def take(self, count):
        with self._lock:
            self._free_at = max(self._free_at, time.monotonic() - 0.1) + count / self._rate
            pause = self._free_at - time.monotonic()
        if pause > 0:
            time.sleep(pause)  # enforces the rate


class FileServer:
    """The phone's side of each session."""

    def __init__(self, host, rate):
        self.listener = listen(host)
        self.listener.settimeout(0.5)
        self._rate = rate
        self._is_open = True
        self._accepting = threading.Thread(target=self._accept, daemon=True)
        self._accepting.start()

    def close(self):
        self._is_open = False
        self._accepting.join()
        self.listener.close()

    def _accept(self):
        while self._is_open:
            with contextlib.suppress(TimeoutError):
                connection, _ = self.listener.accept()
                threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        """Ignores errors of the connection: the browser's side sees them as a reset or an early end
        and reports them."""
        with connection, contextlib.suppress(OSError):
            connection.settimeout(limit(120))
            while len(header := read_exactly(connection, HEADER.size)) == HEADER.size:
                kind, up, down, seed = HEADER.unpack(header)
                if kind == RESET_BY_PHONE:
                    connection.sendall(BLOB[:down])
                    reset(connection)
                    return
                sending = threading.Thread(target=self._send, args=(connection, seed, down))
                sending.start()
                received = take(connection, up)
                sending.join()
                connection.sendall(received)

    def _send(self, connection, seed, size):
        with contextlib.suppress(OSError):
            for piece in pieces(seed, size):
                self._rate.take(len(piece))
                connection.sendall(piece)


def take(connection, size):
    """Reads `size` bytes; returns their checksum."""
    digest = hashlib.sha256()
    while size > 0:
        part = connection.recv(min(size, 1 << 18))
        if not part:
            raise ConnectionError("the stream ended too early")
        digest.update(part)
        size -= len(part)
    return digest.digest()


class Held:
    """The resources that a process holds: file descriptors, pipe ends, threads and memory (KiB)."""

    def __init__(self, pid):
        ends = {}
        for name in os.listdir(f"/proc/{pid}/fd"):
            with contextlib.suppress(OSError):  # it may have been closed since listdir
                kind = os.readlink(f"/proc/{pid}/fd/{name}").split(":")[0]
                ends[kind] = ends.get(kind, 0) + 1
        self.pipes = ends.pop("pipe", 0)
        self.descriptors = sum(ends.values())
        self.threads = len(os.listdir(f"/proc/{pid}/task"))
        with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
            text = file.read()
        self.anonymous = int(re.search(r"^Pss_Anon:\s+(\d+)", text, re.MULTILINE)[1])
        self.proportional = int(re.search(r"^Pss:\s+(\d+)", text, re.MULTILINE)[1])

    def __str__(self):
        return (
            f"{self.pipes} pipe ends, {self.descriptors} other descriptors, "
            f"{self.threads} threads, {self.proportional} KiB PSS, {self.anonymous} KiB anonymous"
        )

    def is_back_at(self, start):
        return (
            self.descriptors <= start.descriptors
            and self.pipes <= max(start.pipes, MOST_PIPE_ENDS)
            and self.threads <= start.threads
        )


class Soak:
    """Constant traffic between a computer and two phones, one of which comes and goes."""

    def __init__(self, computer, onlooker, phones, megabytes_a_second, seed=1):
        self.computer = computer
        self.onlooker = onlooker
        self.rate = Rate(megabytes_a_second * 1e6)
        self.steady, self.restless = phones
        for phone, name in ((self.steady, STEADY), (self.restless, RESTLESS)):
            phone.service_name = name
            phone.server = FileServer(phone, self.rate)
            phone.port = phone.server.listener.getsockname()[1]
        self.helper = None
        self.ports = {}
        self.counts = {"sessions": 0, "bytes": 0, "resets": 0, "comings": 0, "cut": 0}
        self.faults = []
        self._seed = seed
        self._lock = threading.Lock()
        self._generation = 0
        self._over = threading.Event()

    # ---- phones ----

    def start(self):
        self.helper = self.computer.helper()
        self.steady.announce()
        self.helper.wait_status(visible(1))
        self._learn(self.steady, 0)
        self.come()

    def come(self):
        since, seen = self.helper.mark(), self.onlooker.mark()
        self.restless.announce()
        self.helper.wait_status(visible(2), since=since)
        self._learn(self.restless, seen)
        self.counts["comings"] += 1

    def go(self):
        self.ports.pop(RESTLESS)
        self._generation += 1
        since = self.helper.mark()
        self.restless.goodbye()
        self.helper.wait_status(visible(1), since=since)

    def _learn(self, phone, seen):
        found = self.onlooker.wait("resolved", phone.service_name, limit(15), since=seen)
        self.ports[phone.service_name] = found["port"]

    # ---- sessions ----

    def connect(self, port):
        browser = self.computer.socket()
        browser.settimeout(limit(120))
        browser.connect((self.computer.address4, port))
        return browser

    def transfer(self, browser, up, down, seed):
        """Transfers in both directions at once; the receiver of the bytes computes the checksum."""
        browser.sendall(HEADER.pack(TRANSFER, up, down, seed))
        sending = threading.Thread(target=self._send, args=(browser, seed + 1, up))
        sending.start()
        try:
            received = take(browser, down)
        finally:
            sending.join()
        if received != digest_of(seed, down):
            raise Fault(f"{down} bytes from the phone have a wrong checksum")
        told = read_exactly(browser, 32)
        if len(told) < 32:
            raise ConnectionError("the stream ended before the checksum")
        if told != digest_of(seed + 1, up):
            raise Fault(f"{up} bytes to the phone have a wrong checksum")
        self._count(bytes=up + down)

    def _send(self, browser, seed, size):
        with contextlib.suppress(OSError):
            for piece in pieces(seed, size):
                self.rate.take(len(piece))
                browser.sendall(piece)

    def _count(self, **more):
        with self._lock:
            for name, number in more.items():
                self.counts[name] += number

    def _session(self, chance, port):
        kind = chance.random()
        seed = chance.randrange(1 << 31)
        most = chance.choice([1, 1 << 16, 1 << 16, 1 << 20, 1 << 22])
        with self.connect(port) as browser:
            if kind < 0.1:
                browser.sendall(HEADER.pack(TRANSFER, most, most, seed) + BLOB[: most // 2])
                reset(browser)
                self._count(resets=1)
            elif kind < 0.2:
                browser.sendall(HEADER.pack(RESET_BY_PHONE, 0, chance.randrange(PIECE), seed))
                with contextlib.suppress(ConnectionError):
                    while browser.recv(PIECE):
                        pass
                self._count(resets=1)
            else:
                for turn in range(chance.choice([1, 1, 1, 8])):
                    up, down = chance.randrange(most), chance.randrange(most)
                    self.transfer(browser, up, down, seed + turn)
        self._count(sessions=1)

    def _work(self, number):
        chance = random.Random(self._seed * 1000 + number)
        while not self._over.is_set():
            name = RESTLESS if chance.random() < 0.3 else STEADY
            generation = self._generation
            port = self.ports.get(name)
            if port is None:
                self._over.wait(0.1)
                continue
            try:
                self._session(chance, port)
            except (OSError, Fault) as fault:
                is_cut = name == RESTLESS and generation != self._generation
                if is_cut and not isinstance(fault, Fault):
                    self._count(cut=1)
                else:
                    self.faults.append(f"{name}: {fault!r}")

    # ---- the whole ----

    def run(self, seconds, tell=lambda line: None, stay=15):
        """Runs traffic for that long; returns the faults found, one line each."""
        self.start()
        self._for(min(seconds / 4, 30), stay, lambda line: None)
        start = self._held()
        for pid, held in start.items():
            tell(f"start: process {pid}: {held}")
        before = dict(self.counts)
        self._for(seconds, stay, tell)
        self._check_end(start, tell)
        if self.counts["sessions"] == before["sessions"] or self.counts["comings"] < 2:
            self.faults.append("there was hardly any traffic")
        for phone in (self.steady, self.restless):
            phone.server.close()
        return self.faults

    def _for(self, seconds, stay, tell):
        self._over.clear()
        idle = [self.connect(self.ports[STEADY]) for _ in range(IDLE)]
        workers = [threading.Thread(target=self._work, args=(x,)) for x in range(WORKERS)]
        for worker in workers:
            worker.start()
        try:
            begun = time.monotonic()
            told = begun
            while (now := time.monotonic()) < begun + seconds:
                self._over.wait(min(stay, begun + seconds - now))
                self.go()
                self.come()
                if time.monotonic() >= told + 60:
                    told += 60
                    self._check_idle(idle)
                    tell(self._line(now - begun))
        finally:
            self._over.set()
            for worker in workers:
                worker.join()
        self._check_idle(idle)
        for browser in idle:
            browser.close()

    def _check_idle(self, idle):
        for number, browser in enumerate(idle):
            try:
                self.transfer(browser, 100, 100, number)
            except (OSError, Fault) as fault:
                self.faults.append(f"an idle session: {fault!r}")

    def _line(self, seconds):
        held = "; ".join(str(x) for x in self._now().values())
        counts = self.counts
        return (
            f"{seconds / 60:6.1f} min: {counts['sessions']} sessions, {counts['bytes'] / 1e6:.0f} MB, "
            f"{counts['resets']} resets, the second phone appeared {counts['comings']} times and "
            f"cut {counts['cut']} sessions, {len(self.faults)} faults; {held}"
        )

    def _now(self):
        return {pid: Held(pid) for pid in self.computer.helper_processes()}

    def _held(self):
        """The resources that are held once the last sessions have ended, which takes a moment."""

        def settled():
            first = self._now()
            self._rest.wait(0.5)
            second = self._now()
            same = {x: y.descriptors for x, y in first.items()} == {
                x: y.descriptors for x, y in second.items()
            }
            return second if same else None

        return wait_until(settled, limit(20), "processes at rest")

    _rest = threading.Event()  # never set: wait() just pauses

    def _check_end(self, start, tell):
        def is_back():
            now = self._now()
            return set(now) == set(start) and all(now[x].is_back_at(start[x]) for x in start)

        with contextlib.suppress(AssertionError):
            wait_until(is_back, limit(10), "the resources held at the start")
        end = self._now()
        for pid, held in end.items():
            tell(f"end:   process {pid}: {held}")
        if set(end) != set(start):
            self.faults.append("a process of the program has ended or started during the run")
            return
        for pid, held in end.items():
            if not held.is_back_at(start[pid]):
                self.faults.append(f"process {pid} holds {held}; at the start: {start[pid]}")
            elif held.anonymous > start[pid].anonymous + KEPT_KIB:
                self.faults.append(f"process {pid} has grown: {held}; at the start: {start[pid]}")
