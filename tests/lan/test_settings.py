"""The settings file: what it keeps when it is damaged, edited, out of reach, or not a file at all."""

import os

import pytest
from rig.computer import PROGRAM
from rig.process import limit, wait_until
from test_computer_faults import limits
from test_control import DONE, command, connect, socket_of

SETTINGS = {
    "automaticDiscovery": True,
    "host": "192.0.2.7",
    "port": "445",
    "share": "Fotos",
    "showInFinder": False,
    "user": "ich",
    "future": [1, 2.5, None],
}
CHANGED = {**SETTINGS, "showInFinder": True}


@pytest.fixture
def helper(bare_computer):
    """The running program, which has read SETTINGS. The command `restart` changes one of them."""
    bare_computer.write_settings(SETTINGS)
    started = bare_computer.helper()
    started_up(bare_computer, started)
    return started


def started_up(computer, helper):
    """Waits until the program answers commands, and thus has read its settings."""

    def answers():
        assert helper.running(), helper.process.output()
        asked = [PROGRAM, "status"]
        return computer.run(*asked, env=computer.environment(), check=False).returncode == DONE

    wait_until(answers, limit(10), "an answer of the running copy")


def files(computer):
    return sorted(os.listdir(os.path.dirname(computer.settings_file)))


def wait_stored(computer, settings):
    def stored():
        try:
            return computer.read_settings() == settings
        except (OSError, ValueError):
            return False

    wait_until(stored, limit(5), "the change in the file")


@pytest.mark.parametrize(
    "damaged",
    ['{"automaticDiscovery": true, "ho', "", "\x00" * 100, None],
    ids=["cut off", "emptied", "zeros", "deleted"],
)
def test_a_file_that_is_damaged_while_the_program_runs_loses_no_setting(
    bare_computer, helper, damaged
):
    if damaged is None:
        os.remove(bare_computer.settings_file)
    else:
        bare_computer.write_settings(damaged)

    command(bare_computer, "restart")

    wait_stored(bare_computer, CHANGED)
    assert helper.stop()[0] == 0
    assert bare_computer.read_settings() == CHANGED
    if damaged is not None:
        with open(f"{bare_computer.settings_file}.invalid", encoding="utf-8") as file:
            assert file.read() == damaged


def test_what_is_edited_while_the_program_runs_is_kept(bare_computer, helper):
    edited = {**SETTINGS, "host": "192.0.2.8", "more": "edited"}
    del edited["user"]
    bare_computer.write_settings(edited)

    command(bare_computer, "restart")

    wait_stored(bare_computer, {**edited, "showInFinder": True})
    assert helper.stop()[0] == 0
    assert bare_computer.read_settings() == {**edited, "showInFinder": True}


def accepted_descriptor(computer, helper):
    """The helper's end of the connection of this process; None until it has been accepted."""
    name = os.path.basename(socket_of(computer))
    # The other end is in the same network, and has the inode 0 before.
    with open("/proc/self/net/unix", encoding="utf-8") as sockets:
        ends = {f"socket:[{x.split()[6]}]" for x in sockets if x.endswith(f"{name}\n")}
    folder = f"/proc/{helper.pid}/fd"
    for number in os.listdir(folder):
        if os.path.basename(os.path.realpath(f"{folder}/{number}")) in ends:
            return int(number)
    return None


def test_a_file_that_cannot_be_opened_for_want_of_descriptors_stays(bare_computer, helper):
    with connect(bare_computer) as connection:
        accepted = wait_until(
            lambda: accepted_descriptor(bare_computer, helper), limit(5), "the connection"
        )
        # Nothing else can be opened, even if the connection is closed.
        used = {int(x) for x in os.listdir(f"/proc/{helper.pid}/fd")} - {accepted}
        before = limits(helper, NOFILE=min(set(range(1024)) - used))
        connection.sendall(b'message - {"version":1,"command":"restart"}\n')

    helper.wait_message("Too many open files")
    assert files(bare_computer) == ["settings.json"]
    assert bare_computer.read_settings() == SETTINGS
    limits(helper, **before)
    assert helper.stop()[0] == 0
    assert bare_computer.read_settings() == CHANGED
    assert files(bare_computer) == ["settings.json"]


def make_special(computer, kind):
    """Makes something in the host's /run that is not a regular file; returns its path and stat."""
    path = f"/run/{kind}"
    how = {
        "device": ["mknod", path, "c", "1", "5"],
        "FIFO": ["mkfifo", path],
        "folder": ["mkdir", path],
    }[kind]
    if computer.run(*how, check=False).returncode != 0:
        pytest.skip(f"no {kind} can be made here")
    return path


@pytest.mark.parametrize("kind", ["device", "FIFO", "folder"])
@pytest.mark.parametrize("when", ["before the start", "while it runs"])
def test_what_is_no_regular_file_is_left_alone(bare_computer, kind, when):
    special = make_special(bare_computer, kind)
    bare_computer.write_settings(SETTINGS)

    def replace():
        os.remove(bare_computer.settings_file)
        os.symlink(special, bare_computer.settings_file)

    def look():
        return bare_computer.run("stat", "--format=%F %i %h", special).stdout

    seen = look()
    if when == "before the start":
        replace()
    started = bare_computer.helper()
    started_up(bare_computer, started)
    if when == "before the start":
        started.wait_message("it is not a regular file")
    else:
        replace()

    command(bare_computer, "restart")
    if when == "while it runs":
        started.wait_message("it is not a regular file")

    assert started.stop()[0] == 0
    assert look() == seen
    assert bare_computer.run("ls", "/run").stdout.count(kind) == 1
    assert files(bare_computer) == ["settings.json"]
    assert os.readlink(bare_computer.settings_file) == special


def test_a_value_of_a_wrong_type_is_named_with_its_default_and_stays(bare_computer, phone):
    written = {"automaticDiscovery": False, "host": phone.address4, "port": 4445, "user": None}
    bare_computer.write_settings(written)

    helper = bare_computer.helper()

    helper.wait_status("ready: Quillbox is visible in Finder")
    said = [x.text for x in helper.process.lines if "settings.json" in x.text]
    assert len(said) == 2
    assert '"port"' in said[0] and '"4445"' in said[0]
    assert '"user"' in said[1] and '"nas"' in said[1]
    assert helper.stop()[0] == 0
    kept = bare_computer.read_settings()
    assert kept["port"] == 4445
    assert kept["user"] is None
    assert kept["host"] == phone.address4
