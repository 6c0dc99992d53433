"""A record from the network opens no way that its sender does not have: the relay connects to no
address of this computer, and to no host behind it, because a stranger announced it."""

import json
import os

import pytest
from rig.computer import Computer, visible
from rig.onlooker import PYTHON
from rig.phone import Phone
from rig.process import limit, wait_until
from test_addresses import RIG, call, calls, expect_one_call, first_bytes, start_greeter

pytestmark = pytest.mark.any_user

BRIDGE = "172.17.0.1"
CONTAINER = "172.17.0.2"
BRIDGE6, CONTAINER6 = "fd17::1", "fd17::2"


@pytest.fixture
def stranger(lan):
    """Announces phones, and has a file server of its own that sends hello."""
    made = lan.host("stranger", of=Phone)
    made.greeter, made.greeter_port = start_greeter(made)
    return made


@pytest.fixture
def container(computer):
    """A host in a network behind the computer, as a container is; its server sends hello."""
    inside = ["unshare", "--net", "--", "sh", "-c"]
    script = f"echo inside; read _; exec {PYTHON} {RIG}/greeter.py"
    server = computer.start([*inside, script], stdin=True)
    server.wait_line(lambda line: line.text == "inside", 10, what="the namespace")
    ip = ["nsenter", "--target", str(server.pid), "--net", "--", "ip"]
    computer.run(*"ip link add docker0 type veth peer name inner".split())
    computer.run("ip", "link", "set", "inner", "netns", str(server.pid))
    for tool, link, address4, address6 in (
        (["ip"], "docker0", BRIDGE, BRIDGE6),
        (ip, "inner", CONTAINER, CONTAINER6),
    ):
        run = computer.run
        run(*tool, "link", "set", link, "up")
        run(*tool, "addr", "add", f"{address4}/16", "dev", link)
        run(*tool, "addr", "add", f"{address6}/64", "dev", link, "nodad")
    computer.run(*ip, "route", "add", "default", "via", BRIDGE)
    computer.run(*ip, "route", "add", "default", "via", BRIDGE6)
    server.write("\n")
    line = server.wait_line(lambda line: line.text.startswith("port "), 10, what="the container")
    server.port = int(line.text.split()[1])
    return server


def announce(stranger, helper, onlooker, addresses, port):
    stranger.announce(addresses=addresses, port=port)
    helper.wait_status(visible(1))
    return onlooker.wait("resolved", "Quillbox Office", 5)["port"]


def expect_nothing_but_hello_of(stranger, caller, trap):
    """Gives the waiting session an address that it may use, so that it ends."""
    stranger.change(addresses=[stranger.address4], port=stranger.greeter_port)
    assert first_bytes(caller, 15)[1] == "b'hello\\n'"
    assert calls(trap) == []
    expect_one_call(stranger.greeter)


def test_a_stranger_reaches_no_service_of_this_computer(computer, onlooker, stranger, container):
    trap, port = start_greeter(computer)
    helper = computer.helper()
    own = [computer.address4, computer.address6, f"fe80::{computer.number}", BRIDGE, BRIDGE6]
    mapped = [f"::ffff:{address}" for address in (computer.address4, BRIDGE, CONTAINER)]
    relay = announce(stranger, helper, onlooker, own + mapped, port)

    caller = call(onlooker, computer.address4, relay)

    expect_nothing_but_hello_of(stranger, caller, trap)


def test_a_stranger_reaches_no_host_behind_this_computer(computer, onlooker, stranger, container):
    helper = computer.helper()
    relay = announce(stranger, helper, onlooker, [CONTAINER, CONTAINER6], container.port)

    caller = call(onlooker, computer.address4, relay)

    expect_nothing_but_hello_of(stranger, caller, container)


def sockets_to(computer, address):
    return computer.run("ss", "-Htn", "dst", address).stdout.strip()


def test_a_connection_that_a_new_route_diverts_carries_nothing(
    computer, onlooker, stranger, container
):
    """While the container's network is not there yet, its address leads to the local network. Once
    it is there, the kernel sends the next request of the pending connection to the container."""
    computer.run("ip", "link", "set", "docker0", "down")
    computer.run("ip", "route", "add", "default", "via", stranger.address4, "dev", "eth0")
    helper = computer.helper()
    relay = announce(stranger, helper, onlooker, [CONTAINER], container.port)
    caller = call(onlooker, computer.address4, relay)
    wait_until(
        lambda: "SYN-SENT" in sockets_to(computer, CONTAINER), limit(5), "the pending connection"
    )

    computer.run("ip", "link", "set", "docker0", "up")
    container.wait_line(lambda line: line.text.startswith("connection"), 20, what="the diversion")

    stranger.change(addresses=[stranger.address4], port=stranger.greeter_port)
    assert first_bytes(caller, 15)[1] == "b'hello\\n'"
    expect_one_call(stranger.greeter)


def test_a_record_of_another_network_is_used_if_its_router_is_where_the_record_arrived(
    computer, onlooker, stranger
):
    """As a reflector passes it on from another subnet."""
    stranger.run("ip", "addr", "add", "10.88.0.5/32", "dev", "lo")
    computer.run("ip", "route", "add", "default", "via", stranger.address4, "dev", "eth0")
    helper = computer.helper()
    relay = announce(stranger, helper, onlooker, ["10.88.0.5"], stranger.greeter_port)

    caller = call(computer, computer.address4, relay)

    assert first_bytes(caller, 10)[1] == "b'hello\\n'"


