"""The start at login of a Flatpak, which the desktop's portal turns on and off. Flatpak itself is not
used, but what the program sees of it: a root folder with /.flatpak-info."""

import os

import pytest
from rig.computer import PROGRAM
from rig.desktop import Desktop
from rig.network import SESSION_BUS
from rig.process import limit
from test_control import DONE, REFUSED

FAILED = 1

# A root folder like that of the host, with /.flatpak-info. To be run in a mount namespace of its own.
SANDBOX = """
set -e
mount -t tmpfs tmpfs /mnt
for there in /* ; do
    if [ "$there" = /mnt ]; then
        continue
    elif [ -L "$there" ]; then
        cp -P "$there" /mnt/
    elif [ -d "$there" ]; then
        mkdir "/mnt$there"
        mount --rbind "$there" "/mnt$there"
    fi
done
touch /mnt/.flatpak-info
exec chroot /mnt "$@"
"""


def sandboxed(computer, *arguments):
    """Runs one of the program's commands in the sandbox to its end."""
    return computer.run(
        *["unshare", "--mount", "sh", "-c", SANDBOX, "sandbox", PROGRAM, *arguments],
        env=computer.environment(DBUS_SESSION_BUS_ADDRESS=SESSION_BUS),
        check=False,
        timeout=limit(15),
    )


@pytest.fixture
def desktop(lan):
    return lan.host("computer", of=Desktop)


def entries(computer):
    return os.path.join(computer.folder, "config", "autostart")


@pytest.mark.parametrize("wanted", ["on", "off"])
def test_the_desktop_is_asked_to_start_the_program_at_login(desktop, wanted):
    desktop.log_in("granting-portal")
    done = sandboxed(desktop, f"--autostart={wanted}", "--this-computer-only")
    assert done.returncode == DONE, done.stderr
    if wanted == "on":
        assert done.stdout == "Starts at login from now on\n"
    else:
        assert done.stdout == "Does not start at login any more\n"
    asked = (wanted == "on", ["quillbox-helper", "--hidden"])
    assert desktop.asked_portal(limit(5)) == asked
    # No entry that the desktop does not see, and which would then start a second copy where it does.
    assert not os.path.exists(entries(desktop))
    assert desktop.read_settings() == {"thisComputerOnly": True}


def test_a_refused_start_at_login_is_told(desktop):
    desktop.log_in("refusing-portal")
    done = sandboxed(desktop, "--autostart=on")
    assert (done.returncode, done.stdout) == (REFUSED, "")
    assert done.stderr == (
        "quillbox-helper: cannot change the start at login: it was refused; use the desktop's own "
        "settings\n"
    )
    assert not os.path.exists(entries(desktop))
    # It does not start at login, which is what this asks for.
    assert sandboxed(desktop, "--autostart=off").returncode == DONE


@pytest.mark.parametrize("has_bus", [True, False], ids=["no portal", "no bus"])
def test_without_a_portal_the_start_at_login_cannot_be_changed(desktop, has_bus):
    if has_bus:
        desktop.log_in()
    for wanted in ("on", "off"):
        done = sandboxed(desktop, f"--autostart={wanted}")
        assert (done.returncode, done.stdout) == (FAILED, "")
        reason = "the desktop has no portal for it" if has_bus else "there is no session bus"
        assert f"cannot change the start at login: {reason}" in done.stderr
    assert not os.path.exists(entries(desktop))
