"""Which DNS-SD engines a test runs with, and which tests start first."""

import inspect
import zlib

ENGINES = ("daemon", "embedded")


def pytest_addoption(parser):
    parser.addoption(
        "--dns-sd",
        choices=(*ENGINES, "both", "mixed"),
        default="mixed",
        help="the DNS-SD engine to test with: avahi-daemon, the embedded one, each in turn, or each "
        "only in tests about what engines do and one in each other test",
    )


def pytest_generate_tests(metafunc):
    if "engine" in metafunc.fixturenames:
        metafunc.parametrize("engine", engines_for(metafunc.function, metafunc.config))


def engines_for(test, config):
    """The engines that a test is to run with. A test that is about what an engine does names `engine`
    among its arguments. In the others half of the tests has one engine, half has the other."""
    chosen = config.getoption("--dns-sd")
    if chosen in ENGINES:
        return (chosen,)
    if chosen == "both" or "engine" in inspect.signature(test).parameters:
        return ENGINES
    return (ENGINES[zlib.crc32(test.__name__.encode()) % 2],)


def pytest_collection_modifyitems(items):
    """Tests that take long start first: at the end they would leave the other processes without
    work."""
    items.sort(key=lambda item: item.get_closest_marker("slow") is None)
