"""Processor time, memory, threads and context switches of running processes, from /proc."""

import contextlib
import os
import re
import time
from dataclasses import dataclass

TICKS = os.sysconf("SC_CLK_TCK")


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def stat_fields(text):
    """The fields of /proc/PID/stat from the third one on; the second may contain spaces."""
    return text[text.rindex(")") + 2 :].split()


def parents():
    """Maps every process id to that of its parent."""
    found = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                found[int(entry)] = int(stat_fields(read(f"/proc/{entry}/stat"))[1])
            except OSError:
                continue
    return found


def family(root, parent_of=None):
    """A process and all its descendants."""
    parent_of = parents() if parent_of is None else parent_of
    members, waiting = [], [root]
    while waiting:
        member = waiting.pop()
        members.append(member)
        waiting += [pid for pid, parent in parent_of.items() if parent == member]
    return members


def tasks(pid):
    try:
        return os.listdir(f"/proc/{pid}/task")
    except OSError:
        return []


def by_task(pid, counter):
    """Maps each thread of a process to the result of `counter`, which gets its folder in /proc."""
    counted = {}
    for task in tasks(pid):
        try:
            counted[task] = counter(f"/proc/{pid}/task/{task}")
        except OSError:
            continue
    return counted


def gained(before, now):
    """The increase between two results of `by_task`, without threads that have ended."""
    return sum(count - before.get(task, 0) for task, count in now.items())


def seconds_run(folder):
    return int(read(f"{folder}/schedstat").split()[0]) / 1e9


def waited_for_seconds(pid):
    """The processor time of the children that a process has waited for."""
    try:
        fields = stat_fields(read(f"/proc/{pid}/stat"))
    except OSError:
        return 0.0
    return (int(fields[13]) + int(fields[14])) / TICKS


def cpu_seconds(pid):
    """The processor time of a process's threads and of the children that it has waited for."""
    return sum(by_task(pid, seconds_run).values()) + waited_for_seconds(pid)


def number_after(text, label):
    found = re.search(rf"^{label}:\s+(\d+)", text, re.MULTILINE)
    return int(found[1]) if found else 0


def pss_kib(pid):
    """The process's memory (PSS): shared pages count in proportion."""
    try:
        return number_after(read(f"/proc/{pid}/smaps_rollup"), "Pss")
    except OSError:
        return 0


def own_kib(pid):
    """The anonymous memory. The share of mapped libraries would vary with their other users."""
    try:
        return number_after(read(f"/proc/{pid}/smaps_rollup"), "Pss_Anon")
    except OSError:
        return 0


def private_kib(pid):
    """The pages that no other process has and that differ from any file."""
    try:
        return number_after(read(f"/proc/{pid}/smaps_rollup"), "Private_Dirty")
    except OSError:
        return 0


def voluntary_switches(folder):
    """How often a thread has given up its processor to wait for something."""
    return number_after(read(f"{folder}/status"), "voluntary_ctxt_switches")


def times_switched(folder):
    text = read(f"{folder}/status")
    return number_after(text, "voluntary_ctxt_switches") + number_after(
        text, "nonvoluntary_ctxt_switches"
    )


def switches(pid):
    """How many context switches the threads of the process have had."""
    return sum(by_task(pid, times_switched).values())


def threads(pid):
    return len(tasks(pid))


def processors(pid):
    """The processors that a process may use."""
    return os.sched_getaffinity(pid)


def pin(root, allowed):
    """Restricts all threads of a process and its descendants to these processors."""
    for pid in family(root):
        for task in tasks(pid):
            with contextlib.suppress(ProcessLookupError):
                os.sched_setaffinity(int(task), allowed)


def sum_over(roots, cost):
    """The sum of a cost over several processes and all their descendants."""
    parent_of = parents()
    return sum(cost(pid) for root in roots for pid in family(root, parent_of))


class Meter:
    """What a process costs from now on, without threads that end in the meantime."""

    def __init__(self, pid):
        self.pid = pid
        self.began = time.monotonic()
        self.voluntary = by_task(pid, voluntary_switches)
        self.switches = by_task(pid, times_switched)
        self.seconds = by_task(pid, seconds_run)
        self.waited_for = waited_for_seconds(pid)

    def switched_voluntarily(self):
        return gained(self.voluntary, by_task(self.pid, voluntary_switches))

    def switched(self):
        return gained(self.switches, by_task(self.pid, times_switched))

    def wake_ups(self):
        """Context switches to its threads per second."""
        return self.switched() / (time.monotonic() - self.began)

    def seconds_spent(self):
        waited_for = waited_for_seconds(self.pid) - self.waited_for
        return gained(self.seconds, by_task(self.pid, seconds_run)) + waited_for

    def load_percent(self):
        return 100 * self.seconds_spent() / (time.monotonic() - self.began)


@dataclass(frozen=True)
class Spent:
    """What several processes have spent together."""

    seconds: float
    voluntary: int  # context switches
    switched: int


class FamilyMeter:
    """What processes and their descendants cost from now on, without descendants that start later."""

    def __init__(self, roots):
        parent_of = parents()
        members = [pid for root in roots for pid in family(root, parent_of)]
        self._meters = [Meter(pid) for pid in members]

    def spent(self):
        return Spent(
            sum(meter.seconds_spent() for meter in self._meters),
            sum(meter.switched_voluntarily() for meter in self._meters),
            sum(meter.switched() for meter in self._meters),
        )
