"""Runs in a host: announces many services of one type at once, and watches for those of another.

Orders are read from standard input, one JSON object per line, and answered on standard output.
{"names": [...], "type": ..., "host": ..., "address": ..., "port": ...} announces services, or
withdraws them with "ttl": 0; the answer has the time at which all was sent. {"await": TYPE} is
answered with the time of the first query for the type, {"watch": TYPE, "count": N} with the time at
which N services of the type are known, and their ports. Queries from the network are not answered:
the TTLs are long enough.
"""

import json
import os
import select
import sys
import time

import mdns

# Packets sent without a pause; they must fit into the receiver's socket buffer.
AT_ONCE = 20


def announce(link, order):
    records = []
    if order.get("ttl") != 0:
        records.append(mdns.address_record(order["host"], order["address"]))
    for name in order["names"]:
        records += mdns.service_records(
            name, order["type"], order["host"], order["port"], order.get("ttl")
        )
    for number, packet in enumerate(mdns.packets(records), 1):
        link.sendto(packet, (mdns.GROUP, mdns.PORT))
        if number % AT_ONCE == 0:
            time.sleep(0.005)


class Watch:
    """The services of a type that are currently announced."""

    def __init__(self, kind):
        self.kind = [*kind.split("."), "local"]
        self.pointers = set()
        self.ports = {}

    def take(self, packet):
        for kind, name, ttl, value in mdns.announced(packet):
            if kind == mdns.PTR and name == self.kind:
                (self.pointers.add if ttl else self.pointers.discard)(value[0])
            elif kind == mdns.SRV and name[1:] == self.kind and ttl:
                self.ports[name[0]] = value

    def known(self):
        return [self.ports[name] for name in self.pointers if name in self.ports]


def tell(**what):
    print(json.dumps({"at": time.monotonic(), **what}), flush=True)


class Listener:
    """Receives the packets of other hosts, and reports what was ordered."""

    def __init__(self):
        self.watch, self.count = None, None
        self.question = None

    def take(self, order):
        if "watch" in order:
            self.watch, self.count = Watch(order["watch"]), order["count"]
            self.tell_known()
        else:
            self.question = [*order["await"].split("."), "local"]

    def hear(self, packet):
        if self.question in mdns.asked(packet):
            self.question = None
            tell(asked=True)
        if self.watch:
            self.watch.take(packet)
            self.tell_known()

    def tell_known(self):
        known = self.watch.known()
        if len(known) == self.count:
            self.count = None
            tell(known=len(known), ports=known)


def orders_in(text):
    """The complete lines of a text as orders, and the rest of the text."""
    *lines, rest = text.split("\n")
    return [json.loads(line) for line in lines], rest


def main():
    link = mdns.open_socket(sys.argv[1])
    listener, text = Listener(), ""
    while True:
        ready = select.select([link, sys.stdin], [], [])[0]
        if link in ready:
            listener.hear(link.recv(65536))
        if sys.stdin in ready:
            # Unbuffered: select would not see a second line that is in Python's buffer.
            given = os.read(sys.stdin.fileno(), 1 << 20)
            if not given:
                return
            orders, text = orders_in(text + given.decode())
            for order in orders:
                if "names" in order:
                    announce(link, order)
                    tell(done=len(order["names"]))
                else:
                    listener.take(order)


main()
