"""The parts that measure how costs grow with sessions, phones, and names on the network."""

import json
import time
from statistics import median

import costs
from figures import Bar
from growth import growth_words
from idle import places
from memory import held, peak_kib
from place import Transfer, speed_of
from plot import chart
from relays import Direct, HaProxy, Nginx, Ours
from rig.computer import LOOKING, visible
from rig.crowd import Crowd
from rig.network import TYPE_PHONE, TYPE_SMB
from transfers import figures_of
from wire import LOAD, LOAD_PORT, most_descriptors


def counted(size, of):
    """The number with its noun, in the singular for 1."""
    return f"{size:,} {of if size != 1 else of.removesuffix('s')}"


def bullets(texts):
    return "\n".join(f"- {text}" for text in texts)


# From so many sessions on there are targets.
MANY = 100
NOT_SLOWER = (Bar(least=1, than="nginx"),)
NOT_DEARER = (Bar(most=1, than="nginx"),)


class Series:
    """A figure for each size, and the points of each subject for plots and growth."""

    def __init__(self, section, what, unit, digits, sizes, of, bars=()):
        self.figures = {
            size: section.figure(
                f"{counted(size, of)}: {what}",
                unit,
                digits=digits,
                bars=bars if size >= MANY else (),
            )
            for size in sizes
        }
        self.section, self.what, self.unit, self.of = section, what, unit, of

    def add(self, size, subject, value):
        self.figures[size].add(subject, value)

    def points(self, subject):
        spreads = [(size, figure.spread(subject)) for size, figure in self.figures.items()]
        return [(size, spread.median) for size, spread in spreads if spread]

    def plot(self, file_name, subjects):
        series = {subject: self.points(subject) for subject in subjects}
        if not any(series.values()):
            return
        title = self.what[0].upper() + self.what[1:]
        picture = chart(title, self.of, self.unit, series)
        self.section.plots.append((file_name, f"{title} by {self.of}", picture))

    def words(self, subject, least=1):
        """The growth from size `least` on; for smaller sizes the fixed cost hides it."""
        points = [(size, value) for size, value in self.points(subject) if size >= least]
        return growth_words(self.what[0].upper() + self.what[1:], self.of, points)


# ---- sessions ----


def scale_sessions(run):
    run.end_relays()
    place = run.place("network")
    sizes = run.plan.pick((1, 10, 100, 1000, 5000), (1, 10, 100))
    # A relay needs two file descriptors for each session.
    sizes = [size for size in sizes if 2 * size + 200 < most_descriptors()]
    section = run.book.section("Growth with sessions")
    make = [("idle memory", "MB", 2), ("round trip of one of them, p50", "µs", 0)]
    make += [("throughput", "GB/s", 2), ("processor time", "s/GB", 3), ("busy memory", "MB", 1)]
    bars = {"throughput": NOT_SLOWER, "processor time": NOT_DEARER}
    memory, trip, speed, cost, busy = (
        Series(section, *each, sizes, "sessions", bars.get(each[0], ())) for each in make
    )
    relays = run.make(place, (Direct, Ours, HaProxy, Nginx))
    for relay in relays:
        relay.start()
        hold_idle(run, relay, sizes, memory, trip)
    for size in sizes:
        what = f"{section.title}: {size:,} busy"
        for relay in run.rounds(relays, what, run.plan.few()):
            found, most = busy_sessions(relay, size, run.plan.seconds)
            speed.add(size, relay.name, found.rate / 1e9)
            if relay.name != "direct":
                cost.add(size, relay.name, found.cost)
                busy.add(size, relay.name, most * 1024 / 1e6)
    names = [relay.name for relay in relays]
    speed.plot("sessions-throughput.svg", names)
    memory.plot("sessions-memory.svg", names)
    cost.plot("sessions-processor.svg", names)
    words = [memory.words("ours", 1000), *(each.words("ours") for each in (trip, cost, busy))]
    section.words = [bullets(words)]
    for relay in relays:
        relay.stop()


def hold_idle(run, relay, sizes, memory, trip):
    """Measures a newly started relay with increasing numbers of idle sessions."""
    before = relay.own_kib()
    for size in sizes:
        run.progress(f"Growth with sessions: {relay.name}, {size:,} idle")
        sessions = held(relay.place, relay, size)
        grown = (relay.own_kib() - before) * 1024 / 1e6
        if relay.name != "direct":
            memory.add(size, relay.name, max(0, grown))
        trip.add(size, relay.name, asked(sessions, size))
        sessions.end()
        relay.settle()


