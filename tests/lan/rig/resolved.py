"""A computer whose programs look up host names through systemd-resolved."""

import fcntl
import glob
import os
import re
import shutil
import subprocess

import pytest

from .computer import ROOT, Computer
from .desktop import Desktop
from .process import limit, wait_until

# As on systems that come with systemd-resolved and without libnss-mdns.
HOSTS = "files resolve [!UNAVAIL=return] dns"

CONFIGURATION = "/run/systemd/resolved.conf.d/test.conf"

# Its private library must be of the same version.
PACKAGES = ("systemd-resolved", "libsystemd-shared", "libnss-resolve")


def unpacked():
    """The folder with systemd-resolved, its library and its module for the name service, unpacked from
    the packages of this system at the first use. Their installation would change how the machine itself
    resolves names."""
    folder = os.path.join(ROOT, "build", "systemd-resolved")
    os.makedirs(os.path.dirname(folder), exist_ok=True)
    with open(f"{folder}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not os.path.isdir(folder):
            made = f"{folder}.part"
            shutil.rmtree(made, ignore_errors=True)
            os.makedirs(made)
            options = {"cwd": made, "check": True, "capture_output": True, "timeout": 120}
            # Its own user does not exist in a user namespace.
            fetch = ["apt-get", "--option=APT::Sandbox::User=root", "download"]
            try:
                subprocess.run([*fetch, *PACKAGES], **options)
                for name in os.listdir(made):
                    subprocess.run(["dpkg-deb", "--extract", name, "."], **options)
            except (OSError, subprocess.SubprocessError) as error:
                pytest.skip(f"the packages {', '.join(PACKAGES)} cannot be fetched: {error}")
            os.rename(made, folder)
    return folder


class WithResolved:
    """What is added to a computer. It has a system bus."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self._folder = unpacked()
        self.resolved = None

    def _path(self, name):
        """Where a file is: below lib or usr/lib, as the release has it."""
        (path,) = glob.glob(f"{self._folder}/**/{name}", recursive=True)
        return path

    def environment(self, **more):
        module = self._path("libnss_resolve.so.2")
        return super().environment(**({"LD_LIBRARY_PATH": os.path.dirname(module)} | more))

    def prepare(self, engine):
        super().prepare(engine)
        if self.bus is None:
            self.start_bus()

    def start_resolved(self, multicast):
        """Starts it with this value of MulticastDNS, for itself and for the interface."""
        if self.resolved is None:
            self._rename_root("systemd-resolve")
            self.set_name_service(HOSTS)
            self._provide("resolv.conf", "nameserver 127.0.0.53\n")
        text = f"[Resolve]\nMulticastDNS={multicast}\nLLMNR=no\nFallbackDNS=\n"
        self.run("install", "-D", "/dev/stdin", CONFIGURATION, input=text.encode())
        library = os.path.dirname(self._path("libsystemd-shared-*.so"))
        own = self.environment(LD_LIBRARY_PATH=library)
        self.resolved = self.start([self._path("systemd/systemd-resolved")], env=own)
        command = [self._path("bin/resolvectl"), "mdns", "eth0", multicast]
        wait_until(
            lambda: self.run(*command, check=False, env=own).returncode == 0,
            20,
            "systemd-resolved",
        )

    def resolved_version(self):
        """Like 252."""
        library = os.path.basename(self._path("libsystemd-shared-*.so"))
        return int(re.search(r"\d+", library)[0])

    def responders(self):
        """The programs that listen for multicast DNS; the kernel shortens their names."""
        shown = self.run("ss", "-ulnpH", "sport", "=", "5353").stdout
        return {line.partition('(("')[2].partition('"')[0] for line in shown.splitlines()}

    def found(self, name):
        """The IPv4 addresses that the name service has for a name."""
        done = self.run("getent", "ahostsv4", name, check=False, timeout=limit(30))
        return {line.split()[0] for line in done.stdout.splitlines()}


class ResolvedComputer(WithResolved, Computer):
    """Without a display."""


class ResolvedDesktop(WithResolved, Desktop):
    """With a desktop."""
