"""Computers with systemd-resolved: which host names it finds, and how it lives with another responder."""

import os
import re

import pytest
from rig.computer import LOOKING, visible
from rig.phone import Phone, smbclient
from rig.process import limit, wait_until
from rig.resolved import ResolvedComputer, ResolvedDesktop
from test_desktop import hand_over, listed_server
from test_doctor import FAIL, WARN, doctor

IGNORED = "systemd-resolved, which is asked for names that end in .local, ignores those that this"


@pytest.mark.parametrize("multicast", ["no", "resolve", "yes"])
def test_it_finds_names_of_other_hosts_and_none_that_this_computer_gives_a_phone(
    lan, phone, onlooker, multicast
):
    """Its own name it knows without multicast DNS."""
    computer = lan.host("computer", of=ResolvedComputer)
    computer.prepare("daemon")
    computer.start_resolved(multicast)
    helper = computer.helper()
    phone.announce("Quillbox Office")
    helper.wait_status(visible(1))
    relay = onlooker.wait("resolved", "Quillbox Office", 20)

    expected = set() if multicast == "no" else {phone.address4}
    assert computer.found(f"{phone.name}.local") == expected
    assert relay["host"].startswith("quillbox-office-computer-")
    assert computer.found(relay["host"]) == set()
    assert computer.found("computer.local") == {computer.address4}

    diagnosis = doctor(computer)
    diagnosis.expect("host-names", WARN, IGNORED)
    assert "libnss-mdns" in diagnosis.advice("host-names")
    assert "before 'resolve'" in diagnosis.advice("host-names")

    computer.set_name_service("files mdns4_minimal [NOTFOUND=return] resolve [!UNAVAIL=return] dns")
    assert computer.found(relay["host"]) == {computer.address4}
    doctor(computer).expect("host-names", "OK", "computer.local is resolved by multicast DNS")


@pytest.mark.parametrize("multicast", ["no", "yes"])
def test_open_in_finder_hands_over_an_address(lan, phone, multicast):
    """The network view has the host name, which the file manager cannot resolve."""
    desktop = lan.host("computer", of=ResolvedDesktop)
    desktop.prepare("daemon")
    desktop.log_in("file-manager")
    desktop.start_resolved(multicast)

    assert re.fullmatch(r"smb://127(\.\d+){3}:\d+", hand_over(desktop, phone))

    host = re.fullmatch(r"smb://(quillbox-office-computer-.*):\d+", listed_server(desktop))
    assert desktop.found(host[1]) == set()
    doctor(desktop).expect("host-names", FAIL, IGNORED)


def test_two_responders_on_one_computer(lan, phone, onlooker, engine):
    """systemd-resolved answers for this computer's name, and the engine publishes the relays: neither
    takes anything away from the other, whichever starts first, or ends."""
    with open(os.path.join(phone.share, "letter"), "w", encoding="utf-8") as file:
        file.write("Dear reader")
    computer = lan.host("computer", of=ResolvedComputer)
    computer.prepare(engine)
    computer.start_resolved("yes")
    helper = computer.helper()
    helper.wait_status(LOOKING)
    own = "avahi-daemon" if engine == "daemon" else "quillbox-dns-sd"
    both = {own, "systemd-resolve"}
    wait_until(lambda: computer.responders() == both, limit(5), both)

    phone.announce("Quillbox Office")
    helper.wait_status(visible(1))
    relay = onlooker.wait("resolved", "Quillbox Office", limit(10))
    got = smbclient(onlooker, computer.address4, relay["port"], "get letter -")
    assert "Dear reader" in got.stdout

    computer.resolved.end()
    assert computer.responders() == {own}
    other = lan.host("other", of=Phone)
    other.announce("Quillbox Attic")
    helper.wait_status(visible(2))
    onlooker.wait("resolved", "Quillbox Attic", limit(10))

    computer.start_resolved("yes")
    wait_until(lambda: computer.responders() == both, limit(5), both)
    seen, statuses = onlooker.mark(), helper.mark()
    phone.goodbye()
    helper.wait_status(visible(1), since=statuses)
    onlooker.wait("removed", "Quillbox Office", limit(10), seen)
    phone.announce("Quillbox Office")
    helper.wait_status(visible(2), since=statuses)
    again = onlooker.wait("resolved", "Quillbox Office", limit(10), seen)

    assert (again["host"], again["port"]) == (relay["host"], relay["port"])
    assert [x["name"] for x in onlooker.events("removed")] == ["Quillbox Office"]
    names = {x["name"] for x in onlooker.events("added")}
    assert names == {"Quillbox Office", "Quillbox Attic"}
    if engine == "daemon":
        assert "conflict" not in computer.avahi.output()
        doctor(computer).expect("dns-sd", "OK", "is running as computer.local")
