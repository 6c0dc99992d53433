"""What the zones of firewalld let in: whether the phone is found, and whether other computers reach the
relay. The rules are those that firewalld 1.3 makes of its zones, without the chains that are empty."""

import pytest
from rig.computer import LOOKING, Computer, visible
from rig.ends import read_exactly
from rig.onlooker import PYTHON
from rig.process import limit
from test_doctor import FAIL, OK, doctor
from test_this_computer_only import connected

RULES = """
table inet firewalld
delete table inet firewalld
table inet firewalld {
    chain filter_PREROUTING {
        type filter hook prerouting priority filter + 10; policy accept;
        icmpv6 type { nd-router-advert, nd-neighbor-solicit } accept
        meta nfproto ipv6 fib saddr . mark . iif oif missing drop
    }
    chain filter_INPUT {
        type filter hook input priority filter + 10; policy accept;
        ct state { established, related } accept
        ct status dnat accept
        iifname "lo" accept
        ct state invalid drop
        goto filter_IN_zone
    }
    chain filter_IN_zone {
        icmpv6 type { nd-neighbor-advert, nd-neighbor-solicit, nd-router-advert, nd-redirect } accept
        SERVICES
        meta l4proto { icmp, ipv6-icmp } accept
        reject with icmpx admin-prohibited
    }
}
"""
PUBLIC = ["tcp dport 22 accept", "ip6 daddr fe80::/64 udp dport 546 accept"]
# The service has the addresses of the group as its destination.
MDNS = ["ip daddr 224.0.0.251 udp dport 5353 accept", "ip6 daddr ff02::fb udp dport 5353 accept"]
RELAYS = ["tcp dport 61000-64999 accept"]
SAMBA_CLIENT = ["udp dport 137 accept", "udp dport 138 accept"]
HOME = [*PUBLIC, *MDNS, *SAMBA_CLIENT]
FEDORA_WORKSTATION = [
    *PUBLIC, *SAMBA_CLIENT, "udp dport 1025-65535 accept", "tcp dport 1025-65535 accept"
]


def set_zone(computer, services):
    """Replaces the rules by those of a zone with these services."""
    rules = RULES.replace("SERVICES", "\n        ".join(services))
    computer.run("nft", "-f", "-", input=rules.encode())


def own_name_of_firewalld(computer):
    """The doctor recognises firewalld by its name on the system bus."""
    if computer.bus is None:
        computer.start_bus()
    script = (
        "from gi.repository import Gio, GLib;"
        "Gio.bus_own_name(Gio.BusType.SYSTEM, 'org.fedoraproject.FirewallD1', 0, None,"
        " lambda *_: print('ready', flush=True), None); GLib.MainLoop().run()"
    )
    computer.start([PYTHON, "-c", script]).wait_line(
        lambda line: line.text == "ready", 10, what="the name of firewalld"
    )


def carries(host, computer, phone):
    """Whether a connection from the host to the relay of the computer leads to the phone."""
    (listener,) = computer.run("ss", "-Hltn").stdout.splitlines()
    port = int(listener.split()[3].rpartition(":")[2])
    try:
        connection = connected(host, computer.address4, port)
    except OSError:
        return False
    with connection:
        there, _ = phone.listener.accept()
        with there:
            there.settimeout(limit(5))
            connection.sendall(b"hello")
            return read_exactly(there, 5) == b"hello"


@pytest.mark.parametrize(
    "services, for_others",
    [
        ([*PUBLIC, *MDNS], False),
        ([*PUBLIC, *MDNS, *RELAYS], True),
        (HOME, False),
        (FEDORA_WORKSTATION, True),
    ],
    ids=["public and mdns", "public, mdns and the relays' ports", "home", "FedoraWorkstation"],
)
def test_a_zone_that_lets_multicast_dns_in(lan, computer, service, services, for_others):
    set_zone(computer, services)
    phone = service("phone")
    helper = computer.helper()
    helper.wait_status(LOOKING)
    phone.announce()
    helper.wait_status(visible(1))
    # The file manager of this computer needs nothing else.
    assert carries(computer, computer, phone)
    assert carries(lan.host("other"), computer, phone) == for_others


@pytest.mark.slow
def test_the_zone_public_keeps_the_phone_out_until_mdns_is_added(lan, computer, service):
    own_name_of_firewalld(computer)
    set_zone(computer, PUBLIC)
    phone = service("phone")
    helper = computer.helper()
    helper.wait_status(LOOKING)
    # Another computer with the program shows when the phone would have been found.
    theirs = lan.host("other", of=Computer).helper()
    phone.announce()
    theirs.wait_status(visible(1))
    found = doctor(computer)
    assert helper.statuses()[-1] == LOOKING
    found.expect("multicast", FAIL, "is sent on eth0, but nothing arrives on UDP 5353")
    found.expect("firewall", FAIL, "firewalld is on and blocks multicast DNS")
    assert "'sudo firewall-cmd --permanent --add-service=mdns'" in found.advice("firewall")
    assert "--add-service=mdns" in found.advice("multicast")

    set_zone(computer, [*PUBLIC, *MDNS])
    helper.wait_status(visible(1), 30)
    found = doctor(computer)
    found.expect("multicast", OK, "works on eth0")
    found.expect("firewall", OK, "firewalld is on and allows multicast DNS")
