"""Fixtures of the packaging tests: the packages, and a test network."""

import fcntl
import os
import sys
import tarfile

import pytest
from packing import pack, packed_in
from test_packaging import need

HERE = os.path.dirname(os.path.abspath(__file__))
# The test network and its hosts come from the network tests, the Debian systems from the tools.
for folder in ("../lan", "../../tools"):
    sys.path.append(os.path.join(HERE, folder))

from rig.network import Lan, require_namespaces  # noqa: E402 needs the path above


@pytest.fixture(scope="session")
def packages(tmp_path_factory):
    """Packed by the first process of a run that needs them; the others wait for it."""
    base = tmp_path_factory.getbasetemp()
    shared = base.parent if "PYTEST_XDIST_WORKER" in os.environ else base
    folder = shared / "packages"
    with open(f"{folder}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        return packed_in(folder) if folder.exists() else pack(folder)


@pytest.fixture(scope="session")
def deb(packages):
    return packages[0]


@pytest.fixture(scope="session")
def archive(packages):
    return packages[1]


@pytest.fixture(scope="session")
def unpacked(archive, tmp_path_factory):
    """The archive, unpacked in a folder with a space in its name."""
    folder = tmp_path_factory.mktemp("some where")
    with tarfile.open(archive) as file:
        file.extractall(folder)
    (top,) = folder.iterdir()
    return top


@pytest.fixture
def lan():
    require_namespaces()
    network = Lan()
    yield network
    network.close()


@pytest.fixture(scope="session")
def real_root():
    """Skips the test in a user namespace: a Debian system and a service manager need device nodes and
    files of several users, which only root in the initial user namespace can create."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        if file.read().split() != ["0", "0", "4294967295"]:
            pytest.skip("needs the root of the machine: it makes users, devices and cgroups")


@pytest.fixture(scope="session")
def debootstrap(real_root):
    """For tests that make a Debian system."""
    need("debootstrap")
