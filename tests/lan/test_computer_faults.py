"""Resources that the computer runs out of, loses or changes while the program runs."""

import os
import resource
import subprocess
import time

import pytest
from rig.computer import LOOKING, Helper, visible
from rig.ends import BLOB, read_exactly, read_to_end, send_and_end, session
from rig.network import AS_NOBODY, NOBODY
from rig.onlooker import PYTHON
from rig.phone import smbclient
from rig.process import SLOWDOWN, limit, wait_until

MEBIBYTE = 1 << 20


def limits(helper, **soft):
    """Changes resource limits of the running program; returns the previous ones."""
    before = {}
    for name, value in soft.items():
        kind = getattr(resource, f"RLIMIT_{name}")
        before[name], hard = resource.prlimit(helper.pid, kind)
        resource.prlimit(helper.pid, kind, (value, hard))
    return before


def check_transfer(ends, size=8 * MEBIBYTE):
    """Asserts that a transfer from the phone to the browser is complete and the session ends."""
    browser, phone = ends.pair()
    sending = ends.at_once(send_and_end, phone, BLOB[:size])
    assert read_to_end(browser) == BLOB[:size]
    browser.close()
    sending.result(limit(10))


# ---- the network ----


def test_a_session_waits_for_a_route_and_takes_it_at_once(make_ends):
    ends = make_ends(address="10.99.0.5")
    ends.phone.run("ip", "addr", "add", "10.99.0.5/32", "dev", "eth0")
    browser = ends.browse()
    browser.sendall(b"hello?")
    ends.listener.settimeout(0.5)
    with pytest.raises(TimeoutError):
        ends.answer()
    ends.listener.settimeout(limit(5))

    ends.computer.run("ip", "route", "add", "10.99.0.0/24", "dev", "eth0")
    added = time.monotonic()

    phone = ends.answer()
    assert time.monotonic() - added < limit(1)
    assert read_exactly(phone, 6) == b"hello?"


def test_a_default_route_that_goes_takes_no_session_along(ends):
    ends.computer.run("ip", "route", "add", "default", "via", ends.phone.address4)
    browser, phone = ends.pair()
    sending = ends.at_once(send_and_end, phone, BLOB)
    begun = read_exactly(browser, MEBIBYTE)

    ends.computer.run("ip", "route", "del", "default")

    assert begun + read_to_end(browser) == BLOB
    browser.close()
    sending.result(limit(10))
    ends.check()


def test_a_link_that_goes_down_and_up_in_a_transfer_costs_no_byte(ends):
    browser, phone = ends.pair()
    sending = ends.at_once(send_and_end, phone, BLOB)
    begun = read_exactly(browser, MEBIBYTE)

    ends.computer.run("ip", "link", "set", "eth0", "down")
    ends.computer.run("ip", "link", "set", "eth0", "up")

    assert begun + read_to_end(browser) == BLOB
    browser.close()
    sending.result(limit(10))


# ---- DNS-SD ----


def test_a_daemon_that_dies_in_the_middle_of_a_registration_is_asked_again(
    bare_computer, onlooker, phone
):
    computer = bare_computer
    computer.prepare("daemon")
    helper = computer.helper()
    phone.announce()
    # Probing for the name takes 0.75 s (RFC 6762, section 8.1).
    helper.process.wait_line(lambda line: "Connecting" in line.text, limit(10), what="the probing")

    computer.kill_avahi()
    computer.start_avahi()

    helper.wait_status(visible(1), timeout=15)
    found = onlooker.wait("resolved", "Quillbox Office", 10)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    assert {x["name"] for x in onlooker.events("added")} == {"Quillbox Office"}


def test_a_daemon_that_is_stopped_and_started_in_order_is_used_again(
    bare_computer, onlooker, phone
):
    computer = bare_computer
    computer.prepare("daemon")
    helper = computer.helper()
    phone.announce()
    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 10)
    seen = onlooker.mark()

    computer.avahi.end()
    computer.start_avahi()

    found = onlooker.wait("heard", "Quillbox Office", limit(10), since=seen)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    assert helper.statuses()[-1] == visible(1)


