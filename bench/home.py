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
# For how many seconds the phone is asleep, and awake afterwards. The records of a phone that is
# silent expire meanwhile, 120 s after it was announced.
SAYING_GOODBYE = (30, 60)
SILENT = (90, 60)

WHY = (
    "each packet of another device wakes libavahi-core up, and each record in it again when it has "
    "lived for 80, 85, 90, 95 and 100 % of its time (RFC 6762, section 5.2), although nobody asked "
    "for it. avahi-daemon does the same in its own process. When a phone comes or goes, three "
    "quarters of the wake-ups and nine tenths of the processor time are the window's: its height "
    "changes smoothly, in ten steps, each of which is painted (schedstat, strace)."
)


class Home:
    """A phone, a computer on which the program runs, and the other devices."""

    def __init__(self, run, engine):
        self.engine = engine
        self.place = DesktopPlace(run, engine)
        self.phone = self.place.phone
        self.traffic = traffic_beside(self.phone)
        self.place.announce_phones(1)
        self.helper = self.place.started(1)
        self.faults = []

    def begin(self):
        self.began = time.monotonic()
        self.members = costs.family(self.helper.pid)
        self.meter = costs.FamilyMeter([self.helper.pid])
        self.size = costs.sum_over([self.helper.pid], costs.own_kib)

    def end(self, wake, load, gain):
        """Notes what the program and its engine have cost since `begin`."""
        seconds = time.monotonic() - self.began
        spent = self.meter.spent()
        subject = ENGINES[self.engine]
        wake.add(subject, spent.switched / seconds)
        load.add(subject, 100 * spent.seconds / seconds)
        gain.add(subject, costs.sum_over([self.helper.pid], costs.own_kib) - self.size)
        if costs.family(self.helper.pid) != self.members:
            self.faults.append("a process ended or began")
        if self.helper.statuses()[-1] != visible(1):
            self.faults.append(f"the last status is {self.helper.statuses()[-1]}")
        code, _ = self.helper.stop()
        if code != 0:
            self.faults.append(f"the program ended with {code}")

    def packets_per_second(self):
        """Ends the traffic; returns how many packets it has sent in a second."""
        since = self.traffic.mark()
        self.traffic.process.stdin.close()
        return float(self.traffic.wait_line(lambda line: True, 10, since, "the rate").text)


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


def home(run):
    run.end_relays()
    naps = run.plan.pick(30, 2)
    seconds = naps // 2 * (sum(SAYING_GOODBYE) + sum(SILENT))
    run.progress("home: preparation")
    calm = [Home(run, engine) for engine in ENGINES]
    restless = [Home(run, engine) for engine in ENGINES]
    # The work of the start is not measured, and has no event at its end.
    time.sleep(run.plan.pick(30, 5))
    run.progress(f"home: {seconds} s")
    for each in calm + restless:
        each.begin()
    for nap in range(naps):
        sleep_and_wake(restless, nap % 2 == 0)
    section = run.book.section("The program in a home")
    section.why = WHY
    for what, homes in (
        ("the phone is there", calm),
        (f"the phone sleeps and wakes {naps} times", restless),
    ):
        rows = (
            section.figure(f"{what}: wake-ups per second", "", bars=(Bar(most=1),)),
            section.figure(f"{what}: processor", "%", digits=3, bars=(Bar(most=0.05),)),
            section.figure(f"{what}: memory gained", "KiB", digits=0),
        )
        for each in homes:
            each.end(*rows)
    rates = [each.packets_per_second() for each in calm + restless]
    section.words = [
        "Twenty other devices announce themselves, ask and answer by multicast DNS: "
        f"{min(rates):.2f} to {max(rates):.2f} packets a second. The figures are those of the "
        f"program and of its engine together, with the window on screen, over {seconds} s. When "
        f"the phone sleeps, it says goodbye every other time, for {SAYING_GOODBYE[0]} s; otherwise "
        f"it is silent for {SILENT[0]} s, in which its records expire. Memory is anonymous memory."
    ]
    faults = [fault for each in calm + restless for fault in each.faults]
    if faults:
        raise AssertionError("; ".join(faults))


def sleep_and_wake(homes, says_goodbye):
    """Puts the phones to sleep once; the program must see them go and come back. The time that passes
    is what is measured, so nothing ends it early."""
    asleep, awake = SAYING_GOODBYE if says_goodbye else SILENT
    marks = [each.helper.mark() for each in homes]
    began = time.monotonic()
    for each in homes:
        if says_goodbye:
            each.phone.goodbye()
        else:
            each.phone.vanish()
    time.sleep(began + asleep - time.monotonic())
    for each in homes:
        each.place.announce_phones(1)
    time.sleep(began + asleep + awake - time.monotonic())
    for each, mark in zip(homes, marks):
        seen = each.helper.statuses(mark)
        if seen[:1] != [LOOKING] or seen[-1:] != [visible(1)]:
            each.faults.append(f"the phone slept and woke, and the program reports {seen}")
