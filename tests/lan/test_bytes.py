"""What one side sends is what the other side receives, with many sessions and misbehaving peers."""

import hashlib
import queue
import random
import socket
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest
from rig.ends import BLOB, raise_descriptor_limit, read_exactly, read_to_end, reset
from rig.ends import send_and_end
from rig.process import SLOWDOWN, limit, wait_until

pytestmark = pytest.mark.any_user

MEBIBYTE = 1 << 20
WAYS = ["to the phone", "to the browser"]


def in_order(pair, way):
    """Writer and reader of a session, given the direction of the bytes."""
    browser, phone = pair
    return (browser, phone) if way == "to the phone" else (phone, browser)


def piece(index):
    """The data that session `index` sends: half of the sessions send little, a few send a lot."""
    random_of = random.Random(index)
    most = random_of.choice([4096] * 10 + [1 << 18] * 9 + [MEBIBYTE])
    start = random_of.randrange(len(BLOB) - most)
    return BLOB[start : start + random_of.randrange(most)]


@pytest.mark.parametrize("count", [1000, pytest.param(10_000, marks=pytest.mark.long)])
def test_many_sessions_of_any_size_arrive_whole(ends, count):
    """Sessions with even numbers send to the phone, the others receive from it. The receiver
    computes the checksum."""
    at_phone = queue.Queue()

    def serve(phone):
        with phone:
            index = int.from_bytes(read_exactly(phone, 4), "big")
            if index % 2:
                phone.sendall(piece(index))
            else:
                at_phone.put((index, hashlib.sha256(read_to_end(phone)).digest()))

    def accept():
        try:
            while True:
                phone, _ = ends.listener.accept()
                serve(phone)
        except OSError:
            return  # the listener is closed at the end

    def session(index):
        with ends.computer.socket() as browser:
            browser.settimeout(limit(30))
            browser.connect((ends.computer.address4, ends.port))
            browser.sendall(index.to_bytes(4, "big"))
            if index % 2:
                whole = read_to_end(browser)
                return hashlib.sha256(whole).digest() == hashlib.sha256(piece(index)).digest()
            browser.sendall(piece(index))
        return True

    for _ in range(16):
        ends.at_once(accept)
    with ThreadPoolExecutor(8) as browsers:
        assert all(browsers.map(session, range(count)))
    seen = dict(at_phone.get(timeout=limit(30)) for _ in range(0, count, 2))
    assert sorted(seen) == list(range(0, count, 2))
    assert all(seen[x] == hashlib.sha256(piece(x)).digest() for x in seen)


@pytest.mark.parametrize("way", WAYS)
@pytest.mark.parametrize("size", [1, MEBIBYTE - 1, MEBIBYTE, MEBIBYTE + 1])
def test_the_last_byte_of_any_size_comes_before_the_end(ends, way, size):
    writer, reader = in_order(ends.pair(), way)
    data = BLOB[:size]

    sending = ends.at_once(send_and_end, writer, data)

    assert read_to_end(reader) == data
    reader.close()
    sending.result(limit(10))


@pytest.mark.parametrize("way", WAYS)
def test_a_slow_reader_that_keeps_sending_gets_all_that_came_before_the_end(
    make_ends, way
):
    """With the reader's bytes unread, a plain close sends a reset, which discards megabytes."""
    ends = make_ends(receive_buffer=1 << 16)
    writer, reader = in_order(ends.pair(receive_buffer=1 << 16), way)
    data = BLOB[: 6 * MEBIBYTE]
    sending = ends.at_once(send_and_end, writer, data)

    parts = []
    while part := reader.recv(1 << 15):
        parts.append(part)
        reader.sendall(b"still here" * 10)
        time.sleep(0.001)  # a slow reader

    assert b"".join(parts) == data
    reader.close()
    sending.result(limit(10))


def test_an_end_in_one_direction_ends_both(ends):
    browser, phone = ends.pair()
    browser.sendall(b"the last words")

    browser.shutdown(socket.SHUT_WR)

    assert read_to_end(phone) == b"the last words"
    assert browser.recv(1) == b""


@pytest.mark.parametrize("way", WAYS)
def test_a_reset_in_the_middle_of_a_write_ends_both_sides_and_nothing_else(ends, way):
    bystander = ends.pair()
    before = ends.sockets()
    writer, reader = in_order(ends.pair(), way)
    written = threading.Event()

    def write():
        writer.sendall(BLOB[:MEBIBYTE])
        written.set()

    ends.at_once(write)
    got = read_exactly(reader, 1000)
    assert written.wait(limit(10))
    reset(writer)

    rest = ends.at_once(read_to_end, reader).result(limit(2))
    assert BLOB.startswith(got + rest)
    reader.close()
    ends.wait_sockets(before, 2)
    bystander[0].sendall(b"unmoved")
    assert read_exactly(bystander[1], 7) == b"unmoved"