# ---- descriptors, pipes, memory ----


def test_without_descriptors_it_waits_without_spinning_and_goes_on(ends):
    standing = ends.pair()
    before = limits(ends.helper, NOFILE=64)
    browsers = [ends.browse() for _ in range(100)]
    ends.helper.wait_message("cannot accept connections")
    began = ends.processor_seconds()

    time.sleep(2)  # processor time is measured over this time

    assert ends.processor_seconds() - began < 0.1 * limit(1)
    standing[0].sendall(b"still here")
    assert read_exactly(standing[1], 10) == b"still here"
    messages = [x for x in ends.helper.process.lines if "cannot accept connections" in x.text]
    assert len(messages) == 1
    limits(ends.helper, **before)
    for browser in browsers:
        browser.close()
    # The sessions accepted before descriptors ran out are in the backlog of the phone's listener.
    ends.wait_sockets(40, 5)
    ends.listener.settimeout(1)
    with pytest.raises(TimeoutError):
        while True:
            ends.answer().close()
    ends.listener.settimeout(limit(10))
    ends.check()


HOARD = """
import fcntl, os, sys
pipes = []
try:
    while True:
        pipes.append(os.pipe())
        size = fcntl.fcntl(pipes[-1][1], fcntl.F_GETPIPE_SZ)
        if size < 65536:
            break
except OSError:
    pass
print(f"hoarded {len(pipes)}", flush=True)
sys.stdin.read()
"""


def nobodys_helper(computer):
    """Returns a function that starts the program in manual mode as an unprivileged user."""

    def start(host, port):
        home = f"/run/user/{NOBODY}"
        computer.run("install", "-d", "-m", "700", "-o", str(NOBODY), "-g", str(NOBODY), home)
        computer.write_settings({"automaticDiscovery": False, "host": host, "port": str(port)})
        folder = f"{home}/org.quillbox.Helper"
        computer.run("install", "-d", "-m", "700", "-o", str(NOBODY), folder)
        computer.run(
            *("install", "-m", "600", "-o", str(NOBODY), computer.settings_file),
            f"{folder}/settings.json",
        )
        environment = computer.environment(HOME=home, XDG_CONFIG_HOME=home, XDG_RUNTIME_DIR=home)
        command = [*AS_NOBODY, computer.shared_program()]
        return Helper(computer.start(command, env=environment))

    return start


@pytest.mark.skipif(not NOBODY, reason="this user namespace has no second user")
def test_a_user_whose_pipes_are_used_up_loses_no_byte_and_takes_none_from_others(
    bare_computer, make_ends
):
    ends = make_ends(helper=nobodys_helper(bare_computer))
    check_transfer(ends)
    assert 0 < ends.pipes() <= 32
    hoard = bare_computer.start([*AS_NOBODY, PYTHON, "-c", HOARD], stdin=True)
    hoard.wait_line(lambda line: line.text.startswith("hoarded "), 20, what="the hoard")
    pairs = [ends.pair() for _ in range(40)]

    sending = [ends.at_once(send_and_end, phone, BLOB) for _, phone in pairs[:20]]
    for browser, _ in pairs[:20]:
        assert read_to_end(browser) == BLOB
        browser.close()
    for one in sending:
        one.result(limit(10))

    hoard.end()
    check_transfer(ends)
    assert ends.pipes() <= 32
    code, _ = ends.helper.stop()
    assert code == 0


