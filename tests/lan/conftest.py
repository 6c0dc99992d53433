"""Fixtures for the network tests: each test gets a new network, torn down when the test ends."""

import contextlib
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
def bare_phone(lan):
    """A phone that serves nothing; it is not announced yet."""
    return lan.host("phone", of=Phone)


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
    """The user's computer, with avahi-daemon or without."""
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
    """Random bytes, in /dev/shm if it has enough free space."""

    BLOCK = 64 << 20

    def __init__(self, folder, blocks):
        self.path = os.path.join(folder, "big")
        digest = hashlib.sha256()
        block = os.urandom(self.BLOCK)
        with open(self.path, "wb") as file:
            for number in range(blocks):
                # Each begins elsewhere, as making random bytes takes longer than sending them.
                start = number * 4099
                for part in (block[start:], block[:start]):
                    digest.update(part)
                    file.write(part)
        self.sha256 = digest.hexdigest()


@contextlib.contextmanager
def big(blocks):
    room = shutil.disk_usage("/dev/shm").free if os.path.isdir("/dev/shm") else 0
    with tempfile.TemporaryDirectory(
        prefix="quillbox-big-", dir="/dev/shm" if room > 3 * blocks * BigFile.BLOCK else None
    ) as folder:
        yield BigFile(folder, blocks)


@pytest.fixture(scope="session")
def big_file():
    """256 MiB, more than all buffers on the way can hold."""
    with big(4) as made:
        yield made


@pytest.fixture
def gibibyte():
    with big(16) as made:
        yield made
