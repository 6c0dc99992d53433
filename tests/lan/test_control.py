"""The running copy, asked and told by other processes: in a terminal, in scripts, at login."""

import json
import os
import signal
import socket
import stat
import time

import pytest
from rig.computer import LOOKING, PROGRAM, visible
from rig.onlooker import PYTHON
from rig.phone import PASSWORD, Phone, smbclient
from rig.process import limit, wait_until
from test_automatic import appear

DONE, USAGE, NOT_RUNNING, REFUSED, UNKNOWN_PHONE, NO_ANSWER = 0, 2, 3, 4, 5, 6
COMMANDS = ["status", "open", "manage", "restart", "quit"]

# What a terminal would act upon, text that turns, what JSON escapes. python-zeroconf announces no
# control characters of ASCII.
HOSTILE = "Quillbox \u009b2J\u202e\"\\ Küche"


def command(computer, *arguments, code=DONE, **environment):
    """Runs one of the program's commands to its end; gives what it printed."""
    done = computer.run(
        PROGRAM,
        *arguments,
        env=computer.environment(**environment),
        check=False,
        timeout=limit(15),
    )
    assert done.returncode == code, f"{arguments}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done


def status(computer):
    done = command(computer, "status", "--json")
    assert done.stderr == ""
    return json.loads(done.stdout)


def runtime_folder(computer):
    return f"/proc/{computer.pid}/root/run/user/0/org.quillbox.Helper"


def socket_of(computer):
    """The socket of the one running copy, as a path that this process can use."""
    folder = runtime_folder(computer)
    (name,) = (x for x in os.listdir(folder) if x.endswith(".socket"))
    return os.path.join(folder, name)


def connect(computer):
    made = socket.socket(socket.AF_UNIX)
    made.settimeout(limit(20))
    folder, name = os.path.split(socket_of(computer))
    descriptor = os.open(folder, os.O_PATH | os.O_DIRECTORY)
    try:
        made.connect(f"/proc/self/fd/{descriptor}/{name}")
    finally:
        os.close(descriptor)
    return made


# ---- without a running copy ----


@pytest.mark.parametrize("name", COMMANDS)
def test_a_program_that_is_not_running_is_said(bare_computer, name):
    done = command(bare_computer, name, code=NOT_RUNNING)
    assert done.stdout == ""
    assert done.stderr == (
        "quillbox-helper: Quillbox Helper is not running; start it with 'quillbox-helper' or from "
        "the applications menu\n"
    )


