"""Copies in sandboxes. Flatpak itself is not used, but what the program sees of it: process numbers of
its own, the same ones at each launch."""

import contextlib

import pytest
from rig.computer import LOOKING, PROGRAM, Helper
from rig.ends import BLOB, READY, session
from rig.process import limit
from test_control import DONE, command
from test_copies import RUNNING


class Sandbox:
    """A copy in a PID namespace of its own, in which it is process 2, as in a Flatpak."""

    def __init__(self, computer, *arguments):
        namespace = ["unshare", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c"]
        # A second command keeps the shell from replacing itself with the program.
        self.process = computer.start([*namespace, '"$@"; exit $?', "sh", PROGRAM, *arguments])
        self.helper = Helper(self.process)


@pytest.mark.parametrize("options", [[], ["--hidden"]], ids=["shown", "hidden"])
def test_the_second_launch_of_a_flatpak_finds_the_first(bare_computer, options):
    first = Sandbox(bare_computer)
    first.helper.wait_status(LOOKING)
    second = Sandbox(bare_computer, *options)
    assert second.process.wait(limit(10)) == 0
    without_display = "" if options else ", without a display"
    assert second.process.output("stderr").splitlines() == [RUNNING + without_display]
    assert first.helper.running()
    command(bare_computer, "quit")


def test_a_copy_in_a_flatpak_and_one_outside_find_each_other(bare_computer):
    first = Sandbox(bare_computer)
    first.helper.wait_status(LOOKING)
    outside = bare_computer.helper("--hidden")
    assert outside.process.wait(limit(10)) == 0
    command(bare_computer, "quit")
    assert first.process.wait(limit(5)) == 0

    outside = bare_computer.helper()
    outside.wait_status(LOOKING)
    second = Sandbox(bare_computer, "--hidden")
    assert second.process.wait(limit(10)) == 0
    assert second.process.output("stderr").splitlines() == [RUNNING]
    assert outside.running()


def test_quit_in_one_flatpak_waits_for_the_copy_in_another(bare_computer, service):
    phone = service("phone")
    manual = {"automaticDiscovery": False, "host": phone.address4, "port": str(phone.port)}
    bare_computer.write_settings(manual)
    first = Sandbox(bare_computer)
    first.helper.wait_status(READY)
    # Its end takes a while, because it has bytes for a file browser that reads none.
    (line,) = bare_computer.run("ss", "-Hltn").stdout.splitlines()
    browser, other = session(bare_computer, int(line.split()[3].rpartition(":")[2]), phone)
    with browser, other:
        other.settimeout(0.5)
        with contextlib.suppress(TimeoutError):
            while True:
                other.send(BLOB)
        asking = Sandbox(bare_computer, "quit")
        code = asking.process.wait(limit(10))
        assert code == DONE, asking.process.output()
        assert bare_computer.helper_processes() == []
    assert first.process.wait(limit(5)) == 0
