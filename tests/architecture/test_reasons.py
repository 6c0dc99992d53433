"""Every package and every disabled clang-tidy check has a reason, and the documents list the packages."""

import os
import re

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
LISTS = (
    *("build", "run", "test", "package-tests", "demo", "bench", "screenshots", "fuzz", "package"),
    *("cross", "lint"),
)
# README.md shows what the program is built from and runs with, CONTRIBUTING.md the other lists.
USER_LISTS = ("build", "run")


def packages():
    with open(os.path.join(ROOT, "tools", "packages.txt"), encoding="utf-8") as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                yield tuple(line.strip().split(None, 2))


def documented(page):
    """The rows of the package table of a page."""
    with open(os.path.join(ROOT, page), encoding="utf-8") as file:
        return re.findall(rf"^\| ({'|'.join(LISTS)}) \| `([^`]+)` \| (.+) \|$", file.read(), re.MULTILINE)


def test_every_package_has_a_list_and_a_reason():
    for entry in packages():
        assert len(entry) == 3, entry
        assert entry[0] in LISTS


def test_the_readme_shows_the_lists_as_they_are():
    expected = [entry for entry in packages() if entry[0] in USER_LISTS]
    assert expected and documented("README.md") == expected


def test_the_contributors_page_shows_the_other_lists_as_they_are():
    expected = [entry for entry in packages() if entry[0] not in USER_LISTS]
    assert expected and documented("CONTRIBUTING.md") == expected


def test_running_the_program_installs_no_daemon():
    daemons = ("samba", "avahi-daemon", "dbus-daemon")
    assert [entry for entry in packages() if entry[0] in ("build", "run") and entry[1] in daemons] == []


@pytest.mark.parametrize("path", [".clang-tidy", "tests/.clang-tidy"])
def test_each_check_that_is_off_has_its_reason(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        text = file.read()
    off = re.findall(r"^  -([\w.-]+),?$", text, re.MULTILINE)
    reasons = re.findall(r"^# ([\w.]+-[\w.-]+): \S", text, re.MULTILINE)
    assert off == reasons and off
