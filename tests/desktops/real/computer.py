"""The user's computer with a real Debian: a host of the test network whose programs run in an overlay of
a kept system."""

import os
import signal
import shutil

from debian_root import mount_overlay
from rig.network import Host
from rig.process import Process, limit, run

from .releases import UID, USER
from .session import Session

HERE = os.path.dirname(os.path.abspath(__file__))
RUNTIME = f"/run/user/{UID}"
HOSTS = "hosts: files {mdns}dns\n"
MDNS = "mdns4_minimal [NOTFOUND=return] "


class RealComputer(Host):
    """Root's commands (`run`, `start`) and those of the user (`Session`) run inside the system.
    `self.folder` has the same path inside and outside."""

    system = None  # set by the fixture: an Installed

    def __init__(self, lan, name, number):
        self.root = os.path.join(lan.folder, f"{name}-root")
        self.session = None
        # Before the host exists, so that both the tests and the host see it.
        mount_overlay(self.system.layers, f"{self.root}-changed", f"{self.root}-work", self.root)
        super().__init__(lan, name, number)
        os.chmod(lan.folder, 0o755)
        for path in (self.folder, "/tmp/.X11-unix"):
            os.makedirs(f"{self.root}{path}", exist_ok=True)
            os.makedirs(path, exist_ok=True)
        for path in ("/tmp", "/tmp/.X11-unix"):
            os.chmod(f"{self.root}{path}", 0o1777)
        for folder in ("/sys", "/dev", "/run", "/tmp/.X11-unix", self.folder):
            self.run_beside("mount", "--rbind", folder, f"{self.root}{folder}")
        self.run_beside("mount", "-t", "proc", "proc", f"{self.root}/proc")

    def inside(self, command):
        return ["/usr/sbin/chroot", self.root, *command]

    def run_beside(self, *command):
        """Runs a command in this host's network, with the files of the tests."""
        return run(command, popen=self.popen, env=self.environment())

    def start_beside(self, command, **more):
        process = Process(command, popen=self.popen, env=self.environment(**more))
        self._started.append(process)
        return process

    def write(self, path, text):
        """Writes a file of the system, as root."""
        with open(f"{self.root}{path}", "w", encoding="utf-8") as file:
            file.write(text)

    def has(self, path):
        """Whether the system has this file."""
        return os.path.exists(f"{self.root}{path}")

    def boot(self, avahi=True, mdns_names=True, dns_server=True):
        """Starts what a computer runs before anybody logs in: the system bus and, if there is one,
        avahi-daemon. With `mdns_names`, libnss-mdns resolves .local names."""
        nsswitch = "passwd: files\ngroup: files\n" + HOSTS.format(mdns=MDNS if mdns_names else "")
        self.write("/etc/nsswitch.conf", nsswitch)
        self.write("/etc/hostname", f"{self.name}\n")
        self.write("/etc/hosts", f"127.0.0.1 localhost\n127.0.1.1 {self.name}\n")
        self.write("/etc/resolv.conf", "nameserver 127.0.0.53\n")
        if dns_server:
            server = self.start(["python3", self.share_file("../../lan/rig/name_server.py")])
            server.wait_line(lambda line: line.text == "ready", limit(20), what="the DNS server")
        self.start_bus()
        if avahi:
            self.start_avahi()

    def share_file(self, name):
        """Makes a file of this folder readable inside; returns its path there."""
        os.makedirs(f"{self.folder}/parts", exist_ok=True)
        return shutil.copy(os.path.join(HERE, name), f"{self.folder}/parts")

    def log_in(self, *arguments, **more):
        """Logs the user in; returns the session. Arguments as those of Session."""
        self.run("install", "-d", "-m", "700", "-o", USER, "-g", USER, RUNTIME)
        self.session = Session(self, *arguments, **more)
        return self.session

    def close(self):
        if self.session is not None:
            self.session.close()
        # Those that D-Bus activation started are nobody's child.
        mine = os.readlink(f"/proc/{self.pid}/ns/net")
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.readlink(f"/proc/{entry}/ns/net") == mine and int(entry) != self.pid:
                    os.kill(int(entry), signal.SIGKILL)
            except OSError:
                continue
        super().close()
        run(["umount", "--lazy", self.root])