def asked(sessions, count):
    """The median time of one more request on each of the open sessions, in microseconds; with few
    sessions it is measured several times."""
    found = []
    for _ in range(max(1, 200 // count)):
        since = sessions.mark()
        sessions.write("ask\n")
        line = sessions.wait_line(lambda line: "p50" in line.text, 60, since, "the answers")
        found.append(json.loads(line.text)["p50"])
    return median(found)


def busy_sessions(relay, count, seconds):
    """What they have carried, and the peak memory in KiB."""
    # With thousands of streams it takes a while until all have started.
    seconds += count / 1000
    transfer = relay.place.transfer("download", relay, count, seconds)
    meter = costs.FamilyMeter(relay.pids())
    most = peak_kib(relay, transfer)
    found = figures_of(transfer.result(), meter.spent())
    transfer.end()
    relay.settle()
    return found, most


# ---- phones and names ----


def phone_names(count):
    return [f"Quillbox {number:03}" for number in range(1, count + 1)]


class Trial:
    """The newly started program on a desktop, with a crowd of phones."""

    def __init__(self, place):
        self.place = place
        self.crowd = Crowd(place.phone, LOAD_PORT)
        since = self.crowd.order(**{"await": TYPE_PHONE})
        self.helper = place.host.program()
        self.helper.wait_status(LOOKING)
        self.crowd.wait("asked", since)
        # The embedded engine is a separate process.
        self.pids = costs.family(self.helper.pid)

    def meters(self):
        return [costs.Meter(pid) for pid in self.pids]

    def memory_mb(self):
        return sum(costs.pss_kib(pid) for pid in self.pids) * 1024 / 1e6

    def end(self, phones):
        self.crowd.announce(phones, ttl=0)
        self.crowd.end()
        self.helper.stop()


def appear(trial, count):
    """Announces that many phones at once; returns how many seconds later the status shows them and
    other hosts see them, and the advertised ports."""
    known = trial.crowd.watch(TYPE_SMB, count)
    began = time.monotonic()
    trial.crowd.announce(phone_names(count))
    status = trial.helper.wait_status(visible(count), 60).at
    seen = trial.crowd.wait("known", known)
    return status - began, seen["at"] - began, seen["ports"]


def scale_phones(run):
    run.end_relays()
    place = places(run)["embedded"]
    server = place.phone.start([LOAD, "serve", f"--port={LOAD_PORT}"])
    sizes = run.plan.pick((1, 10, 50, 250), (1, 10))
    section = run.book.section("Growth with phones")
    make = [("until the window shows them", "s", 2), ("until others see them", "s", 2)]
    make += [("processor until others see them", "s", 3), ("memory", "MB", 1), ("wake-ups per second", "", 1)]
    make += [("longest pause of the window", "ms", 1), ("throughput, one stream each", "GB/s", 2)]
    status, seen, load, memory, wake, silence, speed = series = [
        Series(section, *each, sizes, "phones") for each in make
    ]
    for size in sizes:
        run.progress(f"{section.title}: {size}")
        trial = Trial(place)
        meters, found = trial.meters(), []
        answered = place.host.ping(lambda: found.append(appear(trial, size)))
        shown_after, seen_after, ports = found[0]
        load.add(size, "ours", sum(meter.seconds_spent() for meter in meters))
        status.add(size, "ours", shown_after)
        seen.add(size, "ours", seen_after)
        silence.add(size, "ours", answered["most"] * 1e3)
        time.sleep(run.plan.pick(5, 1))
        memory.add(size, "ours", trial.memory_mb())
        own = costs.Meter(trial.helper.pid)
        time.sleep(run.plan.pick(5, 2))
        wake.add(size, "ours", own.wake_ups())
        speed.add(size, "ours", flood_ports(place, ports, run.plan.seconds) / 1e9)
        trial.end(phone_names(size))
    memory.plot("phones-memory.svg", ["ours"])
    load.plot("phones-processor.svg", ["ours"])
    section.words = [bullets(each.words("ours") for each in series[:4])]
    server.end()


def flood_ports(place, ports, seconds):
    """Bytes per second through all of these ports at once, one stream each."""
    command = [LOAD, "download", f"--to={place.host.address4}", f"--streams={len(ports)}"]
    command += [f"--port={','.join(map(str, ports))}", f"--seconds={seconds}", "--pace=0"]
    transfer = Transfer(place.host.start(command, stdin=True), seconds)
    transfer.start()
    rate = speed_of(transfer.result())
    transfer.end()
    return rate


def scale_names(run):
    run.end_relays()
    place = places(run)["embedded"]
    sizes = run.plan.pick((50, 500, 5000), (50, 500))
    phones = run.plan.pick(250, 20)
    section = run.book.section("Growth with names in discovery")
    make = [("processor of the program", "s", 3), ("processor of the engine", "s", 3)]
    make += [("memory gained", "MB", 1), ("longest pause of the window", "ms", 1)]
    own, engine, memory, silence = series = [
        Series(section, *each, sizes, "other names") for each in make
    ]
    for size in sizes:
        run.progress(f"{section.title}: {phones} phones, {size:,} others")
        trial = Trial(place)
        appear(trial, phones)
        time.sleep(run.plan.pick(5, 1))
        before, meters = trial.memory_mb(), trial.meters()
        names = [f"Printer {number:04}" for number in range(size)]
        quiet = run.plan.pick(8, 2)
        answered = place.host.ping(lambda: (trial.crowd.announce(names), time.sleep(quiet)))
        own.add(size, "ours", meters[0].seconds_spent())
        engine.add(size, "ours", sum(meter.seconds_spent() for meter in meters[1:]))
        memory.add(size, "ours", max(0, trial.memory_mb() - before))
        silence.add(size, "ours", answered["most"] * 1e3)
        if trial.helper.statuses()[-1] != visible(phones):
            raise AssertionError(f"phones were lost: {trial.helper.statuses()[-1]}")
        trial.end(phone_names(phones))
    section.words = [
        f"{phones} phones are listed; then this many services of the same type with other names "
        f"appear at once. Costs are those of the following {quiet} s.",
        bullets(each.words("ours") for each in series),
    ]
    own.plot("names-processor.svg", ["ours"])
