"""The places where relays are measured: over the network, and within one host."""

import json

from relays import FILES_PORT, PHONES
from wire import LOAD, LOAD_PORT, Desk, Station


class Place:
    """A host with clients and relays, and the phone's servers behind them.

    `phones` says whether the program discovers phones or runs in manual mode."""

    def __init__(self, wire, name):
        self.wire = wire
        self.name = name
        self.phones = False

    def load(self, what, relay, **options):
        """Starts a load client through a relay."""
        command = [LOAD, what, f"--to={relay.address()}", f"--port={relay.port(LOAD_PORT)}"]
        command += [f"--{name.replace('_', '-')}={value}" for name, value in options.items()]
        return self.host.start(command, stdin=True)

    def measure(self, what, relay, **options):
        """Runs a load client to its end; returns its result."""
        client = self.load(what, relay, **options)
        return result_of(client, float(options.get("seconds", 0)) + 90)

    def listens(self, port):
        return self.host.run("ss", "-Hltn", f"sport = :{port}").stdout != ""

    def wait_service(self, name, since):
        return self.onlooker.wait("resolved", name, 20, since)

    def wait_withdrawal(self, name, since):
        return self.onlooker.wait("removed", name, 20, since)

    def mark(self):
        return self.onlooker.mark()

    def serve_load(self, host):
        server = host.start([LOAD, "serve", f"--port={LOAD_PORT}"])
        server.wait_line(lambda line: "listening" in line.text, 10, what="the load's server")


class WirePlace(Place):
    """The phone is another host on the network, as in real use."""

    def __init__(self, wire):
        super().__init__(wire, "network")
        self.phones = True
        self.phone = self.onlooker = wire.host("phone", of=Station)
        self.host = wire.host("computer", of=Desk)
        wire.join(self.phone, self.host)
        self.upstream_address = self.phone.address4
        self.relay_address = self.host.address4
        self.upstream_ports = [LOAD_PORT, FILES_PORT]
        self.serve_load(self.phone)
        # The phone's files are in memory, so that no disk is measured.
        self.phone.run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", self.phone.share)
        self.phone.serve(FILES_PORT)
        self.phone.watch()
        for port, name in PHONES.items():
            self.phone.announce(name, port=port)


class LoopbackPlace(Place):
    """Everything within one host without a network."""

    def __init__(self, wire):
        super().__init__(wire, "loopback")
        self.host = self.onlooker = wire.host("alone", of=LonelyDesk)
        self.upstream_address = self.relay_address = "127.0.0.1"
        self.upstream_ports = [LOAD_PORT]
        self.serve_load(self.host)
        self.host.watch()


class LonelyDesk(Desk, Station):
    """A computer that observes its own announcements."""


def result_of(client, timeout):
    """Waits for a load client to end; returns the JSON that it prints."""
    code = client.wait(timeout)
    if code != 0:
        raise AssertionError(f"{client.command[-5:]} ended with {code}:\n{client.output()}")
    return json.loads(client.output("stdout"))
