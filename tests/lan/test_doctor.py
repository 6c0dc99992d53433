"""What the doctor says of a computer on which one thing after the other is broken for real."""

import contextlib
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


def doctor(computer, program=(PROGRAM,), **environment):
    start = time.monotonic()
    done = computer.run(
        *program,
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


def test_a_phone_whose_way_is_free(computer, engine, phone):
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


def test_a_wire_that_is_cut(bare_computer, bare_phone):
    bare_phone.announce()
    bare_computer.run("ip", "link", "set", "eth0", "down")
    doctor(bare_computer).expect("interfaces", FAIL, "No network interface")


def test_multicast_that_is_kept_out(computer, bare_phone):
    """An ordinary user is told as well: nothing that the doctor looks at needs other rights."""
    bare_phone.announce()
    filter_packets(computer, "input udp dport 5353 drop")
    program = [*AS_NOBODY, computer.shared_program()]
    found = doctor(computer, program=program, XDG_RUNTIME_DIR="/nonexistent")
    found.expect("multicast", FAIL, "is sent on eth0, but nothing arrives on UDP 5353")
    found.expect("firewall", FAIL, "A packet filter is on and blocks multicast DNS")
    assert "nft list ruleset" in found.advice("firewall")


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


# ---- DNS-SD engine ----


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


# ---- phones ----


def test_a_phone_behind_a_filter(computer, bare_phone):
    bare_phone.announce()
    filter_packets(bare_phone, "input tcp dport 4445 drop")
    found = doctor(computer)
    found.expect("phones", FAIL, "port 4445, does not answer")
    assert found.seconds < limit(6)


def test_a_phone_of_another_name_and_one_of_a_hostile_name_that_refuses(computer, lan):
    lan.host("first", of=Phone).announce("Attic")
    lan.host("second", of=Phone).announce("Quillbox \u009b2J\u202e")
    found = doctor(computer)
    found.expect("phones", WARN, '"Attic" is not shown')
    found.expect("phones", FAIL, '"Quillbox \u009b2J\u202e" at ')
    found.expect("phones", FAIL, "port 4445, refuses connections")
    assert "turn sharing on" in found.advice("phones")
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


# ---- checks that have nothing to do with each other ----

# Each of these functions changes one thing of a computer and returns what the doctor tells of it:
# check, result, text, and part of the advice if there is one. `undo` is for what is to be undone after
# the diagnosis. Several share a computer, because the doctor listens for three seconds.


def no_daemon(computer, undo):
    return "dns-sd", WARN, "avahi-daemon is not running"


def bus_without_daemon(computer, undo):
    computer.start_bus()
    return "dns-sd", WARN, "avahi-daemon is not running"


def daemon(computer, undo):
    computer.prepare("daemon")
    return "dns-sd", OK, "avahi 0.8 is running as computer.local"


def alone(computer, undo):
    return "other-hosts", WARN, "alone on its network"


def kept_apart(computer, undo):
    other = computer.lan.host("other")
    computer.run(
        *["ip", "neigh", "replace", other.address4, "lladdr", "02:00:00:00:00:99"],
        *["dev", "eth0", "nud", "permanent"],
    )
    return "other-hosts", WARN, "1 other host on the network did not answer", "client isolation"


def multicast_off(computer, undo):
    computer.run("ip", "link", "set", "eth0", "multicast", "off")
    return "multicast", WARN, "eth0 has multicast turned off"


def multicast_kept_in(computer, undo):
    filter_packets(computer, "output udp dport 5353 drop")
    return "multicast", FAIL, "cannot be sent on eth0 (Operation not permitted)", "drops outgoing"


def ipv6_multicast_kept_out(computer, undo):
    filter_packets(computer, "input ip6 nexthdr udp udp dport 5353 drop")
    return "multicast", WARN, "IPv6 multicast DNS is sent on eth0, but nothing arrives"


def hold_port(computer, undo, shared):
    held = undo.enter_context(computer.socket(kind=socket.SOCK_DGRAM))
    held.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, shared)
    held.bind(("0.0.0.0", 5353))


def port_shared(computer, undo):
    hold_port(computer, undo, shared=True)
    return "multicast", OK, "works on eth0"


def port_kept(computer, undo):
    hold_port(computer, undo, shared=False)
    return "multicast", WARN, "Cannot listen on UDP 5353 on eth0 with IPv4", "'sudo ss -ulnp"


def tunnel(computer, undo):
    computer.run("ip", "tuntap", "add", "tun0", "mode", "tun")
    computer.run("ip", "addr", "add", "10.8.0.2/24", "dev", "tun0")
    # With somebody at its other end, or it has no carrier.
    script = (
        "import fcntl, struct, sys; f = open('/dev/net/tun', 'rb+', 0);"
        "fcntl.ioctl(f, 0x400454ca, struct.pack('16sH', b'tun0', 0x1001));"
    )
    stand_in(computer, script, "the tunnel")
    computer.run("ip", "link", "set", "tun0", "up")
    return "vpn", OK, "No VPN"


def tunnel_for_all_traffic(computer, undo):
    tunnel(computer, undo)
    computer.run("ip", "route", "add", "default", "dev", "tun0")
    return "vpn", WARN, "The VPN tun0 carries all traffic"


