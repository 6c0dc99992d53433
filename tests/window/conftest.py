"""Fixtures for the window tests: each test gets a new network with one desktop."""

import os
import re
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
# The network and the program come from the rig of the network tests.
sys.path.append(os.path.join(HERE, "..", "lan"))

from desktop.desktop import Desktop  # noqa: E402 needs the path above
from rig.network import Lan, require_namespaces  # noqa: E402

RESULTS = os.path.join(HERE, "..", "..", "build", "results")
SCREENS = os.path.join(os.environ.get("QUILLBOX_RESULTS", RESULTS), "screens")


@pytest.fixture
def make_desktop(request):
    """A function that makes the test's desktop; call it at most once."""
    require_namespaces()
    network = Lan()

    def make(size=(1280, 1024), dpi=96, manager=True):
        desktop = request.node.desktop = network.host("computer", of=Desktop)
        desktop.start_screen(size, dpi)
        desktop.start_session_bus()
        if manager:
            desktop.start_manager()
        return desktop

    yield make
    try:
        for host in network.hosts:
            if isinstance(host, Desktop):
                host.check_helpers()
    finally:
        network.close()


@pytest.fixture
def desktop(make_desktop):
    """A desktop with a window manager, without a tray or panel."""
    return make_desktop()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Saves a screenshot when a test fails."""
    outcome = yield
    shown = getattr(item, "desktop", None)
    if call.when == "call" and outcome.get_result().failed and shown is not None:
        name = re.sub(r"[^\w.-]+", "_", item.name) + ".png"
        try:
            shown.picture().save(os.path.join(SCREENS, name))
        except Exception as error:  # must not hide the failure itself
            print(f"no screenshot: {error}", file=sys.stderr)
