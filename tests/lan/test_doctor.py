"""What the doctor says of a computer on which one thing after the other is broken for real."""

import glob
import json
import os
import signal
import socket
import time

import pytest
from rig.computer import LOOKING, MULTICAST_NAMES, PROGRAM, Computer, visible
from rig.desktop import SCREEN, Desktop
from rig.network import AS_NOBODY
from rig.onlooker import PYTHON
from rig.phone import Phone
from rig.process import limit, wait_until

OK, WARN, FAIL = "OK", "WARN", "FAIL"


class Diagnosis:
    """What one run of the doctor found."""

    def __init__(self, done, seconds):
        assert done.returncode in (0, 1), f"{done.returncode}\n{done.stdout}{done.stderr}"
        self.findings = json.loads(done.stdout)
        self.stderr = done.stderr
        self.code = done.returncode
        self.seconds = seconds
        for each in self.findings:
            assert set(each) == {"check", "result", "text", "advice"}
            assert (each["advice"] == "") == (each["result"] == OK)
        assert self.code == int(FAIL in {each["result"] for each in self.findings})

    def of(self, check):
        """The results and texts of one check."""
        return [(x["result"], x["text"]) for x in self.findings if x["check"] == check]

    def results(self, check):
        return [result for result, _ in self.of(check)]

    def says(self, check, result, text):
        return any(r == result and text in t for r, t in self.of(check))

    def expect(self, check, result, text):
        found = "\n".join(f"{x['result']} {x['check']}: {x['text']}" for x in self.findings)
        assert self.says(check, result, text), f"no {result} {check}: {text} in\n{found}"

    def advice(self, check):
        return " ".join(x["advice"] for x in self.findings if x["check"] == check)


def doctor(computer, **environment):
    start = time.monotonic()
    done = computer.run(
        PROGRAM,
        "doctor",
        "--json",
        env=computer.environment(**environment),
        check=False,
        timeout=limit(20),
    )
    return Diagnosis(done, time.monotonic() - start)


def filter_packets(host, *rules):
    """A packet filter with these rules, each "HOOK RULE"."""
    text = "table inet broken {\n"
    for hook in ("input", "output"):
        text += f"chain {hook} {{ type filter hook {hook} priority 0; policy accept;\n"
        text += "".join(f"{x.removeprefix(hook)}\n" for x in rules if x.startswith(hook))
        text += "}\n"
    host.run("nft", "-f", "-", input=(text + "}\n").encode())


# ---- the way of a phone ----


def stand_in(host, script, what):
    """Runs Python that plays something, until the host ends."""
    script += "print('ready', flush=True); sys.stdin.read()"
    playing = host.start([PYTHON, "-c", script], stdin=True)
    playing.wait_line(lambda line: line.text == "ready", 10, what=what)


def test_a_phone_whose_way_is_free(computer, phone):
    phone.announce()
    helper = computer.helper()
    helper.wait_status(visible(1))
    found = doctor(computer)
    found.expect("interfaces", OK, f"eth0 (wired) is up with {computer.address4}")
    found.expect("multicast", OK, "works on eth0; 1 other host answered")
    found.expect("phones", OK, '"Quillbox Office" at ')
    found.expect("phones", OK, "port 4445, accepts connections")
    found.expect("running-copy", OK, "1 relay; its status is: 1 Quillbox device visible")
    found.expect("firewall", OK, "No firewall on this computer blocks multicast DNS")
    assert FAIL not in {each["result"] for each in found.findings}
    assert found.stderr == ""
    assert found.seconds < limit(6)
    # It was no copy, and left the one that runs alone.
    assert helper.statuses()[-1] == visible(1)
    assert helper.running()


def test_it_publishes_nothing(bare_computer, onlooker, phone):
    phone.announce()
    found = doctor(bare_computer)
    found.expect("phones", OK, "accepts connections")
    found.expect("running-copy", WARN, "is not running")
    assert onlooker.events("added") == []
    assert bare_computer.helper_processes() == []
    folder = f"/proc/{bare_computer.pid}/root/run/user/0/org.quillbox.Helper"
    assert glob.glob(f"{folder}/*.socket") == []


def test_without_an_interface(lan):
    computer = lan.host("computer", plugged=False, of=Computer)
    found = doctor(computer)
    assert found.results("interfaces") == [FAIL]
    found.expect("multicast", FAIL, "no interface")
    found.expect("phones", FAIL, "No phone")
    assert found.seconds < limit(6)


def test_a_wire_that_is_cut(bare_computer, phone):
    phone.announce()
    bare_computer.run("ip", "link", "set", "eth0", "down")
    doctor(bare_computer).expect("interfaces", FAIL, "No network interface")