def test_a_copy_that_was_killed_is_not_running(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    helper.process.process.kill()
    helper.process.wait(10)
    command(bare_computer, "status", code=NOT_RUNNING)


@pytest.mark.parametrize("name", COMMANDS)
def test_each_command_has_help_of_its_own(bare_computer, name):
    done = command(bare_computer, name, "--help")
    assert done.stdout.startswith(f"Usage: quillbox-helper {name}")
    assert command(bare_computer, name, "-h").stdout == done.stdout
    assert "Exit status: 0" in done.stdout
    assert f"\n  {name}" in command(bare_computer, "--help").stdout


@pytest.mark.parametrize(
    "arguments", [("status", "x"), ("open", "a", "b"), ("quit", "--json"), ("open", "--hidden")]
)
def test_a_command_line_that_makes_no_sense_is_refused(bare_computer, arguments):
    assert "Try 'quillbox-helper --help'" in command(bare_computer, *arguments, code=USAGE).stderr


@pytest.mark.parametrize(
    "arguments, complaint",
    [
        (["opne"], "unknown command 'opne' (commands: status, open, manage, restart, quit, doctor)"),
        (["open", "--hidden"], "'--hidden' does not go with 'open'"),
        (["--dns-sd=daemon", "status"], "'--dns-sd=daemon' does not go with 'status'"),
    ],
)
def test_what_is_wrong_with_a_command_line_is_named(bare_computer, arguments, complaint):
    done = command(bare_computer, *arguments, code=USAGE)
    assert done.stderr == f"quillbox-helper: {complaint}\nTry 'quillbox-helper --help'.\n"


# ---- the status ----


def test_the_status_tells_phones_relays_and_what_they_carried(computer, onlooker, phone):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    before = status(computer)
    assert before["ready"] is True
    assert before["status"] == "1 Quillbox device visible in Finder"
    assert before["phones"] == [
        {"name": "Quillbox Office", "files": True, "webManagement": False}
    ]
    (relay,) = before["relays"]
    assert relay["name"] == "Quillbox Office"
    assert relay["target"] == "Quillbox Office"
    assert before["sessionsInAll"] == 0

    size = 3 << 20
    local = os.path.join(computer.folder, "local")
    with open(local, "wb") as file:
        file.write(os.urandom(size))
    smbclient(computer, computer.address4, found["port"], f"put {local} there; get there {local}2")

    after = status(computer)
    (relay,) = after["relays"]
    for place in (relay, after):
        assert place["sessionsInAll"] >= 1
        assert size < place["bytesToPhone"] < 1.1 * size
        assert size < place["bytesFromPhone"] < 1.1 * size
    assert wait_until(lambda: status(computer)["sessions"] == 0, limit(5), "no session")
    plain = command(computer, "status").stdout
    assert "\n    target: Quillbox Office\n" in plain
    assert "_tcp" not in plain
    assert f"{relay['bytesToPhone']} to the phone" in plain
    # The status must not reveal the relay's port.
    assert str(found["port"]) not in json.dumps(after) + plain


def test_the_status_counts_the_sessions_that_are_open(computer, onlooker, phone):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    held = computer.start(
        ["smbclient", f"//{computer.address4}/NAS", "-p", str(found["port"])]
        + ["-U", f"nas%{PASSWORD}", "-m", "SMB3"],
        stdin=True,
    )
    phone.smbd.wait_line(lambda line: "connect to service NAS" in line.text, 10)
    assert status(computer)["relays"][0]["sessions"] == 1
    held.end()
    wait_until(lambda: status(computer)["relays"][0]["sessions"] == 0, limit(5), "its end")
    # What was carried stays in the sum when the phone is gone.
    since = helper.mark()
    phone.goodbye()
    helper.wait_status(LOOKING, since=since)
    gone = status(computer)
    assert gone["relays"] == []
    assert gone["sessionsInAll"] >= 1


def test_a_hostile_name_is_harmless_in_a_terminal_and_verbatim_in_json(computer, bare_phone):
    helper = computer.helper()
    bare_phone.announce(HOSTILE)
    helper.wait_status(visible(1))

    plain = command(computer, "status").stdout
    refused = command(computer, "open", "Quillbox None", code=UNKNOWN_PHONE).stderr
    told = command(computer, "status", "--json").stdout

    assert json.loads(told)["phones"][0]["name"] == HOSTILE
    assert json.loads(told)["relays"][0]["name"] == HOSTILE
    for text in (plain, refused, told):
        assert not set(text) & {"\u202e", "\u009b"}
    for text in (plain, refused):
        assert 'Quillbox \ufffd2J\ufffd"\\ Küche' in text


# ---- what is to be done ----


def test_an_unknown_phone_is_told_with_those_that_there_are(lan, computer, bare_phone):
    helper = computer.helper()
    bare_phone.announce("Quillbox Office")
    lan.host("other", of=Phone).announce("Quillbox Kitchen")
    helper.wait_status(visible(2))
    done = command(computer, "open", "Quillbox Attic", code=UNKNOWN_PHONE)
    assert done.stderr.splitlines() == [
        'quillbox-helper: there is no phone named "Quillbox Attic"',
        "The phones are:",
        "  Quillbox Kitchen",
        "  Quillbox Office",
    ]
    done = command(computer, "open", code=REFUSED)
    assert "  Quillbox Kitchen" in done.stderr.splitlines()


def test_refusals_give_their_reason(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    done = command(bare_computer, "open", code=REFUSED)
    assert done.stderr == "quillbox-helper: No Quillbox device is available yet\n"
    helper.wait_status("not ready: No Quillbox device is available yet")
    assert "Enable web management" in command(bare_computer, "manage", code=REFUSED).stderr


def test_status_says_why_file_managers_list_nothing(bare_computer, bare_phone):
    helper = bare_computer.helper()
    bare_phone.announce("Quillbox Office")
    ready = helper.wait_status(visible(1)).text.removeprefix("status: ready: ")
    reason = "File managers list no phones, because avahi-daemon is not running: "

    helper.wait_message(reason)
    told = status(bare_computer)
    assert told["hint"].startswith(reason) and told["status"] == ready
    assert f"\nHint: {reason}" in command(bare_computer, "status").stdout

    bare_computer.start_bus()
    for _ in range(2):
        bare_computer.start_avahi()
        wait_until(lambda: status(bare_computer)["hint"] == "", limit(15), "no hint")
        assert "Hint" not in command(bare_computer, "status").stdout
        bare_computer.kill_avahi()
        wait_until(lambda: status(bare_computer)["hint"], limit(15), "the hint")


def test_restart_turns_the_finder_service_on(bare_computer):
    bare_computer.write_settings({"showInFinder": False})
    helper = bare_computer.helper()
    wait_until(lambda: helper.process.lines, limit(5), "its start")
    # It may still be about to register.
    wait_until(
        lambda: bare_computer.run(
            PROGRAM, "restart", check=False, env=bare_computer.environment()
        ).returncode
        == DONE,
        limit(10),
        "the restart",
    )
    helper.wait_status(LOOKING)
    assert status(bare_computer)["showInFinder"] is True
    wait_until(
        lambda: bare_computer.read_settings().get("showInFinder"), limit(5), "the stored setting"
    )


def test_quit_returns_once_the_copy_has_ended_with_goodbyes(computer, onlooker, bare_phone):
    helper = computer.helper()
    appear(bare_phone, helper, onlooker)
    start = time.monotonic()
    command(computer, "quit")
    assert time.monotonic() - start < limit(2)
    assert computer.helper_processes() == []
    assert helper.process.wait(limit(5)) == 0
    onlooker.wait("removed", "Quillbox Office", 5)
    second = computer.helper()
    second.wait_status(visible(1))


def test_a_copy_that_is_stuck_is_given_up(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    helper.process.signal(signal.SIGSTOP)
    try:
        done = command(bare_computer, "status", code=NO_ANSWER)
    finally:
        helper.process.signal(signal.SIGCONT)
    assert done.stderr == "quillbox-helper: the running instance does not respond\n"
    assert status(bare_computer)["ready"] is False


# ---- the socket ----


def test_the_socket_belongs_to_the_user_alone(bare_computer):
    bare_computer.helper().wait_status(LOOKING)
    folder = os.stat(runtime_folder(bare_computer))
    assert stat.S_IMODE(folder.st_mode) == 0o700
    assert folder.st_uid == os.geteuid()
    assert stat.S_IMODE(os.stat(socket_of(bare_computer)).st_mode) == 0o600


def test_a_client_that_neither_speaks_nor_reads_holds_nobody_up(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    request = b'message - {"version":1,"command":"status"}\n'
    clients = [connect(bare_computer) for _ in range(20)]
    for client in clients[:10]:
        client.sendall(request)
    for client in clients[10:]:
        client.sendall(request[:20])
    start = time.monotonic()
    assert status(bare_computer)["ready"] is False
    assert time.monotonic() - start < limit(1)
    # What was whole is answered, what was half is not.
    for client in clients[:10]:
        assert client.recv(16).startswith(b"answer ")
    for client in clients[10:]:
        assert client.recv(16) == b""


def test_nonsense_changes_nothing(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    for bytes_ in (
        b"\n",
        b"quit\n",
        b"message - quit\n",
        b'message - {"version":2,"command":"quit"}\n',
        b'message - {"version":1,"command":"quit","now":true}\n',
        b'message - {"version":1,"command":"quit"}\nmessage - x\n',
        b'message - {"version":1,"command":"quit"}',
        b"message - " + b"x" * 100_000 + b"\n",
    ):
        client = connect(bare_computer)
        try:
            client.sendall(bytes_)
            client.shutdown(socket.SHUT_WR)
            answer = client.recv(4096)
        except (BrokenPipeError, ConnectionResetError):
            continue
        assert answer == b"" or b"not understood" in answer
    assert helper.running()
    assert status(bare_computer)["ready"] is False


# ---- the start ----


def test_the_autostart_is_written_and_removed_without_a_display(bare_computer):
    path = os.path.join(bare_computer.folder, "config/autostart/org.quillbox.Helper.desktop")
    assert command(bare_computer, "--autostart=on").stdout == (
        f"Starts at login from now on: wrote {path}\n"
    )
    with open(path, encoding="utf-8") as file:
        assert f'\nExec="{PROGRAM}" --hidden\n' in file.read()
    assert os.listdir(os.path.dirname(path)) == [os.path.basename(path)]
    # As a desktop starts it, which hands its own output on.
    script = "import sys; from gi.repository import Gio; " + (
        "sys.exit(not Gio.DesktopAppInfo.new_from_filename(sys.argv[1]).launch([]))"
    )
    bare_computer.start([PYTHON, "-c", script, path])
    wait_until(lambda: bare_computer.helper_processes(), limit(5), "the started copy")
    wait_until(
        lambda: bare_computer.run(
            PROGRAM, "quit", check=False, env=bare_computer.environment()
        ).returncode
        == DONE,
        limit(10),
        "its end",
    )
    assert f"removed {path}" in command(bare_computer, "--autostart=off").stdout
    assert not os.path.exists(path)
    assert "there is no" in command(bare_computer, "--autostart=off").stdout


def test_an_autostart_that_cannot_be_written_is_reported(bare_computer):
    blocked = os.path.join(bare_computer.folder, "blocked")
    with open(blocked, "w", encoding="utf-8"):
        pass
    done = command(bare_computer, "--autostart=on", code=1, XDG_CONFIG_HOME=blocked)
    assert done.stderr.startswith(f"quillbox-helper: cannot change {blocked}/autostart/")
    assert done.stdout == ""
