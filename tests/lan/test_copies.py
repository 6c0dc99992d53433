"""A second copy of the program: which one stays, and what the other one says."""

import os
import signal

import pytest
from rig.computer import LOOKING, Helper
from rig.desktop import Desktop
from rig.process import limit, wait_until
from test_control import command, socket_of

RUNNING = "quillbox-helper: another instance is already running"


@pytest.mark.parametrize("options", [[], ["--hidden"]], ids=["shown", "hidden"])
def test_a_copy_that_is_about_to_exit_is_not_yielded_to(bare_computer, options):
    first = bare_computer.helper()
    first.wait_status(LOOKING)
    name = os.path.basename(socket_of(bare_computer))

    def sockets():
        with open(f"/proc/{bare_computer.pid}/net/unix", encoding="utf-8") as seen:
            return sum(line.endswith(f"{name}\n") for line in seen)

    first.process.signal(signal.SIGSTOP)
    first.process.signal(signal.SIGTERM)
    before = sockets()
    second = bare_computer.helper(*options)
    # Two connections that only try whether anybody listens, and that of the question.
    wait_until(lambda: sockets() >= before + 3, limit(5), "the question of the second copy")
    first.process.signal(signal.SIGCONT)

    assert first.process.wait(limit(5)) == 0
    second.wait_status(LOOKING)
    command(bare_computer, "status")


@pytest.mark.parametrize("options", [[], ["--hidden"]], ids=["shown", "hidden"])
def test_a_second_copy_says_that_another_one_runs_and_nothing_else(bare_computer, options):
    first = bare_computer.helper()
    first.wait_status(LOOKING)

    second = bare_computer.helper(*options)

    assert second.process.wait(limit(5)) == 0
    assert second.process.output().splitlines() == [
        RUNNING if options else f"{RUNNING}, without a display"
    ]
    assert first.running()


@pytest.mark.parametrize("has_service", [True, False], ids=["notification", "window"])
def test_a_launch_that_can_show_no_window_says_so_on_the_desktop(lan, has_service):
    desktop = lan.host("computer", of=Desktop)
    first = desktop.helper()
    first.wait_status(LOOKING)
    desktop.log_in(*(["notifications"] if has_service else []))

    second = desktop.helper()

    if has_service:
        title, text = desktop.notification(limit(10))
        assert title == "Quillbox Helper is running without a window"
        assert '"quillbox-helper quit"'.replace('"', "&quot;") in text
        assert second.process.wait(limit(5)) == 0
    else:
        wait_until(desktop.windows, limit(10), "a window that says so")
        # It does not stand in for the copy that runs.
        third = desktop.helper("--hidden")
        assert third.process.wait(limit(5)) == 0
        assert command(desktop, "status").returncode == 0
        assert second.stop()[0] == 0
    assert second.process.output("stderr").splitlines() == [f"{RUNNING}, without a display"]
    assert first.running()


def fill(computer):
    """Uses up the file system of the runtime folder."""
    script = "n=0; while touch /run/user/0/filler$n 2>/dev/null; do n=$((n + 1)); done"
    computer.run("sh", "-c", script)


@pytest.mark.parametrize(
    "there",
    [[], ["folder"], ["folder", "lock"], ["a running copy"]],
    ids=["no folder", "no lock", "no socket", "a second socket"],
)
def test_on_a_full_runtime_file_system_one_copy_stays(bare_computer, there):
    program = bare_computer.shared_program()
    bare_computer.run("mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    full = "mode=700,nr_inodes=64"
    bare_computer.run("mount", "-t", "tmpfs", "-o", full, "tmpfs", "/run/user/0")
    folder = "/run/user/0/org.quillbox.Helper"
    if "folder" in there:
        bare_computer.run("mkdir", "-m", "700", folder)
    if "lock" in there:
        bare_computer.run("install", "-m", "600", "/dev/null", f"{folder}/lock")
    environment = bare_computer.environment(HOME="/run/home", XDG_CONFIG_HOME="/run/config")

    def start():
        return Helper(bare_computer.start([program], env=environment))

    if "a running copy" not in there:
        fill(bare_computer)
    first = start()
    first.wait_status(LOOKING)
    fill(bare_computer)

    for _ in range(2):
        second = start()
        assert second.process.wait(limit(10)) == 0
        assert second.process.output().splitlines() == [f"{RUNNING}, without a display"]
        told = bare_computer.run(program, "status", env=environment)
        assert "Looking for Quillbox" in told.stdout
        bare_computer.run("sh", "-c", "rm -f /run/user/0/filler*")
    assert first.stop()[0] == 0
    assert "cannot find" not in first.process.output()
