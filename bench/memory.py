"""The part that measures the memory of a session, idle and busy."""

from figures import Bar
from relays import RELAYS

IDLE = 1000
BUSY = 50


def held(place, relay, count):
    """Opens sessions that stay idle; the caller ends the returned client."""
    client = place.load("hold", relay, sessions=count)
    client.wait_line(lambda line: "sessions" in line.text, 60, what=f"{count} sessions")
    return client


def peak_kib(relay, transfer):
    """Starts a transfer and waits for its result; returns the relay's maximum memory until then."""
    most = relay.own_kib()
    transfer.start()
    while not transfer.is_done(0.1):
        most = max(most, relay.own_kib())
    return most


def memory(run):
    run.end_relays()
    place = run.place("network")
    section = run.book.section("Memory of a session")
    section.words = [
        "Growth of the relay's anonymous memory (proportional set size, summed over its processes) "
        f"per session: with {IDLE:,} idle sessions after one request each, and with {BUSY} sessions "
        "at full rate."
    ]
    idle = section.figure("idle", "KiB", digits=1, bars=(Bar(most=1, than="HAProxy"),))
    busy = section.figure("busy", "KiB", digits=1)
    relays = run.make(place, RELAYS[1:])
    for relay in run.rounds(relays, section.title, run.plan.pick(run.plan.few(), 1)):
        relay.start()
        # A few sessions first, so that allocations made once are not counted.
        held(place, relay, 10).end()
        relay.settle()
        before = relay.own_kib()
        sessions = held(place, relay, IDLE)
        idle.add(relay.name, (relay.own_kib() - before) / IDLE)
        sessions.end()
        relay.settle()
        transfer = place.transfer("download", relay, streams=BUSY, seconds=run.plan.seconds)
        most = peak_kib(relay, transfer)
        transfer.end()
        busy.add(relay.name, max(0, most - before) / BUSY)
        relay.stop()
