"""The parts that measure transfers: throughput, round trips, short sessions, and small requests
during a transfer."""

import os
import time
from dataclasses import dataclass

import costs
from figures import Bar
from place import speed_of
from relays import Direct, HaProxy, Ours

THROUGHPUT_BARS = {
    "network": (
        Bar(least=0.75, than="direct"),
        Bar(least=1.5, than="HAProxy"),
        Bar(least=1.5, than="nginx"),
        Bar(least=1.1, than="socat"),
    ),
    "loopback": (Bar(least=1.4, than="HAProxy"), Bar(least=1.4, than="nginx")),
}
NOT_WORSE = (Bar(most=1, than="HAProxy"), Bar(most=1, than="nginx"))
# What profiles found to be the reason where a target is not met.
THROUGHPUT_WHY = (
    "three processes share two processors. According to perf (sched_switch) the relay needs half "
    "a processor, and waits nearly as long for one while the sender or the receiver runs, "
    "although the other processor is idle a fifth of the time. Copying instead of splicing "
    "doubles the relay's processor time at the same throughput, and so does waking it less often, "
    "for more bytes (SO_RCVLOWAT)."
)
ROUND_TRIPS_WHY = (
    "round trips depend on where the scheduler places the processes, which stays the same during "
    "a run; only with pinned threads do they tell one relay from another. All three make the same "
    "system calls for each message (strace -c), except that HAProxy also reads the clock. Of a "
    "round trip's 36,000 instructions in the helper, 29,000 are the kernel's, as in the others; "
    "its own 7,300 are closures, allocations and locks, where nginx has 2,200 (perf stat)."
)
SESSIONS_WHY = (
    "a session takes the helper 201,000 instructions, 164,000 of them in the kernel; HAProxy takes "
    "174,000 and nginx 159,000 (perf stat, 8 at a time). It makes 24 system calls for each "
    "session, HAProxy 19 and nginx 17 (strace -c). Two of them ask for the route to the phone, so "
    "that no address of another network is dialled, and take 11,000 instructions. It also makes "
    "39 small allocations (counted with a probe on malloc), nginx 7, for closures and for the "
    "states of two connections."
)
BESIDE_WHY = (
    "the processors are fully loaded, because the transfer is twice as fast as through HAProxy, "
    "and requests wait for a processor: according to /proc/PID/schedstat the echo server waits "
    "twice as long as it runs, and the relay waits a third of the time. Chunks of an eighth of "
    "the size, or shorter time slices for the relay, make no difference."
)
ADDED = "In parentheses: the time added to that of a direct connection."
NOT_FEWER = (Bar(least=1, than="HAProxy"), Bar(least=1, than="nginx"))
PLACES = ("network", "loopback")
DIRECTIONS = {"upload": "to the phone", "download": "from the phone"}


def titled(what, place):
    over = {"network": "over the network", "loopback": "on loopback"}[place]
    return f"{what} {over}"


def streams_text(count):
    return "1 stream" if count == 1 else f"{count} streams"


@dataclass(frozen=True)
class Carried:
    """What a transfer was like, and what it has cost the relay."""

    rate: float  # bytes per second
    cost: float  # processor seconds per gigabyte
    voluntary: float  # context switches per second
    wake_ups: float  # per second
    p50: float  # µs
    p99: float  # µs


def carried(relay, transfer):
    """Performs a connected transfer. Connecting is not counted, nor what follows."""
    meter = costs.FamilyMeter(relay.pids())
    try:
        transfer.start()
        result = transfer.result()
        spent = meter.spent()
    finally:
        transfer.end()
    relay.settle()
    return figures_of(result, spent)


def figures_of(result, spent):
    return Carried(
        rate=speed_of(result),
        cost=spent.seconds / (result["bytes"] / 1e9),
        voluntary=spent.voluntary / result["seconds"],
        wake_ups=spent.switched / result["seconds"],
        p50=result["p50"],
        p99=result["p99"],
    )


def flood(relay, direction, streams, seconds):
    return carried(relay, relay.place.transfer(direction, relay, streams, seconds))


def throughput(run):
    for name in run.plan.pick(PLACES, ("network",)):
        place = run.place(name)
        relays = run.relays(place)
        speeds = run.book.section(titled("Throughput", name))
        speeds.why = THROUGHPUT_WHY
        costs = run.book.section(titled("Processor time of the relay", name))
        for streams in run.plan.pick((1, 8), (1,)):
            for direction, way in DIRECTIONS.items():
                title = f"{streams_text(streams)} {way}"
                bars = THROUGHPUT_BARS[name] if streams == 1 else ()
                speed = speeds.figure(title, "GB/s", bars=bars)
                cost_bars = (Bar(most=0.45, than="HAProxy"),) if name == "network" else ()
                cost = costs.figure(title, "s/GB", digits=3, bars=cost_bars)
                for relay in run.rounds(relays, f"{speeds.title}, {title}"):
                    found = flood(relay, direction, streams, run.plan.seconds)
                    speed.add(relay.name, found.rate / 1e9)
                    if relay.name != "direct":
                        cost.add(relay.name, found.cost)


def round_trips(run):
    for name in run.plan.pick(PLACES, ("network",)):
        section = run.book.section(titled("Round trips", name))
        section.why = ROUND_TRIPS_WHY
        ask(run, section, name, NOT_WORSE if name == "network" else ())


