"""Hundreds of phones and other services, announced at once from one host."""

import json
import os

from .network import TYPE_PHONE

PYTHON = "/usr/bin/python3"
HERE = os.path.dirname(os.path.abspath(__file__))
FLOOD = os.path.join(HERE, "..", "..", "..", "bench", "mdns_flood.py")


class Crowd:
    """Announces and browses with raw packets: python-zeroconf takes seconds for that many."""

    def __init__(self, host, port):
        self.host = host
        self.port = port
        self.process = host.start([PYTHON, FLOOD, host.address4], stdin=True)

    def order(self, **what):
        since = self.process.mark()
        self.process.write(json.dumps(what) + "\n")
        return since

    def announce(self, names, **more):
        """Announces the names, or withdraws them with a `ttl` of 0; returns when all was sent."""
        where = {"host": self.host.name, "address": self.host.address4, "port": self.port}
        since = self.order(names=names, type=TYPE_PHONE, **where, **more)
        return self.wait("done", since)["at"]

    def watch(self, kind, count):
        """Starts counting services of a type, up to `count`; `wait` reports when all were seen."""
        return self.order(watch=kind, count=count)

    def wait(self, what, since):
        line = self.process.wait_line(lambda line: f'"{what}"' in line.text, 90, since, what)
        return json.loads(line.text)

    def end(self):
        self.process.end()
