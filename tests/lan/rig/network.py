"""Hosts and the network between them."""

import functools
import os
import shutil
import socket
import tempfile

import pytest

from .namespaces import CLONE_NEWNET, CLONE_NEWNS, CLONE_NEWUTS, Namespaces, set_up_machine
from .nursery import Nursery
from .process import Process, run

TYPE_SMB = "_smb._tcp"
TYPE_PHONE = "_quillbox._tcp"

# In /run, and so each host's own.
SESSION_BUS = "unix:path=/run/user/0/bus"

IP_BATCH = ["ip", "-batch", "-"]

SANITIZER_OPTIONS = {x: os.environ[x] for x in os.environ if x.endswith("SAN_OPTIONS")}

# Set by ./dev test where it cannot create namespaces: the reason, and what to do about it.
NO_NAMESPACES = os.environ.get("QUILLBOX_NO_NAMESPACES")

def may_set_groups():
    """Whether setgroups(2) is allowed; an unprivileged user's namespace forbids it."""
    with open("/proc/self/setgroups", encoding="ascii") as file:
        return file.read().strip() == "allow"


def _has_user(uid):
    """Whether the user id exists in this user namespace (user_namespaces(7))."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        ranges = [[int(x) for x in line.split()] for line in file]
    return any(first <= uid < first + count for first, _, count in ranges)


# A user without privileges. An ordinary user's namespace has no other user than root: without
# capabilities, this root may do no more than the ordinary user.
NOBODY = 65534 if _has_user(65534) else 0
AS_NOBODY = ["setpriv", "--bounding-set=-all", "--inh-caps=-all", "--no-new-privs"]
if NOBODY:
    AS_NOBODY += [f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
AS_NOBODY += ["--"]


@functools.cache
def nursery():
    """That of this process."""
    return Nursery()


class Host:
    """A separate machine: its processes see only its own network interfaces and its own /run."""

    def __init__(self, lan, name, number):
        self.lan = lan
        self.name = name
        self.number = number
        self.folder = os.path.join(lan.folder, name)
        os.makedirs(self.folder)
        self._started = []
        self._namespaces = Namespaces(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS)
        self._namespaces.call(set_up_machine, name)
        self.pid = self._namespaces.pid
        self.port_name = f"port{number}"
        self.address4 = f"10.77.0.{number}"
        self.address6 = f"fd77::{number}"
        self.bus = None
        self.avahi = None

    def inside(self, command):
        """The command line that `popen` gets to run `command` in this host."""
        return command

    def popen(self, command, **more):
        """Starts a process in the namespaces of this host."""
        return self._namespaces.popen(command, **more)

    def environment(self, **more):
        env = {
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "LC_ALL": "C.UTF-8",
            "HOME": os.path.join(self.folder, "home"),
            "XDG_CONFIG_HOME": os.path.join(self.folder, "config"),
            "XDG_RUNTIME_DIR": "/run/user/0",
            "PYTHONDONTWRITEBYTECODE": "1",
        }
        return env | SANITIZER_OPTIONS | more

    def start(self, command, env=None, **more):
        """Starts a process in this host; `close` ends it at the latest."""
        env = env or self.environment()
        process = Process(self.inside(command), env=env, popen=self.popen, **more)
        self._started.append(process)
        return process

    def start_quickly(self, program, *arguments):
        """Starts a Python program that uses python-zeroconf or GLib in this host."""
        process = nursery().start(self.pid, self.environment(), program, *arguments)
        self._started.append(Process([program, *arguments], process=process))
        return self._started[-1]

    def run(self, *command, **more):
        env = more.pop("env", None) or self.environment()
        return run(self.inside(command), env=env, popen=self.popen, **more)

    def socket(self, family=socket.AF_INET, kind=socket.SOCK_STREAM):
        """A socket in this host, for use by the test itself."""
        return self._namespaces.call(socket.socket, family, kind)

    # ---- the wire ----

    def plug(self, address4=None, address6=None):
        """Connects the host's eth0 to the network's bridge and assigns its addresses."""
        self.address4 = address4 or self.address4
        self.address6 = address6 or self.address6
        self.lan.connect(self)
        # nodad: duplicate address detection would keep the addresses tentative for seconds.
        self.ip(
            "link set eth0 addrgenmode none",
            "link set eth0 up",
            f"addr add {self.address4}/24 dev eth0",
            f"addr add {self.address6}/64 dev eth0 nodad",
            f"addr add fe80::{self.number}/64 dev eth0 nodad",
        )

    def ip(self, *commands):
        """Runs commands of ip(8) in this host, in one process."""
        self.run(*IP_BATCH, input="\n".join(commands).encode())

    def unplug(self):
        """Deletes the interface."""
        self.run("ip", "link", "del", "eth0")

    def move(self, address4, address6):
        """Changes the host's addresses, as a new DHCP lease does."""
        self.run("ip", "addr", "del", f"{self.address4}/24", "dev", "eth0")
        self.run("ip", "addr", "del", f"{self.address6}/64", "dev", "eth0")
        self.address4, self.address6 = address4, address6
        self.run("ip", "addr", "add", f"{address4}/24", "dev", "eth0")
        self.run("ip", "addr", "add", f"{address6}/64", "dev", "eth0", "nodad")

    def names(self, hosts):
        """Gives the host its own /etc/hosts."""
        path = os.path.join(self.folder, "hosts")
        with open(path, "w", encoding="utf-8") as file:
            file.write("127.0.0.1 localhost\n::1 localhost\n")
            for name, address in hosts.items():
                file.write(f"{address} {name}\n")
        self.run("mount", "--bind", path, "/etc/hosts")

    # ---- services of a host ----

    def start_bus(self):
        """Starts the system message bus at its usual address."""
        conf = os.path.join(self.folder, "bus.conf")
        with open(conf, "w", encoding="utf-8") as file:
            file.write(BUS_CONF)
        self.bus = self.start(
            ["dbus-daemon", f"--config-file={conf}", "--nofork", "--nopidfile", "--print-address"]
        )
        self.bus.wait_line(lambda line: line.text.startswith("unix:"), 10, what="the bus")

    def start_session_bus(self):
        """Starts a session bus at SESSION_BUS; D-Bus activation starts its services. Returns its
        process."""
        command = ["dbus-daemon", "--session", f"--address={SESSION_BUS}", "--nofork"]
        bus = self.start([*command, "--nopidfile", "--print-address"])
        bus.wait_line(lambda line: line.text.startswith("unix:"), 10, what="the session bus")
        return bus

    def start_avahi(self):
        """Starts the distribution's avahi-daemon without what namespaces forbid."""
        conf = os.path.join(self.folder, "avahi.conf")
        with open(conf, "w", encoding="utf-8") as file:
            file.write(AVAHI_CONF)
        if not may_set_groups():
            self._rename_root("avahi")
        self.avahi = self.start(
            ["avahi-daemon", "-f", conf, "--no-drop-root", "--no-rlimits", "--no-chroot"]
        )
        return self.avahi.wait_line(
            lambda line: "Server startup complete" in line.text, 20, what="avahi-daemon"
        )

    def _rename_root(self, user):
        """Makes `user` an alias of root, the only user in the namespace of an unprivileged user:
        avahi-daemon changes the owner of its folder to its own user."""
        for path, line in (
            ("/etc/passwd", f"{user}:x:0:0::/:/bin/sh\n"),
            ("/etc/group", f"{user}:x:0:\n"),
        ):
            with open(path, encoding="utf-8") as file:
                others = [x for x in file if not x.startswith(f"{user}:")]
            copy = os.path.join(self.folder, os.path.basename(path))
            with open(copy, "w", encoding="utf-8") as file:
                file.writelines([*others, line])
            self.run("mount", "--bind", copy, path)

    def kill_avahi(self):
        """Kills the daemon without a goodbye, and removes the pid file that it leaves behind."""
        self.avahi.process.kill()
        self.avahi.wait(10)
        self.run("rm", "-f", "/run/avahi-daemon/pid")

    def close(self):
        for process in reversed(self._started):
            process.end()
        self._namespaces.close()


