"""--this-computer-only: the phone is in this computer's file browser and in no other's."""

import pytest
from rig.computer import Computer, visible
from rig.ends import read_exactly
from rig.onlooker import avahi_services
from rig.process import limit, wait_until


def port_of(computer):
    """The port that the only listener of the computer has."""
    listening = computer.run("ss", "-Hltn").stdout.splitlines()
    (line,) = (x for x in listening if "%lo:" in x)
    return int(line.split()[3].rpartition(":")[2])


def connected(host, address, port):
    made = host.socket()
    made.settimeout(limit(5))
    made.connect((address, port))
    return made


def test_another_computer_can_neither_see_nor_reach_the_relay(
    lan, computer, engine, onlooker, service
):
    phone = service("phone")
    helper = computer.helper("--this-computer-only")
    # Another computer with the program shows when an advertisement would have been seen.
    other = lan.host("other", of=Computer)
    theirs = other.helper()

    phone.announce()

    helper.wait_status(visible(1))
    theirs.wait_status(visible(1))
    found = onlooker.wait("resolved", "Quillbox Office", limit(5))
    assert other.address4 in found["addresses"]
    assert computer.address4 not in found["addresses"]
    assert len(onlooker.events("added")) == 1
    assert onlooker.events("resolved")[-1]["host"] == found["host"]
    port = port_of(computer)
    for stranger in (onlooker, phone, other):
        with pytest.raises(ConnectionRefusedError):
            connected(stranger, computer.address4, port)
    # A route to the loopback network leads nobody in either.
    onlooker.run("ip", "route", "add", "127.77.0.0/16", "via", computer.address4)
    with pytest.raises(OSError):
        connected(onlooker, "127.77.0.1", port)


def test_this_computer_uses_the_relay_at_its_loopback_addresses(computer, service):
    phone = service("phone")
    helper = computer.helper("--this-computer-only")
    phone.announce()
    helper.wait_status(visible(1))
    port = port_of(computer)

    for address in ("127.0.0.1", "127.9.8.7"):
        with connected(computer, address, port) as browser:
            there, _ = phone.listener.accept()
            there.settimeout(limit(5))
            with there:
                browser.sendall(b"hello")
                assert read_exactly(there, 5) == b"hello"
    # To the kernel an address of the network belongs to its interface, even from here.
    with pytest.raises(ConnectionRefusedError):
        connected(computer, computer.address4, port)


def test_this_computers_file_browser_sees_it_on_the_loopback_interface(bare_computer, service):
    computer = bare_computer
    computer.prepare("daemon")
    phone = service("phone")
    helper = computer.helper("--this-computer-only")
    phone.announce()
    helper.wait_status(visible(1))

    def listed():
        return [x for x in avahi_services(computer) if x[0] == "Quillbox Office"]

    (found,) = wait_until(listed, limit(10), "the service in the computer's own view")
    _, host, address, port = found
    assert host.endswith(".local")
    assert address.startswith("127.")
    assert port == port_of(computer)
    with connected(computer, address, port):
        phone.listener.accept()[0].close()