def test_multicast_that_is_kept_out(computer, phone):
    phone.announce()
    filter_packets(computer, "input udp dport 5353 drop")
    found = doctor(computer)
    found.expect("multicast", FAIL, "is sent on eth0, but nothing arrives on UDP 5353")
    found.expect("firewall", FAIL, "A packet filter is on and blocks multicast DNS")
    assert "nft list ruleset" in found.advice("firewall")


def test_multicast_of_one_family_that_is_kept_out(bare_computer):
    filter_packets(bare_computer, "input ip6 nexthdr udp udp dport 5353 drop")
    found = doctor(bare_computer)
    found.expect("multicast", WARN, "IPv6 multicast DNS is sent on eth0, but nothing arrives")


def test_a_filter_that_drops_all_but_what_is_allowed(bare_computer):
    bare_computer.run("nft", "add", "table", "inet", "broken")
    chain = "{ type filter hook input priority 0; policy drop; }"
    bare_computer.run("nft", f"add chain inet broken input {chain}")
    found = doctor(bare_computer)
    found.expect("firewall", FAIL, "A packet filter is on and blocks multicast DNS")
    bare_computer.run("nft", "add rule inet broken input udp dport 5353 accept")
    found = doctor(bare_computer)
    found.expect("firewall", OK, "No firewall on this computer blocks multicast DNS")
    found.expect("multicast", OK, "works on eth0")


def test_multicast_that_is_kept_in(bare_computer):
    filter_packets(bare_computer, "output udp dport 5353 drop")
    found = doctor(bare_computer)
    found.expect("multicast", FAIL, "cannot be sent on eth0 (Operation not permitted)")
    assert "drops outgoing" in found.advice("multicast")


def test_multicast_that_is_turned_off(bare_computer):
    bare_computer.run("ip", "link", "set", "eth0", "multicast", "off")
    doctor(bare_computer).expect("multicast", WARN, "eth0 has multicast turned off")


def test_hosts_that_are_kept_apart(lan, bare_computer):
    other = lan.host("other")
    bare_computer.run(
        *["ip", "neigh", "replace", other.address4, "lladdr", "02:00:00:00:00:99"],
        *["dev", "eth0", "nud", "permanent"],
    )
    found = doctor(bare_computer)
    found.expect("other-hosts", WARN, "1 other host on the network did not answer")
    assert "client isolation" in found.advice("other-hosts")


def test_a_computer_that_is_alone(bare_computer):
    doctor(bare_computer).expect("other-hosts", WARN, "alone on its network")


def test_a_vpn_that_takes_all_traffic(bare_computer):
    bare_computer.run("ip", "tuntap", "add", "tun0", "mode", "tun")
    bare_computer.run("ip", "addr", "add", "10.8.0.2/24", "dev", "tun0")
    # With somebody at its other end, or it has no carrier.
    script = (
        "import fcntl, struct, sys; f = open('/dev/net/tun', 'rb+', 0);"
        "fcntl.ioctl(f, 0x400454ca, struct.pack('16sH', b'tun0', 0x1001));"
    )
    stand_in(bare_computer, script, "the tunnel")
    bare_computer.run("ip", "link", "set", "tun0", "up")
    doctor(bare_computer).expect("vpn", OK, "No VPN")
    bare_computer.run("ip", "route", "add", "default", "dev", "tun0")
    found = doctor(bare_computer)
    found.expect("vpn", WARN, "The VPN tun0 carries all traffic")
    found.expect("interfaces", OK, "tun0 (VPN)")


def test_a_phone_whose_network_a_vpn_includes(bare_computer, phone):
    """The relay reaches it past the VPN, and so does the doctor."""
    phone.announce(addresses=[phone.address4])
    bare_computer.run("ip", "link", "add", "vpn0", "type", "veth", "peer", "name", "vpn1")
    bare_computer.run("ip", "link", "set", "vpn1", "up")
    bare_computer.run("ip", "link", "set", "vpn0", "up")
    bare_computer.run("ip", "route", "add", f"{phone.address4}/32", "dev", "vpn0")
    found = doctor(bare_computer)
    found.expect("phones", OK, f'"Quillbox Office" at {phone.address4}, port 4445, accepts')


# ---- firewalls that programs manage ----


def test_ufw(bare_computer):
    folder = os.path.join(bare_computer.folder, "etc-ufw")
    os.makedirs(folder)
    with open(os.path.join(folder, "ufw.conf"), "w", encoding="utf-8") as file:
        file.write("# made by ufw\nENABLED=yes\nLOGLEVEL=low\n")
    # An overlay of /etc would hide what else is mounted there.
    bare_computer.run(
        # An ordinary user cannot read all of /etc; the program needs none of the rest.
        "sh", "-c", 'mkdir -p /run/etc/ufw; cp -a /etc/. /run/etc/ 2>/dev/null; '
        'cp "$1/ufw.conf" /run/etc/ufw/ && mount --bind /run/etc /etc', "sh", folder
    )
    doctor(bare_computer).expect("firewall", OK, "ufw is on and allows multicast DNS")
    filter_packets(bare_computer, "input udp dport 5353 drop")
    found = doctor(bare_computer)
    found.expect("firewall", FAIL, "ufw is on and blocks multicast DNS")
    assert "'sudo ufw allow 5353/udp'" in found.advice("multicast")


