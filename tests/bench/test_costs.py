"""What processes cost, as the kernel reports it in /proc."""

import os
import signal
import subprocess
import sys

import costs
from rig.process import wait_until


def child(code):
    """Starts a Python process that has run `code` and then waits for a line of input."""
    command = [sys.executable, "-c", code + "\nprint(flush=True)\ninput()"]
    made = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    made.stdout.readline()
    return made


def end(process):
    process.communicate(b"\n", timeout=10)


def test_a_name_with_blanks_and_brackets_does_not_shift_the_fields():
    assert costs.stat_fields("12 (a) b (c)) S 7 8")[:2] == ["S", "7"]


def test_a_family_is_a_process_and_all_that_descend_from_it():
    assert sorted(costs.family(1, {2: 1, 3: 2, 4: 9, 5: 3})) == [1, 2, 3, 5]


def test_the_family_of_a_real_process_has_its_child():
    process = child("")
    assert process.pid in costs.family(os.getpid())
    end(process)


def test_the_time_of_a_process_and_of_the_children_it_waited_for_is_counted():
    burn = "import time\nend = time.process_time() + 0.2\nwhile time.process_time() < end: pass"
    process = child(burn)
    assert 0.2 <= costs.cpu_seconds(process.pid) < 2
    end(process)
    parent = child(f"import subprocess, sys\nsubprocess.run([sys.executable, '-c', {burn!r}])")
    assert 0.2 <= costs.cpu_seconds(parent.pid) < 2
    end(parent)


def test_memory_that_is_touched_is_counted():
    small, large = child(""), child("block = b'x' * (20 << 20)")
    for cost in (costs.pss_kib, costs.own_kib):
        assert 19 << 10 < cost(large.pid) - cost(small.pid) < 24 << 10
    end(small)
    end(large)


def test_memory_of_a_file_is_not_a_process_of_its_own(tmp_path):
    path = tmp_path / "file"
    path.write_bytes(b"x" * (20 << 20))
    code = f"""import mmap
with open({str(path)!r}, "rb") as file:
    block = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
sum(block[::4096])"""
    small, large = child(""), child(code)
    assert costs.pss_kib(large.pid) - costs.pss_kib(small.pid) > 19 << 10
    assert abs(costs.own_kib(large.pid) - costs.own_kib(small.pid)) < 2 << 10
    end(small)
    end(large)


def test_threads_and_the_switches_of_all_of_them_are_counted():
    wait = "threading.Thread(target=threading.Event().wait, daemon=True).start()"
    process = child(f"import threading\nfor _ in range(3): {wait}")
    assert costs.threads(process.pid) == 4

    def by_others():
        own = costs.read(f"/proc/{process.pid}/task/{process.pid}/status")
        own = sum(costs.number_after(own, f"{kind}voluntary_ctxt_switches") for kind in ("", "non"))
        return costs.switches(process.pid) - own

    # Each of the other threads blocks, so it has been switched away from at least once.
    wait_until(lambda: by_others() >= 3, 10, "switches of the other threads")
    end(process)


def test_a_thread_that_ends_takes_nothing_of_what_others_gained_along():
    before = {"1": 10, "2": 40}
    assert costs.gained(before, {"1": 13, "3": 2}) == 5


# A thread that sleeps, and is switched to, a hundred times. When it ends, its count is lost.
THREAD_THAT_ENDS = """import signal, threading, time
ready, gate = threading.Event(), threading.Event()
signal.signal(signal.SIGUSR1, lambda *_: gate.set())
def work():
    for _ in range(100):
        time.sleep(0.001)
    ready.set()
    gate.wait()
threading.Thread(target=work).start()
ready.wait()"""


def test_a_meter_survives_the_end_of_a_thread():
    process = child(THREAD_THAT_ENDS)
    meter = costs.Meter(process.pid)
    process.send_signal(signal.SIGUSR1)
    wait_until(lambda: costs.threads(process.pid) == 1, 10, "the end of the thread")
    assert meter.wake_ups() >= 0
    assert meter.seconds_spent() >= 0
    end(process)


# A child that waits a hundred times, and burns a fifth of a second, once it has got a line.
PARENT_OF_ONE_AT_WORK = """import subprocess, sys
work = '''
import time
print(flush=True)
input()
end = time.process_time() + 0.2
while time.process_time() < end: pass
for _ in range(100):
    time.sleep(0.001)
print(flush=True)
input()
'''
made = subprocess.Popen([sys.executable, "-c", work], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
made.stdout.readline()
print(flush=True)
input()
made.stdin.write(b"\\n")
made.stdin.flush()
made.stdout.readline()"""


def test_a_meter_of_a_family_counts_what_children_do_meanwhile():
    parent = subprocess.Popen(
        [sys.executable, "-c", PARENT_OF_ONE_AT_WORK + "\nprint(flush=True)\ninput()"],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
    )
    parent.stdout.readline()
    meter = costs.FamilyMeter([parent.pid])
    parent.stdin.write(b"\n")
    parent.stdin.flush()
    parent.stdout.readline()
    spent = meter.spent()
    assert 0.2 <= spent.seconds < 2
    assert 100 <= spent.voluntary <= spent.switched
    end(parent)


def test_waiting_is_counted_apart_from_being_interrupted():
    process = child("end = __import__('time').process_time() + 0.2\n"
                    "while __import__('time').process_time() < end: pass")
    # It is about to wait for its input, which must not happen between two of the following reads.
    process.send_signal(signal.SIGSTOP)
    os.waitid(os.P_PID, process.pid, os.WSTOPPED)
    own = f"/proc/{process.pid}/task/{process.pid}"
    text = costs.read(f"{own}/status")
    assert costs.voluntary_switches(own) == costs.number_after(text, "voluntary_ctxt_switches")
    interrupted = costs.number_after(text, "nonvoluntary_ctxt_switches")
    assert costs.times_switched(own) == costs.voluntary_switches(own) + interrupted
    process.send_signal(signal.SIGCONT)
    end(process)


def test_all_threads_of_a_family_are_pinned():
    waiting = "import threading\nthreading.Thread(target=threading.Event().wait, daemon=True).start()"
    parent = child(
        "import subprocess, sys\n"
        "made = subprocess.Popen([sys.executable, '-c', 'input()'], stdin=subprocess.PIPE)\n" + waiting
    )
    before = costs.processors(parent.pid)
    one = {min(before)}
    members = costs.family(parent.pid)
    assert len(members) == 2
    costs.pin(parent.pid, one)
    found = [os.sched_getaffinity(int(task)) for pid in members for task in costs.tasks(pid)]
    assert found == [one] * 3
    costs.pin(parent.pid, before)
    assert costs.processors(members[1]) == before
    end(parent)


def test_a_process_that_is_gone_costs_nothing():
    process = child("")
    end(process)
    for cost in (costs.cpu_seconds, costs.pss_kib, costs.own_kib, costs.switches, costs.threads):
        assert cost(process.pid) == 0
