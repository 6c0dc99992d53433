"""Two phones with different files behind one computer, used by clients that reuse connections.

SMB clients on Linux cache connections by host name and share, without the port: under one host name
the second phone would show the files of the first.
"""

import json
import os
import re

import pytest
from rig.computer import MULTICAST_NAMES, visible
from rig.onlooker import PYTHON
from rig.phone import PASSWORD, Phone

pytestmark = pytest.mark.any_user

RIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rig")
NAMES = ("Quillbox Kitchen", "Quillbox Office")


@pytest.fixture
def two(lan, bare_computer, onlooker):
    """The computer with two phones behind it, each with a different file; and the host and port at
    which each is advertised."""
    computer = bare_computer
    computer.prepare("daemon")
    computer.set_name_service(MULTICAST_NAMES)
    helper = computer.helper()
    for number, name in enumerate(NAMES, start=1):
        phone = lan.host(f"phone{number}", of=Phone)
        phone.serve()
        with open(os.path.join(phone.share, f"{name}.txt"), "w", encoding="utf-8") as file:
            file.write(name)
        phone.announce(name)
    helper.wait_status(visible(2))
    places = {}
    for name in NAMES:
        found = onlooker.wait("resolved", name, 5)
        places[name] = (found["host"], found["port"])
    return computer, places


@pytest.mark.parametrize("order", [NAMES, NAMES[::-1]], ids=["one way", "the other way"])
def test_one_libsmbclient_context_shows_each_phone_its_own_files(two, order):
    computer, places = two
    urls = [f"smb://{places[name][0]}:{places[name][1]}/NAS" for name in (*order, *order)]

    done = computer.run(PYTHON, f"{RIG}/smb_context.py", PASSWORD, *urls, timeout=60)

    listed = [json.loads(line) for line in done.stdout.splitlines()]
    assert listed == [[f"{name}.txt"] for name in (*order, *order)]


@pytest.mark.parametrize("order", [NAMES, NAMES[::-1]], ids=["one way", "the other way"])
def test_gvfs_shows_each_phone_its_own_files(two, order):
    computer, places = two
    # GVfs asks for user, domain and password, in this order.
    steps = ["set -e"]
    for name in order:
        host, port = places[name]
        steps.append(f"printf 'nas\\n\\n{PASSWORD}\\n' | gio mount 'smb://{host}:{port}/NAS' >/dev/null")
    for name in order:
        host, port = places[name]
        steps.append(f"gio cat 'smb://{host}:{port}/NAS/{name}.txt'; echo")
    for name in order:
        host, port = places[name]
        steps.append(f"gio list 'smb://{host}:{port}/NAS'")
    # The names in the sidebars of file managers.
    steps.append("gio mount -l | sed -n 's/^Mount([0-9]*): \\(.*\\) -> .*/\\1/p' | sort")
    # GVfs fills the list while it browses, and gio has no option to wait for that.
    steps.append(
        "for _ in $(seq 50); do listed=$(gio list dns-sd://local/); "
        '[ "$(wc -l <<<"$listed")" -ge 2 ] && break; sleep 0.2; done; echo "$listed"'
    )

    done = computer.run(
        "dbus-run-session", "--", "bash", "-c", "\n".join(steps), timeout=90, check=False
    )

    lines = done.stdout.splitlines()
    assert lines[:2] == list(order), done.stdout + done.stderr
    assert lines[2:4] == [f"{name}.txt" for name in order], done.stdout + done.stderr
    for line, name in zip(lines[4:6], sorted(NAMES)):
        assert re.match(f"nas on {name.lower().replace(' ', '-')}-computer-", line), lines
    assert len(lines[6:]) == 2 and all("_smb._tcp" in line for line in lines[6:]), lines
