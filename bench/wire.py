"""The network for measurements: a phone and a computer connected directly, and a host without one.

The hosts are those of the network tests, but their network interfaces are the two ends of one veth
pair: the cost of a bridge would be measured as well.
"""

import os
import resource
import shutil

from rig.computer import ENGINES, PROGRAM, Computer, Helper
from rig.network import Lan, may_set_groups
from rig.onlooker import Onlooker
from rig.phone import Phone
from rig.process import run

LOAD = os.path.join(os.path.dirname(PROGRAM), "quillbox-bench-load")
LOAD_PORT = 4000

# The same for direct connections and all relays: many ephemeral ports, and ports in TIME_WAIT may
# be reused.
SYSCTLS = {
    "ipv4/ip_local_port_range": "10000 65000",
    "ipv4/tcp_tw_reuse": "1",
    "ipv4/tcp_max_syn_backlog": "8192",
    "core/somaxconn": "8192",
}


class Station(Phone, Onlooker):
    """The phone, which also observes what the computer announces."""

    def stop_watching(self):
        self._watcher.end()

    def goodbye_to_all(self):
        """Withdraws all announcements at once."""
        self._announcer.end()
        self._announcer = None


class Desk(Computer):
    """The user's computer. If this process is really root, programs run as unprivileged users, as
    kernel limits such as that on pipe buffers do not apply to root."""

    ORDINARY = may_set_groups()
    FIRST_USER = 61000

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        self._users = {}
        self._passwd = os.path.join(self.folder, "passwd")
        if self.ORDINARY:
            shutil.copy("/etc/passwd", self._passwd)
            self.run("mount", "--bind", self._passwd, "/etc/passwd")

    def user(self, name):
        """The user id of the user with that name, who has a home and a runtime folder; created on
        first use."""
        if name not in self._users:
            number = self.FIRST_USER + len(self._users) if self.ORDINARY else os.getuid()
            self._users[name] = number
            os.makedirs(self.folder_of(name))
            os.chown(self.folder_of(name), number, number)
            if self.ORDINARY:
                with open(self._passwd, "a", encoding="utf-8") as file:
                    file.write(f"bench-{name}:x:{number}:{number}::{self.folder_of(name)}:/bin/sh\n")
            runtime = f"/run/user/{name}"
            self.run("install", "-d", "-m700", f"-o{number}", f"-g{number}", runtime)
        return self._users[name]

    def folder_of(self, name):
        return os.path.join(self.folder, "users", name)

    def user_environment(self, name, **more):
        folder = self.folder_of(name)
        return self.environment(
            HOME=folder,
            XDG_CONFIG_HOME=os.path.join(folder, "config"),
            XDG_RUNTIME_DIR=f"/run/user/{name}",
            **more,
        )

    def identity(self, name):
        """The command prefix that runs a command as the user with that name."""
        number = self.user(name)
        if not self.ORDINARY:
            return []
        return ["setpriv", f"--reuid={number}", f"--regid={number}", "--clear-groups", "--"]

    def start_as(self, name, command, **more):
        """Starts a process as the user with that name, with the highest limit of open files."""
        limit = ["prlimit", f"--nofile={most_descriptors()}"]
        command = limit + self.identity(name) + command
        return self.start(command, env=self.user_environment(name, **more))

    def helper_as(self, name, *arguments, **more):
        """Starts the program as that user; unlike in start_as, the limit of open files stays."""
        command = [*self.identity(name), self.lan.program, *arguments]
        helper = Helper(self.start(command, env=self.user_environment(name, **more)))
        self._helpers.append(helper)
        return helper

    def end_helpers(self):
        for helper in self._helpers:
            if helper.running():
                helper.stop()

    def write_settings_of(self, name, settings):
        """Writes that user's settings file."""
        self.user(name)
        self.settings_file = os.path.join(
            self.folder_of(name), "config", "org.quillbox.Helper", "settings.json"
        )
        self.write_settings(settings)
        if self.ORDINARY:
            number = self.user(name)
            run(["chown", "-R", f"{number}:{number}", self.folder_of(name)])


class Wire(Lan):
    """A network without a bridge, whose hosts are connected by `join`."""

    def __init__(self):
        super().__init__()
        # Unprivileged users run the program from here and have their homes here.
        os.chmod(self.folder, 0o755)
        self.program = os.path.join(self.folder, os.path.basename(PROGRAM))
        for program in (PROGRAM, *ENGINES):
            shutil.copy(program, self.folder)

    def host(self, name, plugged=False, of=Desk):
        host = super().host(name, plugged, of)
        tune(host)
        return host

    def connect(self, host):
        """Does nothing: `join` connects the hosts."""

    def join(self, one, other):
        """Connects two hosts with a veth pair."""
        ends = ["name", "eth0", "netns", str(one.pid), "type", "veth", "peer"]
        ends += ["name", "eth0", "netns", str(other.pid)]
        one.run("ip", "link", "add", *ends)
        one.plug()
        other.plug()


def tune(host):
    for name, value in SYSCTLS.items():
        host.run("sh", "-c", f"echo '{value}' >/proc/sys/net/{name}")


def most_descriptors():
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    return hard if hard != resource.RLIM_INFINITY else 1 << 20
