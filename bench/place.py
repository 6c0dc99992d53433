"""The places where relays are measured: over the network, and within one host."""

import contextlib
import json

import costs
from relays import FILES_PORT, PHONES
from rig.process import OutputEnded
from wire import LOAD, LOAD_PORT, Desk, Station


class Place:
    """A host with clients and relays, and the phone's servers behind them.

    `phones` says whether the program discovers phones or runs in manual mode."""

    def __init__(self, wire, name):
        self.wire = wire
        self.name = name
        self.phones = False
        self.server = None
        self.clients_on = ()  # the processors of load clients, if they are restricted

    def load(self, what, relay, **options):
        """Starts a load client through a relay."""
        command = [LOAD, what, f"--to={relay.address()}", f"--port={relay.port(LOAD_PORT)}"]
        command += [f"--{name.replace('_', '-')}={value}" for name, value in options.items()]
        if self.clients_on:
            command = ["taskset", "--cpu-list", ",".join(map(str, self.clients_on)), *command]
        return self.host.start(command, stdin=True)

    def transfer(self, direction, relay, streams, seconds, pace=0):
        """A connected transfer; `pace` is the bytes per second of all streams, 0 the most possible."""
        options = {"streams": streams, "seconds": seconds, "pace": int(pace)}
        return Transfer(self.load(direction, relay, **options), seconds)

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
        self.server = host.start([LOAD, "serve", f"--port={LOAD_PORT}"])
        self.server.wait_line(lambda line: "listening" in line.text, 10, what="the load's server")

    @contextlib.contextmanager
    def pinned(self, relays, relays_on, clients_on, server_on):
        """Restricts all of them to these processors for as long as the context lasts."""
        pids = [pid for relay in relays for pid in relay.pids()]
        before = [(pid, costs.processors(pid)) for pid in (*pids, self.server.pid)]
        for pid in pids:
            costs.pin(pid, relays_on)
        costs.pin(self.server.pid, server_on)
        self.clients_on = clients_on
        try:
            yield
        finally:
            self.clients_on = ()
            for pid, processors in before:
                costs.pin(pid, processors)


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


    @contextlib.contextmanager
    def slow_phone(self, megabits):
        """Lets the phone send at this speed only. TCP hands over bursts of at most 64 KiB, each of
        which waits until its bytes may be sent; so they arrive about as aggregates do."""
        limit = ["tbf", "rate", f"{megabits}mbit", "burst", "120kb", "latency", "50ms"]
        self.phone.run("tc", "qdisc", "add", "dev", "eth0", "root", *limit)
        try:
            yield
        finally:
            self.phone.run("tc", "qdisc", "del", "dev", "eth0", "root")


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


class Transfer:
    """A client that connects, starts when it is told to, and stays connected after its result.

    It prints a line of JSON when it is connected and one with its result, starts at a line of
    standard input, and ends with standard input."""

    # Relays that are busy with thousands of sessions make connections wait.
    PATIENCE = 90

    def __init__(self, client, seconds):
        self._client = client
        self._timeout = seconds + self.PATIENCE
        self._started = None
        client.wait_line(lambda line: "connected" in line.text, self.PATIENCE, what="connections")

    def start(self):
        self._started = self._client.mark()
        self._client.write("start\n")

    def is_done(self, within):
        """Whether there is a result within so many seconds."""
        try:
            self._result_line(within)
        except OutputEnded:
            raise
        except AssertionError:
            return False
        return True

    def result(self):
        """Waits for the result; the connections are still open."""
        found = json.loads(self._result_line(self._timeout).text)
        if found["bytes"] == 0:
            raise AssertionError("nothing came through in the time that there was")
        return found

    def _result_line(self, timeout):
        return self._client.wait_line(
            lambda line: "bytes" in line.text, timeout, self._started, "a result"
        )

    def end(self):
        self._client.process.stdin.close()
        code = self._client.wait(self.PATIENCE)
        if code != 0:
            raise AssertionError(f"a client ended with {code}:\n{self._client.output()}")


def speed_of(result):
    """Bytes per second."""
    return result["bytes"] / result["seconds"]


def result_of(client, timeout):
    """Waits for a load client to end; returns the JSON that it prints."""
    code = client.wait(timeout)
    if code != 0:
        raise AssertionError(f"{client.command[-5:]} ended with {code}:\n{client.output()}")
    return json.loads(client.output("stdout"))
