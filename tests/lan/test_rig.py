"""Tests of the rig itself, on which all other network tests rely."""

import hashlib
import os

from rig.network import TYPE_PHONE
from rig.onlooker import Onlooker, avahi_services
from rig.phone import Phone, smbclient


def test_a_phone_is_seen_by_both_kinds_of_onlooker_and_gone_after_its_goodbye(lan, phone):
    zeroconf = lan.host("zeroconf", of=Onlooker)
    zeroconf.watch(TYPE_PHONE)
    avahi = lan.host("avahi")
    avahi.start_bus()
    avahi.start_avahi()

    phone.announce()

    seen = zeroconf.wait("resolved", "Quillbox Office", 5)
    assert (seen["port"], phone.address4 in seen["addresses"]) == (4445, True)
    assert ("Quillbox Office", "phone.local", phone.address4, 4445) in avahi_services(
        avahi, TYPE_PHONE
    )

    said = phone.goodbye()
    assert zeroconf.wait("removed", "Quillbox Office", 5)["at"] - said < 1.5


def test_files_reach_the_phone_whole_without_the_program(lan, phone):
    client = lan.host("client")
    content = os.urandom(5_000_000)
    path = os.path.join(client.folder, "file")
    with open(path, "wb") as file:
        file.write(content)

    smbclient(client, phone.address4, phone.port, f"put {path} file")
    smbclient(client, f"fe80::{phone.number}%eth0", phone.port, f"get file {path}.back")

    with open(path + ".back", "rb") as file:
        assert hashlib.sha256(file.read()).digest() == hashlib.sha256(content).digest()


def test_hosts_see_nothing_of_the_machine_that_they_run_on(lan):
    host = lan.host("alone", of=Phone, plugged=False)

    links = host.run("ip", "-brief", "link").stdout.split()
    assert [name for name in links if name.startswith("eth")] == []
    # mount(8) keeps its own state in /run/mount.
    made = {"avahi-daemon", "dbus", "lock", "mount", "user"}
    assert set(host.run("ls", "/run").stdout.split()) <= made
    assert host.run("hostname").stdout.strip() == "alone"
