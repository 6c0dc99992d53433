"""Daemons, buses and networks may start late, stop and restart; the program recovers by itself."""

import os

import pytest
from rig.computer import LOOKING, Computer, visible
from rig.network import SESSION_BUS
from rig.onlooker import Onlooker
from rig.phone import smbclient
from rig.process import limit, wait_until
from rig.upload import Upload
from test_automatic import appear, sha256_of


@pytest.fixture
def daemon_computer(bare_computer):
    bare_computer.prepare("daemon")
    return bare_computer


def test_a_killed_daemon_costs_no_byte_and_the_advertisement_comes_back(
    daemon_computer, onlooker, phone, big_file
):
    computer = daemon_computer
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    upload = Upload(computer, found["port"], big_file.path)
    upload.send(128)
    computer.kill_avahi()
    upload.send(64)
    seen = onlooker.mark()
    started = computer.start_avahi()
    upload.finish()

    assert sha256_of(os.path.join(phone.share, "big")) == big_file.sha256
    again = onlooker.wait("heard", "Quillbox Office", limit(3), since=seen)
    assert again["at"] - started.at < limit(3)
    smbclient(computer, computer.address4, again["port"], "ls")
    assert helper.statuses()[-1] == visible(1)


def wait_listed(computer):
    """Waits until the computer's own avahi-daemon lists the advertisement."""

    def listed():
        known = computer.run("avahi-browse", "--parsable", "--cache", "_smb._tcp", check=False)
        return "Quillbox\\032Office" in known.stdout

    wait_until(listed, limit(10), "the advertisement in the daemon's list")


@pytest.mark.parametrize("bus_first", [True, False], ids=["bus is there", "no bus"])
def test_a_daemon_that_comes_late_takes_over_with_one_advertisement(
    lan, bare_computer, onlooker, phone, bus_first
):
    computer = bare_computer
    if bus_first:
        computer.start_bus()
    helper = computer.helper()
    appear(phone, helper, onlooker)

    if not bus_first:
        computer.start_bus()
    computer.start_avahi()

    wait_listed(computer)
    newcomer = lan.host("newcomer", of=Onlooker)
    newcomer.watch()
    found = newcomer.wait("resolved", "Quillbox Office", 10)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    assert {x["name"] for x in newcomer.events("added")} == {"Quillbox Office"}
    assert helper.statuses()[-1] == visible(1)


def test_a_restarted_bus_does_no_harm(daemon_computer, onlooker, phone):
    computer = daemon_computer
    helper = computer.helper()
    appear(phone, helper, onlooker)

    computer.bus.kill_group()
    computer.avahi.wait(10)  # avahi-daemon exits when it loses the bus
    computer.run("rm", "-f", "/run/avahi-daemon/pid", "/run/dbus/system_bus_socket")
    seen = onlooker.mark()
    computer.start_bus()
    computer.start_avahi()

    wait_listed(computer)
    found = onlooker.wait("heard", "Quillbox Office", 10, since=seen)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_a_session_bus_that_goes_takes_nothing_along(bare_computer, onlooker, phone):
    """The session bus connects the program to the status item's panel and the file manager."""
    computer = bare_computer
    bus = computer.start_session_bus()
    helper = computer.helper("--dns-sd=embedded", DBUS_SESSION_BUS_ADDRESS=SESSION_BUS)
    found = appear(phone, helper, onlooker)

    bus.kill_group()

    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    since = helper.mark()
    phone.goodbye()
    helper.wait_status(LOOKING, since=since)
    code, seconds = helper.stop()
    assert code == 0 and seconds < limit(1)


def test_a_network_that_comes_late_is_used(lan, onlooker, phone, engine):
    computer = lan.host("computer", of=Computer, plugged=False)
    computer.prepare(engine)
    helper = computer.helper()
    helper.wait_status(LOOKING)
    phone.announce()

    computer.plug()

    helper.wait_status(visible(1), timeout=15)
    found = onlooker.wait("resolved", "Quillbox Office", 10)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_a_network_that_goes_and_comes_back_is_used_again(lan, computer, engine, onlooker, phone):
    helper = computer.helper()
    appear(phone, helper, onlooker)

    computer.run("ip", "link", "set", "eth0", "down")
    computer.run("ip", "link", "set", "eth0", "up")
    for address in (computer.address6, f"fe80::{computer.number}"):
        # The kernel removes IPv6 addresses when the link goes down.
        computer.run("ip", "addr", "replace", f"{address}/64", "dev", "eth0", "nodad")

    newcomer = lan.host("newcomer", of=Onlooker)
    newcomer.watch()
    found = newcomer.wait("resolved", "Quillbox Office", limit(15))
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_new_addresses_of_the_computer_are_advertised(lan, computer, engine, onlooker, phone):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    old = (computer.address4, computer.address6)

    computer.move("10.77.0.88", "fd77::88")

    newcomer = lan.host("newcomer", of=Onlooker)
    newcomer.watch()
    found = newcomer.wait(
        "resolved",
        "Quillbox Office",
        limit(10),
        accepts=lambda seen: {"10.77.0.88", "fd77::88"} <= set(seen["addresses"]),
    )
    assert not set(old) & set(found["addresses"])
    smbclient(onlooker, "10.77.0.88", found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    assert helper.statuses()[-1] == visible(1)


def test_the_daemon_alone_is_waited_for_when_it_was_asked_for(bare_computer, onlooker, phone):
    computer = bare_computer
    helper = computer.helper("--dns-sd=daemon")
    helper.wait_status(LOOKING)
    phone.announce()
    computer.start_bus()

    computer.start_avahi()

    helper.wait_status(visible(1), timeout=15)
    found = onlooker.wait("resolved", "Quillbox Office", 5)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_the_embedded_engine_beside_a_daemon_leaves_the_host_name_alone(
    lan, daemon_computer, onlooker, phone
):
    computer = daemon_computer
    other = lan.host("other")
    other.start_bus()
    other.start_avahi()
    helper = computer.helper("--dns-sd=embedded")
    found = appear(phone, helper, onlooker)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]

    helper.stop()

    onlooker.wait("removed", "Quillbox Office", limit(2))
    known = other.run("avahi-resolve", "-4", "--name", "computer.local").stdout
    assert known.split() == ["computer.local", computer.address4]
    assert "conflict" not in computer.avahi.output()
