"""Fixtures for the network tests: each test gets a new network, torn down when the test ends."""

import hashlib
import os
import shutil
import tempfile

import pytest

from rig.computer import Computer
from rig.ends import Ends, listen
from rig.network import Lan, require_namespaces
from rig.onlooker import Onlooker
from rig.phone import Phone

ENGINES = ("daemon", "embedded")


def pytest_addoption(parser):
    parser.addoption(
        "--dns-sd",
        choices=(*ENGINES, "both"),
        default="both",
        help="the DNS-SD engine to test with: avahi-daemon, the embedded one, or each in turn",
    )


def pytest_generate_tests(metafunc):
    if "engine" in metafunc.fixturenames:
        chosen = metafunc.config.getoption("--dns-sd")
        metafunc.parametrize("engine", ENGINES if chosen == "both" else (chosen,))


@pytest.fixture
def lan():
    require_namespaces()
    network = Lan()
    yield network
    try:
        for host in network.hosts:
            if isinstance(host, Computer):
                host.check_helpers()
    finally:
        network.close()


@pytest.fixture
def phone(lan):
    """A phone on the network that serves files but is not announced yet."""
    made = lan.host("phone", of=Phone)
    made.serve()
    return made


@pytest.fixture
def onlooker(lan):
    """Another computer that observes the network."""
    made = lan.host("onlooker", of=Onlooker)
    made.watch()
    return made


@pytest.fixture
def bare_computer(lan):
    """The user's computer with neither message bus nor DNS-SD daemon."""
    return lan.host("computer", of=Computer)


@pytest.fixture
def computer(bare_computer, engine):
    """The user's computer, once with avahi-daemon and once without."""
    bare_computer.prepare(engine)
    return bare_computer


@pytest.fixture
def make_ends(lan, bare_computer, onlooker):
    """A factory of relays whose two peers are sockets of the test; no DNS-SD daemon is involved."""
    made = []

    def make(**more):
        made.append(Ends(bare_computer, lan.host("phone"), onlooker, **more))
        return made[-1]

    yield make
    for ends in made:
        ends.close()


@pytest.fixture
def ends(make_ends):
    """A relay whose two peers are sockets of the test."""
    return make_ends()


@pytest.fixture
def service(lan):
    """A factory of phones whose file server is a socket of the test; they are not announced yet."""

    def make(name):
        made = lan.host(name, of=Phone)
        made.listener = listen(made)
        made.port = made.listener.getsockname()[1]
        return made

    yield make
    for host in lan.hosts:
        if hasattr(host, "listener"):
            host.listener.close()


class BigFile:
    """1 GiB of random bytes, in /dev/shm if it has enough free space."""

    SIZE = 1 << 30

    def __init__(self, folder):
        self.folder = folder
        self.path = os.path.join(folder, "big")
        digest = hashlib.sha256()
        with open(self.path, "wb") as file:
            for _ in range(self.SIZE >> 20):
                block = os.urandom(1 << 20)
                digest.update(block)
                file.write(block)
        self.sha256 = digest.hexdigest()


@pytest.fixture(scope="session")
def big_file():
    room = shutil.disk_usage("/dev/shm").free if os.path.isdir("/dev/shm") else 0
    folder = tempfile.mkdtemp(
        prefix="quillbox-big-", dir="/dev/shm" if room > 3 * BigFile.SIZE else None
    )
    yield BigFile(folder)
    shutil.rmtree(folder, ignore_errors=True)
