"""DNS-SD engines start, die and are replaced during a transfer: no byte and no phone is lost."""

import os
import re
import signal
import socket
import time

from rig.computer import LOOKING, Helper, visible
from rig.network import AS_NOBODY, NOBODY
from rig.onlooker import Onlooker
from rig.phone import PASSWORD, smbclient
from rig.process import limit, wait_until
from rig.upload import Upload
from test_automatic import appear, sha256_of


def engine_child(helper):
    """The process id of the helper's embedded DNS-SD engine."""
    for entry in os.listdir("/proc"):
        try:
            with open(f"/proc/{entry}/stat", encoding="ascii", errors="replace") as file:
                parent = file.read().rpartition(")")[2].split()[1]
            with open(f"/proc/{entry}/cmdline", encoding="utf-8", errors="replace") as file:
                command = file.read()
        except OSError:
            continue
        if parent == str(helper.pid) and command.startswith("quillbox-dns-sd-responder\0"):
            return int(entry)
    raise AssertionError("the helper has no child process with the embedded engine")


def test_the_embedded_engine_has_more_room_for_packets_than_usual(bare_computer):
    """Goodbyes are sent only once: while the engine is busy, the socket buffer must hold many."""
    helper = bare_computer.helper("--dns-sd=embedded")
    helper.wait_status(LOOKING)
    with bare_computer.socket(kind=socket.SOCK_DGRAM) as usual:
        size = usual.getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF)

    def has_room():
        sockets = bare_computer.run("ss", "-uanm", "sport", "=", "5353").stdout
        sizes = [int(x) for x in re.findall(r"\brb(\d+)", sockets)]
        return len(sizes) == 2 and min(sizes) >= 2 * size

    wait_until(has_room, limit(5), "IPv4 and IPv6 sockets with large receive buffers")


def test_a_killed_responder_costs_no_byte_and_the_advertisement_comes_back(
    bare_computer, onlooker, phone, big_file
):
    computer = bare_computer
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    upload = Upload(computer, found["port"], big_file.path)
    upload.send(128)
    seen, statuses = onlooker.mark(), len(helper.statuses())

    killed = time.monotonic()
    os.kill(engine_child(helper), signal.SIGKILL)
    upload.send(64)
    again = onlooker.wait("heard", "Quillbox Office", limit(5), since=seen)
    upload.finish()

    assert sha256_of(os.path.join(phone.share, "big")) == big_file.sha256
    assert again["at"] - killed < limit(3)
    assert onlooker.events("removed") == []
    # The status showed the phone all the time.
    assert set(helper.statuses()[statuses:]) <= {visible(1)}


def test_a_daemon_that_appears_in_a_transfer_takes_over(
    lan, bare_computer, onlooker, phone, big_file
):
    computer = bare_computer
    computer.start_bus()
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    upload = Upload(computer, found["port"], big_file.path)
    upload.send(64)

    seen = onlooker.mark()
    computer.start_avahi()
    upload.send(64)
    again = onlooker.wait("heard", "Quillbox Office", limit(10), since=seen)
    upload.finish()

    assert sha256_of(os.path.join(phone.share, "big")) == big_file.sha256
    assert again["port"] == found["port"]
    assert helper.statuses()[-1] == visible(1)
    newcomer = lan.host("newcomer", of=Onlooker)
    newcomer.watch()
    newcomer.wait("resolved", "Quillbox Office", 10)
    assert len(newcomer.events("added")) == 1


def test_a_daemon_that_goes_in_a_transfer_is_stood_in_for(
    lan, bare_computer, onlooker, phone, big_file
):
    computer = bare_computer
    computer.prepare("daemon")
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    upload = Upload(computer, found["port"], big_file.path)
    upload.send(64)

    seen = onlooker.mark()
    computer.kill_avahi()
    upload.send(64)
    onlooker.wait("heard", "Quillbox Office", limit(10), since=seen)
    upload.finish()

    assert sha256_of(os.path.join(phone.share, "big")) == big_file.sha256
    assert engine_child(helper)
    assert helper.statuses()[-1] == visible(1)
    newcomer = lan.host("newcomer", of=Onlooker)
    newcomer.watch()
    again = newcomer.wait("resolved", "Quillbox Office", 10)
    assert again["port"] == found["port"]
    smbclient(onlooker, computer.address4, again["port"], "ls")


def test_a_user_without_daemon_bus_or_privilege_reaches_the_phone(
    bare_computer, onlooker, phone
):
    computer = bare_computer
    home = "/run/user/nobody"
    computer.run("install", "-d", "-m", "700", "-o", str(NOBODY), "-g", str(NOBODY), home)
    environment = computer.environment(HOME=home, XDG_CONFIG_HOME=home, XDG_RUNTIME_DIR=home)
    helper = Helper(computer.start([*AS_NOBODY, computer.shared_program()], env=environment))

    found = appear(phone, helper, onlooker)

    listed = computer.run(
        *AS_NOBODY,
        *("smbclient", "-L", f"//{computer.address4}", "-p", str(found["port"])),
        *("-U", f"nas%{PASSWORD}", "-m", "SMB3"),
        env=environment,
    )
    assert "NAS" in listed.stdout
    code, _ = helper.stop()
    assert code == 0
    onlooker.wait("removed", "Quillbox Office", limit(2))
