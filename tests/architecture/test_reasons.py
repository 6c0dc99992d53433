"""The lists of packages, and of what the linter is not asked, give their reasons."""

import os
import re

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))


def packages():
    with open(os.path.join(ROOT, "tools", "packages.txt"), encoding="utf-8") as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                yield tuple(line.strip().split(None, 2))


def documented():
    with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
        for line in file:
            row = re.match(r"\| (build|run|test|demo|bench|screenshots|fuzz|package|lint) \| `([^`]+)` \| (.+) \|$", line)
            if row:
                yield row.groups()


def test_every_package_has_a_list_and_a_reason():
    for entry in packages():
        assert len(entry) == 3, entry
        assert entry[0] in ("build", "run", "test", "demo", "bench", "screenshots", "fuzz", "package", "lint")


def test_the_readme_shows_the_lists_as_they_are():
    assert list(documented()) == list(packages())


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
