"""The port of a phone stays the same: file managers keep passwords, mounts and bookmarks by host and
port."""

import json
import os
import signal
import threading

import pytest
from rig.computer import LOOKING, MULTICAST_NAMES, visible
from rig.ends import READY
from rig.network import SESSION_BUS
from rig.onlooker import PYTHON
from rig.phone import PASSWORD
from rig.process import limit, wait_until
from test_automatic import appear
from test_control import command
from test_restarts import restart
from test_this_computer_only import connected

pytestmark = pytest.mark.any_user

RIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rig")


class Place:
    """Where other computers and file managers find the phone's relay: its host name and port."""

    def __init__(self, onlooker, phone):
        self._onlooker = onlooker
        self._phone = phone

    def now(self, since):
        """The first announcement after the mark `since`."""
        heard = self._onlooker.wait("heard", self._phone.service_name, limit(10), since=since)
        return heard["host"], heard["port"]


@pytest.fixture
def place(onlooker, phone):
    return Place(onlooker, phone)


def test_the_port_is_the_same_after_a_restart_of_the_program(computer, onlooker, phone, place):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    for number in (signal.SIGTERM, signal.SIGKILL, signal.SIGTERM):
        with connected(computer, computer.address4, found["port"]):
            helper.process.signal(number)
            helper.process.wait(limit(10))
        seen = onlooker.mark()
        helper = computer.helper()
        helper.wait_status(visible(1))
        assert place.now(seen) == (found["host"], found["port"])


def test_the_port_is_the_same_when_the_phone_returns(computer, onlooker, phone, place):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    for address in ("10.77.0.98", "10.77.0.99"):
        with connected(computer, computer.address4, found["port"]):
            since = helper.mark()
            phone.goodbye()
            helper.wait_status(LOOKING, since=since)
            phone.move(address, f"fd77::{address[-2:]}")
            since, seen = helper.mark(), onlooker.mark()
            phone.announce()
            helper.wait_status(visible(1), since=since)
        assert place.now(seen) == (found["host"], found["port"])


def test_the_port_is_the_same_after_a_restart_of_the_engine(
    computer, onlooker, phone, place, engine
):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    for _ in range(2):
        seen = onlooker.mark()
        restart(computer, helper, engine)
        assert place.now(seen) == (found["host"], found["port"])


class Transfers:
    """Clients of a relay that send to the phone without pause, and connect again when they are cut."""

    def __init__(self, computer, port, phone):
        self._place = (computer, computer.address4, port)
        self._phone = phone
        self._is_over = threading.Event()
        self.sent = 0
        self._threads = [threading.Thread(target=self._send, daemon=True) for _ in range(4)]
        self._threads.append(threading.Thread(target=self._accept, daemon=True))
        for each in self._threads:
            each.start()

    def _send(self):
        block = bytes(1 << 20)
        while not self._is_over.is_set():
            try:
                with connected(*self._place) as client:
                    while not self._is_over.is_set():
                        client.sendall(block)
                        self.sent += len(block)
            except OSError:
                continue

    def _accept(self):
        while not self._is_over.is_set():
            try:
                one, _ = self._phone.listener.accept()
            except OSError:
                return
            threading.Thread(target=self._take, args=(one,), daemon=True).start()

    def _take(self, one):
        with one:
            try:
                while one.recv(1 << 20):
                    pass
            except OSError:
                pass

    def stop(self):
        self._is_over.set()
        self._phone.listener.close()
        for each in self._threads:
            each.join(limit(20))


def test_the_port_is_the_same_when_a_busy_relay_restarts(bare_computer, service):
    """The relay that stops has work that comes before its stop."""
    phone = service("phone")
    helper = bare_computer.manual_helper(phone.address4, phone.port)
    helper.wait_status(READY)

    def port():
        (line,) = bare_computer.run("ss", "-Hltn").stdout.splitlines()
        return int(line.split()[3].rpartition(":")[2])

    first = port()
    transfers = Transfers(bare_computer, first, phone)
    ports = []
    for _ in range(5):
        since = helper.mark()
        command(bare_computer, "restart")
        helper.wait_status(READY, since=since)
        ports.append(port())
    transfers.stop()

    assert transfers.sent > 20 << 20
    assert ports == [first] * 5


# ---- what file managers keep ----


class FileManager:
    """A user's session with GVfs and a keyring that is unlocked, as after a login."""

    def __init__(self, computer):
        computer.start_session_bus()
        environment = computer.environment(DBUS_SESSION_BUS_ADDRESS=SESSION_BUS)
        keyring = ["gnome-keyring-daemon", "--unlock", "--foreground", "--components=secrets"]
        self._keyring = computer.start(keyring, env=environment, stdin=True)
        self._keyring.write("login password")
        self._keyring.process.stdin.close()
        there = ["gdbus", "wait", "--session", "--timeout=20", "org.freedesktop.secrets"]
        computer.run(*there, env=environment, timeout=30)
        self._mounter = computer.start([PYTHON, f"{RIG}/mounter.py"], env=environment, stdin=True)

    def __call__(self, do, url, **more):
        since = self._mounter.mark()
        self._mounter.write(json.dumps({"do": do, "url": url} | more) + "\n")
        line = self._mounter.wait_line(
            lambda line: line.text.startswith("{"), limit(60), since, f"{do} {url}"
        )
        return json.loads(line.text)


def restart_program(computer, helper, phone):
    helper.stop()
    computer.helper().wait_status(visible(1))


def return_phone(computer, helper, phone):
    since = helper.mark()
    phone.goodbye()
    helper.wait_status(LOOKING, since=since)
    since = helper.mark()
    phone.announce()
    helper.wait_status(visible(1), since=since)


@pytest.mark.parametrize("happens", [restart_program, return_phone])
def test_a_remembered_password_still_opens_the_url_of_the_share(
    bare_computer, onlooker, phone, happens
):
    computer = bare_computer
    computer.prepare("daemon")
    computer.set_name_service(MULTICAST_NAMES)
    with open(os.path.join(phone.share, "photo"), "w", encoding="utf-8") as file:
        file.write("picture")
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    manager = FileManager(computer)
    url = f"smb://nas@{found['host']}:{found['port']}/NAS"
    assert manager("mount", url, password=PASSWORD) == {"asked": 1}
    assert manager("list", url) == {"names": ["photo"]}
    manager("unmount", url)

    happens(computer, helper, phone)

    assert manager("mount", url) == {"asked": 0}
    assert manager("list", url) == {"names": ["photo"]}


@pytest.mark.parametrize("happens", [restart_program, return_phone])
def test_a_share_that_is_mounted_is_there_again(bare_computer, onlooker, phone, happens):
    computer = bare_computer
    computer.prepare("daemon")
    computer.set_name_service(MULTICAST_NAMES)
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    manager = FileManager(computer)
    url = f"smb://nas@{found['host']}:{found['port']}/NAS"
    assert manager("mount", url, password=PASSWORD) == {"asked": 1}
    assert manager("list", url) == {"names": []}

    happens(computer, helper, phone)

    os.mkdir(os.path.join(phone.share, "new"))

    # The first access finds the connection broken and fails.
    def is_listed():
        return manager("list", url) == {"names": ["new"]}

    wait_until(is_listed, limit(10), "the share")