def ask(run, section, name, bars):
    place = run.place(name)
    relays = run.relays(place)
    section.words += [ADDED]
    for size in run.plan.pick((128, 4096), (128,)):
        for streams in run.plan.pick((1, 8), (1,)):
            title = f"{size} B, {streams_text(streams)}"
            rows = {
                "p50": section.figure(f"{title}, p50", "µs", digits=0, bars=bars),
                "p99": section.figure(f"{title}, p99", "µs", digits=0, bars=bars),
                "p999": section.figure(f"{title}, p99.9", "µs", digits=0),
            }
            options = {"streams": streams, "size": size, "seconds": run.plan.seconds}
            for figure in rows.values():
                figure.added_to = "direct"
            for relay in run.rounds(relays, f"{section.title}, {title}"):
                result = place.measure("round-trips", relay, **options)
                for key, figure in rows.items():
                    figure.add(relay.name, result[key])


def pinned_round_trips(run):
    """Round trips that do not depend on where the scheduler places the processes."""
    processors = sorted(os.sched_getaffinity(0))
    if len(processors) < 2:
        return
    one, other = {processors[0]}, {processors[1]}
    place = run.place("network")
    relays = run.relays(place)
    for title, words, clients_on in (
        ("the relay on a processor of its own", "The client and the phone share the other one.", other),
        ("the relay on the client's processor", "The phone has the other one.", one),
    ):
        section = run.book.section(f"{titled('Round trips', place.name)}, {title}")
        section.words = [f"All threads are pinned. {words}"]
        section.why = ROUND_TRIPS_WHY
        with place.pinned(relays, relays_on=one, clients_on=clients_on, server_on=other):
            ask(run, section, place.name, (Bar(most=1, than="nginx"),))


def sessions(run):
    for name in run.plan.pick(PLACES, ("network",)):
        place = run.place(name)
        relays = run.relays(place)
        section = run.book.section(titled("Short sessions", name))
        section.words = ["Each session connects, exchanges one request of 64 B, and closes."]
        section.why = SESSIONS_WHY
        for at_once in run.plan.pick((1, 8), (8,)):
            bars = NOT_FEWER if name == "network" and at_once == 8 else ()
            title = f"{at_once} at a time"
            rate = section.figure(title, "sessions/s", digits=0, bars=bars)
            for relay in run.rounds(relays, f"{section.title}, {title}"):
                options = {"at_once": at_once, "seconds": run.plan.seconds}
                result = place.measure("sessions", relay, **options)
                relay.settle()
                if result["failed"]:
                    raise AssertionError(f"{relay.name}: {result['failed']} sessions failed")
                rate.add(relay.name, result["count"] / result["seconds"])


def beside_transfer(run):
    """Small requests on one connection during a transfer at full speed on another one."""
    for name in run.plan.pick(PLACES, ("network",)):
        place = run.place(name)
        relays = run.relays(place)
        section = run.book.section(titled("Small requests beside a transfer", name))
        section.words = ["Requests of 128 B while one stream transfers at full rate."]
        section.why = BESIDE_WHY
        for direction in run.plan.pick(tuple(DIRECTIONS), ("download",)):
            bars = (Bar(most=1, than="HAProxy"),) if name == "network" else ()
            # A transfer settles into one of several scheduling patterns; a short measurement would
            # see only one of them.
            seconds = run.plan.seconds * run.plan.pick(4, 1)
            title = f"transfer {DIRECTIONS[direction]}"
            rows = {
                "p50": section.figure(f"{title}: p50", "µs", digits=0),
                "p99": section.figure(f"{title}: p99", "µs", digits=0, bars=bars),
                "p999": section.figure(f"{title}: p99.9", "µs", digits=0),
            }
            speed = section.figure(f"{title}: its speed", "GB/s")
            for relay in run.rounds(relays, f"{section.title}, {title}"):
                result, rate = requests_beside(relay, direction, seconds)
                for key, figure in rows.items():
                    figure.add(relay.name, result[key])
                speed.add(relay.name, rate / 1e9)


def requests_beside(relay, direction, seconds):
    """The result of the requests, and the bytes per second of the transfer."""
    ramp = 0.15
    place = relay.place
    transfer = place.transfer(direction, relay, streams=1, seconds=seconds + 2 * ramp)
    transfer.start()
    time.sleep(ramp)
    result = place.measure("round-trips", relay, streams=1, size=128, seconds=seconds)
    rate = speed_of(transfer.result())
    transfer.end()
    relay.settle()
    return result, rate


def as_root(run):
    """Throughput as root, to which the kernel's per-user limit on pipe buffers does not apply."""
    run.end_relays()
    place = run.place("network")
    if not place.host.ORDINARY:
        return
    section = run.book.section("Throughput with the program run by root")
    relays = [*run.make(place, (Direct, HaProxy)), run.note(Ours(place, as_root=True))]
    for relay in relays:
        relay.start()
    for streams in run.plan.pick((1, 8), (1,)):
        for direction, way in DIRECTIONS.items():
            title = f"{streams_text(streams)} {way}"
            figure = section.figure(title, "GB/s")
            for relay in run.rounds(relays, f"{section.title}, {title}"):
                rate = flood(relay, direction, streams, run.plan.seconds).rate
                figure.add(relay.name, rate / 1e9)
    for relay in relays:
        relay.stop()
