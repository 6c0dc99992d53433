"""The part that measures the program in a home where many devices talk, for an hour."""

import os
import time

import costs
from desktop_place import DesktopPlace
from figures import Bar
from idle import ENGINES
from rig.computer import LOOKING, visible

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"

WHY = (
    "each packet of another device wakes libavahi-core up, and each record in it again when it has "
    "lived for 80, 85, 90, 95 and 100 % of its time (RFC 6762, section 5.2), although nobody asked "
    "for it. avahi-daemon does the same in its own process. When a phone comes or goes, half of "
    "the wake-ups and nearly all of the processor time are the window's (perf, schedstat)."
)


class Home:
    """A phone, a computer on which the program runs, and the other devices."""

    def __init__(self, run, engine):
        self.place = DesktopPlace(run, engine)
        self.phone = self.place.phone
        self.traffic = traffic_beside(self.phone)
        self.place.announce_phones(1)
        self.helper = self.place.started(1)

    def begin(self):
        self.began = time.monotonic()
        self.meter = costs.FamilyMeter([self.helper.pid])
        self.size = costs.sum_over([self.helper.pid], costs.own_kib)

    def end(self, engine, wake, load, gain):
        """Notes what the program and its engine cost since `begin`."""
        seconds = time.monotonic() - self.began
        spent = self.meter.spent()
        wake.add(ENGINES[engine], spent.switched / seconds)
        load.add(ENGINES[engine], 100 * spent.seconds / seconds)
        gain.add(ENGINES[engine], costs.sum_over([self.helper.pid], costs.own_kib) - self.size)
        self.helper.stop()


def traffic_beside(phone):
    """Starts the other devices of the home, on the phone's host."""
    network = phone.address4.rpartition(".")[0]
    addresses = [f"{network}.{number}" for number in range(101, 121)]
    for address in addresses:
        phone.run("ip", "address", "add", f"{address}/24", "dev", "eth0")
    command = [PYTHON, f"{HERE}/home_traffic.py", phone.address4, *addresses]
    traffic = phone.start(command, stdin=True)
    traffic.wait_line(lambda line: line.text == "sending", 10, what="the other devices")
    return traffic


def rate_at_end(traffic):
    """Ends the traffic; returns how many packets it sent in a second."""
    since = traffic.mark()
    traffic.process.stdin.close()
    return float(traffic.wait_line(lambda line: True, 10, since, "the rate").text)


def home(run):
    run.end_relays()
    seconds, naps = run.plan.pick(3600, 60), run.plan.pick(30, 2)
    section = run.book.section("The program in a home")
    run.progress("home: preparation")
    homes = {
        what: {engine: Home(run, engine) for engine in ENGINES}
        for what in ("the phone is there", f"the phone sleeps and wakes {naps} times")
    }
    time.sleep(run.plan.pick(30, 5))
    run.progress(f"home: {seconds} s")
    for each in [home for kind in homes.values() for home in kind.values()]:
        each.begin()
    *_, restless = homes.values()
    sleep_and_wake(list(restless.values()), naps, seconds / naps)
    for what, kind in homes.items():
        rows = (
            section.figure(f"{what}: wake-ups per second", "", bars=(Bar(most=1),)),
            section.figure(f"{what}: processor", "%", digits=3, bars=(Bar(most=0.05),)),
            section.figure(f"{what}: memory gained", "KiB", digits=0),
        )
        for engine, home in kind.items():
            home.end(engine, *rows)
    section.words = [
        "Twenty other devices announce themselves, ask and answer by multicast DNS: "
        f"{rate_at_end(home.traffic):.2f} packets a second. The figures are those of the program "
        f"and of its engine together, with the window on screen, over {seconds} s. When the phone "
        "sleeps, it says goodbye every other time. Memory is anonymous memory."
    ]
    section.why = WHY


def sleep_and_wake(homes, naps, period):
    """Puts the phones to sleep that many times, for a third of the period (in seconds)."""
    for nap in range(naps):
        wake, end = time.monotonic() + period / 3, time.monotonic() + period
        says_goodbye = nap % 2 == 0
        marks = [home.helper.mark() for home in homes]
        for home in homes:
            if says_goodbye:
                home.phone.goodbye()
            else:
                home.phone.vanish()
        time.sleep(wake - time.monotonic())
        for home in homes:
            home.place.announce_phones(1)
        time.sleep(end - time.monotonic())
        expected = [LOOKING, visible(1)] if says_goodbye else []
        for home, mark in zip(homes, marks):
            seen = home.helper.statuses(mark)
            if (seen[:1], seen[-1:]) != (expected[:1], expected[-1:]):
                raise AssertionError(f"the phone slept and woke, and the program reports {seen}")
