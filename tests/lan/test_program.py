"""The program as a process: its options, its settings file, its end, its only copy."""

import os
import signal
import time

import pytest
from rig.computer import LOOKING, Computer, Helper, visible
from rig.phone import smb_command
from rig.process import limit, wait_until
from test_automatic import appear


def test_an_unknown_option_is_refused(bare_computer):
    helper = bare_computer.helper("--no-such-option")
    assert helper.process.wait(limit(5)) == 2
    assert "--no-such-option" in helper.process.output("stderr")


def test_help_tells_the_options(bare_computer):
    helper = bare_computer.helper("--help")
    assert helper.process.wait(limit(5)) == 0
    assert "--version" in helper.process.output("stdout")


def test_the_version_is_told(bare_computer):
    helper = bare_computer.helper("--version")
    assert helper.process.wait(limit(5)) == 0
    assert "0.1.0" in helper.process.output("stdout")


def test_without_a_display_it_says_so_once(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    lines = [x.text for x in helper.process.lines if "display" in x.text.lower()]
    assert len(lines) == 1


@pytest.mark.parametrize("has_user_folder", [True, False], ids=["/run/user", "/tmp"])
def test_without_a_runtime_folder_the_toolkit_neither_warns_nor_makes_one(
    bare_computer, has_user_folder
):
    program = ["env", "-u", "XDG_RUNTIME_DIR", bare_computer.shared_program()]
    bare_computer.run("mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    if not has_user_folder:
        bare_computer.run("rm", "-r", "/run/user")
    environment = bare_computer.environment(HOME="/run/home", XDG_CONFIG_HOME="/run/config")

    helper = Helper(bare_computer.start(program, env=environment))

    helper.wait_status(LOOKING)
    # Other instances look for it where it is.
    told = bare_computer.run(*program, "status", env=environment)
    assert "Looking for Quillbox" in told.stdout
    code, _ = helper.stop()
    assert code == 0
    assert "XDG_RUNTIME_DIR" not in helper.process.output() + told.stderr
    own = [] if has_user_folder else [f"org.quillbox.Helper-{os.geteuid()}"]
    assert bare_computer.run("ls", "/tmp").stdout.split() == own


@pytest.mark.parametrize(
    "settings",
    ["{ this is no JSON", "", "[1, 2]", "\x00\x01\x02", '{"automaticDiscovery": false'],
    ids=["no JSON", "empty", "a list", "bytes", "cut off"],
)
def test_a_damaged_settings_file_is_reported_and_kept(bare_computer, settings):
    bare_computer.write_settings(settings)

    helper = bare_computer.helper()

    helper.wait_status(LOOKING)  # the default is automatic mode
    if settings:
        helper.wait_message("settings.json")
    with open(bare_computer.settings_file, encoding="utf-8") as file:
        assert file.read() == settings


def test_values_of_a_wrong_type_count_as_absent(bare_computer):
    bare_computer.write_settings(
        {"automaticDiscovery": "false", "showInFinder": [], "host": 7, "port": 4445}
    )
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    assert helper.running()


def test_finder_visibility_that_is_off_stays_off(lan, bare_computer, onlooker, bare_phone):
    bare_computer.write_settings({"showInFinder": False})
    helper = bare_computer.helper()
    # Another computer with the program shows when an advertisement would have been seen.
    other = lan.host("other", of=Computer)
    other.helper().wait_status(LOOKING)

    bare_phone.announce()

    found = onlooker.wait("resolved", "Quillbox Office", limit(5))
    assert other.address4 in found["addresses"]
    assert bare_computer.address4 not in found["addresses"]
    assert helper.statuses() == []
    assert len(onlooker.events("added")) == 1


def test_a_settings_file_that_cannot_be_read_is_reported(bare_computer):
    os.makedirs(bare_computer.settings_file)  # a folder in its place

    helper = bare_computer.helper()

    helper.wait_message("settings.json")
    helper.wait_status(LOOKING)


def test_a_settings_folder_that_cannot_be_written_is_reported(bare_computer, onlooker, phone):
    bare_computer.write_settings(
        {"automaticDiscovery": False, "host": f" {phone.address4}", "port": "4445"}
    )
    folder = os.path.dirname(bare_computer.settings_file)
    bare_computer.run("mount", "--bind", folder, folder)
    bare_computer.run("mount", "-o", "remount,ro,bind", folder)

    helper = bare_computer.helper()

    helper.wait_status("ready: Quillbox is visible in Finder")
    helper.wait_message("settings.json")
    assert bare_computer.read_settings()["host"] == f" {phone.address4}"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT], ids=["SIGTERM", "SIGINT"])
def test_a_signal_ends_it_within_a_second_with_goodbyes(computer, onlooker, phone, number):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    computer.start(smb_command(computer.address4, found["port"]), stdin=True)
    phone.smbd.wait_line(lambda line: "connect to service NAS" in line.text, 10)

    code, seconds = helper.stop(number)
    ended = time.monotonic()

    assert code == 0
    assert seconds < limit(1)
    assert onlooker.wait("removed", "Quillbox Office", 5)["at"] - ended < limit(1.5)
    phone.smbd.wait_line(lambda line: "closed connection to service" in line.text, 5)
    assert computer.helper_processes() == []


def test_it_ends_within_a_second_while_a_session_waits_for_its_phone(computer, onlooker):
    helper = computer.manual_helper("10.77.0.200", 4445)  # nobody is there
    helper.wait_status("ready: Quillbox is visible in Finder")
    found = onlooker.wait("resolved", "Quillbox", 5)
    where = f"{computer.address4}/{found['port']}"
    client = computer.start(
        ["bash", "-c", f"exec 3<>/dev/tcp/{where}; echo connected; cat <&3; echo closed"]
    )
    client.wait_line(lambda line: line.text == "connected", 10)

    code, seconds = helper.stop()

    assert code == 0
    assert seconds < limit(1)
    client.wait_line(lambda line: line.text == "closed", 5)
    assert computer.helper_processes() == []


def test_of_twenty_copies_started_at_once_exactly_one_stays(bare_computer):
    copies = [bare_computer.helper() for _ in range(20)]

    def still_running():
        return [copy for copy in copies if copy.running()]

    wait_until(lambda: len(still_running()) == 1, limit(30), "one copy left")
    (winner,) = still_running()
    winner.wait_status(LOOKING)
    codes = []
    for copy in copies:
        if copy is not winner:
            codes.append(copy.process.wait(limit(5)))
            assert copy.statuses() == []
    assert codes == [0] * 19

    late = bare_computer.helper()
    assert late.process.wait(limit(10)) == 0
    assert winner.running()


def test_a_copy_can_start_where_another_was_killed(bare_computer):
    first = bare_computer.helper()
    first.wait_status(LOOKING)
    first.process.process.kill()
    first.process.wait(10)

    second = bare_computer.helper()

    second.wait_status(LOOKING)
    assert second.running()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL], ids=["asked", "killed"])
def test_nothing_of_it_stays_when_it_ends(computer, engine, onlooker, bare_phone, number):
    helper = computer.helper()
    appear(bare_phone, helper, onlooker)
    assert helper.pid in computer.helper_processes()

    helper.process.signal(number)
    helper.process.process.wait(limit(5))

    wait_until(lambda: computer.helper_processes() == [], limit(2), "all of its processes gone")


def test_the_second_start_is_as_good_as_the_first(computer, onlooker, bare_phone):
    first = computer.helper()
    appear(bare_phone, first, onlooker)
    first.stop()
    onlooker.wait("removed", "Quillbox Office", 5)
    since = onlooker.mark()

    second = computer.helper()

    second.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 5, since=since)
