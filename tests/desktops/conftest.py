"""Fixtures of the tests on real desktops: ./dev test --desktops."""

import os
import re
import signal
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
# The network, the packages and the screen come from the other tests, the Debian systems from the tools.
for folder in ("../lan", "../packaging", "../window", "../../tools"):
    sys.path.append(os.path.join(HERE, folder))

from real.computer import RealComputer  # noqa: E402 needs the path above
from real.releases import RELEASES, Installed  # noqa: E402
from rig.network import Lan, require_namespaces  # noqa: E402
from rig.phone import Phone  # noqa: E402
from rig.process import limit  # noqa: E402

SCREENS = os.path.join(HERE, "..", "..", "build", "results", "screens")
LIMIT = 300  # seconds for each test; systems are made before
PHONES = {"Quillbox Office": "letter from the office", "Quillbox Studio": "song of the studio"}


def pytest_collection_modifyitems(items):
    for item in items:
        if str(item.path).startswith(HERE):
            item.add_marker(pytest.mark.desktops)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_call(item):
    """Desktops can hang in many ways: no test goes on for longer than its limit."""

    def late(*_):
        raise AssertionError(f"not finished after {limit(LIMIT):g} s")

    before = signal.signal(signal.SIGALRM, late)
    signal.alarm(int(limit(LIMIT)))
    yield
    signal.alarm(0)
    signal.signal(signal.SIGALRM, before)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Saves a screenshot when a test fails."""
    outcome = yield
    session = getattr(getattr(item, "computer", None), "session", None)
    if call.when == "call" and outcome.get_result().failed and session and session.screen:
        name = re.sub(r"[^\w.-]+", "_", item.name) + ".png"
        try:
            session.screen.picture().save(os.path.join(SCREENS, name))
        except Exception as error:  # must not hide the failure itself
            print(f"no screenshot: {error}", file=sys.stderr)


@pytest.fixture(scope="session")
def real_root():
    """Skips the tests in a user namespace: a Debian system needs device nodes and files of several users."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        if file.read().split() != ["0", "0", "4294967295"]:
            pytest.skip("needs the root of the machine: a system has devices and files of several users")


@pytest.fixture(scope="session", params=RELEASES)
def system(request, real_root, tmp_path_factory):
    """A release with all desktops, with the program installed."""
    require_namespaces()
    return Installed(request.param, tmp_path_factory.mktemp(request.param))


@pytest.fixture
def lan(system):
    network = Lan()
    yield network
    network.close()


@pytest.fixture
def phones(lan):
    """Two phones, each with a file of its own; they neither serve it nor are announced yet."""
    made = []
    for name, file in PHONES.items():
        phone = lan.host(name.split()[1].lower(), of=Phone)
        with open(os.path.join(phone.share, file), "w", encoding="utf-8") as opened:
            opened.write(f"{name}\n")
        os.chmod(phone.share, 0o755)
        phone.service_name, phone.file = name, file
        made.append(phone)
    return made


@pytest.fixture
def computer(lan, system, request):
    """The user's computer, with nothing started yet."""
    made = lan.host("computer", of=type("Computer", (RealComputer,), {"system": system}))
    request.node.computer = made
    return made