def test_firewalld(bare_computer):
    bare_computer.start_bus()
    name = "org.fedoraproject.FirewallD1"
    script = (
        "from gi.repository import Gio, GLib;"
        f"Gio.bus_own_name(Gio.BusType.SYSTEM, '{name}', 0, None,"
        " lambda *_: print('ready', flush=True), None); GLib.MainLoop().run()"
    )
    bare_computer.start([PYTHON, "-c", script]).wait_line(
        lambda line: line.text == "ready", 10, what="firewalld"
    )
    filter_packets(bare_computer, "input udp dport 5353 drop")
    found = doctor(bare_computer)
    found.expect("firewall", FAIL, "firewalld is on and blocks multicast DNS")
    assert "--add-service=mdns" in found.advice("firewall")


def test_an_ordinary_user(bare_computer):
    """Nothing that the doctor looks at needs other rights."""
    filter_packets(bare_computer, "input udp dport 5353 drop")
    done = bare_computer.run(
        *[*AS_NOBODY, bare_computer.shared_program(), "doctor", "--json"],
        env=bare_computer.environment(XDG_RUNTIME_DIR="/nonexistent"),
        check=False,
        timeout=limit(20),
    )
    found = Diagnosis(done, 0)
    found.expect("firewall", FAIL, "A packet filter is on and blocks multicast DNS")


# ---- DNS-SD engine ----


def test_the_daemon_and_its_absence(bare_computer):
    found = doctor(bare_computer)
    found.expect("dns-sd", WARN, "avahi-daemon is not running")
    bare_computer.start_bus()
    doctor(bare_computer).expect("dns-sd", WARN, "avahi-daemon is not running")
    bare_computer.start_avahi()
    found = doctor(bare_computer)
    found.expect("dns-sd", OK, "avahi 0.8 is running as computer.local")


def test_a_bus_that_says_nothing(bare_computer):
    """It accepts connections and never answers: the doctor still finishes."""
    script = (
        "import socket, sys; s = socket.socket(socket.AF_UNIX);"
        "s.bind('/run/dbus/system_bus_socket'); s.listen(64);"
    )
    stand_in(bare_computer, script, "the bus")
    found = doctor(bare_computer, DBUS_SESSION_BUS_ADDRESS="unix:path=/run/dbus/system_bus_socket")
    found.expect("dns-sd", WARN, "does not answer")
    found.expect("firewall", WARN, "Could not determine whether firewalld is running")
    found.expect("multicast", OK, "works on eth0")
    assert found.seconds < limit(6.5)
    # Nothing of it stays behind.
    wait_until(lambda: bare_computer.helper_processes() == [], limit(5), "its end")


def test_a_port_that_is_shared(bare_computer):
    held = bare_computer.socket(kind=socket.SOCK_DGRAM)
    held.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    held.bind(("0.0.0.0", 5353))
    try:
        doctor(bare_computer).expect("multicast", OK, "works on eth0")
    finally:
        held.close()


def test_a_port_that_is_kept(bare_computer):
    held = bare_computer.socket(kind=socket.SOCK_DGRAM)
    held.bind(("0.0.0.0", 5353))
    try:
        found = doctor(bare_computer)
        found.expect("multicast", WARN, "Cannot listen on UDP 5353 on eth0 with IPv4")
        assert "'sudo ss -ulnp" in found.advice("multicast")
    finally:
        held.close()


# ---- phones ----


def test_a_phone_that_refuses(computer, lan):
    lan.host("phone", of=Phone).announce()
    found = doctor(computer)
    found.expect("phones", FAIL, "port 4445, refuses connections")
    assert "turn sharing on" in found.advice("phones")


def test_a_phone_behind_a_filter(computer, phone):
    phone.announce()
    filter_packets(phone, "input tcp dport 4445 drop")
    found = doctor(computer)
    found.expect("phones", FAIL, "port 4445, does not answer")
    assert found.seconds < limit(6)


def test_a_phone_of_another_name_and_a_hostile_one(computer, lan):
    lan.host("first", of=Phone).announce("Attic")
    lan.host("second", of=Phone).announce("Quillbox \u009b2J\u202e")
    found = doctor(computer)
    found.expect("phones", WARN, '"Attic" is not shown')
    found.expect("phones", FAIL, '"Quillbox \u009b2J\u202e" at ')
    plain = computer.run(
        PROGRAM, "doctor", env=computer.environment(), check=False, timeout=limit(20)
    )
    assert plain.returncode == 1
    assert '"Quillbox \ufffd2J\ufffd" at ' in plain.stdout
    assert not set(plain.stdout) & {"\u202e", "\u009b", "\x1b"}


