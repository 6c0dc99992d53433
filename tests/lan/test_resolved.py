"""Computers with systemd-resolved: which host names it finds, and how it lives with another responder."""

import os
import re

import pytest
from rig.computer import LOOKING, visible
from rig.phone import Phone, smbclient
from rig.process import limit, wait_until
from rig.resolved import ResolvedComputer, ResolvedDesktop
from test_desktop import hand_over, listed_server
from test_doctor import FAIL, OK, WARN, doctor

# Whether a version of systemd-resolved listens to multicast DNS of its own computer. Between these
# and after them it has changed more than once.
HEARS_ITS_OWN_COMPUTER = {252: False, 257: True}

IS_RESOLVED = "is resolved by multicast DNS"
NOT_RESOLVED = "systemd-resolved, which is asked for names that end in .local, does not resolve those"


def found_own(computer, host, multicast):
    """Whether the name service finds a relay's host, which depends on the version."""
    found = computer.found(host)
    hears = HEARS_ITS_OWN_COMPUTER.get(computer.resolved_version(), bool(found))
    assert found == ({computer.address4} if hears and multicast != "no" else set())
    return bool(found)


@pytest.mark.parametrize("multicast", ["no", "resolve", "yes"])
def test_the_doctor_tries_whether_it_finds_the_names_that_this_computer_gives_the_phones(
    lan, phone, onlooker, engine, multicast
):
    """It finds names of other hosts, and this computer's own without multicast DNS."""
    computer = lan.host("computer", of=ResolvedComputer)
    computer.prepare(engine)
    computer.start_resolved(multicast)
    doctor(computer).expect("host-names", WARN, "shows no phone to try it with")
    helper = computer.helper()
    phone.announce("Quillbox Office")
    helper.wait_status(visible(1))
    relay = onlooker.wait("resolved", "Quillbox Office", 20)

    of_phone = set() if multicast == "no" else {phone.address4}
    assert computer.found(f"{phone.name}.local") == of_phone
    assert relay["host"].startswith("quillbox-office-computer-")
    assert computer.found("computer.local") == {computer.address4}

    diagnosis = doctor(computer)
    assert diagnosis.seconds < limit(6)
    if found_own(computer, relay["host"], multicast):
        diagnosis.expect("host-names", OK, f"{relay['host']} {IS_RESOLVED}")
    else:
        diagnosis.expect("host-names", WARN, NOT_RESOLVED)
        assert "libnss-mdns" in diagnosis.advice("host-names")
        assert "before 'resolve'" in diagnosis.advice("host-names")

    if engine == "daemon":
        hosts = "files mdns4_minimal [NOTFOUND=return] resolve [!UNAVAIL=return] dns"
        computer.set_name_service(hosts)
        assert computer.found(relay["host"]) == {computer.address4}
        doctor(computer).expect("host-names", OK, f"computer.local {IS_RESOLVED}")


@pytest.mark.parametrize("multicast", ["no", "yes"])
def test_open_in_finder_hands_over_what_the_file_manager_can_resolve(lan, phone, multicast):
    """The network view has the host name, whether the file manager can resolve it or not."""
    desktop = lan.host("computer", of=ResolvedDesktop)
    desktop.prepare("daemon")
    desktop.log_in("file-manager")
    desktop.start_resolved(multicast)

    handed_over = hand_over(desktop, phone)

    listed = listed_server(desktop)
    host = re.fullmatch(r"smb://(quillbox-office-computer-.*):\d+", listed)
    if found_own(desktop, host[1], multicast):
        assert handed_over == listed
        doctor(desktop).expect("host-names", OK, f"{host[1]} {IS_RESOLVED}")
    else:
        assert re.fullmatch(r"smb://127(\.\d+){3}:\d+", handed_over)
        doctor(desktop).expect("host-names", FAIL, NOT_RESOLVED)


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
