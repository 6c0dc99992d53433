"""One run: the places and relays that the parts share, the rounds, and the progress output."""

import sys
import time

from figures import Book
from place import LoopbackPlace, WirePlace
from relays import RELAYS
from wire import Wire


class Plan:
    """How many rounds there are, and how long measurements take."""

    def __init__(self, quick, rounds=None, seconds=None):
        self.quick = quick
        self.rounds = rounds or (2 if quick else 5)
        self.seconds = seconds or (0.25 if quick else 0.5)

    def few(self, most=3):
        """The number of rounds for measurements that take long."""
        return min(self.rounds, most)

    def pick(self, full, quick):
        return quick if self.quick else full


class Run:
    """Creates places and relays on first use, and destroys them at the end."""

    def __init__(self, plan, kinds=RELAYS):
        self.plan = plan
        self.kinds = kinds
        self.book = Book()
        self.began = time.monotonic()
        self.desktops = {}  # by DNS-SD engine
        self._wire = None
        self._places = {}
        self._relays = {}
        self._made = []
        self._closing = []

    # ---- what is measured ----

    @property
    def wire(self):
        if self._wire is None:
            self._wire = Wire()
            self._closing.append(self._wire.close)
        return self._wire

    def place(self, name):
        """The place with that name, "network" or "loopback"."""
        if name not in self._places:
            kind = {"network": WirePlace, "loopback": LoopbackPlace}[name]
            self._places[name] = kind(self.wire)
        return self._places[name]

    def make(self, place, kinds):
        """New relays of these kinds, without those that are not to be measured; not started."""
        return [self.note(kind(place)) for kind in kinds if kind in self.kinds]

    def note(self, relay):
        """Registers a relay, so that `end_relays` stops it even if the part that made it fails."""
        self._made.append(relay)
        return relay

    def relays(self, place):
        """All relays of a place, running."""
        if place.name not in self._relays:
            made = self.make(place, RELAYS)
            self._relays[place.name] = made
            for relay in made:
                relay.start()
        return self._relays[place.name]

    def end_relays(self):
        """Ends all relays and programs, for parts that start their own."""
        made, self._made, self._relays = self._made, [], {}
        for relay in made:
            relay.stop()
        for place in self.desktops.values():
            place.host.end_helpers()

    def later(self, close):
        """Calls `close` at the end of the run, in reverse order of registration."""
        self._closing.append(close)

    def close(self):
        for close in reversed(self._closing):
            close()

    # ---- rounds ----

    def rounds(self, relays, what, count=None):
        """Yields each relay in turn, for `count` rounds. Each round starts with the next relay."""
        count = count or self.plan.rounds
        for number in range(count):
            self.progress(f"{what}, round {number + 1} of {count}")
            start = number % len(relays)
            yield from relays[start:] + relays[:start]

    def progress(self, text):
        passed = int(time.monotonic() - self.began)
        print(f"{passed // 60:2}:{passed % 60:02}  {text}", file=sys.stderr, flush=True)
