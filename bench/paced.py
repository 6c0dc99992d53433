"""The parts that measure transfers at the speeds of a phone's Wi-Fi: streams, and files over SMB."""

import os

from figures import Bar
from place import Transfer
from relays import FILES_PORT
from rig.phone import PASSWORD, USER
from transfers import DIRECTIONS, carried, streams_text

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"
MEGABIT = 125_000  # bytes
PACES = (100, 400, 800, 2500)  # Mbit/s

# On battery, for as long as a film is copied or watched.
CHEAPER = tuple(Bar(most=0.8, than=name) for name in ("HAProxy", "nginx", "socat"))
NOT_LATER = (Bar(most=1, than="nginx"),)

# What profiles found to be the reason where a target is not met.
COST_WHY = (
    "a burst takes the helper one wake-up and three system calls (epoll_wait, recv, send), and nginx "
    "as many (strace -c). For a gigabyte at 100 Mbit/s the helper takes 1,083 million instructions, "
    "954 million of them in the kernel; nginx takes 1,075 million, socat 1,383 and HAProxy 1,558 "
    "(perf stat). Without any code of its own the helper would still take 0.89 times what nginx "
    "takes."
)
LATENCY_WHY = (
    "the latency that a relay adds is that of its wake-up and of its way through the kernel, which "
    "all have. The helper's own part is 2,400 instructions for each burst, nginx's 800 (perf stat)."
)

# As much as an aggregate of a fast Wi-Fi.
CHUNK = 128 << 10
FILE_BYTES = 64 << 20
FILM_PACE = 25
FILM_CHUNK = 1 << 20
FILM_WIFI = 400


class PacedTables:
    """The tables of one kind of transfer."""

    def __init__(self, book, of):
        self.of = of
        self.cost = book.section(f"Processor time of the relay, {of}")
        self.switches = book.section(f"Wake-ups of the relay, {of}")
        self.latency = book.section(f"Latency, {of}")
        self.speed = book.section(f"Speed, {of}")
        self.cost.why, self.latency.why = COST_WHY, LATENCY_WHY
        self.switches.words = [
            "A thread that waits for something makes a voluntary context switch; a wake-up is any "
            "context switch to one of the relay's threads."
        ]

    def row(self, title, latency_bars=(NOT_LATER, NOT_LATER)):
        return PacedRow(self, title, latency_bars)


class PacedRow:
    """The figures of one pace in all tables."""

    def __init__(self, tables, title, latency_bars):
        p50_bars, p99_bars = latency_bars
        latency = {"digits": 0, "added_to": "direct"}
        self._of_relays = {
            "cost": tables.cost.figure(title, "s/GB", digits=3, bars=CHEAPER),
            "voluntary": tables.switches.figure(
                f"{title}: voluntary context switches per second", "", digits=0
            ),
            "wake_ups": tables.switches.figure(f"{title}: wake-ups per second", "", digits=0),
        }
        self._of_all = {
            "p50": tables.latency.figure(f"{title}, p50", "µs", bars=p50_bars, **latency),
            "p99": tables.latency.figure(f"{title}, p99", "µs", bars=p99_bars, **latency),
        }
        self._speed = tables.speed.figure(title, "Mbit/s", digits=0)

    def add(self, subject, found):
        for key, figure in self._of_all.items():
            figure.add(subject, getattr(found, key))
        self._speed.add(subject, found.rate / MEGABIT)
        if subject != "direct":
            for key, figure in self._of_relays.items():
                figure.add(subject, getattr(found, key))


def paces(run):
    return run.plan.pick(PACES, (100, 800))


def paced_seconds(run):
    """Twice as long as at full speed: so few bytes cost little that could be measured."""
    return 2 * run.plan.seconds


def streams(run):
    place = run.place("network")
    relays = run.relays(place)
    tables = PacedTables(run.book, "streams at the pace of a Wi-Fi")
    tables.latency.words = [
        "The sender sends bursts of 30 to 120 KiB: what the pace carries in 1.5 ms, each at a random "
        "moment of the time that the pace takes for it; several streams take the bursts in turn. The "
        "latency is the time from the first attempt to send a burst until all of it has been read. "
        "In parentheses: the time added to that of a direct connection."
    ]
    for pace in paces(run):
        for count in run.plan.pick((1, 4), (1,)):
            for direction, way in DIRECTIONS.items():
                title = f"{pace:,} Mbit/s, {streams_text(count)} {way}"
                row = tables.row(title)
                for relay in run.rounds(relays, f"Paced: {title}"):
                    transfer = place.transfer(
                        direction, relay, count, paced_seconds(run), pace * MEGABIT
                    )
                    row.add(relay.name, carried(relay, transfer))


def smb(run):
    place = run.place("network")
    relays = run.relays(place)
    tables = PacedTables(run.book, "SMB at the pace of a Wi-Fi")
    tables.latency.words = [
        f"libsmbclient against smbd. A copy reads or writes {CHUNK >> 10} KiB at a time, about as "
        f"much as an aggregate, and a film is read {FILM_CHUNK >> 20} MiB at a time; the pause after "
        "each makes the pace. The latency is the time that one such call takes. The link itself is "
        f"fast, so a chunk of the film arrives at once, except where the phone sends {FILM_WIFI} "
        "Mbit/s at most. In parentheses: the time added to that of a direct connection."
    ]
    serve_file(place.phone)
    for pace in paces(run):
        for what, way in (("write", "to the phone"), ("read", "from the phone")):
            title = f"{pace:,} Mbit/s {way}"
            row = tables.row(title)
            for relay in run.rounds(relays, f"SMB, paced: {title}", run.plan.few()):
                transfer = smb_transfer(relay, what, pace, CHUNK, paced_seconds(run))
                row.add(relay.name, carried(relay, transfer))
    title = f"film of {FILM_PACE} Mbit/s"
    # With so few reads, the p99 is the slowest one, which is chance.
    film(run, relays, tables.row(title, (NOT_LATER, ())), title)
    # Nearly all of this latency is the time that the Wi-Fi takes.
    title += f", over {FILM_WIFI} Mbit/s"
    with place.slow_phone(FILM_WIFI):
        film(run, relays, tables.row(title, ((), ())), title)


def film(run, relays, row, title):
    seconds = run.plan.pick(4, 2)
    for relay in run.rounds(relays, f"SMB, paced: {title}", run.plan.pick(run.plan.few(), 1)):
        transfer = smb_transfer(relay, "read", FILM_PACE, FILM_CHUNK, seconds)
        row.add(relay.name, carried(relay, transfer))


def serve_file(phone):
    """Puts a file on the phone, of which clients read and write a part again and again."""
    script = f'head -c {FILE_BYTES} /dev/urandom >"{phone.share}/paced"'
    phone.run("sh", "-ec", script, timeout=60)


def smb_transfer(relay, what, pace, chunk, seconds):
    """A connected SMB client. It has the interface of the load's clients."""
    url = f"smb://{relay.address()}:{relay.port(FILES_PORT)}/NAS/paced"
    command = [PYTHON, f"{HERE}/smb_paced.py", what, url, USER, PASSWORD]
    command += [str(pace * MEGABIT), str(chunk), str(seconds)]
    return Transfer(relay.place.host.start(command, stdin=True), seconds)
