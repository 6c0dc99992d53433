"""What running processes cost, as the kernel counts it in /proc."""

import os
import re
import time

TICKS = os.sysconf("SC_CLK_TCK")


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def stat_fields(text):
    """The fields of /proc/PID/stat from the third one on; the second may hold blanks."""
    return text[text.rindex(")") + 2 :].split()


def parents():
    """The parent of every process."""
    found = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                found[int(entry)] = int(stat_fields(read(f"/proc/{entry}/stat"))[1])
            except OSError:
                continue
    return found


def family(root, parent_of=None):
    """A process and all that descend from it."""
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
    """What a counter, which takes the folder of a thread, says of each thread of a process."""
    counted = {}
    for task in tasks(pid):
        try:
            counted[task] = counter(f"/proc/{pid}/task/{task}")
        except OSError:
            continue
    return counted


def gained(before, now):
    """What was counted between two calls of `by_task`. A thread that has ended took its count along."""
    return sum(count - before.get(task, 0) for task, count in now.items())


def seconds_run(folder):
    return int(read(f"{folder}/schedstat").split()[0]) / 1e9


def waited_for_seconds(pid):
    """What the children have run that a process has waited for."""
    try:
        fields = stat_fields(read(f"/proc/{pid}/stat"))
    except OSError:
        return 0.0
    return (int(fields[13]) + int(fields[14])) / TICKS


def cpu_seconds(pid):
    """What the threads of a process have run, and the children that it has waited for."""
    return sum(by_task(pid, seconds_run).values()) + waited_for_seconds(pid)


def number_after(text, label):
    found = re.search(rf"^{label}:\s+(\d+)", text, re.MULTILINE)
    return int(found[1]) if found else 0


def pss_kib(pid):
    """The process's memory; what it shares with others counts in parts."""
    try:
        return number_after(read(f"/proc/{pid}/smaps_rollup"), "Pss")
    except OSError:
        return 0


def own_kib(pid):
    """The memory that is no file's: that of libraries varies with who else uses them at present."""
    try:
        return number_after(read(f"/proc/{pid}/smaps_rollup"), "Pss_Anon")
    except OSError:
        return 0


def times_switched(folder):
    text = read(f"{folder}/status")
    return number_after(text, "voluntary_ctxt_switches") + number_after(
        text, "nonvoluntary_ctxt_switches"
    )


def switches(pid):
    """How often threads of the process were put on a processor."""
    return sum(by_task(pid, times_switched).values())


def threads(pid):
    return len(tasks(pid))


def sum_over(roots, cost):
    """A cost of several processes and all that descend from them."""
    parent_of = parents()
    return sum(cost(pid) for root in roots for pid in family(root, parent_of))


class Meter:
    """What a process costs from now on. What a thread costs that ends meanwhile is not known."""

    def __init__(self, pid):
        self.pid = pid
        self.began = time.monotonic()
        self.switches = by_task(pid, times_switched)
        self.seconds = by_task(pid, seconds_run)
        self.waited_for = waited_for_seconds(pid)

    def wake_ups(self):
        now = by_task(self.pid, times_switched)
        return gained(self.switches, now) / (time.monotonic() - self.began)

    def seconds_spent(self):
        waited_for = waited_for_seconds(self.pid) - self.waited_for
        return gained(self.seconds, by_task(self.pid, seconds_run)) + waited_for

    def load_percent(self):
        return 100 * self.seconds_spent() / (time.monotonic() - self.began)
