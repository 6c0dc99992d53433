"""./dev demo: the simulated phone works, and only --network opens it to the local network."""

import os
import re
import signal
import socket

import pytest
from rig.computer import LOOKING, PROGRAM, ROOT, Computer, visible
from rig.network import TYPE_PHONE
from rig.onlooker import PYTHON, Onlooker
from rig.process import limit, wait_until

DEMO = os.path.join(ROOT, "demo", "demo.py")
NAME = "Quillbox Demo"
FILE_PORT = 4445
# Writes down the URL that it should open.
BROWSER = """#!/bin/sh
echo "$1" >"$TMPDIR/../opened"
"""


class Demo:
    """The demo on a computer of the test network."""

    def __init__(self, computer, *arguments):
        self.computer = computer
        self.temporary = os.path.join(computer.folder, "tmp")
        os.makedirs(self.temporary)
        programs = os.path.join(computer.folder, "bin")
        os.makedirs(programs)
        with open(os.path.join(programs, "xdg-open"), "w", encoding="utf-8") as file:
            file.write(BROWSER)
        os.chmod(file.name, 0o755)
        path = f"{programs}:{computer.environment()['PATH']}"
        self.process = computer.start(
            [PYTHON, DEMO, os.path.dirname(PROGRAM), *arguments],
            env=computer.environment(TMPDIR=self.temporary, PATH=path),
        )

    def wait(self, pattern, timeout=20):
        """Waits for a line of the output; returns the match."""
        line = self.process.wait_line(
            lambda line: re.search(pattern, line.text), limit(timeout), what=pattern
        )
        return re.search(pattern, line.text)

    def wait_relay(self):
        """Returns host and port of the helper's server and the login, as printed."""
        return self.wait(r"smbclient -L //(\S+) -p (\d+) -U (\S+)").groups()

    def list_share(self):
        host, port, user = self.wait_relay()
        share = [f"//{host}/NAS", "-p", port, "-U", user, "-c", "ls"]
        return self.computer.run("smbclient", *share).stdout

    def page_port(self):
        return int(self.wait(r"web page on port (\d+)")[1])

    def fetch_page(self):
        """Fetches the web page from the URL that the helper opens for it."""
        self.computer.run(PROGRAM, "manage", NAME)
        opened = os.path.join(self.computer.folder, "opened")
        wait_until(lambda: os.path.exists(opened) and os.stat(opened).st_size, limit(10), "a URL")
        with open(opened, encoding="utf-8") as file:
            return self.computer.run("curl", "-sk", file.read().strip()).stdout

    def interrupt(self):
        """Presses Ctrl-C; returns what was printed from then on, except that phones have left: they
        may say goodbye before the helper has ended."""
        since = self.process.mark()
        self.process.signal(signal.SIGINT)
        assert self.process.wait(limit(20)) == 0
        lines = [line.text for line in self.process.lines[since:]]
        return [text for text in lines if text and not text.startswith("status: ready: ")]

    def leftovers(self):
        """Listening sockets, files and processes that the demo has left."""
        left = listeners(self.computer) + os.listdir(self.temporary)
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{entry}/environ", "rb") as file:
                    if f"TMPDIR={self.temporary}\0".encode() in file.read():
                        left.append(os.readlink(f"/proc/{entry}/exe"))
            except OSError:
                continue
        return left


def listeners(computer):
    """The local addresses of all listening TCP sockets."""
    return [line.split()[3] for line in computer.run("ss", "-Hltn").stdout.splitlines()]


def port_of(address):
    return int(address.rpartition(":")[2])


def connect(host, family, address, port):
    with host.socket(family) as made:
        made.settimeout(limit(5))
        made.connect((address, port))


@pytest.fixture
def demo(computer, engine):
    """Starts the demo with a DNS-SD engine; at the end, checks that Ctrl-C removes all of it."""
    started = []

    def start(*arguments):
        started.append(Demo(computer, f"--dns-sd={engine}", *arguments))
        return started[0]

    yield start
    assert started[0].interrupt() == []
    wait_until(lambda: started[0].leftovers() == [], limit(5), "the end of all processes")


def test_only_this_computer_sees_and_reaches_the_demo(lan, computer, onlooker, service, demo):
    phone = service("phone")
    # Another computer with the program shows when an announcement would have been seen.
    other = lan.host("other", of=Computer)
    theirs = other.helper()
    theirs.wait_status(LOOKING)

    shown = demo()

    shown.wait("^Only this computer can see and reach it")
    assert shown.wait_relay()[0].startswith("127.")
    assert "Hello.txt" in shown.list_share()
    assert "web management" in shown.fetch_page()
    phone.announce()
    theirs.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", limit(5))
    assert theirs.statuses()[-1] == visible(1)
    assert {seen["name"] for seen in onlooker.events("added")} == {"Quillbox Office"}
    found = listeners(computer)
    assert {FILE_PORT, shown.page_port()} <= {port_of(address) for address in found}
    for address in found:
        assert re.match(r"127\.|\[::1\]|\S+%lo:", address), found
        for family, target in (
            (socket.AF_INET, computer.address4),
            (socket.AF_INET6, computer.address6),
        ):
            with pytest.raises(ConnectionRefusedError):
                connect(other, family, target, port_of(address))


def test_the_network_sees_and_reaches_the_demo_when_asked_to(lan, computer, onlooker, demo):
    other = lan.host("other", of=Onlooker)
    other.watch(TYPE_PHONE)

    shown = demo("--network")

    shown.wait("are open to the local network")
    assert "Hello.txt" in shown.list_share()
    announced = other.wait("resolved", NAME, limit(10))
    advertised = onlooker.wait("resolved", NAME, limit(10))
    for found in (announced, advertised):
        assert computer.address4 in found["addresses"]
    assert announced["port"] == FILE_PORT
    for port in (FILE_PORT, shown.page_port(), advertised["port"]):
        connect(other, socket.AF_INET, computer.address4, port)


def test_the_demo_says_when_another_instance_was_running(bare_computer):
    bare_computer.helper("--dns-sd=embedded").wait_status(LOOKING)

    shown = Demo(bare_computer, "--dns-sd=embedded")

    shown.wait("Quillbox Helper was already running")
    assert "Hello.txt" in shown.list_share()
    assert shown.interrupt() == []


def test_the_demo_says_when_its_helper_has_been_quit(bare_computer):
    shown = Demo(bare_computer, "--dns-sd=embedded")
    shown.wait_relay()

    bare_computer.run(PROGRAM, "quit")

    shown.wait("^demo: the helper has exited.$")
    assert "already running" not in shown.process.output()
    assert shown.interrupt() == []
