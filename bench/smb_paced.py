"""Runs in a host: reads or writes a file over SMB, with a pause after each call.

Like the clients of quillbox-bench-load, it prints a line of JSON when it is connected, starts at a
line of standard input, prints its result, and stays connected until standard input ends.
"""

import json
import math
import os
import sys
import time

# A client that is later than this does not catch up: it would not pause any more.
LATEST = 0.02


def percentile(times, share):
    """The time that this share of all times does not exceed."""
    return sorted(times)[max(0, math.ceil(share * len(times)) - 1)]


def result(times, chunk, seconds):
    """The members of the result, with times in microseconds."""
    found = {"bytes": len(times) * chunk, "seconds": seconds, "count": len(times)}
    for name, share in (("p50", 0.5), ("p99", 0.99), ("p999", 0.999)):
        found[name] = percentile(times, share) * 1e6
    return found


def repeat(call, pause, seconds, clock=time.monotonic, sleep=time.sleep):
    """Makes a call each `pause` seconds; returns how long each took, and the time of them all."""
    began = due = clock()
    times = []
    while due < began + seconds:
        sleep(max(0, due - clock()))
        started = clock()
        call()
        times.append(clock() - started)
        due = max(due + pause, clock() - LATEST)
    # The last pause belongs to the transfer, too.
    sleep(max(0, due - clock()))
    return times, clock() - began


class PacedFile:
    """A file on a server, of which one chunk after the other is read or written."""

    def __init__(self, file, chunk):
        self._file = file
        self._size = file.lseek(0, os.SEEK_END) // chunk * chunk
        self._block = bytes(chunk)
        self._offset = 0
        file.lseek(0, os.SEEK_SET)

    def read(self):
        if len(self._file.read(len(self._block))) != len(self._block):
            raise EOFError("the server has sent less than a chunk")
        self._advance()

    def write(self):
        self._file.write(self._block)
        self._advance()

    def _advance(self):
        self._offset += len(self._block)
        if self._offset == self._size:
            self._offset = 0
            self._file.lseek(0, os.SEEK_SET)


def tell(**what):
    print(json.dumps(what), flush=True)


def main():
    # Only here: the tests of the functions above do without it.
    import smbc

    what, url, user, password, *numbers = sys.argv[1:]
    pace, chunk = map(int, numbers[:2])
    seconds = float(numbers[2])
    context = smbc.Context(auth_fn=lambda _server, _share, group, *_: (group, user, password))
    file = PacedFile(context.open(url, os.O_RDWR), chunk)
    call = {"read": file.read, "write": file.write}[what]
    # The first calls grow TCP windows and SMB credits.
    for _ in range(8):
        call()
    tell(connected=1)
    if not sys.stdin.readline():
        return
    times, elapsed = repeat(call, chunk / pace, seconds)
    tell(**result(times, chunk, elapsed))
    sys.stdin.read()


if __name__ == "__main__":
    main()
