"""--this-computer-only and --dns-sd: what is chosen for one start holds for later ones as well."""

import os

import pytest
from rig.computer import LOOKING, Helper
from rig.process import limit
from test_control import command, status
from test_doctor import doctor
from test_settings import started_up

MANUAL = {"automaticDiscovery": False, "host": "192.0.2.7", "port": "445"}
READY = "ready: Quillbox is visible in Finder"


def start(computer, *options):
    """Starts the program in manual mode, in which it listens at once."""
    helper = computer.helper(*options)
    helper.wait_status(READY)
    return helper


def reach(computer):
    """From where the only listener of the computer can be reached."""
    (line,) = computer.run("ss", "-Hltn").stdout.splitlines()
    return "this computer" if "%lo:" in line else "network"


def holds(computer):
    told = status(computer)
    return told["thisComputerOnly"], told["dnsSd"]


def said(helper):
    """What the program has said of its settings."""
    return [x.text for x in helper.process.lines if "the setting" in x.text]


def test_what_one_start_is_told_holds_until_another_is_told_otherwise(bare_computer):
    bare_computer.write_settings({**MANUAL, "future": [1]})

    first = start(bare_computer, "--this-computer-only", "--dns-sd=embedded")
    assert (reach(bare_computer), holds(bare_computer)) == ("this computer", (True, "embedded"))
    assert len(said(first)) == 2
    assert first.stop()[0] == 0
    stored = {"thisComputerOnly": True, "dnsSd": "embedded", "future": [1]}
    assert stored.items() <= bare_computer.read_settings().items()

    # As at login.
    second = start(bare_computer, "--hidden")
    assert (reach(bare_computer), holds(bare_computer)) == ("this computer", (True, "embedded"))
    assert "This computer only: on\nDNS-SD: embedded\n" in command(bare_computer, "status").stdout
    assert said(second) == []
    assert second.stop()[0] == 0

    third = start(bare_computer, "--this-computer-only=off", "--dns-sd=auto")
    assert (reach(bare_computer), holds(bare_computer)) == ("network", (False, "auto"))
    changes = ('"thisComputerOnly" is false', '"dnsSd" is "auto"')
    for line, change in zip(said(third), changes, strict=True):
        assert line == f"quillbox-helper: the setting {change} from now on"
    assert third.stop()[0] == 0

    start(bare_computer)
    assert (reach(bare_computer), holds(bare_computer)) == ("network", (False, "auto"))


def test_an_ordinary_start_stores_nothing(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    assert holds(bare_computer) == (False, "auto")
    assert helper.stop()[0] == 0
    assert not os.path.exists(bare_computer.settings_file)


def test_the_start_at_login_does_what_it_was_turned_on_with(bare_computer):
    bare_computer.write_settings(MANUAL)
    path = os.path.join(bare_computer.folder, "config/autostart/org.quillbox.Helper.desktop")

    done = command(bare_computer, "--autostart=on", "--this-computer-only")

    assert done.stdout == f"Starts at login from now on: wrote {path}\n"
    assert '"thisComputerOnly" is true from the next start on' in done.stderr
    with open(path, encoding="utf-8") as file:
        (line,) = (x for x in file.read().splitlines() if x.startswith("Exec="))
    words = line.removeprefix("Exec=").replace('"', "").split()
    helper = Helper(bare_computer.start(words))
    helper.wait_status(READY)
    assert reach(bare_computer) == "this computer"
    assert helper.stop()[0] == 0


def test_no_start_at_login_is_turned_on_whose_settings_cannot_be_stored(bare_computer):
    os.makedirs(bare_computer.settings_file)
    done = command(bare_computer, "--autostart=on", "--this-computer-only", code=1)
    assert done.stdout == ""
    assert "settings cannot be stored" in done.stderr
    assert not os.path.exists(os.path.join(bare_computer.folder, "config/autostart"))


def test_a_wrong_value_is_named_with_its_default_and_stays(bare_computer):
    wrong = {"thisComputerOnly": "yes", "dnsSd": "avahi"}
    bare_computer.write_settings(wrong)

    helper = bare_computer.helper()
    started_up(bare_computer, helper)

    assert holds(bare_computer) == (False, "auto")
    of_reach, of_engine = said(helper)
    assert '"thisComputerOnly"' in of_reach and "its default, false, is used" in of_reach
    choices = '"auto", "daemon", "embedded"'
    assert f'"dnsSd" in {bare_computer.settings_file} is not one of {choices}' in of_engine
    assert 'its default, "auto", is used' in of_engine
    assert helper.stop()[0] == 0
    assert bare_computer.read_settings() == wrong

    # An option replaces it, and says so, even if it has the value that was used instead.
    helper = bare_computer.helper("--dns-sd=auto")
    started_up(bare_computer, helper)
    assert said(helper)[-1].endswith('"dnsSd" is "auto" from now on')
    assert helper.stop()[0] == 0
    assert bare_computer.read_settings() == {**wrong, "dnsSd": "auto"}


def test_a_second_copy_stores_nothing(bare_computer):
    bare_computer.write_settings(MANUAL)
    start(bare_computer)
    second = bare_computer.helper("--this-computer-only")
    assert second.process.wait(limit(5)) == 0
    second.wait_message("its settings stay as they are: to start with others, run 'quillbox-helper quit'")
    assert said(second) == []
    assert (reach(bare_computer), holds(bare_computer)) == ("network", (False, "auto"))
    assert "thisComputerOnly" not in bare_computer.read_settings()


@pytest.mark.parametrize("state", ["cut off", "unreadable", "absent"])
def test_settings_that_cannot_be_used_open_no_relay_to_the_network(bare_computer, state):
    bare_computer.write_settings('{"thisComputerOnly": tr')
    if state != "cut off":
        os.remove(bare_computer.settings_file)
    if state == "unreadable":
        os.mkdir(bare_computer.settings_file)
    helper = bare_computer.helper("--dns-sd=embedded")
    started_up(bare_computer, helper)
    is_absent = state == "absent"
    assert holds(bare_computer) == (not is_absent, "embedded")
    counts = [x for x in said(helper) if '"thisComputerOnly" therefore counts as true' in x]
    assert len(counts) == (0 if is_absent else 1)
    found = doctor(bare_computer)
    if state == "unreadable":
        found.expect("settings", "WARN", "The settings cannot be used: ")
    assert helper.stop()[0] == 0

    # The file that was cut off has been replaced, for --dns-sd to be stored.
    helper = bare_computer.helper()
    started_up(bare_computer, helper)
    assert holds(bare_computer)[0] == (not is_absent)
    assert helper.stop()[0] == 0

    opened = bare_computer.helper("--this-computer-only=off")
    started_up(bare_computer, opened)
    assert holds(bare_computer)[0] is False


@pytest.mark.parametrize("runs", [True, False], ids=["running", "not running"])
def test_the_doctor_tells_which_holds(bare_computer, runs):
    if runs:
        bare_computer.write_settings(MANUAL)
        start(bare_computer, "--this-computer-only", "--dns-sd=embedded")
        # Only the next start reads this.
        bare_computer.write_settings({"thisComputerOnly": False})
    else:
        bare_computer.write_settings({"thisComputerOnly": True, "dnsSd": "daemon"})
    found = doctor(bare_computer)
    found.expect("settings", "OK", "No other computer sees or reaches the phones")
    if runs:
        found.expect("settings", "OK", "uses only its embedded engine")
        other = "does not have the stored settings: this computer only off, DNS-SD auto"
        found.expect("settings", "WARN", other)
    else:
        found.expect("settings", "FAIL", "uses only avahi-daemon, which is not running")