def tunnel_as_interface(computer, undo):
    tunnel(computer, undo)
    return "interfaces", OK, "tun0 (VPN)"


def hide(computer, pattern):
    """Empties the folders that match the pattern; the machine may or may not have them."""
    for folder in glob.glob(pattern):
        computer.run("mount", "-t", "tmpfs", "tmpfs", folder)


def file_browser_of_gnome(computer, undo):
    hide(computer, "/usr/lib*/*/qt[56]/plugins/kf[56]/kio")  # of kio-extras
    hide(computer, "/usr/lib*/*/plugins/kf[56]/kio")
    return "file-browser", OK, "GVfs can open SMB shares"


def no_file_browser(computer, undo):
    file_browser_of_gnome(computer, undo)
    hide(computer, "/usr/share/gvfs")
    return "file-browser", WARN, "No file manager here", "gvfs-backends"


def no_file_browser_on_a_desktop(computer, undo):
    return on_a_desktop(no_file_browser(computer, undo))


def on_a_desktop(told):
    """What is only a warning on a computer that may have no screen."""
    return told[0], FAIL, *told[2:]


def names_found(computer, undo):
    computer.set_name_service(MULTICAST_NAMES)
    return "host-names", OK, "computer.local is resolved by multicast DNS"


def names_not_set(computer, undo):
    computer.set_name_service("files dns")
    return "host-names", WARN, "are not resolved by multicast DNS", "libnss-mdns"


def names_not_set_on_a_desktop(computer, undo):
    return on_a_desktop(names_not_set(computer, undo))


def names_set_and_not_found(computer, undo):
    computer.set_name_service(MULTICAST_NAMES)
    # The module asks by this socket.
    computer.run("rm", "/run/avahi-daemon/socket")
    return "host-names", WARN, "cannot be resolved"


def names_slow_without_a_dns_server(computer, undo):
    computer.set_name_service(MULTICAST_NAMES, "unreachable")
    return "host-names", WARN, "no DNS server answers"


def names_asked_of_resolved(computer, undo):
    """It does not run."""
    computer.set_name_service("files resolve [!UNAVAIL=return] dns")
    return "host-names", WARN, "systemd-resolved, which is asked", "before 'resolve'"


def manual_mode(computer, undo):
    helper = computer.manual_helper("192.0.2.7", 4445)
    helper.wait_status("ready: Quillbox is visible in Finder")
    return "phones", WARN, "a manually entered address"


def stuck_copy(computer, undo):
    helper = computer.helper()
    helper.wait_status(LOOKING)
    helper.process.signal(signal.SIGSTOP)
    undo.callback(helper.process.signal, signal.SIGCONT)
    return "running-copy", FAIL, "does not answer"


def screen_without_status_icons(computer, undo):
    screen = computer.start(SCREEN)
    screen.wait_line(lambda line: line.text.isdigit(), 20, what="the screen")
    return "status-icon", WARN, "The desktop shows no status icons", "appindicator"


WAIT_TRAY = """
import time, Xlib.display
display = Xlib.display.Display(":1")
while not display.get_selection_owner(display.intern_atom("_NET_SYSTEM_TRAY_S0")):
    time.sleep(0.05)
"""


def screen_with_tray(computer, undo):
    screen_without_status_icons(computer, undo)
    computer.start(["trayer"], env=computer.environment(DISPLAY=":1"))
    computer.run(PYTHON, "-c", WAIT_TRAY, timeout=limit(20))
    return "status-icon", OK, "The desktop shows status icons"


@pytest.mark.parametrize(
    "display, states",
    [
        (None, [daemon, names_found, file_browser_of_gnome, port_shared, tunnel, kept_apart]),
        (None, [daemon, names_not_set, no_file_browser, tunnel_for_all_traffic]),
        (":7", [daemon, names_not_set_on_a_desktop, no_file_browser_on_a_desktop]),
        (None, [daemon, names_set_and_not_found, stuck_copy, multicast_off]),
        (None, [daemon, names_slow_without_a_dns_server, manual_mode]),
        (None, [daemon, names_asked_of_resolved, multicast_kept_in]),
        (":1", [no_daemon, screen_without_status_icons, alone]),
        (":1", [bus_without_daemon, screen_with_tray, ipv6_multicast_kept_out]),
        (None, [port_kept, tunnel_as_interface]),
    ],
    ids=lambda value: ", ".join(x.__name__ for x in value) if isinstance(value, list) else str(value),
)
def test_each_check_tells_the_state_of_its_own(bare_computer, display, states):
    with contextlib.ExitStack() as undo:
        told = [state(bare_computer, undo) for state in states]
        found = doctor(bare_computer, **({"DISPLAY": display} if display else {}))
    for check, result, text, *advice in told:
        found.expect(check, result, text)
        for each in advice:
            assert each in found.advice(check)
    assert found.seconds < limit(6)


# ---- the desktop ----


@pytest.fixture
def desktop(lan):
    return lan.host("desktop", of=Desktop)


def test_a_desktop_that_shows_status_icons(desktop):
    desktop.log_in()
    doctor(desktop).expect("status-icon", OK, "The desktop shows status icons")