@pytest.mark.skipif(SLOWDOWN > 1, reason="sanitizers need far more memory than the limit set here")
def test_without_memory_for_big_chunks_the_bytes_go_in_small_ones(ends):
    """Stalled sessions occupy all pipes, so that the other sessions copy through memory."""
    check_transfer(ends)
    pairs = [ends.pair(receive_buffer=1 << 14) for _ in range(40)]
    with open(f"/proc/{ends.helper.pid}/status", encoding="ascii") as file:
        (data,) = (int(x.split()[1]) << 10 for x in file if x.startswith("VmData:"))
    limits(ends.helper, DATA=data + 4 * MEBIBYTE)

    sending = [ends.at_once(send_and_end, phone, BLOB) for _, phone in pairs]
    for browser, _ in pairs:
        assert read_exactly(browser, MEBIBYTE) == BLOB[:MEBIBYTE]
    for browser, _ in pairs:
        assert read_to_end(browser) == BLOB[MEBIBYTE:]
        browser.close()
    for one in sending:
        one.result(limit(10))
    assert ends.helper.running()


# ---- the clock ----


class Clock:
    """A fake wall clock for the program and its engine process (libfaketime); the monotonic clock
    stays the machine's."""

    def __init__(self, computer):
        library = subprocess.run(
            ["dpkg-query", "-L", "libfaketime"], stdout=subprocess.PIPE, check=True, text=True
        ).stdout
        self._file = os.path.join(computer.folder, "clock")
        self.environment = {
            "LD_PRELOAD": next(
                x for x in library.splitlines() if x.endswith("/libfaketimeMT.so.1")
            ),
            "FAKETIME_TIMESTAMP_FILE": self._file,
            "FAKETIME_DONT_FAKE_MONOTONIC": "1",
            "FAKETIME_NO_CACHE": "1",
        }
        self.set("+0")

    def set(self, offset):
        with open(f"{self._file}.new", "w", encoding="ascii") as file:
            file.write(offset)
        os.replace(f"{self._file}.new", self._file)


FIRST_LIBRARY = pytest.mark.skipif(
    SLOWDOWN > 1, reason="a sanitizer runtime must be the first library that is loaded"
)


@pytest.mark.slow
@FIRST_LIBRARY
@pytest.mark.parametrize("jump", ["-40000000", "+86400"], ids=["back a year", "on a day"])
def test_a_clock_that_is_set_does_no_lasting_harm(computer, engine, onlooker, phone, jump):
    """The wall clock jumps while the program runs; the monotonic clock does not."""
    clock = Clock(computer)
    helper = computer.helper(**clock.environment)
    phone.announce()
    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 5)

    clock.set(jump)

    # Avahi measures TTLs with this clock: records may expire at once and are queried again.
    def reached():
        port = onlooker.events("resolved")[-1]["port"]
        where = (computer, computer.address4, port)
        return smbclient(*where, "ls", check=False).returncode == 0

    wait_until(reached, limit(10), "a connection to the phone")
    wait_until(lambda: helper.statuses()[-1] == visible(1), limit(10), "the phone in the status")
    since, seen = helper.mark(), onlooker.mark()
    phone.goodbye()
    # The embedded engine was replaced. If it has not found the phone yet, it takes 40 s of silence.
    helper.wait_status(LOOKING, since=since, timeout=50)
    onlooker.wait("removed", "Quillbox Office", limit(5), since=seen)
    phone.announce()
    helper.wait_status(visible(1), since=since)
    onlooker.wait("resolved", "Quillbox Office", limit(5), since=seen)


@pytest.mark.long
@FIRST_LIBRARY
def test_a_phone_that_vanishes_behind_a_clock_set_back_leaves_in_time(
    bare_computer, onlooker, service
):
    """Its records expire after ten seconds, but the clock is set back by more than a year."""
    computer = bare_computer
    clock = Clock(computer)
    helper = computer.helper("--dns-sd=embedded", **clock.environment)
    phone = service("phone")
    phone.announce(host_ttl=10)
    helper.wait_status(visible(1))
    found = onlooker.wait("resolved", phone.service_name, 5)
    browser, other = session(computer, found["port"], phone)
    since = helper.mark()

    clock.set("-40000000")
    phone.vanish()

    browser.sendall(b"still here")
    assert read_exactly(other, 10) == b"still here"
    helper.wait_status(LOOKING, timeout=50, since=since)