def require_namespaces():
    """Skips the calling test where no namespaces can be created."""
    if NO_NAMESPACES:
        pytest.skip(NO_NAMESPACES)


class Lan:
    """One network segment: a bridge that floods multicast, and the hosts on it."""

    def __init__(self):
        if os.geteuid() != 0:
            raise PermissionError("network namespaces need root, or a user namespace: see ./dev test")
        self.folder = tempfile.mkdtemp(prefix="quillbox-lan-")
        self._switch = Namespaces(CLONE_NEWNET)
        self._ip(
            "link add br0 type bridge mcast_snooping 0 forward_delay 0",
            "link set br0 up",
        )
        self.hosts = []

    def host(self, name, plugged=True, of=Host):
        host = of(self, name, len(self.hosts) + 2)
        self.hosts.append(host)
        if plugged:
            host.plug()
        return host

    def connect(self, host, link="eth0"):
        """Connects the host to the bridge with a veth pair, whose end at the host is `link`."""
        port = host.port_name if link == "eth0" else f"{host.port_name}-{link}"
        self._ip(
            f"link add {port} type veth peer name {link} netns {host.pid}",
            f"link set {port} master br0 up",
        )

    def cut(self, host):
        """Takes the host's link down at the bridge: the other hosts see silence, no link change."""
        self._ip(f"link set {host.port_name} down")

    def mend(self, host):
        """Undoes `cut`."""
        self._ip(f"link set {host.port_name} up")

    def _ip(self, *commands):
        """Runs commands of ip(8) at the bridge, in one process."""
        run(IP_BATCH, popen=self._switch.popen, input="\n".join(commands).encode())

    def close(self):
        for host in reversed(self.hosts):
            host.close()
        self._switch.close()
        shutil.rmtree(self.folder, ignore_errors=True)


BUS_CONF = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""

AVAHI_CONF = """[server]
use-ipv4=yes
use-ipv6=yes
ratelimit-interval-usec=1000000
ratelimit-burst=1000
[wide-area]
enable-wide-area=no
[publish]
publish-workstation=no
"""
