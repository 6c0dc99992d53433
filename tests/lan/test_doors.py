"""A record from the network opens no way that its sender does not have: the relay connects to no
address of this computer, and to no host behind it, because a stranger announced it."""

import os
import time

import pytest
from rig.computer import Computer, visible
from rig.onlooker import PYTHON
from rig.phone import Phone
from rig.process import limit
from test_addresses import RIG, call, calls, expect_one_call, first_bytes, start_greeter

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


def wait_until(condition, seconds):
    end = time.monotonic() + limit(seconds)
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.05)


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
    wait_until(lambda: "SYN-SENT" in sockets_to(computer, CONTAINER), 5)

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


def relay_ports(computers, onlooker):
    """The ports of the relays "Quillbox A" and "Quillbox B" of two computers, by the computer and
    that name. The second one of a name has been renamed."""
    ports = {}
    for name in ("Quillbox A", "Quillbox B"):
        for shown in (name, name + " #2"):
            found = onlooker.wait("resolved", shown, limit(15))
            (place,) = [each for each in computers if each.address4 in found["addresses"]]
            ports[place, name] = found["port"]
    return ports


def descriptors(helper):
    return len(os.listdir(f"/proc/{helper.pid}/fd"))


def test_relays_of_two_computers_that_records_lead_to_each_other_refuse(
    computer, onlooker, stranger, lan
):
    """Otherwise each session of one would open a session of the other, without end."""
    other = lan.host("other", of=Computer)
    helpers = [place.helper() for place in (computer, other)]
    for name in ("Quillbox A", "Quillbox B"):
        stranger.announce(name, host=name[-1], addresses=["10.77.0.201"], port=9)
    for helper in helpers:
        helper.wait_status(visible(2))
    ports = relay_ports((computer, other), onlooker)
    for name, leads_to, relay in (
        ("Quillbox A", other, ports[other, "Quillbox B"]),
        ("Quillbox B", computer, ports[computer, "Quillbox A"]),
    ):
        stranger.service_name = name
        stranger.change(host=name[-1], addresses=[leads_to.address4], port=relay)
    before = [descriptors(helper) for helper in helpers]

    caller = call(onlooker, computer.address4, ports[computer, "Quillbox A"])

    assert first_bytes(caller, 15)[1] == "b''", "refused, as nobody answers"
    for helper, count in zip(helpers, before):
        wait_until(lambda helper=helper, count=count: descriptors(helper) <= count + 4, 5)


def test_the_user_may_type_any_address(computer, onlooker, container):
    computer.manual_helper(CONTAINER, container.port)
    relay = onlooker.wait("resolved", "Quillbox", 5)["port"]

    caller = call(computer, computer.address4, relay)

    assert first_bytes(caller, 10)[1] == "b'hello\\n'"
