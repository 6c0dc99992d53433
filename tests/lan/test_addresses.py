"""Addresses from the network: several are raced, each is checked before the program connects."""

import os
import time

import pytest
from rig.computer import LOOKING, visible
from rig.onlooker import PYTHON
from rig.phone import Phone, smbclient
from rig.process import limit

pytestmark = pytest.mark.any_user

RIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rig")


def start_greeter(host):
    """Starts a TCP server that sends hello; returns its process and port."""
    server = host.start([PYTHON, f"{RIG}/greeter.py"])
    line = server.wait_line(lambda line: line.text.startswith("port "), 10, what="the greeter")
    return server, int(line.text.split()[1])


def call(host, address, port):
    """Connects from `host`, and returns once the connection is established."""
    caller = host.start([PYTHON, f"{RIG}/caller.py", address, str(port)])
    caller.wait_line(lambda line: line.text == "connected", 10, what="the call")
    return caller


def first_bytes(caller, timeout):
    """The seconds from the connection to the first bytes, and those bytes."""
    line = caller.wait_line(lambda line: line.text.startswith("first "), timeout, what="hello")
    _, seconds, text = line.text.split(" ", 2)
    return float(seconds), text


def calls(server):
    return [line.text for line in server.lines if line.text.startswith("connection")]


def expect_one_call(server):
    """Asserts that the server had exactly one connection; waits for its line, as the caller may get
    its answer before that line has been read."""
    server.wait_line(lambda line: line.text.startswith("connection"), 5, what="the call's line")
    assert len(calls(server)) == 1


def appear_at(phone, helper, onlooker, addresses, port):
    phone.announce(addresses=addresses, port=port)
    helper.wait_status(visible(1))
    return onlooker.wait("resolved", "Quillbox Office", 5)


@pytest.fixture
def server(lan):
    """A phone whose file server only sends hello."""
    made = lan.host("phone", of=Phone)
    made.greeter, made.greeter_port = start_greeter(made)
    return made


def test_two_dead_addresses_of_three_cost_less_than_half_a_second(computer, onlooker, server):
    helper = computer.helper()
    # No host has the first two: the kernel tries to resolve them (ARP, NDP) for seconds.
    addresses = ["10.77.0.201", "fd77::201", server.address4]
    found = appear_at(server, helper, onlooker, addresses, server.greeter_port)

    caller = call(computer, computer.address4, found["port"])

    seconds, text = first_bytes(caller, 10)
    assert text == "b'hello\\n'"
    assert seconds < limit(0.5)


def test_a_phone_with_nothing_but_a_link_local_address_is_reached(
    computer, engine, onlooker, server
):
    helper = computer.helper()
    link_local = f"fe80::{server.number}"
    found = appear_at(server, helper, onlooker, [link_local], server.greeter_port)

    caller = call(computer, computer.address4, found["port"])

    assert first_bytes(caller, 10)[1] == "b'hello\\n'"


HERE_AND_NOWHERE = (
    ["127.0.0.1", "127.9.9.9", "0.0.0.0", "::1", "::", "::ffff:127.0.0.1", "::ffff:0.0.0.0"]
    + ["224.0.0.251", "255.255.255.255", "ff02::fb"]
)


def test_addresses_that_lead_back_to_this_computer_are_never_dialled(computer, onlooker, server):
    """Otherwise a record from the network could make the relay expose services that listen on
    loopback only. The session waits until a record contains an address of another host."""
    trap, port = start_greeter(computer)
    helper = computer.helper()
    found = appear_at(server, helper, onlooker, HERE_AND_NOWHERE, port)
    caller = call(computer, computer.address4, found["port"])

    server.change(addresses=[server.address4], port=server.greeter_port)

    assert first_bytes(caller, 15)[1] == "b'hello\\n'"
    assert calls(trap) == []
    expect_one_call(server.greeter)


@pytest.mark.parametrize("own", ["address4", "address6"])
def test_a_record_that_names_the_relay_itself_makes_no_loop(computer, onlooker, server, own):
    helper = computer.helper()
    found = appear_at(server, helper, onlooker, ["10.77.0.201"], 9)
    # The relay stays the same, as the name of the service and its target host do not change.
    server.change(addresses=[getattr(computer, own)], port=found["port"])
    onlooker_view = f"/proc/{helper.pid}/fd"

    caller = call(computer, computer.address4, found["port"])
    open_before = len(os.listdir(onlooker_view))
    server.change(addresses=[server.address4], port=server.greeter_port)

    assert first_bytes(caller, 15)[1] == "b'hello\\n'"
    assert len(os.listdir(onlooker_view)) <= open_before + 8
    expect_one_call(server.greeter)


def test_port_zero_is_never_dialled(computer, onlooker, server):
    helper = computer.helper()
    found = appear_at(server, helper, onlooker, [server.address4], 0)
    caller = call(computer, computer.address4, found["port"])

    server.change(addresses=[server.address4], port=server.greeter_port)

    assert first_bytes(caller, 15)[1] == "b'hello\\n'"


@pytest.mark.slow
def test_a_phone_that_vanished_leaves_when_its_record_runs_out_and_comes_back(
    computer, onlooker, phone
):
    helper = computer.helper()
    phone.announce(host_ttl=10, other_ttl=4500)
    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 5)
    since = helper.mark()

    phone.vanish()
    vanished = time.monotonic()

    gone = helper.wait_status(LOOKING, timeout=limit(21), since=since)
    # The record expires ten seconds after its last announcement, which was shortly before.
    assert 5 <= gone.at - vanished <= limit(20)
    onlooker.wait("removed", "Quillbox Office", 5)

    since, seen = helper.mark(), onlooker.mark()
    phone.serve()
    phone.announce(host_ttl=10, other_ttl=4500)
    helper.wait_status(visible(1), since=since)
    found = onlooker.wait("heard", "Quillbox Office", 5, since=seen)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
