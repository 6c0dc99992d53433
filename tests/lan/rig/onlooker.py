"""Independent observers: what other computers on the network see."""

import json
import os
import re

from .network import TYPE_SMB, Host

PYTHON = "/usr/bin/python3"
HERE = os.path.dirname(os.path.abspath(__file__))


class Onlooker(Host):
    """Browses for `_smb._tcp` with python-zeroconf once `watch` is called."""

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        self._watcher = None

    def watch(self, kind=TYPE_SMB):
        self._watcher = self.start_quickly(f"{HERE}/watch.py", kind)
        self.wait("watching", "", 10)

    def mark(self):
        return self._watcher.mark()

    def wait(self, event, name, timeout, since=0, accepts=lambda seen: True):
        """Waits for the first report of `event` for the service `name`; fails on timeout."""

        def wanted(line):
            if line.stream != "stdout" or not line.text.startswith("{"):
                return False
            seen = json.loads(line.text)
            return seen["event"] == event and seen["name"] == name and accepts(seen)

        line = self._watcher.wait_line(wanted, timeout, since, f"{event} {name!r}")
        return json.loads(line.text)

    def events(self, event, since=0):
        """The reports of `event` so far, in order."""
        lines = [json.loads(x.text) for x in self._watcher.lines[since:] if x.stream == "stdout"]
        return [seen for seen in lines if seen["event"] == event]


def avahi_services(host, kind=TYPE_SMB):
    """What avahi-browse finds on a host with avahi-daemon: a set of (name, host, address, port)."""
    done = host.run("avahi-browse", "--resolve", "--parsable", "--terminate", kind, timeout=20)
    found = set()
    for line in done.stdout.splitlines():
        fields = line.split(";")
        if fields[0] == "=":
            found.add((unescaped(fields[3]), fields[6], fields[7], int(fields[8])))
    return found


def unescaped(text):
    """Decodes the \\DDD and \\X escapes of avahi-browse's parsable output."""
    raw = re.sub(
        rb"\\(\d{3}|.)",
        lambda m: bytes([int(m[1])]) if len(m[1]) == 3 else m[1],
        text.encode("utf-8"),
    )
    return raw.decode("utf-8")