def test_no_phone(computer):
    computer.helper().wait_status(LOOKING)
    found = doctor(computer)
    found.expect("phones", FAIL, "No phone was found")
    found.expect("running-copy", WARN, "its status is: Looking for Quillbox on this network…")


def test_no_phone_that_is_missed(bare_computer):
    bare_computer.manual_helper("192.0.2.7", 4445).wait_status(
        "ready: Quillbox is visible in Finder"
    )
    doctor(bare_computer).expect("phones", WARN, "a manually entered address")


# ---- the desktop ----


@pytest.fixture
def desktop(lan):
    return lan.host("desktop", of=Desktop)


def hide(computer, pattern):
    """Empties the folders that match the pattern; the machine may or may not have them."""
    for folder in glob.glob(pattern):
        computer.run("mount", "-t", "tmpfs", "tmpfs", folder)


def test_no_file_browser_for_shares(bare_computer):
    hide(bare_computer, "/usr/lib*/*/qt[56]/plugins/kf[56]/kio")  # of kio-extras
    hide(bare_computer, "/usr/lib*/*/plugins/kf[56]/kio")
    doctor(bare_computer).expect("file-browser", OK, "GVfs can open SMB shares")
    hide(bare_computer, "/usr/share/gvfs")
    found = doctor(bare_computer)
    found.expect("file-browser", WARN, "No file manager here")
    assert "gvfs-backends" in found.advice("file-browser")
    doctor(bare_computer, DISPLAY=":7").expect("file-browser", FAIL, "No file manager here")


def test_names_of_multicast_dns(bare_computer):
    bare_computer.start_bus()
    bare_computer.start_avahi()
    bare_computer.set_name_service("files dns")
    for environment, result in (({}, WARN), ({"DISPLAY": ":7"}, FAIL)):
        found = doctor(bare_computer, **environment)
        found.expect("host-names", result, "are not resolved by multicast DNS")
        assert "libnss-mdns" in found.advice("host-names")
    bare_computer.set_name_service(MULTICAST_NAMES)
    doctor(bare_computer).expect("host-names", OK, "computer.local is resolved by multicast DNS")


def test_names_that_are_set_and_not_found(bare_computer):
    bare_computer.start_bus()
    bare_computer.start_avahi()
    bare_computer.set_name_service(MULTICAST_NAMES)
    # The module asks by this socket.
    bare_computer.run("rm", "/run/avahi-daemon/socket")
    doctor(bare_computer).expect("host-names", WARN, "cannot be resolved")


def test_names_that_take_long_without_a_dns_server(bare_computer):
    bare_computer.start_bus()
    bare_computer.start_avahi()
    bare_computer.set_name_service(MULTICAST_NAMES, "unreachable")
    doctor(bare_computer).expect("host-names", WARN, "no DNS server answers")


def test_names_that_systemd_resolved_is_asked_for(bare_computer):
    bare_computer.start_bus()
    bare_computer.start_avahi()
    bare_computer.set_name_service("files resolve [!UNAVAIL=return] dns")
    found = doctor(bare_computer)
    found.expect("host-names", WARN, "systemd-resolved does not resolve")
    assert "before 'resolve'" in found.advice("host-names")


def test_a_desktop_that_shows_status_icons(desktop):
    desktop.log_in()
    doctor(desktop).expect("status-icon", OK, "The desktop shows status icons")


def test_a_desktop_that_shows_none(bare_computer):
    screen = bare_computer.start(SCREEN)
    screen.wait_line(lambda line: line.text.isdigit(), 20, what="the screen")
    found = doctor(bare_computer, DISPLAY=":1")
    found.expect("status-icon", WARN, "The desktop shows no status icons")
    assert "appindicator" in found.advice("status-icon")


def test_a_desktop_with_a_tray(bare_computer):
    screen = bare_computer.start(SCREEN)
    screen.wait_line(lambda line: line.text.isdigit(), 20, what="the screen")
    bare_computer.start(["trayer"], env=bare_computer.environment(DISPLAY=":1"))
    wait_until(
        lambda: doctor(bare_computer, DISPLAY=":1").says("status-icon", OK, "shows status icons"),
        limit(20),
        "the tray",
    )


def test_a_copy_that_is_stuck(bare_computer):
    helper = bare_computer.helper()
    helper.wait_status(LOOKING)
    helper.process.signal(signal.SIGSTOP)
    try:
        found = doctor(bare_computer)
    finally:
        helper.process.signal(signal.SIGCONT)
    found.expect("running-copy", FAIL, "does not answer")
    assert found.seconds < limit(6)
