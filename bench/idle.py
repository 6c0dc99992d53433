"""The parts that measure the program without transfers: start, discovery and the idle program."""

import json
import time

import costs
from desktop_place import DesktopPlace
from figures import Bar
from rig.computer import LOOKING
from rig.network import TYPE_SMB

MEMORY_WHY = (
    "a program that is linked to Qt's widgets has 11.7 MB of pages of the libraries in memory before "
    "its first line runs (5.6 MB with QtCore and QtDBus only), 16.7 MB with a QApplication, and "
    "21.3 MB with a first text field, even if nothing is shown. Few of these pages are changed: the "
    "kernel can drop the others at any time. Without a display the controls are made as well, as "
    "they hold the settings."
)
ENGINES = {"embedded": "ours", "daemon": "ours with avahi-daemon"}


def places(run):
    """A place for each DNS-SD engine; created on first use, as several parts share them."""
    for engine in ENGINES:
        if engine not in run.desktops:
            run.desktops[engine] = DesktopPlace(run, engine)
    return run.desktops


def idle(run):
    run.end_relays()
    seconds = run.plan.pick(60, 5)
    section = run.book.section("The idle program")
    section.words = [
        f"With the window on screen and two phones found, over {seconds} s: once with the embedded "
        "DNS-SD engine, which is a separate process, and once with avahi-daemon. A wake-up is a "
        "context switch to one of its threads."
    ]
    sizes = idle_sizes(run.book)
    helpers = {}
    for engine, place in places(run).items():
        run.progress(f"idle, {engine}: memory")
        place.announce_phones(2)
        # One instance at a time: two would share library pages, and each would count only half.
        for has_display in (True, False):
            helper = place.started(2, has_display)
            # Until nothing more is allocated, of which nothing tells.
            time.sleep(run.plan.pick(5, 1))
            note_sizes(sizes, ENGINES[engine], helper, has_display)
            helper.stop()
    for engine, place in places(run).items():
        helpers[engine] = place.started(2)
    time.sleep(run.plan.pick(10, 2))
    run.progress(f"idle: {seconds} s of quiet")
    meters = {engine: metered(helper.pid) for engine, helper in helpers.items()}
    time.sleep(seconds)
    write_quiet(section, meters)
    for helper in helpers.values():
        helper.stop()
    for place in places(run).values():
        place.phone.goodbye_to_all()


def idle_sizes(book):
    section = book.section("Memory of the idle program")
    section.words = [
        "With two phones found and nobody else running the program: the proportional set size, and "
        "in it the pages that are private and differ from any file. With the window on screen, "
        "except where there is no display."
    ]
    section.why = MEMORY_WHY
    return {
        "all": section.figure("memory, all of it", "MB", digits=1, bars=(Bar(most=24),)),
        "own": section.figure("memory, without the engine", "MB", digits=1),
        "private": section.figure("memory, private and changed", "MB", digits=1),
        "no display": section.figure(
            "memory without a display, all of it", "MB", digits=1, bars=(Bar(most=12),)
        ),
        "threads": section.figure("threads", "", digits=0),
        "engine": section.figure("threads of the engine", "", digits=0),
    }


def megabytes(members, kib):
    return sum(kib(pid) for pid in members) * 1024 / 1e6


def note_sizes(rows, name, helper, has_display):
    members = costs.family(helper.pid)
    rows["all" if has_display else "no display"].add(name, megabytes(members, costs.pss_kib))
    if not has_display:
        return
    rows["own"].add(name, megabytes(members[:1], costs.pss_kib))
    rows["private"].add(name, megabytes(members, costs.private_kib))
    rows["threads"].add(name, costs.threads(helper.pid))
    for pid in members[1:]:
        rows["engine"].add(name, costs.threads(pid))


def metered(pid):
    """Meters of a process and its descendants; the first one is that of the process itself."""
    return [costs.Meter(each) for each in costs.family(pid)]


def write_quiet(section, meters):
    wake = section.figure("wake-ups per second", "", bars=(Bar(most=1),))
    load = section.figure("processor", "%", digits=3, bars=(Bar(most=0.05),))
    engine_wake = section.figure("wake-ups of the engine per second", "")
    engine_load = section.figure("processor of the engine", "%", digits=3)
    for engine, (own, *others) in meters.items():
        name = ENGINES[engine]
        wake.add(name, own.wake_ups())
        load.add(name, own.load_percent())
        for meter in others:
            engine_wake.add(name, meter.wake_ups())
            engine_load.add(name, meter.load_percent())


def start(run):
    """The time from the start of the process to its window and its first status line."""
    run.end_relays()
    section = run.book.section("Start-up time")
    window = section.figure("until the window is on screen", "ms", digits=0, bars=(Bar(most=300),))
    status = section.figure("until the first status line", "ms", digits=0)
    for engine, place in places(run).items():
        looker = place.host.look("watch")
        for number in range(run.plan.rounds):
            run.progress(f"start, {engine}, round {number + 1} of {run.plan.rounds}")
            since = looker.mark()
            began = time.monotonic()
            helper = place.host.program()
            line = looker.wait_line(lambda line: "mapped" in line.text, 20, since, "the window")
            window.add(ENGINES[engine], (json.loads(line.text)["at"] - began) * 1e3)
            status.add(ENGINES[engine], (helper.wait_status(LOOKING).at - began) * 1e3)
            helper.stop()
        looker.end()


def pairs(run):
    """Engines and places; in a quick run the embedded engine only."""
    found = list(places(run).items())
    return run.plan.pick(found, found[:1])


def discovery(run):
    """The time from a phone's announcement or goodbye until other computers see its effect."""
    run.end_relays()
    section = run.book.section("Discovery latency")
    section.words = [
        "Seen by python-zeroconf on another host. Probing for a name takes 0.75 s, and a withdrawn "
        "record is valid for one more second (RFC 6762, sections 8.1 and 10.1)."
    ]
    shown = section.figure(
        "announcement to visible server", "ms", digits=0, bars=(Bar(most=1300),)
    )
    gone = section.figure("goodbye to withdrawn server", "ms", digits=0)
    for engine, place in pairs(run):
        phone = place.phone
        phone.watch(TYPE_SMB)
        helper = place.host.program()
        helper.wait_status(LOOKING)
        for number in range(run.plan.pick(run.plan.rounds, 1)):
            run.progress(f"discovery, {engine}, round {number + 1}")
            since = phone.mark()
            announced = phone.announce("Quillbox Office")
            # Resolved, not just added: the PTR record may be seen while the name is still probed.
            seen = phone.wait("resolved", "Quillbox Office", 20, since)
            shown.add(ENGINES[engine], (seen["at"] - announced) * 1e3)
            since = phone.mark()
            said = phone.goodbye()
            seen = phone.wait("removed", "Quillbox Office", 20, since)
            gone.add(ENGINES[engine], (seen["at"] - said) * 1e3)
            # The goodbye is sent more than once; a late copy must not withdraw the next one.
            time.sleep(2)
        helper.stop()
        phone.stop_watching()
