"""Faults of the network, and sockets and processes manipulated from outside the program."""

import os
import re
import signal
import threading
import time

import pytest
from rig.computer import LOOKING, visible
from rig.ends import BLOB, read_exactly, read_to_end, send_and_end, session
from rig.phone import smb_command, smbclient
from rig.process import limit, wait_until
from test_automatic import appear

pytestmark = pytest.mark.any_user

MEBIBYTE = 1 << 20


def lose(host, percent):
    """Drops that percentage of the TCP segments that arrive at the host, at random. Segmentation
    offload is off: with large joined segments there would be too few to drop."""
    host.run("ip", "link", "set", "eth0", "gso_max_segs", "1")
    rules = f"""
        add table inet loss
        add chain inet loss input {{ type filter hook input priority 0; }}
        add rule inet loss input meta l4proto tcp numgen random mod 100 < {percent} counter drop
    """
    host.run("nft", "-f", "-", input=rules.encode())


def lost(host):
    """How many segments were dropped."""
    rules = host.run("nft", "list", "chain", "inet", "loss", "input").stdout
    return int(re.search(r"counter packets (\d+)", rules)[1])


@pytest.mark.parametrize("way", ["to the phone", "to the browser"])
def test_a_network_that_loses_every_tenth_packet_costs_no_byte(ends, onlooker, way):
    """On both sides of the relay: between phone and computer, and between computer and browser,
    which is on another computer here."""
    browser, phone = ends.pair(host=onlooker)
    for host in (ends.computer, ends.phone, onlooker):
        lose(host, 10)
    writer, reader = (browser, phone) if way == "to the phone" else (phone, browser)
    for one in (writer, reader):
        one.settimeout(limit(60))

    sending = ends.at_once(send_and_end, writer, BLOB[: 4 * MEBIBYTE])

    assert read_to_end(reader) == BLOB[: 4 * MEBIBYTE]
    reader.close()
    sending.result(limit(60))
    assert min(lost(host) for host in (ends.computer, ends.phone, onlooker)) >= 10


def test_a_network_of_tiny_packets_costs_no_byte(ends):
    """The MTU makes a chunk many segments; gso_max_segs keeps the interface from joining them."""
    for host in (ends.computer, ends.phone):
        host.run("ip", "link", "set", "eth0", "gso_max_segs", "1")
        host.run("ip", "link", "set", "eth0", "mtu", "1280")
    for writer, reader in (ends.pair(), reversed(ends.pair())):
        sending = ends.at_once(send_and_end, writer, BLOB)
        assert read_to_end(reader) == BLOB
        reader.close()
        sending.result(limit(20))
    ends.check()


@pytest.mark.parametrize("side", ["browser", "phone"])
def test_a_socket_that_the_system_kills_ends_the_session_and_no_other(ends, side):
    standing = ends.pair()
    browser, phone = ends.pair()
    # A connection that is killed before the helper has seen that it is there is made again.
    browser.sendall(b"there")
    assert read_exactly(phone, 5) == b"there"
    if side == "browser":
        number, other = browser.getsockname()[1], phone
        killed = ("sport", "=", str(ends.port), "dport", "=", str(number))
    else:
        number, other = phone.getpeername()[1], browser
        killed = ("sport", "=", str(number))
    ends.computer.run("ss", "--kill", "--tcp", *killed)

    assert read_to_end(other) == b""
    standing[0].sendall(b"still here")
    assert read_exactly(standing[1], 10) == b"still here"
    ends.check()


def test_both_ends_may_close_in_the_same_moment(ends):
    """In half of the sessions, unread bytes in the sockets turn the closes into resets."""
    before = ends.sockets()
    for number in range(200):
        pair = ends.pair()
        if number % 2:
            for one in pair:
                one.sendall(b"unread")
        barrier = threading.Barrier(2)

        def close(one, meeting=barrier):
            meeting.wait(5)
            one.close()

        for closing in [ends.at_once(close, one) for one in pair]:
            closing.result(limit(10))
    ends.wait_sockets(before, 5)
    ends.check()


def test_a_relay_that_ends_in_an_upload_is_an_error_and_the_next_upload_is_whole(
    computer, onlooker, phone
):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    # An upload that has no end of its own.
    upload = smb_command(computer.address4, found["port"], "put - big")
    client = computer.start(["sh", "-c", 'exec "$@" </dev/zero', "sh", *upload])
    share = os.path.join(phone.share, "big")
    wait_until(lambda: os.path.exists(share) and os.path.getsize(share) > 0, 20, "the upload")

    code, seconds = helper.stop()

    assert code == 0 and seconds < limit(1)
    assert client.wait(60) != 0
    seen = onlooker.mark()
    again = computer.helper()
    again.wait_status(visible(1))
    found = onlooker.wait("heard", phone.service_name, 10, since=seen)
    small = os.path.join(computer.folder, "small")
    with open(small, "wb") as file:
        file.write(BLOB)
    smbclient(computer, computer.address4, found["port"], f"put {small} small")
    with open(os.path.join(phone.share, "small"), "rb") as file:
        assert file.read() == BLOB


def test_an_interface_that_comes_in_the_middle_of_a_registration_delays_nothing(
    lan, computer, engine, onlooker, phone
):
    helper = computer.helper()
    helper.wait_status(LOOKING)
    phone.announce()
    # Probing for the name takes 0.75 s (RFC 6762, section 8.1).
    helper.process.wait_line(lambda line: "Connecting" in line.text, limit(10), what="the probing")

    computer.run("ip", "link", "add", "eth1", "type", "veth", "peer", "name", "far1")
    computer.run("ip", "addr", "add", "10.78.0.1/24", "dev", "eth1")
    for link in ("far1", "eth1"):
        computer.run("ip", "link", "set", link, "up")

    helper.wait_status(visible(1), timeout=6)
    found = onlooker.wait("resolved", phone.service_name, 5)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


# ---- sleep ----


@pytest.mark.slow
def test_a_computer_that_slept_knows_what_happened_meanwhile(
    computer, engine, onlooker, service
):
    """All its processes are stopped for ten seconds, while one phone leaves, one appears and one
    stays."""
    helper = computer.helper()
    gone, stays, later = service("gone"), service("stays"), service("later")
    gone.announce("Quillbox Gone", host_ttl=5, other_ttl=5)
    stays.announce("Quillbox Stays")
    helper.wait_status(visible(2))
    port = onlooker.wait("resolved", "Quillbox Stays", 5)["port"]
    browser, other = session(computer, port, stays)
    asleep = computer.helper_processes()
    if engine == "daemon":
        asleep.append(computer.avahi.pid)
    since = helper.mark()

    for pid in asleep:
        os.kill(pid, signal.SIGSTOP)
    gone.vanish()
    later.announce("Quillbox Later")
    browser.sendall(b"said in its sleep")
    time.sleep(10)  # the length of the sleep: stopped processes give no event
    for pid in asleep:
        os.kill(pid, signal.SIGCONT)

    assert read_exactly(other, 17) == b"said in its sleep"
    onlooker.wait("resolved", "Quillbox Later", limit(20))
    onlooker.wait("removed", "Quillbox Gone", limit(20))
    wait_until(lambda: helper.statuses(since)[-1:] == [visible(2)], limit(20), "the two phones")
    session(computer, port, stays)