@pytest.mark.parametrize("way", WAYS)
def test_a_reset_of_the_reader_ends_the_writer_at_once(ends, way):
    before = ends.sockets()
    writer, reader = in_order(ends.pair(), way)

    def write():
        with pytest.raises(OSError):
            while True:
                writer.sendall(BLOB)

    writing = ends.at_once(write)
    read_exactly(reader, MEBIBYTE)
    reset(reader)

    writing.result(limit(2))
    writer.close()
    ends.wait_sockets(before, 2)


def test_a_browser_that_says_nothing_is_left_alone(ends):
    browser, phone = ends.pair()
    ends.check()

    phone.sendall(b"anybody there?")

    assert read_exactly(browser, 14) == b"anybody there?"
    phone.close()
    assert browser.recv(1) == b""


def test_a_reader_of_one_byte_a_second_holds_up_nobody_and_costs_no_memory(ends):
    browser, phone = ends.pair(receive_buffer=1 << 14)
    phone.settimeout(None)
    sent = []
    before = ends.memory()

    def push():
        with pytest.raises(OSError):
            while True:
                sent.append(phone.send(BLOB[:MEBIBYTE]))

    ends.at_once(push)
    got = b""
    for _ in range(5):
        got += browser.recv(1)
        ends.check()
        # The other direction of the same session is not held up.
        browser.sendall(b"go on")
        assert read_exactly(phone, 5) == b"go on"
        time.sleep(1)  # a slow reader

    stalled_at = sum(sent)
    assert got == BLOB[:5]
    assert stalled_at < 64 * MEBIBYTE
    assert ends.memory() - before < 8 * MEBIBYTE
    read_exactly(browser, 32 * MEBIBYTE)
    assert sum(sent) > stalled_at
    browser.close()


