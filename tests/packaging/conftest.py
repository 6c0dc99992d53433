"""What the tests of the packages share: the packages themselves, and a network to try them on."""

import os
import sys
import tarfile

import pytest
from packing import pack

HERE = os.path.dirname(os.path.abspath(__file__))
# The network and the hosts on it are those of the network tests.
sys.path.append(os.path.join(HERE, "..", "lan"))

from rig.network import Lan  # noqa: E402 what it needs is found from here on


@pytest.fixture(scope="session")
def packages(tmp_path_factory):
    return pack(tmp_path_factory.mktemp("packages"))


@pytest.fixture(scope="session")
def deb(packages):
    return packages[0]


@pytest.fixture(scope="session")
def archive(packages):
    return packages[1]


@pytest.fixture(scope="session")
def unpacked(archive, tmp_path_factory):
    """The archive in a folder that nobody thought of, which has a blank in its name."""
    folder = tmp_path_factory.mktemp("some where")
    with tarfile.open(archive) as file:
        file.extractall(folder)
    (top,) = folder.iterdir()
    return top


@pytest.fixture
def lan():
    network = Lan()
    yield network
    network.close()


@pytest.fixture
def real_root():
    """Root in a user namespace may neither make device nodes nor own files as other users, which a
    Debian and a service manager of their own need. As root of the machine nothing is skipped."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        if file.read().split() != ["0", "0", "4294967295"]:
            pytest.skip("needs the root of the machine: it makes users, devices and cgroups")
