"""Runs in a host: announces many services of one type at once, and watches for those of another.

Orders on standard input, a JSON object a line: {"names": [...], "type": ..., "host": ..., "address":
..., "port": ...} announces, with "ttl": 0 says goodbye. Told on standard output: the moment at which
an order was done, after {"await": TYPE} that of the first question for the type, and after {"watch": TYPE, "count": N} the moment at which so many services of the
type are known, with their ports. It answers no questions: the records live long enough.
"""

import json
import os
import select
import sys
import time

import mdns

# Packets sent in a row; what receives them must find room in its socket.
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
    """The services of a type that are announced at present."""

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
    """Hears what others say, and tells what it was told to listen for."""

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
    """The whole lines of a text as orders, and what is left of it."""
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
            # Past Python's buffer, in which select would not see a second line.
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