@pytest.mark.parametrize("count", [1000, pytest.param(5000, marks=pytest.mark.long)])
def test_connections_that_come_all_at_once_are_all_served(ends, count):
    """`count` connections, or fewer if the machine's limit of file descriptors is too low."""
    count = min(count, (raise_descriptor_limit() - 1000) // 2)
    before = ends.sockets()
    address = (ends.computer.address4, ends.port)
    browsers = [ends.computer.socket() for _ in range(count)]
    phones = []

    def serve():
        while len(phones) < count:
            phones.append(ends.listener.accept()[0])

    serving = ends.at_once(serve)
    for browser in browsers:
        browser.setblocking(False)
        browser.connect_ex(address)
    for browser in browsers:
        browser.settimeout(limit(30))
    for index, browser in enumerate(browsers):
        browser.sendall(index.to_bytes(4, "big"))  # waits for the connection
    serving.result(limit(30))
    for phone in phones:
        phone.settimeout(limit(30))
        phone.sendall(read_exactly(phone, 4) + b"!")
    for index, browser in enumerate(browsers):
        assert read_exactly(browser, 5) == index.to_bytes(4, "big") + b"!"

    for one in (*browsers, *phones):
        one.close()
    ends.wait_sockets(before, 5)
    ends.check()


@pytest.mark.parametrize("count", [2000, pytest.param(200_000, marks=pytest.mark.long)])
def test_sessions_one_after_another_leave_nothing_behind(ends, count):
    """Eight sessions at a time; each sends its number to the phone and gets it back."""
    for host in (ends.computer, ends.phone):
        # Closed connections keep their port in TIME_WAIT for a minute: ports could run out.
        host.run("sh", "-c", "echo 10000 65000 >/proc/sys/net/ipv4/ip_local_port_range")
        host.run("sh", "-c", "echo 1 >/proc/sys/net/ipv4/tcp_tw_reuse")

    def serve():
        try:
            while True:
                with ends.listener.accept()[0] as phone:
                    phone.settimeout(limit(20))
                    phone.sendall(read_exactly(phone, 8))
                    read_to_end(phone)
        except OSError:
            return  # the listener is closed at the end

    def browse(numbers):
        for number in numbers:
            with ends.computer.socket() as browser:
                browser.settimeout(limit(20))
                browser.connect((ends.computer.address4, ends.port))
                browser.sendall(number.to_bytes(8, "big"))
                assert read_exactly(browser, 8) == number.to_bytes(8, "big")

    def run(sessions):
        with ThreadPoolExecutor(8) as browsers:
            shares = (range(first, sessions, 8) for first in range(8))
            assert len(list(browsers.map(browse, shares))) == 8

    before = ends.sockets()
    for _ in range(8):
        ends.at_once(serve)
    run(1000)
    ends.wait_sockets(before, 5)
    memory = ends.memory()

    run(count)

    ends.wait_sockets(before, 5)
    if SLOWDOWN == 1:  # sanitizers keep freed memory in quarantine
        assert ends.memory() < memory + MEBIBYTE


def test_it_ends_within_a_second_with_a_thousand_sessions(ends):
    raise_descriptor_limit()
    pairs = [ends.pair() for _ in range(1000)]
    for browser, phone in pairs[::10]:
        phone.setblocking(False)
        phone.send(BLOB[:MEBIBYTE])  # nobody reads it

    code, seconds = ends.helper.stop()

    assert code == 0
    assert seconds < limit(1)
    for browser, phone in pairs:
        read_to_end(browser)
        phone.setblocking(True)
        read_to_end(phone)
        browser.close()
        phone.close()


class Flood:
    """Writes one pattern repeatedly at one end, and checks what arrives at the other end."""

    def __init__(self, ends, writer, reader, pattern):
        self.carried = 0
        self.is_enough = threading.Event()
        writer.settimeout(limit(60))
        reader.settimeout(limit(60))
        self._parts = [ends.at_once(self._write, writer, pattern)]
        self._parts.append(ends.at_once(self._read, reader, pattern))

    def _write(self, writer, pattern):
        try:
            while not self.is_enough.is_set():
                writer.sendall(pattern)
        except OSError:
            assert self.is_enough.is_set()  # the other direction ended first

    def _read(self, reader, pattern):
        buffer = bytearray(MEBIBYTE)
        twice = pattern + pattern[:MEBIBYTE]
        while not self.is_enough.is_set():
            count = reader.recv_into(buffer)
            assert count > 0 or self.is_enough.is_set()
            at = self.carried % len(pattern)
            assert buffer[:count] == twice[at : at + count]
            self.carried += count

    def end(self, *connections):
        self.is_enough.set()
        for one in connections:
            if one.fileno() >= 0:  # else already reset when the other direction ended
                reset(one)
        for part in self._parts:
            with_end = part.exception(limit(60))
            assert with_end is None or isinstance(with_end, OSError), with_end


@pytest.mark.long
def test_both_directions_at_full_rate_for_two_minutes_lose_nothing(ends):
    browser, phone = ends.pair()
    before = ends.memory()
    floods = [Flood(ends, browser, phone, BLOB), Flood(ends, phone, browser, BLOB[::-1])]
    for _ in range(12):
        carried = [x.carried for x in floods]
        time.sleep(10)  # this duration is the test
        assert all(x.carried > old + 100 * MEBIBYTE for x, old in zip(floods, carried))

    assert ends.memory() - before < 16 * MEBIBYTE
    for flood in floods:
        flood.is_enough.set()  # of both, because the end of one resets the connections of the other
    for flood in floods:
        flood.end(browser, phone)
    ends.check()


@pytest.mark.long
def test_readers_that_stall_for_ten_minutes_get_everything_all_the_same(ends):
    whole = BLOB * 8  # more than all buffers on the path can hold
    stalled = [in_order(ends.pair(), way) for way in WAYS]
    for writer, _ in stalled:
        writer.settimeout(limit(900))
    sending = [ends.at_once(send_and_end, writer, whole) for writer, _ in stalled]

    time.sleep(600)  # this duration is the test
    assert not any(x.done() for x in sending)
    ends.check()

    for (_, reader), each in zip(stalled, sending):
        assert read_to_end(reader) == whole
        reader.close()
        each.result(limit(10))
    ends.check()


@pytest.mark.long
@pytest.mark.parametrize("way", WAYS)
def test_a_hundred_gigabytes_of_zeros_pass(ends, way):
    writer, reader = in_order(ends.pair(), way)
    before = ends.memory()
    flood = Flood(ends, writer, reader, bytes(MEBIBYTE))
    wait_until(lambda: flood.carried >= 100 * 10**9, 900, "a hundred gigabytes")
    assert ends.memory() - before < 16 * MEBIBYTE
    flood.end(writer, reader)
    ends.check()