def descriptors(helper):
    return len(os.listdir(f"/proc/{helper.pid}/fd"))


def lead_in_a_circle(places, helpers, stranger, onlooker, families=("address4",)):
    """Announces as many phones as there are computers, whose records lead the relay of each phone to
    that of the next phone on the next computer, by its addresses of these families. Returns the port
    of the first relay."""
    names = [f"Quillbox {letter}" for letter in "ABC"[: len(places)]]
    for name in names:
        stranger.announce(name, host=name[-1], addresses=["10.77.0.201"], port=9)
    for helper in helpers:
        helper.wait_status(visible(len(names)))
    ports = {}
    for name in names:
        # All but one of a name have been renamed.
        for shown in (name, *(f"{name} #{number + 2}" for number in range(len(places) - 1))):
            found = onlooker.wait("resolved", shown, limit(25))
            (place,) = [each for each in places if each.address4 in found["addresses"]]
            ports[place, name] = found["port"]
    for number, name in enumerate(names):
        following = (number + 1) % len(names)
        leads_to = places[following]
        stranger.service_name = name
        relay = ports[leads_to, names[following]]
        addresses = [getattr(leads_to, family) for family in families]
        stranger.change(host=name[-1], addresses=addresses, port=relay)
    return ports[places[0], names[0]]


@pytest.mark.parametrize("families", [("address4",), ("address4", "address6")])
def test_relays_of_two_computers_that_records_lead_to_each_other_refuse(
    computer, onlooker, stranger, lan, families
):
    """Otherwise each session of one would open a session of the other, without end."""
    places = [computer, lan.host("other", of=Computer)]
    helpers = [place.helper() for place in places]
    relay = lead_in_a_circle(places, helpers, stranger, onlooker, families)
    before = [descriptors(helper) for helper in helpers]

    caller = call(onlooker, computer.address4, relay)

    def is_over_or_grows():
        has_ended = any(line.text.startswith("first ") for line in caller.lines)
        return has_ended or descriptors(helpers[0]) > before[0] + 50

    wait_until(is_over_or_grows, limit(15), "the refusal")
    assert first_bytes(caller, 1)[1] == "b''", "refused, as nobody answers"
    for helper, count in zip(helpers, before):
        wait_until(
            lambda helper=helper, count=count: descriptors(helper) <= count + 4,
            limit(5),
            "the end of the connections",
        )


def test_a_circle_of_three_computers_ends_when_a_host_has_too_many_sessions(
    bare_computer, onlooker, stranger, lan
):
    """With 1,000 descriptors, a host that is alone may have 267 sessions, of two sockets each; with
    the usual limits about 5,400."""
    places = [bare_computer, *(lan.host(f"other{x}", of=Computer) for x in range(2))]
    helpers = [place.helper(open_files=1000) for place in places]
    relay = lead_in_a_circle(places, helpers, stranger, onlooker)
    before = [descriptors(helper) for helper in helpers]
    most = list(before)

    caller = call(onlooker, bare_computer.address4, relay)

    def is_over():
        now = [descriptors(helper) for helper in helpers]
        most[:] = map(max, most, now)
        has_ended = any(line.text.startswith("first ") for line in caller.lines)
        return has_ended and all(x <= y + 4 for x, y in zip(now, before))

    wait_until(is_over, limit(40), "the end of the circle")
    assert first_bytes(caller, 1)[1] == "b''", "refused, as nobody answers"
    assert max(most) < 700, most
    messages = [line.text for helper in helpers for line in helper.process.lines]
    assert any("refusing connections" in text for text in messages)
    assert not any("cannot accept" in text for text in messages), "out of descriptors"


def test_a_phone_that_answers_over_another_link_is_reached(lan, computer, onlooker, stranger):
    """Where two links of a computer are in one network, other hosts may send to either what is for
    the address of one of them (ARP flux). A socket that is bound to a link gets nothing over the
    other."""
    lan.connect(computer, "eth1")
    second = f"10.77.0.{computer.number + 100}"
    computer.run("ip", "link", "set", "eth1", "addrgenmode", "none", "up")
    computer.run("ip", "addr", "add", f"{second}/24", "dev", "eth1", "noprefixroute")
    computer.run("ip", "route", "add", "10.77.0.0/24", "dev", "eth1", "metric", "600")
    for address, link in ((computer.address4, "eth1"), (second, "eth0")):
        shown = computer.run("ip", "-json", "link", "show", link).stdout
        entry = [address, "lladdr", json.loads(shown)[0]["address"], "nud", "permanent"]
        stranger.run("ip", "neigh", "replace", *entry, "dev", "eth0")
    helper = computer.helper()
    relay = announce(stranger, helper, onlooker, [stranger.address4], stranger.greeter_port)

    caller = call(computer, computer.address4, relay)

    assert first_bytes(caller, 10)[1] == "b'hello\\n'"


def test_the_user_may_type_any_address(computer, onlooker, container):
    computer.manual_helper(CONTAINER, container.port)
    relay = onlooker.wait("resolved", "Quillbox", 5)["port"]

    caller = call(computer, computer.address4, relay)

    assert first_bytes(caller, 10)[1] == "b'hello\\n'"
